// qzrcfa-mosaic: writes the raw Bayer frame of a colour image as an 8-bit PGM.
//   qzrcfa-mosaic INPUT.png PATTERN OUTPUT.pgm
#include <cstdio>
#include <exception>
#include <string>

#include "image_io.h"
#include "mosaic.h"

int main(int argc, char** argv) {
    if (argc != 4) {
        std::fprintf(stderr, "usage: qzrcfa-mosaic INPUT.png RGGB|BGGR|GRBG|GBRG OUTPUT.pgm\n");
        return 2;
    }
    try {
        using namespace qzrcfa::tools;
        const Image rgb = read_image(argv[1]);
        Image raw{rgb.width, rgb.height, 1, 8, mosaic(rgb, argv[2]), {}};
        write_image(argv[3], raw);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "qzrcfa-mosaic: %s\n", e.what());
        return 1;
    }
    return 0;
}
