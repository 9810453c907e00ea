// All 99 exports of qzrcfa.h with what a caller must know to run any of them: the kind
// of samples and output, and the smallest frame the header allows.
#pragma once

#include <iterator>
#include <string_view>

#include "qzrcfa.h"

namespace qzrcfa::test {

struct Export {
    std::string_view name;
    int (*colour8)(unsigned char*, int, int, unsigned char*, unsigned short) = nullptr;
    int (*colour16)(unsigned short*, int, int, unsigned short*, unsigned short) = nullptr;
    int (*grey8)(unsigned char*, int, int, unsigned char*) = nullptr;
    int (*grey16)(unsigned short*, int, int, unsigned short*) = nullptr;

    bool grey() const { return grey8 || grey16; }
    bool wide() const { return colour16 || grey16; }
    bool flip() const { return name.find("_Flip") != std::string_view::npos; }
    // Grey members that copy two right-hand columns (8-bit RGGB and every 8-bit _Flip);
    // the others shuffle the last column.
    bool two_column() const { return grey8 && (flip() || name.find("RGGB") != std::string_view::npos); }
    int min_width() const { return grey() ? (two_column() ? 3 : 4) : margin2() ? 4 : 2; }
    int min_height() const { return margin2() ? 4 : 2; }

  private:
    bool margin2() const {
        return name.find("Laplacian") != std::string_view::npos || name.find("Edge2") != std::string_view::npos;
    }
};

#define QZRCFA_T_FOUR(ENTRY, prefix, suffix) \
    ENTRY(prefix##RGGB##suffix) ENTRY(prefix##BGGR##suffix) ENTRY(prefix##GRBG##suffix) ENTRY(prefix##GBRG##suffix)
#define QZRCFA_T_EIGHT(ENTRY, prefix, suffix) QZRCFA_T_FOUR(ENTRY, prefix, suffix) QZRCFA_T_FOUR(ENTRY, prefix, _Flip##suffix)
#define QZRCFA_T_C8(f) Export{#f, f, nullptr, nullptr, nullptr},
#define QZRCFA_T_C16(f) Export{#f, nullptr, f, nullptr, nullptr},
#define QZRCFA_T_G8(f) Export{#f, nullptr, nullptr, f, nullptr},
#define QZRCFA_T_G16(f) Export{#f, nullptr, nullptr, nullptr, f},

inline const Export kExports[] = {
    QZRCFA_T_EIGHT(QZRCFA_T_C8, QZRCFA_NearestNeighbor_Edge1_, )
    QZRCFA_T_EIGHT(QZRCFA_T_C16, QZRCFA_NearestNeighbor_Edge1_, _16Bits)
    QZRCFA_T_EIGHT(QZRCFA_T_C8, QZRCFA_NearestNeighbor_Edge2_, )
    QZRCFA_T_EIGHT(QZRCFA_T_C8, QZRCFA_NearestNeighbor_, )
    QZRCFA_T_EIGHT(QZRCFA_T_C16, QZRCFA_NearestNeighbor_, _16Bits)
    QZRCFA_T_FOUR(QZRCFA_T_G8, QZRCFA_NearestNeighbor_, _Gray)
    QZRCFA_T_FOUR(QZRCFA_T_G8, QZRCFA_NearestNeighbor_, _Gray_Flip)
    QZRCFA_T_FOUR(QZRCFA_T_G16, QZRCFA_NearestNeighbor_, _Gray_16Bits)
    QZRCFA_T_FOUR(QZRCFA_T_G16, QZRCFA_NearestNeighbor_, _Gray_Flip_16Bits)
    QZRCFA_T_EIGHT(QZRCFA_T_C8, QZRCFA_Bilinear_, )
    QZRCFA_T_EIGHT(QZRCFA_T_C8, QZRCFA_FastBilinear_, )
    QZRCFA_T_C8(QZRCFA_EdgeSensing2_RGGB)
    QZRCFA_T_C8(QZRCFA_EdgeSensing2_RGGB_Flip)
    QZRCFA_T_EIGHT(QZRCFA_T_C8, QZRCFA_EdgeSensing1_, )
    QZRCFA_T_EIGHT(QZRCFA_T_C8, QZRCFA_Laplacian_, )
    QZRCFA_T_C8(QZRCFA_Laplacian2_RGGB)
    QZRCFA_T_EIGHT(QZRCFA_T_C8, QZRCFA_SmoothHue_, )
};

#undef QZRCFA_T_FOUR
#undef QZRCFA_T_EIGHT
#undef QZRCFA_T_C8
#undef QZRCFA_T_C16
#undef QZRCFA_T_G8
#undef QZRCFA_T_G16

static_assert(std::size(kExports) == 99);

}  // namespace qzrcfa::test
