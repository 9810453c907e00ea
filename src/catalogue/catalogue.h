// The catalogue: every member of the interface, once. Everything that lists members is
// generated from it: the exports' definitions (src/exports.cpp), the declarations of
// the member descriptions (catalogue/members.h), the extended library's runners and the
// requests it serves (src/ext/runners.cpp, src/ext/requests.cpp), and the tests' list
// of exports. include/qzrcfa.h declares the same functions written out, for C; a test
// holds it to this list.
//
// QZRCFA_CATALOGUE(X) calls X(name, linkage, signature, how, what) for each member:
//   name       the export is QZRCFA_<name>;
//   linkage    C, or Cxx for the one export with C++ linkage (QZRCFA_Laplacian2_RGGB);
//   signature  Colour8, Colour16 (src, width, height, dst, bitCount), Grey8, Grey16
//              (src, width, height, dst), by the samples' width;
//   how, what  Runs and a family: the member runs its description
//              qzrcfa::members::<name>, an entry of that family's member table (the
//              family names the description's type, catalogue/members.h);
//              Forward and an export's name: the member hands its arguments to that
//              export; Gate and an export's name: to that export when bitCount is 24 or
//              32, else it returns -1.
// A new member of the interface is one row here and its entry in its family's member
// table.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

// clang-format off
#define QZRCFA_CATALOGUE(X)                                                                     \
    X(NearestNeighbor_Edge1_RGGB, C, Colour8, Runs, Edge1)                                      \
    X(NearestNeighbor_Edge1_BGGR, C, Colour8, Runs, Edge1)                                      \
    X(NearestNeighbor_Edge1_GRBG, C, Colour8, Runs, Edge1)                                      \
    X(NearestNeighbor_Edge1_GBRG, C, Colour8, Runs, Edge1)                                      \
    X(NearestNeighbor_Edge1_RGGB_Flip, C, Colour8, Runs, Edge1)                                 \
    X(NearestNeighbor_Edge1_BGGR_Flip, C, Colour8, Runs, Edge1)                                 \
    X(NearestNeighbor_Edge1_GRBG_Flip, C, Colour8, Runs, Edge1)                                 \
    X(NearestNeighbor_Edge1_GBRG_Flip, C, Colour8, Runs, Edge1)                                 \
    X(NearestNeighbor_Edge1_RGGB_16Bits, C, Colour16, Runs, Edge1)                              \
    X(NearestNeighbor_Edge1_BGGR_16Bits, C, Colour16, Runs, Edge1)                              \
    X(NearestNeighbor_Edge1_GRBG_16Bits, C, Colour16, Runs, Edge1)                              \
    X(NearestNeighbor_Edge1_GBRG_16Bits, C, Colour16, Runs, Edge1)                              \
    X(NearestNeighbor_Edge1_RGGB_Flip_16Bits, C, Colour16, Runs, Edge1)                         \
    X(NearestNeighbor_Edge1_BGGR_Flip_16Bits, C, Colour16, Runs, Edge1)                         \
    X(NearestNeighbor_Edge1_GRBG_Flip_16Bits, C, Colour16, Runs, Edge1)                         \
    X(NearestNeighbor_Edge1_GBRG_Flip_16Bits, C, Colour16, Runs, Edge1)                         \
    X(NearestNeighbor_Edge2_RGGB, C, Colour8, Runs, Edge2)                                      \
    X(NearestNeighbor_Edge2_BGGR, C, Colour8, Runs, Edge2)                                      \
    X(NearestNeighbor_Edge2_GRBG, C, Colour8, Runs, Edge2)                                      \
    X(NearestNeighbor_Edge2_GBRG, C, Colour8, Runs, Edge2)                                      \
    X(NearestNeighbor_Edge2_RGGB_Flip, C, Colour8, Runs, Edge2)                                 \
    X(NearestNeighbor_Edge2_BGGR_Flip, C, Colour8, Runs, Edge2)                                 \
    X(NearestNeighbor_Edge2_GRBG_Flip, C, Colour8, Runs, Edge2)                                 \
    X(NearestNeighbor_Edge2_GBRG_Flip, C, Colour8, Runs, Edge2)                                 \
    X(NearestNeighbor_RGGB, C, Colour8, Runs, Nearest)                                          \
    X(NearestNeighbor_BGGR, C, Colour8, Runs, Nearest)                                          \
    X(NearestNeighbor_GRBG, C, Colour8, Runs, Nearest)                                          \
    X(NearestNeighbor_GBRG, C, Colour8, Runs, Nearest)                                          \
    X(NearestNeighbor_RGGB_Flip, C, Colour8, Runs, Nearest)                                     \
    X(NearestNeighbor_BGGR_Flip, C, Colour8, Runs, Nearest)                                     \
    X(NearestNeighbor_GRBG_Flip, C, Colour8, Runs, Nearest)                                     \
    X(NearestNeighbor_GBRG_Flip, C, Colour8, Runs, Nearest)                                     \
    X(NearestNeighbor_RGGB_16Bits, C, Colour16, Runs, Nearest16)                                \
    X(NearestNeighbor_BGGR_16Bits, C, Colour16, Runs, Nearest16)                                \
    X(NearestNeighbor_GRBG_16Bits, C, Colour16, Runs, Nearest16)                                \
    X(NearestNeighbor_GBRG_16Bits, C, Colour16, Runs, Nearest16)                                \
    X(NearestNeighbor_RGGB_Flip_16Bits, C, Colour16, Runs, Nearest16)                           \
    X(NearestNeighbor_BGGR_Flip_16Bits, C, Colour16, Runs, Nearest16)                           \
    X(NearestNeighbor_GRBG_Flip_16Bits, C, Colour16, Runs, Nearest16)                           \
    X(NearestNeighbor_GBRG_Flip_16Bits, C, Colour16, Runs, Nearest16)                           \
    X(NearestNeighbor_RGGB_Gray, C, Grey8, Runs, Grey)                                          \
    X(NearestNeighbor_BGGR_Gray, C, Grey8, Runs, Grey)                                          \
    X(NearestNeighbor_GRBG_Gray, C, Grey8, Runs, Grey)                                          \
    X(NearestNeighbor_GBRG_Gray, C, Grey8, Runs, Grey)                                          \
    X(NearestNeighbor_RGGB_Gray_Flip, C, Grey8, Runs, Grey)                                     \
    X(NearestNeighbor_BGGR_Gray_Flip, C, Grey8, Forward, NearestNeighbor_RGGB_Gray_Flip)        \
    X(NearestNeighbor_GRBG_Gray_Flip, C, Grey8, Forward, NearestNeighbor_RGGB_Gray_Flip)        \
    X(NearestNeighbor_GBRG_Gray_Flip, C, Grey8, Forward, NearestNeighbor_RGGB_Gray_Flip)        \
    X(NearestNeighbor_RGGB_Gray_16Bits, C, Grey16, Runs, Grey)                                  \
    X(NearestNeighbor_BGGR_Gray_16Bits, C, Grey16, Runs, Grey)                                  \
    X(NearestNeighbor_GRBG_Gray_16Bits, C, Grey16, Runs, Grey)                                  \
    X(NearestNeighbor_GBRG_Gray_16Bits, C, Grey16, Runs, Grey)                                  \
    X(NearestNeighbor_RGGB_Gray_Flip_16Bits, C, Grey16, Runs, Grey)                             \
    X(NearestNeighbor_BGGR_Gray_Flip_16Bits, C, Grey16, Forward, NearestNeighbor_RGGB_Gray_Flip_16Bits) \
    X(NearestNeighbor_GRBG_Gray_Flip_16Bits, C, Grey16, Forward, NearestNeighbor_RGGB_Gray_Flip_16Bits) \
    X(NearestNeighbor_GBRG_Gray_Flip_16Bits, C, Grey16, Forward, NearestNeighbor_RGGB_Gray_Flip_16Bits) \
    X(Bilinear_RGGB, C, Colour8, Runs, Bilinear)                                                \
    X(Bilinear_BGGR, C, Colour8, Runs, Bilinear)                                                \
    X(Bilinear_GRBG, C, Colour8, Runs, Bilinear)                                                \
    X(Bilinear_GBRG, C, Colour8, Runs, Bilinear)                                                \
    X(Bilinear_RGGB_Flip, C, Colour8, Runs, Bilinear)                                           \
    X(Bilinear_BGGR_Flip, C, Colour8, Runs, Bilinear)                                           \
    X(Bilinear_GRBG_Flip, C, Colour8, Runs, Bilinear)                                           \
    X(Bilinear_GBRG_Flip, C, Colour8, Runs, Bilinear)                                           \
    X(FastBilinear_RGGB, C, Colour8, Gate, Bilinear_RGGB)                                       \
    X(FastBilinear_BGGR, C, Colour8, Gate, Bilinear_BGGR)                                       \
    X(FastBilinear_GRBG, C, Colour8, Gate, Bilinear_GRBG)                                       \
    X(FastBilinear_GBRG, C, Colour8, Gate, Bilinear_GBRG)                                       \
    X(FastBilinear_RGGB_Flip, C, Colour8, Gate, Bilinear_RGGB_Flip)                             \
    X(FastBilinear_BGGR_Flip, C, Colour8, Gate, Bilinear_BGGR_Flip)                             \
    X(FastBilinear_GRBG_Flip, C, Colour8, Gate, Bilinear_GRBG_Flip)                             \
    X(FastBilinear_GBRG_Flip, C, Colour8, Gate, Bilinear_GBRG_Flip)                             \
    X(EdgeSensing2_RGGB, C, Colour8, Runs, EdgeSensing)                                         \
    X(EdgeSensing2_RGGB_Flip, C, Colour8, Runs, EdgeSensing)                                    \
    X(EdgeSensing1_RGGB, C, Colour8, Forward, EdgeSensing2_RGGB)                                \
    X(EdgeSensing1_BGGR, C, Colour8, Runs, EdgeSensing)                                         \
    X(EdgeSensing1_GRBG, C, Colour8, Runs, EdgeSensing)                                         \
    X(EdgeSensing1_GBRG, C, Colour8, Runs, EdgeSensing)                                         \
    X(EdgeSensing1_RGGB_Flip, C, Colour8, Forward, EdgeSensing2_RGGB_Flip)                      \
    X(EdgeSensing1_BGGR_Flip, C, Colour8, Runs, EdgeSensing)                                    \
    X(EdgeSensing1_GRBG_Flip, C, Colour8, Runs, EdgeSensing)                                    \
    X(EdgeSensing1_GBRG_Flip, C, Colour8, Runs, EdgeSensing)                                    \
    X(Laplacian_RGGB, C, Colour8, Runs, Laplacian)                                              \
    X(Laplacian_BGGR, C, Colour8, Runs, Laplacian)                                              \
    X(Laplacian_GRBG, C, Colour8, Runs, Laplacian)                                              \
    X(Laplacian_GBRG, C, Colour8, Runs, Laplacian)                                              \
    X(Laplacian_RGGB_Flip, C, Colour8, Runs, Laplacian)                                         \
    X(Laplacian_BGGR_Flip, C, Colour8, Runs, Laplacian)                                         \
    X(Laplacian_GRBG_Flip, C, Colour8, Runs, Laplacian)                                         \
    X(Laplacian_GBRG_Flip, C, Colour8, Runs, Laplacian)                                         \
    X(Laplacian2_RGGB, Cxx, Colour8, Runs, Laplacian)                                           \
    X(SmoothHue_RGGB, C, Colour8, Runs, SmoothHue)                                              \
    X(SmoothHue_BGGR, C, Colour8, Runs, SmoothHue)                                              \
    X(SmoothHue_GRBG, C, Colour8, Runs, SmoothHue)                                              \
    X(SmoothHue_GBRG, C, Colour8, Runs, SmoothHue)                                              \
    X(SmoothHue_RGGB_Flip, C, Colour8, Runs, SmoothHue)                                         \
    X(SmoothHue_BGGR_Flip, C, Colour8, Runs, SmoothHue)                                         \
    X(SmoothHue_GRBG_Flip, C, Colour8, Runs, SmoothHue)                                         \
    X(SmoothHue_GBRG_Flip, C, Colour8, Runs, SmoothHue)
