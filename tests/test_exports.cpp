// The library exports exactly the catalogue, written out here from the naming rule:
// 98 plain names and the type-decorated name of QZRCFA_Laplacian2_RGGB, nothing else;
// the header declares each of them with the interface's types (model.h takes every
// declaration's address as one of the four signatures), and compiles as C99
// (header_c99.c).
#include <elf.h>
#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <vector>

#include "model.h"

namespace {

const char kLaplacian2Decorated[] = "_Z22QZRCFA_Laplacian2_RGGBPhiiS_t";

std::set<std::string> catalogue() {
    std::set<std::string> out{"QZRCFA_EdgeSensing2_RGGB", "QZRCFA_EdgeSensing2_RGGB_Flip", kLaplacian2Decorated};
    for (const std::string p : {"RGGB", "BGGR", "GRBG", "GBRG"}) {
        for (const std::string flip : {"", "_Flip"}) {
            for (const char* method : {"NearestNeighbor_Edge1_", "NearestNeighbor_Edge2_", "NearestNeighbor_", "Bilinear_",
                                       "FastBilinear_", "EdgeSensing1_", "Laplacian_", "SmoothHue_"})
                out.insert("QZRCFA_" + std::string(method) + p + flip);
            out.insert("QZRCFA_NearestNeighbor_Edge1_" + p + flip + "_16Bits");
            out.insert("QZRCFA_NearestNeighbor_" + p + flip + "_16Bits");
            out.insert("QZRCFA_NearestNeighbor_" + p + "_Gray" + flip);
            out.insert("QZRCFA_NearestNeighbor_" + p + "_Gray" + flip + "_16Bits");
        }
    }
    return out;
}

// Defined global and weak symbols of default visibility in the dynamic symbol table
// of an ELF64 file.
std::set<std::string> defined_dynamic_symbols(const std::string& file) {
    std::set<std::string> out;
    if (file.size() < sizeof(Elf64_Ehdr)) return out;
    Elf64_Ehdr eh;
    std::memcpy(&eh, file.data(), sizeof eh);
    std::vector<Elf64_Shdr> sections(eh.e_shnum);
    std::memcpy(sections.data(), file.data() + eh.e_shoff, sizeof(Elf64_Shdr) * eh.e_shnum);
    for (const Elf64_Shdr& sh : sections) {
        if (sh.sh_type != SHT_DYNSYM) continue;
        for (std::size_t i = 0; i < sh.sh_size / sizeof(Elf64_Sym); ++i) {
            Elf64_Sym sym;
            std::memcpy(&sym, file.data() + sh.sh_offset + i * sizeof sym, sizeof sym);
            const int bind = ELF64_ST_BIND(sym.st_info);
            if (sym.st_shndx == SHN_UNDEF || (bind != STB_GLOBAL && bind != STB_WEAK)) continue;
            if (ELF64_ST_VISIBILITY(sym.st_other) == STV_DEFAULT)
                out.insert(file.data() + sections[sh.sh_link].sh_offset + sym.st_name);
        }
    }
    return out;
}

TEST(Exports, TheLibraryExportsTheCatalogueAndNothingElse) {
    std::ifstream in(QZRCFA_LIBRARY_PATH, std::ios::binary);
    const std::string file((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    EXPECT_EQ(catalogue().size(), 99u);
    EXPECT_EQ(defined_dynamic_symbols(file), catalogue());
    EXPECT_NE(file.find("libqzrcfa.so.1"), std::string::npos) << "SONAME";
}

TEST(Exports, TheHeaderDeclaresTheCatalogueWithItsTypes) {
    std::set<std::string> declared;
    for (const qzrcfa::model::Member& m : qzrcfa::model::kMembers) {
        declared.insert(m.name);
        EXPECT_EQ(m.entry.grey, std::strstr(m.name, "_Gray") != nullptr) << m.name;
        EXPECT_EQ(m.entry.wide, std::strstr(m.name, "_16Bits") != nullptr) << m.name;
    }
    std::set<std::string> expected = catalogue();
    expected.erase(kLaplacian2Decorated);
    expected.insert("QZRCFA_Laplacian2_RGGB");
    EXPECT_EQ(declared, expected);
}

}  // namespace
