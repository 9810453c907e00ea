// The library's own border fills by their export's place in the catalogue, for the calls
// whose padded rows the exported border fills cannot take.
#include "catalogue/catalogue.h"
#include "catalogue/members.h"

namespace qzrcfa::detail {
namespace {

template <class T>
int fill(const Edge1Member& m, const void* src, int width, int height, void* dst, unsigned short bitCount, Pitches p) {
    return border_fill(m, static_cast<const T*>(src), width, height, static_cast<T*>(dst), bitCount, p);
}

template <class T>
int fill(const Edge2Member& m, const void* src, int width, int height, void* dst, unsigned short bitCount, Pitches p) {
    return border_fill(m, static_cast<const std::uint8_t*>(src), width, height, static_cast<std::uint8_t*>(dst), bitCount, p);
}

// Every other description: not a border fill.
template <class T, class Description>
int fill(const Description&, const void*, int, int, void*, unsigned short, Pitches) {
    return -1;
}

}  // namespace

#define QZRCFA_SAMPLES_Colour8 std::uint8_t
#define QZRCFA_SAMPLES_Colour16 std::uint16_t
#define QZRCFA_SAMPLES_Grey8 std::uint8_t
#define QZRCFA_SAMPLES_Grey16 std::uint16_t
#define QZRCFA_BORDER_CASE_Runs(name, signature)           \
    case catalogue::Id::name:                              \
        return fill<QZRCFA_SAMPLES_##signature>(members::name, src, width, height, dst, bitCount, pitches);
#define QZRCFA_BORDER_CASE_Forward(name, signature)
#define QZRCFA_BORDER_CASE_Gate(name, signature)
#define QZRCFA_BORDER_CASE(name, linkage, signature, how, what) QZRCFA_BORDER_CASE_##how(name, signature)

int own_border_fill(catalogue::Id id, const void* src, int width, int height, void* dst, unsigned short bitCount,
                    Pitches pitches) {
    switch (id) {
        QZRCFA_CATALOGUE(QZRCFA_BORDER_CASE)
    default: return -1;
    }
}

}  // namespace qzrcfa::detail