// clang-format on

namespace qzrcfa::catalogue {

// Every member by its place in the catalogue.
#define QZRCFA_CATALOGUE_ID(name, linkage, signature, how, what) name,
enum class Id : std::uint8_t { QZRCFA_CATALOGUE(QZRCFA_CATALOGUE_ID) };
#undef QZRCFA_CATALOGUE_ID

#define QZRCFA_CATALOGUE_COUNT(name, linkage, signature, how, what) +1
inline constexpr std::size_t kCount = 0 QZRCFA_CATALOGUE(QZRCFA_CATALOGUE_COUNT);
#undef QZRCFA_CATALOGUE_COUNT

enum class Signature : std::uint8_t { Colour8, Colour16, Grey8, Grey16 };
enum class Linkage : std::uint8_t { C, Cxx };
enum class How : std::uint8_t { Runs, Forward, Gate };

constexpr bool grey(Signature s) { return s == Signature::Grey8 || s == Signature::Grey16; }
constexpr int depth(Signature s) { return s == Signature::Colour16 || s == Signature::Grey16 ? 16 : 8; }

// What a row says, as data.
struct Entry {
    std::string_view name;     // without the QZRCFA_ prefix
    Linkage linkage;
    Signature signature;
    How how;
    std::string_view what;     // Runs: the family; Forward and Gate: the export handed to
};

#define QZRCFA_CATALOGUE_ENTRY(name, linkage, signature, how, what) \
    Entry{#name, Linkage::linkage, Signature::signature, How::how, #what},
inline constexpr Entry kEntries[] = {QZRCFA_CATALOGUE(QZRCFA_CATALOGUE_ENTRY)};
#undef QZRCFA_CATALOGUE_ENTRY

static_assert(kCount == 99, "the interface has 99 members");

constexpr const Entry& entry(Id id) { return kEntries[std::size_t(id)]; }

// The member whose export is QZRCFA_<name>; kCount when there is none.
constexpr std::size_t find(std::string_view name) {
    for (std::size_t i = 0; i < kCount; ++i)
        if (kEntries[i].name == name) return i;
    return kCount;
}

// The member a call of `id` ends up running, through its forwards.
constexpr Id runs(Id id) {
    while (entry(id).how == How::Forward) id = Id(find(entry(id).what));
    return id;
}

// The symbol an export has in the library's dynamic symbol table: its name, or for C++
// linkage the name the Itanium C++ ABI gives a function of its signature.
class SymbolName {
  public:
    constexpr explicit SymbolName(const Entry& e) {
        if (e.linkage == Linkage::C) {
            append("QZRCFA_");
            append(e.name);
            return;
        }
        const std::size_t length = 7 + e.name.size();
        append("_Z");
        if (length >= 10) put(char('0' + length / 10));
        put(char('0' + length % 10));
        append("QZRCFA_");
        append(e.name);
        // unsigned char* or unsigned short*, int, int, the same pointer again, and
        // unsigned short for the colour signatures.
        append(depth(e.signature) == 16 ? "Pt" : "Ph");
        append("iiS_");
        if (!grey(e.signature)) append("t");
    }
    constexpr std::string_view view() const { return {text_, size_}; }
    constexpr const char* c_str() const { return text_; }

  private:
    constexpr void put(char c) {
        if (size_ + 1 < sizeof text_) text_[size_++] = c, text_[size_] = '\0';
    }
    constexpr void append(std::string_view s) {
        for (char c : s) put(c);
    }
    char text_[64] = {};
    std::size_t size_ = 0;
};

}  // namespace qzrcfa::catalogue
