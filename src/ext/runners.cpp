// The extended library's runners, generated from the catalogue: every member run from its
// description, with threads, in this library. A member runs here unless the application
// has interposed its export (or, for a member that forwards to another, either of
// them), in which case the caller calls the export so that the interposer sees it.
#include "ext/runners.h"

#include <dlfcn.h>

#include <cstdint>

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

using Runner = int (*)(void* src, int width, int height, void* dst, unsigned short bitCount, const detail::Call& call);

template <const auto& Description, class T>
int run_colour(void* src, int width, int height, void* dst, unsigned short bitCount, const detail::Call& call) {
    return detail::run(Description, static_cast<T*>(src), width, height, static_cast<T*>(dst), bitCount, call);
}

template <const auto& Description, class T>
int run_grey(void* src, int width, int height, void* dst, unsigned short, const detail::Call& call) {
    return detail::run(Description, static_cast<T*>(src), width, height, static_cast<T*>(dst), call);
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

struct Member {
    const void* exported;  // the export's address, as its name resolves here
    Runner runner;         // null for members that run another export
    MemberFacts (*facts)();
};

#define QZRCFA_RUNNER_Colour8(name) run_colour<members::name, std::uint8_t>
#define QZRCFA_RUNNER_Colour16(name) run_colour<members::name, std::uint16_t>
#define QZRCFA_RUNNER_Grey8(name) run_grey<members::name, std::uint8_t>
#define QZRCFA_RUNNER_Grey16(name) run_grey<members::name, std::uint16_t>
#define QZRCFA_MEMBER_Runs(name, signature) QZRCFA_RUNNER_##signature(name), facts_of_description<members::name>
#define QZRCFA_MEMBER_Forward(name, signature) nullptr, nullptr
#define QZRCFA_MEMBER_Gate(name, signature) nullptr, nullptr
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
    const void* fn = member(id).exported;
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
    member(runs).runner(src, width, height, dst, bitCount, call);
    return true;
}

void run_gbri(const void* raw, int depth, int width, int height, int pattern, void* out, int stride, bool bottom_up,
              int threads) {
    const CallTasks tasks(threads);
    const auto p = detail::Pattern(pattern);
    if (depth == 8) gbri(static_cast<const std::uint8_t*>(raw), width, height, p, static_cast<std::uint8_t*>(out), stride, bottom_up, &tasks);
    else gbri(static_cast<const std::uint16_t*>(raw), width, height, p, static_cast<std::uint16_t*>(out), stride, bottom_up, &tasks);
}

const char* instruction_set() { return detail::isa_name(detail::best_isa()); }

}  // namespace qzrcfa::ext
