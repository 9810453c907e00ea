/* The public header is usable from C99: it declares every plain export with C linkage
 * and keeps the C++-only export out of C translation units. */
#include "qzrcfa.h"

typedef int (*qzrcfa_colour8_fn)(unsigned char*, int, int, unsigned char*, unsigned short);
typedef int (*qzrcfa_colour16_fn)(unsigned short*, int, int, unsigned short*, unsigned short);

int qzrcfa_header_c99_check(void) {
    qzrcfa_colour8_fn a = QZRCFA_NearestNeighbor_RGGB;
    qzrcfa_colour16_fn b = QZRCFA_NearestNeighbor_Edge1_RGGB_16Bits;
    return (a != 0) + (b != 0);
}
