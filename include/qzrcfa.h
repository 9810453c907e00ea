/* qzrcfa: Bayer demosaicing routines.
 *
 * Every colour function takes (src, width, height, dst, bitCount):
 *   src       raw frame of width*height samples, row-major, no padding, read only;
 *   width     pixels per row, height rows (signed, compared as signed);
 *   dst       output of width*height pixels, bitCount>>3 elements each, element 0 blue,
 *             1 green, 2 red; an element 3 keeps what the buffer held unless the member
 *             pre-fills (then 255) or the one-pixel border fill puts red there (the
 *             last pixel of each middle row). The vector kernels may store element 3
 *             back with the value it held, so dst must not be shared with another
 *             thread during the call;
 *   bitCount  bits per output pixel, 24 or 32.
 * The pattern suffix (RGGB, BGGR, GRBG, GBRG) names the top-left 2x2 tile of src.
 * _Flip members read src top-down exactly as their plain twins and write the image
 * bottom-up (raw row r lands in output row height-1-r).
 * Functions return 0 (the FastBilinear gate returns -1 to refuse a bitCount). They
 * validate nothing: sizes, pointers and bitCount are the caller's responsibility, and
 * the notes below say where a member reads or writes outside the image by design.
 * They allocate nothing, keep no state and are re-entrant.
 */
#ifndef QZRCFA_H
#define QZRCFA_H

#if defined(_WIN32)
#define QZRCFA_API
#else
#define QZRCFA_API __attribute__((visibility("default")))
#endif

#define QZRCFA_VERSION_MAJOR 1
#define QZRCFA_VERSION_MINOR 0
#define QZRCFA_VERSION_PATCH 0

