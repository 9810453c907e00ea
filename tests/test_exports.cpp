// The library exports exactly the catalogue: 98 plain names and the type-decorated
// name of QZRCFA_Laplacian2_RGGB, and nothing else.
#include <dlfcn.h>
#include <elf.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <type_traits>
#include <vector>

#include "qzrcfa.h"

namespace {

const char* const kPlainNames[] = {
    "QZRCFA_NearestNeighbor_Edge1_RGGB",
    "QZRCFA_NearestNeighbor_Edge1_BGGR",
    "QZRCFA_NearestNeighbor_Edge1_GRBG",
    "QZRCFA_NearestNeighbor_Edge1_GBRG",
    "QZRCFA_NearestNeighbor_Edge1_RGGB_Flip",
    "QZRCFA_NearestNeighbor_Edge1_BGGR_Flip",
    "QZRCFA_NearestNeighbor_Edge1_GRBG_Flip",
    "QZRCFA_NearestNeighbor_Edge1_GBRG_Flip",
    "QZRCFA_NearestNeighbor_Edge1_RGGB_16Bits",
    "QZRCFA_NearestNeighbor_Edge1_BGGR_16Bits",
    "QZRCFA_NearestNeighbor_Edge1_GRBG_16Bits",
    "QZRCFA_NearestNeighbor_Edge1_GBRG_16Bits",
    "QZRCFA_NearestNeighbor_Edge1_RGGB_Flip_16Bits",
    "QZRCFA_NearestNeighbor_Edge1_BGGR_Flip_16Bits",
    "QZRCFA_NearestNeighbor_Edge1_GRBG_Flip_16Bits",
    "QZRCFA_NearestNeighbor_Edge1_GBRG_Flip_16Bits",
    "QZRCFA_NearestNeighbor_Edge2_RGGB",
    "QZRCFA_NearestNeighbor_Edge2_BGGR",
    "QZRCFA_NearestNeighbor_Edge2_GRBG",
    "QZRCFA_NearestNeighbor_Edge2_GBRG",
    "QZRCFA_NearestNeighbor_Edge2_RGGB_Flip",
    "QZRCFA_NearestNeighbor_Edge2_BGGR_Flip",
    "QZRCFA_NearestNeighbor_Edge2_GRBG_Flip",
    "QZRCFA_NearestNeighbor_Edge2_GBRG_Flip",
    "QZRCFA_NearestNeighbor_RGGB",
    "QZRCFA_NearestNeighbor_BGGR",
    "QZRCFA_NearestNeighbor_GRBG",
    "QZRCFA_NearestNeighbor_GBRG",
    "QZRCFA_NearestNeighbor_RGGB_Flip",
    "QZRCFA_NearestNeighbor_BGGR_Flip",
    "QZRCFA_NearestNeighbor_GRBG_Flip",
    "QZRCFA_NearestNeighbor_GBRG_Flip",
    "QZRCFA_NearestNeighbor_RGGB_16Bits",
    "QZRCFA_NearestNeighbor_BGGR_16Bits",
    "QZRCFA_NearestNeighbor_GRBG_16Bits",
    "QZRCFA_NearestNeighbor_GBRG_16Bits",
    "QZRCFA_NearestNeighbor_RGGB_Flip_16Bits",
    "QZRCFA_NearestNeighbor_BGGR_Flip_16Bits",
    "QZRCFA_NearestNeighbor_GRBG_Flip_16Bits",
    "QZRCFA_NearestNeighbor_GBRG_Flip_16Bits",
    "QZRCFA_NearestNeighbor_RGGB_Gray",
    "QZRCFA_NearestNeighbor_BGGR_Gray",
    "QZRCFA_NearestNeighbor_GRBG_Gray",
    "QZRCFA_NearestNeighbor_GBRG_Gray",
    "QZRCFA_NearestNeighbor_RGGB_Gray_Flip",
    "QZRCFA_NearestNeighbor_BGGR_Gray_Flip",
    "QZRCFA_NearestNeighbor_GRBG_Gray_Flip",
    "QZRCFA_NearestNeighbor_GBRG_Gray_Flip",
    "QZRCFA_NearestNeighbor_RGGB_Gray_16Bits",
    "QZRCFA_NearestNeighbor_BGGR_Gray_16Bits",
    "QZRCFA_NearestNeighbor_GRBG_Gray_16Bits",
    "QZRCFA_NearestNeighbor_GBRG_Gray_16Bits",
    "QZRCFA_NearestNeighbor_RGGB_Gray_Flip_16Bits",
    "QZRCFA_NearestNeighbor_BGGR_Gray_Flip_16Bits",
    "QZRCFA_NearestNeighbor_GRBG_Gray_Flip_16Bits",
    "QZRCFA_NearestNeighbor_GBRG_Gray_Flip_16Bits",
    "QZRCFA_Bilinear_RGGB",
    "QZRCFA_Bilinear_BGGR",
    "QZRCFA_Bilinear_GRBG",
    "QZRCFA_Bilinear_GBRG",
    "QZRCFA_Bilinear_RGGB_Flip",
    "QZRCFA_Bilinear_BGGR_Flip",
    "QZRCFA_Bilinear_GRBG_Flip",
    "QZRCFA_Bilinear_GBRG_Flip",
    "QZRCFA_FastBilinear_RGGB",
    "QZRCFA_FastBilinear_BGGR",
    "QZRCFA_FastBilinear_GRBG",
    "QZRCFA_FastBilinear_GBRG",
    "QZRCFA_FastBilinear_RGGB_Flip",
    "QZRCFA_FastBilinear_BGGR_Flip",
    "QZRCFA_FastBilinear_GRBG_Flip",
    "QZRCFA_FastBilinear_GBRG_Flip",
    "QZRCFA_EdgeSensing2_RGGB",
    "QZRCFA_EdgeSensing2_RGGB_Flip",
    "QZRCFA_EdgeSensing1_RGGB",
    "QZRCFA_EdgeSensing1_BGGR",
    "QZRCFA_EdgeSensing1_GRBG",
    "QZRCFA_EdgeSensing1_GBRG",
    "QZRCFA_EdgeSensing1_RGGB_Flip",
    "QZRCFA_EdgeSensing1_BGGR_Flip",
    "QZRCFA_EdgeSensing1_GRBG_Flip",
    "QZRCFA_EdgeSensing1_GBRG_Flip",
    "QZRCFA_Laplacian_RGGB",
    "QZRCFA_Laplacian_BGGR",
    "QZRCFA_Laplacian_GRBG",
    "QZRCFA_Laplacian_GBRG",
    "QZRCFA_Laplacian_RGGB_Flip",
    "QZRCFA_Laplacian_BGGR_Flip",
    "QZRCFA_Laplacian_GRBG_Flip",
    "QZRCFA_Laplacian_GBRG_Flip",
    "QZRCFA_SmoothHue_RGGB",
    "QZRCFA_SmoothHue_BGGR",
    "QZRCFA_SmoothHue_GRBG",
    "QZRCFA_SmoothHue_GBRG",
    "QZRCFA_SmoothHue_RGGB_Flip",
    "QZRCFA_SmoothHue_BGGR_Flip",
    "QZRCFA_SmoothHue_GRBG_Flip",
    "QZRCFA_SmoothHue_GBRG_Flip",
};

// Itanium C++ ABI name of int QZRCFA_Laplacian2_RGGB(unsigned char*, int, int, unsigned char*, unsigned short).
const char kLaplacian2Decorated[] = "_Z22QZRCFA_Laplacian2_RGGBPhiiS_t";

std::set<std::string> catalogue() {
    std::set<std::string> all(std::begin(kPlainNames), std::end(kPlainNames));
    all.insert(kLaplacian2Decorated);
    return all;
}

// Defined global and weak symbols of the dynamic symbol table of an ELF64 file.
std::set<std::string> defined_dynamic_symbols(const char* path) {
    std::ifstream in(path, std::ios::binary);
    std::vector<char> file((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    std::set<std::string> out;
    if (file.size() < sizeof(Elf64_Ehdr)) return out;
    Elf64_Ehdr eh;
    std::memcpy(&eh, file.data(), sizeof eh);
    std::vector<Elf64_Shdr> sections(eh.e_shnum);
    std::memcpy(sections.data(), file.data() + eh.e_shoff, sizeof(Elf64_Shdr) * eh.e_shnum);
    for (const Elf64_Shdr& sh : sections) {
        if (sh.sh_type != SHT_DYNSYM) continue;
        const char* strings = file.data() + sections[sh.sh_link].sh_offset;
        for (std::size_t i = 0; i < sh.sh_size / sizeof(Elf64_Sym); ++i) {
            Elf64_Sym sym;
            std::memcpy(&sym, file.data() + sh.sh_offset + i * sizeof sym, sizeof sym);
            const int bind = ELF64_ST_BIND(sym.st_info);
            if (sym.st_shndx == SHN_UNDEF || (bind != STB_GLOBAL && bind != STB_WEAK)) continue;
            if (ELF64_ST_VISIBILITY(sym.st_other) != STV_DEFAULT) continue;
            out.insert(strings + sym.st_name);
        }
    }
    return out;
}

TEST(Exports, TheLibraryExportsTheCatalogueAndNothingElse) {
    EXPECT_EQ(catalogue().size(), 99u);
    EXPECT_EQ(defined_dynamic_symbols(QZRCFA_LIBRARY_PATH), catalogue());
}

TEST(Exports, EveryNameResolvesThroughDlopen) {
    void* lib = dlopen(QZRCFA_LIBRARY_PATH, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(lib, nullptr) << dlerror();
    for (const std::string& name : catalogue()) {
        EXPECT_NE(dlsym(lib, name.c_str()), nullptr) << name;
    }
    // The Laplacian2 entry point has C++ linkage only.
    EXPECT_EQ(dlsym(lib, "QZRCFA_Laplacian2_RGGB"), nullptr);
    dlclose(lib);
}

TEST(Exports, TheLibraryHasItsSoname) {
    std::string path = QZRCFA_LIBRARY_PATH;
    std::ifstream in(path, std::ios::binary);
    std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    EXPECT_NE(bytes.find("libqzrcfa.so.1"), std::string::npos);
}

// The header declares every export with the interface's exact types.
using Colour8 = int(unsigned char*, int, int, unsigned char*, unsigned short);
using Colour16 = int(unsigned short*, int, int, unsigned short*, unsigned short);
using Grey8 = int(unsigned char*, int, int, unsigned char*);
using Grey16 = int(unsigned short*, int, int, unsigned short*);
static_assert(std::is_same_v<decltype(QZRCFA_Laplacian2_RGGB), Colour8>);
static_assert(std::is_same_v<decltype(QZRCFA_SmoothHue_BGGR_Flip), Colour8>);
static_assert(std::is_same_v<decltype(QZRCFA_FastBilinear_GBRG_Flip), Colour8>);
static_assert(std::is_same_v<decltype(QZRCFA_NearestNeighbor_Edge2_GRBG_Flip), Colour8>);
static_assert(std::is_same_v<decltype(QZRCFA_NearestNeighbor_GBRG_Flip_16Bits), Colour16>);
static_assert(std::is_same_v<decltype(QZRCFA_NearestNeighbor_Edge1_BGGR_Flip_16Bits), Colour16>);
static_assert(std::is_same_v<decltype(QZRCFA_NearestNeighbor_GRBG_Gray_Flip), Grey8>);
static_assert(std::is_same_v<decltype(QZRCFA_NearestNeighbor_RGGB_Gray_Flip_16Bits), Grey16>);

}  // namespace
