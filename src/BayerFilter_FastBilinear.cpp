// FastBilinear: bilinear behind a gate on the pixel size.
//
// A member admits 24- and 32-bit output and hands the call, unchanged, to the bilinear
// export of its pattern and row order (the catalogue names it), through that export's
// entry point (a tail jump). Any other bitCount is refused with -1 before anything is
// written.
#include "catalogue/members.h"

int qzrcfa::detail::fast_bilinear_gate(ColourFn<std::uint8_t> bilinear, unsigned char* src, int width, int height,
                                       unsigned char* dst, unsigned short bitCount) {
    if (bitCount != 24 && bitCount != 32) return -1;
    return bilinear(src, width, height, dst, bitCount);
}