#ifdef __cplusplus
extern "C" {
#endif

/* One-pixel border fill, 8-bit samples, 8-bit output.
 * Writes the outermost ring of the output (whole top and bottom rows, first and last
 * pixel of every middle row) by copying raw samples; every colour method except the
 * Laplacian family calls the member of its own pattern first. Elements 0..2 of a pixel
 * are blue, green, red. On the last pixel of each middle row the three bytes that end
 * the row are written, so with bitCount 32 that pixel gets blue, green, red in
 * elements 1..3 and element 0 is left alone. The BGGR members take the top row's red
 * at even columns from the diagonal on the right, so at an odd width they read
 * src[2*width] (row 2): with height 2, one sample past the frame. So do the 16-bit fill
 * and every colour member that calls the BGGR fill.
 * Needs width >= 2, height >= 2; dst holds width*height*(bitCount>>3) bytes. */
QZRCFA_API int QZRCFA_NearestNeighbor_Edge1_RGGB(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount);
QZRCFA_API int QZRCFA_NearestNeighbor_Edge1_BGGR(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount);
QZRCFA_API int QZRCFA_NearestNeighbor_Edge1_GRBG(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount);
QZRCFA_API int QZRCFA_NearestNeighbor_Edge1_GBRG(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount);
QZRCFA_API int QZRCFA_NearestNeighbor_Edge1_RGGB_Flip(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount);
QZRCFA_API int QZRCFA_NearestNeighbor_Edge1_BGGR_Flip(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount);
QZRCFA_API int QZRCFA_NearestNeighbor_Edge1_GRBG_Flip(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount);
QZRCFA_API int QZRCFA_NearestNeighbor_Edge1_GBRG_Flip(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount);

/* One-pixel border fill, 16-bit samples, 16-bit output elements.
 * As the 8-bit fill, with bitCount>>3 counted in 16-bit elements per pixel
 * (24 -> 3 elements, 32 -> 4). Needs width >= 2, height >= 2. */
QZRCFA_API int QZRCFA_NearestNeighbor_Edge1_RGGB_16Bits(unsigned short* src, int width, int height, unsigned short* dst, unsigned short bitCount);
QZRCFA_API int QZRCFA_NearestNeighbor_Edge1_BGGR_16Bits(unsigned short* src, int width, int height, unsigned short* dst, unsigned short bitCount);
QZRCFA_API int QZRCFA_NearestNeighbor_Edge1_GRBG_16Bits(unsigned short* src, int width, int height, unsigned short* dst, unsigned short bitCount);
QZRCFA_API int QZRCFA_NearestNeighbor_Edge1_GBRG_16Bits(unsigned short* src, int width, int height, unsigned short* dst, unsigned short bitCount);
QZRCFA_API int QZRCFA_NearestNeighbor_Edge1_RGGB_Flip_16Bits(unsigned short* src, int width, int height, unsigned short* dst, unsigned short bitCount);
QZRCFA_API int QZRCFA_NearestNeighbor_Edge1_BGGR_Flip_16Bits(unsigned short* src, int width, int height, unsigned short* dst, unsigned short bitCount);
QZRCFA_API int QZRCFA_NearestNeighbor_Edge1_GRBG_Flip_16Bits(unsigned short* src, int width, int height, unsigned short* dst, unsigned short bitCount);
QZRCFA_API int QZRCFA_NearestNeighbor_Edge1_GBRG_Flip_16Bits(unsigned short* src, int width, int height, unsigned short* dst, unsigned short bitCount);

/* Two-pixel border fill, 8-bit: the outer two rows and columns, as the Laplacian
 * family needs them. The side columns of the middle rows are written as fixed 6-byte
 * groups (3 bytes per pixel) whatever bitCount says. Needs width >= 4, height >= 4
 * (even sizes for correctly placed colours). */
QZRCFA_API int QZRCFA_NearestNeighbor_Edge2_RGGB(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount);
QZRCFA_API int QZRCFA_NearestNeighbor_Edge2_BGGR(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount);
QZRCFA_API int QZRCFA_NearestNeighbor_Edge2_GRBG(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount);
QZRCFA_API int QZRCFA_NearestNeighbor_Edge2_GBRG(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount);
QZRCFA_API int QZRCFA_NearestNeighbor_Edge2_RGGB_Flip(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount);
QZRCFA_API int QZRCFA_NearestNeighbor_Edge2_BGGR_Flip(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount);
QZRCFA_API int QZRCFA_NearestNeighbor_Edge2_GRBG_Flip(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount);
QZRCFA_API int QZRCFA_NearestNeighbor_Edge2_GBRG_Flip(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount);

/* Nearest neighbour, 8-bit colour. Each interior pixel copies (or, for green, averages
 * two of) the samples of a 2x2 neighbourhood; the ring comes from the one-pixel border
 * fill. Only QZRCFA_NearestNeighbor_RGGB pre-fills dst with 255 first.
 * Needs width >= 2, height >= 2; dst holds width*height*(bitCount>>3) bytes. */
QZRCFA_API int QZRCFA_NearestNeighbor_RGGB(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount);
QZRCFA_API int QZRCFA_NearestNeighbor_BGGR(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount);
QZRCFA_API int QZRCFA_NearestNeighbor_GRBG(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount);
QZRCFA_API int QZRCFA_NearestNeighbor_GBRG(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount);
QZRCFA_API int QZRCFA_NearestNeighbor_RGGB_Flip(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount);
QZRCFA_API int QZRCFA_NearestNeighbor_BGGR_Flip(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount);
QZRCFA_API int QZRCFA_NearestNeighbor_GRBG_Flip(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount);
QZRCFA_API int QZRCFA_NearestNeighbor_GBRG_Flip(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount);

/* Nearest neighbour, 16-bit colour: pure copies from the 2x2 block to the pixel's
 * left and below, 16-bit output elements, no pre-fill. Needs width >= 2, height >= 2;
 * dst holds width*height*(bitCount>>3) 16-bit elements. */
QZRCFA_API int QZRCFA_NearestNeighbor_RGGB_16Bits(unsigned short* src, int width, int height, unsigned short* dst, unsigned short bitCount);
QZRCFA_API int QZRCFA_NearestNeighbor_BGGR_16Bits(unsigned short* src, int width, int height, unsigned short* dst, unsigned short bitCount);
QZRCFA_API int QZRCFA_NearestNeighbor_GRBG_16Bits(unsigned short* src, int width, int height, unsigned short* dst, unsigned short bitCount);
QZRCFA_API int QZRCFA_NearestNeighbor_GBRG_16Bits(unsigned short* src, int width, int height, unsigned short* dst, unsigned short bitCount);
QZRCFA_API int QZRCFA_NearestNeighbor_RGGB_Flip_16Bits(unsigned short* src, int width, int height, unsigned short* dst, unsigned short bitCount);
QZRCFA_API int QZRCFA_NearestNeighbor_BGGR_Flip_16Bits(unsigned short* src, int width, int height, unsigned short* dst, unsigned short bitCount);
QZRCFA_API int QZRCFA_NearestNeighbor_GRBG_Flip_16Bits(unsigned short* src, int width, int height, unsigned short* dst, unsigned short bitCount);
QZRCFA_API int QZRCFA_NearestNeighbor_GBRG_Flip_16Bits(unsigned short* src, int width, int height, unsigned short* dst, unsigned short bitCount);

/* Nearest neighbour, grey output: each pixel is the truncated mean of the 2x2 block
 * whose top-left sample it is, one element per pixel; the row left over (the last, or
 * the first for _Flip) repeats its neighbour. Right-hand columns: the two-column
 * members (8-bit RGGB and every 8-bit _Flip) repeat column width-3 in columns width-2
 * and width-1; the shuffling members (all others) repeat column width-4 in column
 * width-1 and store columns width-3 and width-2 in the two elements after the row
 * (overwritten by the next row top-down, kept in the row below bottom-up).
 * dst holds width*height elements, plus:
 *  - the Gray_Flip_16Bits members write the 2 elements after the image: dst must hold
 *    width*height+2 elements;
 *  - height 1 fills the row from the width elements before dst (plain members) or
 *    after the row (_Flip members), which must be readable;
 *  - below width 3 (two-column) or 4 (shuffling) the right-hand columns copy from
 *    before the row, up to 3 elements before dst; width 1 makes the top-down
 *    shuffling members write 1 element after the image.
 * Needs height >= 2. */
QZRCFA_API int QZRCFA_NearestNeighbor_RGGB_Gray(unsigned char* src, int width, int height, unsigned char* dst);
QZRCFA_API int QZRCFA_NearestNeighbor_BGGR_Gray(unsigned char* src, int width, int height, unsigned char* dst);
QZRCFA_API int QZRCFA_NearestNeighbor_GRBG_Gray(unsigned char* src, int width, int height, unsigned char* dst);
QZRCFA_API int QZRCFA_NearestNeighbor_GBRG_Gray(unsigned char* src, int width, int height, unsigned char* dst);
QZRCFA_API int QZRCFA_NearestNeighbor_RGGB_Gray_Flip(unsigned char* src, int width, int height, unsigned char* dst);
QZRCFA_API int QZRCFA_NearestNeighbor_BGGR_Gray_Flip(unsigned char* src, int width, int height, unsigned char* dst);
QZRCFA_API int QZRCFA_NearestNeighbor_GRBG_Gray_Flip(unsigned char* src, int width, int height, unsigned char* dst);
QZRCFA_API int QZRCFA_NearestNeighbor_GBRG_Gray_Flip(unsigned char* src, int width, int height, unsigned char* dst);
QZRCFA_API int QZRCFA_NearestNeighbor_RGGB_Gray_16Bits(unsigned short* src, int width, int height, unsigned short* dst);
QZRCFA_API int QZRCFA_NearestNeighbor_BGGR_Gray_16Bits(unsigned short* src, int width, int height, unsigned short* dst);
QZRCFA_API int QZRCFA_NearestNeighbor_GRBG_Gray_16Bits(unsigned short* src, int width, int height, unsigned short* dst);
QZRCFA_API int QZRCFA_NearestNeighbor_GBRG_Gray_16Bits(unsigned short* src, int width, int height, unsigned short* dst);
QZRCFA_API int QZRCFA_NearestNeighbor_RGGB_Gray_Flip_16Bits(unsigned short* src, int width, int height, unsigned short* dst);
QZRCFA_API int QZRCFA_NearestNeighbor_BGGR_Gray_Flip_16Bits(unsigned short* src, int width, int height, unsigned short* dst);
QZRCFA_API int QZRCFA_NearestNeighbor_GRBG_Gray_Flip_16Bits(unsigned short* src, int width, int height, unsigned short* dst);
QZRCFA_API int QZRCFA_NearestNeighbor_GBRG_Gray_Flip_16Bits(unsigned short* src, int width, int height, unsigned short* dst);

/* Bilinear: each missing colour is the mean of the two or four nearest samples of
 * that colour. The plain members pre-fill dst with 255 (so element 3 of a 32-bit
 * output is 255); the _Flip members leave it as the caller gave it.
 * Needs width >= 2, height >= 2; dst holds width*height*(bitCount>>3) bytes. */
QZRCFA_API int QZRCFA_Bilinear_RGGB(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount);
QZRCFA_API int QZRCFA_Bilinear_BGGR(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount);
QZRCFA_API int QZRCFA_Bilinear_GRBG(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount);
QZRCFA_API int QZRCFA_Bilinear_GBRG(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount);
QZRCFA_API int QZRCFA_Bilinear_RGGB_Flip(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount);
QZRCFA_API int QZRCFA_Bilinear_BGGR_Flip(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount);
QZRCFA_API int QZRCFA_Bilinear_GRBG_Flip(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount);
QZRCFA_API int QZRCFA_Bilinear_GBRG_Flip(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount);

/* Bilinear behind a gate: bitCount 24 or 32 forwards to QZRCFA_Bilinear_ of the same
 * pattern and suffix; anything else returns -1 and leaves dst untouched. */
QZRCFA_API int QZRCFA_FastBilinear_RGGB(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount);
QZRCFA_API int QZRCFA_FastBilinear_BGGR(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount);
QZRCFA_API int QZRCFA_FastBilinear_GRBG(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount);
QZRCFA_API int QZRCFA_FastBilinear_GBRG(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount);
QZRCFA_API int QZRCFA_FastBilinear_RGGB_Flip(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount);
QZRCFA_API int QZRCFA_FastBilinear_BGGR_Flip(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount);
QZRCFA_API int QZRCFA_FastBilinear_GRBG_Flip(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount);
QZRCFA_API int QZRCFA_FastBilinear_GBRG_Flip(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount);

/* Edge sensing: green at red and blue sites is averaged along the direction of the
 * smaller gradient. Method 2 (RGGB only) also picks the quieter diagonal for the opposite
 * colour; method 1 uses the four-diagonal mean, except that its RGGB members forward to
 * method 2. No pre-fill. Needs width >= 2, height >= 2. */
QZRCFA_API int QZRCFA_EdgeSensing2_RGGB(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount);
QZRCFA_API int QZRCFA_EdgeSensing2_RGGB_Flip(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount);
QZRCFA_API int QZRCFA_EdgeSensing1_RGGB(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount);
QZRCFA_API int QZRCFA_EdgeSensing1_BGGR(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount);
QZRCFA_API int QZRCFA_EdgeSensing1_GRBG(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount);
QZRCFA_API int QZRCFA_EdgeSensing1_GBRG(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount);
QZRCFA_API int QZRCFA_EdgeSensing1_RGGB_Flip(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount);
QZRCFA_API int QZRCFA_EdgeSensing1_BGGR_Flip(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount);
QZRCFA_API int QZRCFA_EdgeSensing1_GRBG_Flip(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount);
QZRCFA_API int QZRCFA_EdgeSensing1_GBRG_Flip(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount);

/* Laplacian: gradient-directed green corrected by second differences, then red and
 * blue along the better diagonal, clamped to 0..255, on a two-pixel margin. Pre-fills
 * dst with 255. Needs width >= 4, height >= 4 (even), dst of width*height*(bitCount>>3)
 * bytes. */
QZRCFA_API int QZRCFA_Laplacian_RGGB(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount);
QZRCFA_API int QZRCFA_Laplacian_BGGR(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount);
QZRCFA_API int QZRCFA_Laplacian_GRBG(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount);
QZRCFA_API int QZRCFA_Laplacian_GBRG(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount);
QZRCFA_API int QZRCFA_Laplacian_RGGB_Flip(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount);
QZRCFA_API int QZRCFA_Laplacian_BGGR_Flip(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount);
QZRCFA_API int QZRCFA_Laplacian_GRBG_Flip(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount);
QZRCFA_API int QZRCFA_Laplacian_GBRG_Flip(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount);

/* Smooth hue: integer bilinear green, then red and blue from the neighbours'
 * colour-to-green ratios in single precision, saturated at 255. Only
 * QZRCFA_SmoothHue_BGGR_Flip fills (width*height*3 zero bytes). Needs width >= 2,
 * height >= 2. */
QZRCFA_API int QZRCFA_SmoothHue_RGGB(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount);
QZRCFA_API int QZRCFA_SmoothHue_BGGR(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount);
QZRCFA_API int QZRCFA_SmoothHue_GRBG(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount);
QZRCFA_API int QZRCFA_SmoothHue_GBRG(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount);
QZRCFA_API int QZRCFA_SmoothHue_RGGB_Flip(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount);
QZRCFA_API int QZRCFA_SmoothHue_BGGR_Flip(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount);
QZRCFA_API int QZRCFA_SmoothHue_GRBG_Flip(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount);
QZRCFA_API int QZRCFA_SmoothHue_GBRG_Flip(unsigned char* src, int width, int height, unsigned char* dst, unsigned short bitCount);

#ifdef __cplusplus
} /* extern "C" */

/* Laplacian with its green pass displaced two rows down and two columns right (RGGB,
 * top-down only). Exported with C++ linkage under its type-decorated name, so it is
 * visible to C++ callers only. The green pass of the last two rows reaches up to two
 * rows (2*width samples) past the end of src; every sample at or past src +
 * width*height reads as 0, and no memory past the frame is touched. Needs width >= 4,
 * height >= 4. */
QZRCFA_API int QZRCFA_Laplacian2_RGGB(unsigned char* src, int width, int height, unsigned char* dst,
                                      unsigned short bitCount);
#endif

#endif /* QZRCFA_H */
