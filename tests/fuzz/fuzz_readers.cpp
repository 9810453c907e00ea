// libFuzzer target: the image readers of the tools (PNG, PGM/PPM, headerless raw) on
// any bytes, both as a regular file, whose size the readers compare with what a header
// declares, and as a stream of unknown length, like a pipe. A reader may refuse with
// std::runtime_error; anything else (a crash, a sanitizer report, another exception,
// an allocation above -malloc_limit_mb) is a finding.
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <stdexcept>

#include "image_io.h"

namespace {

using qzrcfa::tools::ReadLimits;

// Frames of up to 2^20 pixels, so an accepted one costs at most 6 MB.
ReadLimits limits() {
    ReadLimits l;
    l.max_pixels = 1 << 20;
    l.accept = [](int width, int height, int depth, int, int channels) {
        if (width <= 0 || height <= 0 || std::uint64_t(width) * std::uint64_t(height) > (1u << 20) || (depth != 8 && depth != 16) ||
            channels < 1 || channels > 4)
            __builtin_trap();
    };
    return l;
}

// The bytes as a regular file (a memfd) or as a stream without a size.
std::FILE* open(const std::uint8_t* data, std::size_t size, bool regular) {
    if (!regular) return size ? ::fmemopen(const_cast<std::uint8_t*>(data), size, "rb") : nullptr;
    const int fd = ::memfd_create("fuzz", 0);
    if (fd < 0 || ::write(fd, data, size) != ssize_t(size) || ::lseek(fd, 0, SEEK_SET) != 0) __builtin_trap();
    return ::fdopen(fd, "rb");
}

void check(const qzrcfa::tools::Image& im) {
    const std::size_t n = std::size_t(im.width) * std::size_t(im.height) * std::size_t(im.channels);
    if ((im.depth == 8 ? im.pixels.size() : im.wide.size()) != n) __builtin_trap();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    for (const bool regular : {true, false}) {
        for (const bool keep_16 : {false, true}) {
            std::FILE* f = open(data, size, regular);
            if (!f) continue;
            try {
                check(qzrcfa::tools::read_image(f, "input", keep_16, limits()));
            } catch (const std::runtime_error&) {
            }
            std::fclose(f);
        }
        // Raw: the first three bytes choose width, height, depth or packed rows (of 12-bit
        // samples, three bytes a pair), and padding after each row; the rest is the file.
        if (size < 3) continue;
        std::FILE* f = open(data + 3, size - 3, regular);
        if (!f) continue;
        qzrcfa::tools::RawLayout layout;
        layout.width = 1 + data[0], layout.height = 1 + data[1], layout.depth = data[2] & 1 ? 16 : 8;
        if (data[2] & 2) layout.row_bytes = std::size_t(layout.width + 1) / 2 * 3, layout.packing = "raw12";
        const std::size_t row = layout.row_bytes ? layout.row_bytes : std::size_t(layout.width) * std::size_t(layout.depth / 8);
        if (data[2] & 4) layout.stride = row + (data[2] >> 3);
        try {
            const qzrcfa::tools::Image im = qzrcfa::tools::read_raw(f, "input", layout, limits());
            if (!layout.row_bytes && !layout.stride) check(im);
        } catch (const std::runtime_error&) {
        }
        std::fclose(f);
    }
    return 0;
}
