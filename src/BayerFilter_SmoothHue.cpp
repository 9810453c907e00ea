// Smooth hue, 8-bit colour.
//
// Two passes over the interior, the output's green bytes serving as the green plane
// between them. Pass 1 writes green: the sample itself at a green site, the floor of
// the mean of the four side neighbours at a red or blue site. Pass 2 assumes that the
// ratios red/green and blue/green vary slowly: each missing red or blue value is the
// pixel's own green times the mean of the neighbours' colour-to-green ratios, in
// single precision, saturated at 255.
//
// The greens of the horizontal neighbours are read at fixed byte distances from the
// pixel, two bytes before it and four bytes after it, whatever the pixel stride. With
// three bytes per pixel these are the neighbours' green elements; with four they are
// the red element of the left neighbour (already written by pass 2 in this row) and
// the blue element of the right one (not yet written). That is how the interface
// has always read them, and it stays.
//
// Members differ in two ways, both data in the member table below: the top-down BGGR
// member computes its green-on-blue sites with the red-site formulas, and the
// bottom-up BGGR member clears width * height * 3 bytes first and saturates with the
// less-than form, so its NaN estimates come out 255 instead of 0.
#include <cfloat>
#include <cstddef>
#include <cstdint>

#include "catalogue/members.h"
#include "kernels/bayer.h"
#include "kernels/kernels.h"
#include "qzrcfa.h"

// Pass 2 must round every operation to single precision; a target that evaluates float
// expressions in a wider format would produce other bytes.
static_assert(FLT_EVAL_METHOD == 0, "smooth hue needs float arithmetic evaluated in float");

namespace qzrcfa::detail {
namespace {

// Byte distances, from the first byte of a pixel, of the greens its horizontal ratios
// divide by. Fixed: they do not follow the pixel stride.
constexpr std::ptrdiff_t kLeftByte = -2;
constexpr std::ptrdiff_t kRightByte = 4;

constexpr float kSaturationLimit = 255.0f;

inline float ratio(std::uint8_t sample, std::uint8_t green) { return float(sample) / float(green); }

// Truncation toward zero, written so that it never converts an infinity or a NaN:
// those are decided by comparisons, which behave alike on every IEEE-754 target.
// Estimates are never negative (samples and greens are not), so a value that reaches
// the conversion lies in [0, 255].
inline std::uint8_t to_byte(float x, Saturation form) {
    if (form == Saturation::GreaterThan) {
        if (x > kSaturationLimit) return 255;
        if (x != x) return 0;  // NaN
        return std::uint8_t(std::int32_t(x));
    }
    if (x < kSaturationLimit) return std::uint8_t(std::int32_t(x));
    return 255;  // at or above the limit, and NaN
}

// The estimates of pixel px (raw sample s) whose neighbours' pixels lie `up` and
// `down` elements away; g is the pixel's own green.
struct Around {
    const std::uint8_t* s;
    std::ptrdiff_t pitch;  // elements to the raw rows around
    const std::uint8_t* px;
    const std::uint8_t* above;  // pixel computed from raw (r - 1, c)
    const std::uint8_t* below;  // pixel computed from raw (r + 1, c)
    float g;

    float vertical() const {
        const float up = ratio(s[-pitch], above[kGreen]);
        const float down = ratio(s[pitch], below[kGreen]);
        return (up + down) * (g * 0.5f);
    }
    float horizontal() const {
        const float left = ratio(s[-1], px[kLeftByte]);
        const float right = ratio(s[1], px[kRightByte]);
        return (left + right) * (g * 0.5f);
    }
    float diagonal() const {
        const float up_left = ratio(s[-pitch - 1], above[kLeftByte]);
        const float up_right = ratio(s[-pitch + 1], above[kRightByte]);
        const float down_left = ratio(s[pitch - 1], below[kLeftByte]);
        const float down_right = ratio(s[pitch + 1], below[kRightByte]);
        return (((up_left + up_right) + down_left) + down_right) * (g * 0.25f);
    }
};

}  // namespace

namespace {

// Pass 1 from column c to the end of the row, one pixel at a time.
void green_columns_scalar(const Row<std::uint8_t>& row, int c) {
    const std::ptrdiff_t w = row.pitch;
    for (; c <= row.c_last; ++c) {
        const std::uint8_t* s = row.s + c;
        std::uint8_t* px = row.d + std::ptrdiff_t(c) * row.stride;
        px[kGreen] = row.phase.green_at(c) ? s[0] : std::uint8_t((s[1] + s[-1] + s[-w] + s[w]) >> 2);
    }
}

}  // namespace

int smooth_hue_green_columns(const Row<std::uint8_t>& row, const SmoothHueRule&, int c) {
    green_columns_scalar(row, c);
    return row.c_last + 1;
}

// Pixels are computed left to right, and each pixel's element 0 is stored before its
// element 2 is computed. Both orders show in the output: with four bytes per pixel the
// left byte is the red element pass 2 has just given the pixel before, and with one
// byte per pixel on a top-down four-pixel row a blue site's diagonal estimate reads
// the sample it has just stored.
int smooth_hue_colour_columns(const Row<std::uint8_t>& row, const SmoothHueRule& rule, int c) {
    for (; c <= row.c_last; ++c) {
        std::uint8_t* px = row.d + std::ptrdiff_t(c) * row.stride;
        const Around a{row.s + c, row.pitch, px, px + row.up, px + row.down, float(px[kGreen])};
        Site site = row.phase.site(c);
        if (site == Site::GreenOnBlue) site = rule.green_on_blue_as;
        switch (site) {
        case Site::Red:
            px[kBlue] = to_byte(a.diagonal(), rule.saturation);
            px[kRed] = a.s[0];
            break;
        case Site::Blue:
            px[kBlue] = a.s[0];
            px[kRed] = to_byte(a.diagonal(), rule.saturation);
            break;
        case Site::GreenOnRed:
            px[kBlue] = to_byte(a.vertical(), rule.saturation);
            px[kRed] = to_byte(a.horizontal(), rule.saturation);
            break;
        case Site::GreenOnBlue:
            px[kBlue] = to_byte(a.horizontal(), rule.saturation);
            px[kRed] = to_byte(a.vertical(), rule.saturation);
            break;
        }
    }
    return c;
}

int smooth_hue_quotients(const float* a, const float* b, float* q, int n) {
    for (int i = 0; i < n; ++i) q[i] = a[i] / b[i];
    return n;
}

}  // namespace qzrcfa::detail

