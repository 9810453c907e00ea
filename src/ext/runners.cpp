// The extended library's runners, generated from the catalogue: every member run from its
// description, with threads, in this library. A member runs here unless the application
// has interposed its export (or, for a member that forwards to another, either of
// them), in which case the caller calls the export so that the interposer sees it.
#include "ext/runners.h"

#include <dlfcn.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <optional>
#include <vector>

#include "catalogue/catalogue.h"
#include "catalogue/members.h"
#include "ext/gbri.h"
#include "ext/pool.h"
#include "qzrcfa.h"

namespace qzrcfa::ext {
namespace {

using catalogue::Id;

// What the exported name of export `id` reaches in libqzrcfa itself, whatever an
// application interposes in front of it. libqzrcfa is one of this library's
// dependencies, so it is loaded; a handle to it looks names up in libqzrcfa and its own
// dependencies, not in front of it.
const void* own_definition(Id id) {
    static void* const library = dlopen(QZRCFA_CORE_SONAME, RTLD_LAZY | RTLD_NOLOAD);
    return library != nullptr ? dlsym(library, catalogue::SymbolName(catalogue::entry(id)).c_str()) : nullptr;
}

// Runs a member's description; pitches in elements.
using Runner = int (*)(void* src, int width, int height, void* dst, unsigned short bitCount, const detail::Call& call,
                       detail::Pitches pitches);

template <const auto& Description, class T>
int run_colour(void* src, int width, int height, void* dst, unsigned short bitCount, const detail::Call& call,
               detail::Pitches pitches) {
    return detail::run(Description, static_cast<T*>(src), width, height, static_cast<T*>(dst), bitCount, call, pitches);
}

template <const auto& Description, class T>
int run_grey(void* src, int width, int height, void* dst, unsigned short, const detail::Call& call, detail::Pitches pitches) {
    return detail::run(Description, static_cast<T*>(src), width, height, static_cast<T*>(dst), call, pitches);
}

// The border fill a member calls, if any.
template <class T, class Params>
std::optional<Id> border_of(const detail::ColourMember<T, Params>& m) {
    return m.border_id;
}
template <class Description>
std::optional<Id> border_of(const Description&) {
    return std::nullopt;
}

// What a member needs of a request, from its description.
MemberFacts facts_of(const detail::Edge1Member& m) {
    MemberFacts f;
    // The top row takes, at its even columns past the first, taps relative to the column:
    // one on the row below and to the right reads S(1, width), the first sample of row 2,
    // when the width is odd.
    for (const detail::Tap& t : m.table->top[2])
        if (t.dr == 1 && t.dc > 0) f.odd_width_needs_three_rows = true;
    return f;
}

MemberFacts facts_of(const detail::Edge2Member&) {
    MemberFacts f;
    // The two-pixel fill reads and writes rows and columns 2 and 3 whatever the size.
    f.min_width = f.min_height = 4;
    return f;
}

MemberFacts facts_of(const detail::GreyMember& m) {
    const bool shuffle = m.right == detail::GreyRightEdge::LastColumnShuffle;
    MemberFacts f;
    // Narrower rows finish their right-hand columns from before the row; one row copies
    // a row from outside the image.
    f.min_width = shuffle ? 4 : 3;
    f.dst_tail = m.flip && shuffle ? 2 : 0;
    return f;
}

template <class T, class Params>
MemberFacts facts_of(const detail::ColourMember<T, Params>& m) {
    MemberFacts f = facts(m.border_id);
    f.fill255 = m.prefill == detail::Prefill::Bytes255;
    return f;
}

template <const auto& Description>
MemberFacts facts_of_description() {
    return facts_of(Description);
}

template <const auto& Description>
std::optional<Id> border_of_description() {
    return border_of(Description);
}

struct Member {
    const void* exported;  // the export's address, as its name resolves here
    Runner runner;         // null for members that run another export
    MemberFacts (*facts)();
    std::optional<Id> (*border)();
};

#define QZRCFA_RUNNER_Colour8(name) run_colour<members::name, std::uint8_t>
#define QZRCFA_RUNNER_Colour16(name) run_colour<members::name, std::uint16_t>
#define QZRCFA_RUNNER_Grey8(name) run_grey<members::name, std::uint8_t>
#define QZRCFA_RUNNER_Grey16(name) run_grey<members::name, std::uint16_t>
#define QZRCFA_MEMBER_Runs(name, signature) \
    QZRCFA_RUNNER_##signature(name), facts_of_description<members::name>, border_of_description<members::name>
#define QZRCFA_MEMBER_Forward(name, signature) nullptr, nullptr, nullptr
#define QZRCFA_MEMBER_Gate(name, signature) nullptr, nullptr, nullptr
#define QZRCFA_MEMBER(name, linkage, signature, how, what) \
    {reinterpret_cast<const void*>(&QZRCFA_##name), QZRCFA_MEMBER_##how(name, signature)},
const Member kMembers[] = {QZRCFA_CATALOGUE(QZRCFA_MEMBER)};

const Member& member(Id id) { return kMembers[std::size_t(id)]; }

// The member whose description a call of `id` runs: through its forwards, and past a
// gate to the member it admits.
Id described(Id id) {
    id = catalogue::runs(id);
    if (catalogue::entry(id).how == catalogue::How::Gate) id = Id(catalogue::find(catalogue::entry(id).what));
    return id;
}

// Whether the exported name of `id`, as this library reaches it, is libqzrcfa's own.
bool own(Id id) { return own_definition(id) == member(id).exported; }

}  // namespace

MemberFacts facts(Id id) { return member(described(id)).facts(); }

int call_export(Id id, void* src, int width, int height, void* dst, unsigned short bitCount) {
    void* fn = const_cast<void*>(member(id).exported);  // a function's address, held as data
    using C8 = int (*)(unsigned char*, int, int, unsigned char*, unsigned short);
    using C16 = int (*)(unsigned short*, int, int, unsigned short*, unsigned short);
    using G8 = int (*)(unsigned char*, int, int, unsigned char*);
    using G16 = int (*)(unsigned short*, int, int, unsigned short*);
    auto* s8 = static_cast<unsigned char*>(src);
    auto* d8 = static_cast<unsigned char*>(dst);
    auto* s16 = static_cast<unsigned short*>(src);
    auto* d16 = static_cast<unsigned short*>(dst);
    switch (catalogue::entry(id).signature) {
    case catalogue::Signature::Colour8: return reinterpret_cast<C8>(fn)(s8, width, height, d8, bitCount);
    case catalogue::Signature::Colour16: return reinterpret_cast<C16>(fn)(s16, width, height, d16, bitCount);
    case catalogue::Signature::Grey8: return reinterpret_cast<G8>(fn)(s8, width, height, d8);
    case catalogue::Signature::Grey16: return reinterpret_cast<G16>(fn)(s16, width, height, d16);
    }
    return -1;
}

bool run_member(Id id, void* src, int width, int height, void* dst, unsigned short bitCount, int threads) {
    const Id runs = catalogue::runs(id);
    if (member(runs).runner == nullptr || !own(id) || !own(runs)) return false;
    const CallTasks tasks(threads);
    const detail::Call call{&tasks, own_definition};
    const int stride = catalogue::grey(catalogue::entry(id).signature) ? 1 : detail::pixel_stride(bitCount);
    member(runs).runner(src, width, height, dst, bitCount, call, detail::compact(width, stride));
    return true;
}

namespace {

// The member on compact copies of the padded rows: the output's rows too, since members
// keep, and some read, what the buffer held.
template <class T>
void run_through_copies(Id id, const void* src, std::size_t src_pitch, int width, int height, void* dst,
                        std::size_t dst_pitch, unsigned short bitCount, int threads) {
    const std::size_t elements = catalogue::grey(catalogue::entry(id).signature) ? 1 : std::size_t(detail::pixel_stride(bitCount));
    const std::size_t in_row = std::size_t(width), out_row = std::size_t(width) * elements, h = std::size_t(height);
    const std::size_t tail = facts(id).dst_tail;
    std::vector<T> in(in_row * h), out(out_row * h + tail);
    auto* s = static_cast<const std::uint8_t*>(src);
    auto* d = static_cast<std::uint8_t*>(dst);
    for (std::size_t y = 0; y < h; ++y) {
        std::memcpy(in.data() + y * in_row, s + y * src_pitch, in_row * sizeof(T));
        std::memcpy(out.data() + y * out_row, d + y * dst_pitch, out_row * sizeof(T));
    }
    T* last = reinterpret_cast<T*>(d + (h - 1) * dst_pitch) + out_row;  // where the elements after the image go
    std::memcpy(out.data() + h * out_row, last, tail * sizeof(T));
    if (threads <= 1 || !run_member(id, in.data(), width, height, out.data(), bitCount, threads))
        call_export(id, in.data(), width, height, out.data(), bitCount);
    for (std::size_t y = 0; y < h; ++y) std::memcpy(d + y * dst_pitch, out.data() + y * out_row, out_row * sizeof(T));
    std::memcpy(last, out.data() + h * out_row, tail * sizeof(T));
}

}  // namespace

void run_member_padded(Id id, const void* src, std::size_t src_pitch, int width, int height, void* dst,
                       std::size_t dst_pitch, unsigned short bitCount, int threads) {
    const Id runs = catalogue::runs(id);
    const bool wide = catalogue::depth(catalogue::entry(id).signature) == 16;
    const std::size_t bytes = wide ? 2 : 1;
    const std::optional<Id> border = member(runs).border();
    if (!own(id) || !own(runs) || (border && !own(*border))) {
        if (wide) run_through_copies<std::uint16_t>(id, src, src_pitch, width, height, dst, dst_pitch, bitCount, threads);
        else run_through_copies<std::uint8_t>(id, src, src_pitch, width, height, dst, dst_pitch, bitCount, threads);
        return;
    }
    const CallTasks tasks(threads);
    const detail::Call call{&tasks, own_definition};
    const detail::Pitches pitches{std::ptrdiff_t(src_pitch / bytes), std::ptrdiff_t(dst_pitch / bytes)};
    member(runs).runner(const_cast<void*>(src), width, height, dst, bitCount, call, pitches);
}

void run_gbri(const void* raw, std::size_t src_pitch, int depth, int width, int height, int pattern, void* out,
              std::size_t dst_pitch, int elements, bool bottom_up, int threads) {
    const CallTasks tasks(threads);
    const auto p = detail::Pattern(pattern);
    const std::size_t bytes = depth / 8;
    const detail::Pitches pitches{std::ptrdiff_t(src_pitch / bytes), std::ptrdiff_t(dst_pitch / bytes)};
    if (depth == 8)
        gbri(static_cast<const std::uint8_t*>(raw), width, height, p, static_cast<std::uint8_t*>(out), elements, bottom_up,
             &tasks, pitches);
    else
        gbri(static_cast<const std::uint16_t*>(raw), width, height, p, static_cast<std::uint16_t*>(out), elements, bottom_up,
             &tasks, pitches);
}

template <class T>
void gbri_picture(const general::Frame& f, const general::Image& image, const CallTasks& tasks) {
    const std::size_t w = std::size_t(f.width), h = std::size_t(f.height);
    const int max = (1 << f.bits) - 1;
    const detail::GeneralKernels& kernels = detail::kernel_set(detail::best_isa()).general;
    std::vector<T> samples(w * h), pixels(w * h * 3);
    std::vector<std::uint16_t> values(3 * w);
    for (std::size_t y = 0; y < h; ++y) {
        general::load_row(f, std::ptrdiff_t(y), values.data(), kernels);
        std::copy(values.begin(), values.begin() + std::ptrdiff_t(w), samples.begin() + std::ptrdiff_t(y * w));
    }
    gbri(samples.data(), f.width, f.height, f.pattern, pixels.data(), 3, false, &tasks,
         detail::Pitches{std::ptrdiff_t(w), std::ptrdiff_t(3 * w)});
    const std::uint16_t* planes[3] = {values.data(), values.data() + w, values.data() + 2 * w};
    for (std::size_t y = 0; y < h; ++y) {
        const T* px = pixels.data() + y * w * 3;
        for (std::size_t x = 0; x < w; ++x)
            for (std::size_t e = 0; e < 3; ++e) values[e * w + x] = std::uint16_t(std::min<int>(px[3 * x + e], max));
        general::store_row(image, image.bottom_up ? std::ptrdiff_t(h - 1 - y) : std::ptrdiff_t(y), planes, f.width, max,
                           kernels);
    }
}

void run_gbri_picture(const general::Frame& frame, int depth, const general::Image& image, int threads) {
    const CallTasks tasks(threads);
    if (depth == 8) gbri_picture<std::uint8_t>(frame, image, tasks);
    else gbri_picture<std::uint16_t>(frame, image, tasks);
}

const char* instruction_set() { return detail::isa_name(detail::best_isa()); }

}  // namespace qzrcfa::ext
