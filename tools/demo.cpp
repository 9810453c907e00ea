// qzrcfa-demo: demosaics the bundled RGGB sample frame with every method and writes
// one PNG per method.
//   qzrcfa-demo SAMPLE.pgm OUTPUT_DIR
#include <cstdio>
#include <exception>
#include <filesystem>
#include <string>
#include <vector>

#include "image_io.h"
#include "qzrcfa.h"

namespace {

struct Method {
    const char* file;
    int (*fn)(unsigned char*, int, int, unsigned char*, unsigned short);
};

const Method kMethods[] = {
    {"nearest.png", QZRCFA_NearestNeighbor_RGGB},
    // bilinear and edge sensing
    {"bilinear.png", QZRCFA_Bilinear_RGGB},
    {"edge-sensing1.png", QZRCFA_EdgeSensing1_RGGB},
    {"edge-sensing2.png", QZRCFA_EdgeSensing2_RGGB},

    // Laplacian
    {"laplacian.png", QZRCFA_Laplacian_RGGB},
    {"laplacian2.png", QZRCFA_Laplacian2_RGGB},

    // smooth hue
    {"smooth_hue.png", QZRCFA_SmoothHue_RGGB},

};

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: qzrcfa-demo SAMPLE.pgm OUTPUT_DIR\n");
        return 2;
    }
    try {
        using namespace qzrcfa::tools;
        Image raw = read_image(argv[1]);
        if (raw.channels != 1) throw std::runtime_error(std::string(argv[1]) + ": expected a one-channel raw frame");
        std::filesystem::create_directories(argv[2]);
        std::vector<unsigned char> bgr(std::size_t(raw.width) * std::size_t(raw.height) * 3);
        for (const Method& m : kMethods) {
            m.fn(raw.pixels.data(), raw.width, raw.height, bgr.data(), 24);
            const std::string path = (std::filesystem::path(argv[2]) / m.file).string();
            write_image(path, from_bgr(bgr.data(), raw.width, raw.height, 3));
            std::printf("wrote %s\n", path.c_str());
        }
    } catch (const std::exception& e) {
        std::fprintf(stderr, "qzrcfa-demo: %s\n", e.what());
        return 1;
    }
    return 0;
}