namespace qzrcfa::members {
namespace {

using detail::Pattern;
using detail::Prefill;
using detail::Saturation;
using detail::Site;
using detail::SmoothHueRule;

constexpr SmoothHueRule kRegular{Site::GreenOnBlue, Saturation::GreaterThan};
constexpr SmoothHueRule kGreenOnBlueAsRed{Site::Red, Saturation::GreaterThan};
constexpr SmoothHueRule kNaNSaturates{Site::GreenOnBlue, Saturation::LessThan};

constexpr SmoothHue smooth_hue(Pattern p, bool flip, Prefill fill, detail::ColourFn<std::uint8_t> border,
                               catalogue::Id border_id, SmoothHueRule rule) {
    return SmoothHue{p, flip, fill, border, border_id, 3, rule,
                     {{detail::smooth_hue_green_columns, &detail::KernelSet::smooth_hue_green, 1, 0},
                      {detail::smooth_hue_colour_columns, &detail::KernelSet::smooth_hue_colour, 1, 0}},
                     {&detail::KernelSet::smooth_hue_ring, &detail::KernelSet::smooth_hue_sweep, true, true, true,
                      // A member whose green-on-blue sites take the diagonal formulas reads
                      // the colours the row above computed at its green sites too.
                      detail::is_green(rule.green_on_blue_as)}};
}

}  // namespace

// The member table. Only the BGGR pair departs from the regular members: the top-down
// one gives its green-on-blue sites the red-site formulas, the bottom-up one zero-fills
// three bytes per pixel first and saturates NaN to 255.
constexpr SmoothHue SmoothHue_RGGB = smooth_hue(Pattern::RGGB, false, Prefill::None, QZRCFA_BORDER(Edge1_RGGB), kRegular);
constexpr SmoothHue SmoothHue_BGGR = smooth_hue(Pattern::BGGR, false, Prefill::None, QZRCFA_BORDER(Edge1_BGGR), kGreenOnBlueAsRed);
constexpr SmoothHue SmoothHue_GRBG = smooth_hue(Pattern::GRBG, false, Prefill::None, QZRCFA_BORDER(Edge1_GRBG), kRegular);
constexpr SmoothHue SmoothHue_GBRG = smooth_hue(Pattern::GBRG, false, Prefill::None, QZRCFA_BORDER(Edge1_GBRG), kRegular);
constexpr SmoothHue SmoothHue_RGGB_Flip = smooth_hue(Pattern::RGGB, true, Prefill::None, QZRCFA_BORDER(Edge1_RGGB_Flip), kRegular);
constexpr SmoothHue SmoothHue_BGGR_Flip = smooth_hue(Pattern::BGGR, true, Prefill::ZeroRgb, QZRCFA_BORDER(Edge1_BGGR_Flip), kNaNSaturates);
constexpr SmoothHue SmoothHue_GRBG_Flip = smooth_hue(Pattern::GRBG, true, Prefill::None, QZRCFA_BORDER(Edge1_GRBG_Flip), kRegular);
constexpr SmoothHue SmoothHue_GBRG_Flip = smooth_hue(Pattern::GBRG, true, Prefill::None, QZRCFA_BORDER(Edge1_GBRG_Flip), kRegular);

}  // namespace qzrcfa::members
