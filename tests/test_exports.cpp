// The library exports exactly the catalogue: its plain names and, for the member of C++
// linkage, the name the C++ ABI gives its signature, nothing else. The header declares
// exactly the catalogue's functions, each with its signature (model.h takes every one's
// address through the header as one of the four, so a wrong type does not compile and a
// wrong linkage does not link), and compiles as C99 (header_c99.c).
#include <elf.h>
#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <iterator>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include "catalogue/catalogue.h"
#include "model.h"

namespace {

namespace catalogue = qzrcfa::catalogue;

std::string slurp(const char* path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
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
    std::set<std::string> symbols;
    for (const catalogue::Entry& e : catalogue::kEntries) symbols.insert(std::string(catalogue::SymbolName(e).view()));
    EXPECT_EQ(symbols.size(), 99u);
    EXPECT_TRUE(symbols.count("_Z22QZRCFA_Laplacian2_RGGBPhiiS_t"));
    const std::string file = slurp(QZRCFA_LIBRARY_PATH);
    EXPECT_EQ(defined_dynamic_symbols(file), symbols);
    EXPECT_NE(file.find("libqzrcfa.so.1"), std::string::npos) << "SONAME";
}

// Every declaration of the header, by name: its parameters as written, and whether it
// stands inside the extern "C" block.
TEST(Exports, TheHeaderDeclaresTheCatalogueWithItsSignaturesAndLinkage) {
    const std::string header = slurp(QZRCFA_HEADER_PATH);
    const std::size_t c_end = header.find("} /* extern \"C\" */");
    ASSERT_NE(c_end, std::string::npos);
    const std::regex declaration(R"(QZRCFA_API int QZRCFA_(\w+)\(([^)]*)\);)");
    std::set<std::string> declared;
    for (auto it = std::sregex_iterator(header.begin(), header.end(), declaration); it != std::sregex_iterator(); ++it) {
        const std::string name = (*it)[1];
        const std::size_t i = catalogue::find(name);
        ASSERT_NE(i, catalogue::kCount) << name << " is declared but not in the catalogue";
        const catalogue::Entry& e = catalogue::kEntries[i];
        const std::string type = catalogue::depth(e.signature) == 16 ? "unsigned short" : "unsigned char";
        std::string params = type + "* src, int width, int height, " + type + "* dst";
        if (!catalogue::grey(e.signature)) params += ", unsigned short bitCount";
        EXPECT_EQ(std::regex_replace(std::string((*it)[2]), std::regex(R"(\s+)"), " "), params) << name;
        EXPECT_EQ(std::size_t(it->position()) < c_end, e.linkage == catalogue::Linkage::C) << name;
        declared.insert(name);
    }
    EXPECT_EQ(declared.size(), catalogue::kCount);
    // Through the header, each export has the catalogue's signature.
    for (const qzrcfa::model::Member& m : qzrcfa::model::kMembers) {
        const catalogue::Entry& e = catalogue::kEntries[catalogue::find(m.name + 7)];
        EXPECT_EQ(m.entry.grey, catalogue::grey(e.signature)) << m.name;
        EXPECT_EQ(m.entry.wide, catalogue::depth(e.signature) == 16) << m.name;
    }
}

}  // namespace
