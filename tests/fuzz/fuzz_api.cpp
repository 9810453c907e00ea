// libFuzzer target: the checked C++ interface on requests taken from the input bytes:
// any enum values, rules, bits and picture fields, sizes from tiny to overflowing,
// buffer views that are null, short, long or overlapping. The views are only described (check() reads no memory), so any
// size can be asked for. Every request check() accepts must be sound: then it is run,
// through demosaic(), on buffers of exactly the accepted size placed against an
// inaccessible page, so that a read or write outside them faults even inside the
// library.
#include <cstdint>
#include <cstring>

#include "qzrcfa.hpp"
#include "support/guarded.h"

namespace {

// Consumes the input from the front; zeros once it runs out.
struct Bytes {
    const std::uint8_t* data;
    std::size_t size;
    std::uint64_t take(int n) {
        std::uint64_t v = 0;
        for (int i = 0; i < n; ++i) {
            v <<= 8;
            if (size) {
                v |= *data++;
                --size;
            }
        }
        return v;
    }
};

void require(bool ok) {
    if (!ok) __builtin_trap();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace qzrcfa;
    Bytes in{data, size};
    Options o;
    o.method = Method(std::int8_t(in.take(1)) % 9);  // mostly valid, some negative or past the list
    o.pattern = Pattern(std::int8_t(in.take(1)) % 6);
    o.order = RowOrder(std::int8_t(in.take(1)) % 3);
    const std::uint64_t f = in.take(2);
    o.format = f < 0xF000 ? Format(f % 3 == 0 ? 0 : f % 3 == 1 ? 24 : 32) : Format(f);
    const int depth = in.take(1) & 1 ? 16 : 8;
    // The rule, significant bits (some outside 9..16) and the picture's fields, any
    // values: black levels, gains of any bits (NaN and infinities included), a matrix,
    // a curve and its gamma.
    o.rule = Rule(std::int8_t(in.take(1)) % 4);
    const std::uint64_t extra = in.take(1);
    const int bits = depth == 16 && (extra & 1) ? int(in.take(1) % 10) + 8 : 0;
    if (extra & 2) o.picture.black.fill(int(in.take(2)));
    const auto any_float = [&in] {
        const auto b = std::uint32_t(in.take(4));
        float f;
        std::memcpy(&f, &b, sizeof f);
        return f;
    };
    if (extra & 4)
        for (float& g : o.picture.gains) g = any_float();
    o.picture.auto_white_balance = extra & 8;
    if (extra & 16)
        for (float& m : o.picture.matrix) m = any_float();
    if (extra & 32) o.picture.curve = Curve(in.take(1) % 4), o.picture.gamma = any_float();
    // Small sizes (-16..239), or any 32-bit value for the overflow checks.
    const std::uint64_t mode = in.take(1);
    const int w = mode & 1 ? int(std::uint32_t(in.take(4))) : int(in.take(1)) - 16;
    const int h = mode & 2 ? int(std::uint32_t(in.take(4))) : int(in.take(1)) - 16;
    const auto frame = [&](std::uintptr_t at, std::uint64_t count) {
        return depth == 8 ? RawFrame(reinterpret_cast<const std::uint8_t*>(at), count, w, h)
                          : RawFrame(reinterpret_cast<const std::uint16_t*>(at), count, w, h, 0, bits);
    };

    const std::size_t elements = output_elements(frame(0, 0), o);
    const std::size_t sample = depth / 8;
    const std::uint64_t pixels = w > 0 && h > 0 ? std::uint64_t(w) * std::uint64_t(h) : 0;
    // Views around the needed counts, at addresses from the input (0 is null): they may
    // overlap. check() only compares them.
    const std::uint64_t src_count = pixels + std::int8_t(in.take(1));
    const std::uint64_t dst_count = elements + std::int8_t(in.take(1));
    const std::uintptr_t src_at = (mode & 4) ? 0 : (std::uintptr_t(1) << 44);
    const std::uintptr_t dst_at = (mode & 8) ? 0 : src_at + std::uintptr_t(std::int64_t(std::int32_t(in.take(4))) * 64);
    const Result r = depth == 8 ? check(frame(src_at, src_count), OutputImage(reinterpret_cast<std::uint8_t*>(dst_at), dst_count), o)
                                : check(frame(src_at, src_count), OutputImage(reinterpret_cast<std::uint16_t*>(dst_at), dst_count), o);
    if (!r) {
        require(!r.message().empty());
        return 0;
    }
    // Accepted: a size demosaic() serves, big enough views that are neither null nor
    // overlapping.
    require(elements != 0 && pixels != 0 && src_count >= pixels && dst_count >= elements && src_at && dst_at);
    require(dst_at >= src_at + pixels * sample || src_at >= dst_at + elements * sample);
    if (elements > (1u << 22)) return 0;  // sound, but too large to run here
    const bool at_end = mode & 16;
    const test::Guarded src(pixels * sample, at_end), dst(elements * sample, at_end);
    const Result run = depth == 8
        ? demosaic(frame(reinterpret_cast<std::uintptr_t>(src.data()), pixels), OutputImage(dst.data(), elements), o)
        : demosaic(frame(reinterpret_cast<std::uintptr_t>(src.data()), pixels),
                   OutputImage(reinterpret_cast<std::uint16_t*>(dst.data()), elements), o);
    // Grey world may find no unsaturated sample of some colour: the one refusal a sound
    // request can still meet, from its samples.
    require(run.ok() || (o.picture.auto_white_balance && run.message().find("no unsaturated sample") != std::string::npos));
    return 0;
}
