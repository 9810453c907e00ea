// A model of every export, written from the behaviour the header and README document
// for each family and member, not from the library's tables (only the list of the
// exports is the catalogue's). A colour member is the literal sequence: its pre-fill,
// its border fill, then its passes in full, one after the other, each reading the
// output as it stands. The model works on the caller's
// buffer with room around it, so it writes and reads exactly where an export may,
// slack included. test_members holds every export to it; test_interposition holds the
// library to it when a border fill is interposed.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <type_traits>

#include "catalogue/catalogue.h"
#include "qzrcfa.h"

namespace qzrcfa::model {

enum class Family { Edge1, Edge2, Nearest, Grey, Bilinear, Gate, EdgeSensing, Laplacian, SmoothHue };

// What sets a member apart from its family; each family reads its own flags.
enum : unsigned {
    kPrefill = 1u << 0,            // 255 over (width * height * bitCount) / 8 bytes first
    kStraightBelow = 1u << 1,      // Edge1: last pixel of odd middle rows, opposite colour from straight below
    kRightDiagonalTop = 1u << 2,   // Edge1: top row, even c > 0, opposite colour from S(1, c + 1)
    kInnerGreenLast = 1u << 3,     // Edge2: right pair, colour row, pixel width - 2: green from column width - 1
    kInnerLowerLast = 1u << 4,     // Edge2: ... and the lower row's colour from column width - 1 (else width - 3)
    kAverageGreen = 1u << 5,       // Nearest: green is the mean of the block's two greens
    kLeftBlock = 1u << 6,          // Nearest: the horizontal neighbour is on the left
    kQuieterDiagonal = 1u << 7,    // EdgeSensing: method 2
    kExchanged = 1u << 8,          // EdgeSensing: green sites exchange their two colours
    kCrossed = 1u << 9,            // Laplacian: upper diagonal greens from the raw row below
    kDisplaced = 1u << 10,         // Laplacian2: green pass two rows down and two columns right
    kGreenOnBlueAsRed = 1u << 11,  // SmoothHue: green-on-blue sites take the red-site formulas
    kZeroFillNaN255 = 1u << 12,    // SmoothHue: width * height * 3 zero bytes first; NaN stored as 255
    kShuffle = 1u << 13,           // Grey: last-column shuffle (else the two-column copy)
};

// An export's address, with the kind of signature its declaration has: only the
// interface's four signatures convert.
struct Entry {
    void (*fn)();
    bool grey, wide;  // no bitCount; 16-bit samples
};
template <class T>
Entry entry(int (*fn)(T*, int, int, T*, unsigned short)) {
    static_assert(std::is_same_v<T, unsigned char> || std::is_same_v<T, unsigned short>);
    return {reinterpret_cast<void (*)()>(fn), false, sizeof(T) == 2};
}
template <class T>
Entry entry(int (*fn)(T*, int, int, T*)) {
    static_assert(std::is_same_v<T, unsigned char> || std::is_same_v<T, unsigned short>);
    return {reinterpret_cast<void (*)()>(fn), true, sizeof(T) == 2};
}

// Each member's family and the flags that set it apart, from its name: the rules the
// header and README state for each family.
struct Member {
    const char* name;
    Entry entry;
    Family family;
    unsigned flags;

    Member(const char* export_name, Entry e) : name(export_name), entry(e), family(family_of(name)), flags(flags_of()) {}

    // The naming rule: pattern, _Flip for bottom-up, _16Bits for 16-bit samples.
    std::string pattern() const {
        for (const char* p : {"RGGB", "BGGR", "GRBG", "GBRG"})
            if (std::strstr(name, p)) return p;
        return {};
    }
    bool flip() const { return std::strstr(name, "_Flip") != nullptr; }
    bool wide() const { return std::strstr(name, "16Bits") != nullptr; }

  private:
    bool named(const char* prefix) const { return std::string(name).rfind(std::string("QZRCFA_") + prefix, 0) == 0; }
    Family family_of(const char* n) const {
        if (named("NearestNeighbor_Edge1_")) return Family::Edge1;
        if (named("NearestNeighbor_Edge2_")) return Family::Edge2;
        if (std::strstr(n, "_Gray")) return Family::Grey;
        if (named("NearestNeighbor_")) return Family::Nearest;
        if (named("Bilinear_")) return Family::Bilinear;
        if (named("FastBilinear_")) return Family::Gate;
        if (named("EdgeSensing")) return Family::EdgeSensing;
        if (named("Laplacian")) return Family::Laplacian;
        return Family::SmoothHue;
    }
    unsigned flags_of() const {
        const std::string p = pattern();
        const bool rggb = p == "RGGB", bggr = p == "BGGR", gbrg = p == "GBRG";
        auto when = [](bool condition, unsigned flag) { return condition ? flag : 0u; };
        switch (family) {
        case Family::Edge1:  // the 8-bit bottom-up RGGB and BGGR members take the diagonal instead
            return when((rggb || bggr) && (!flip() || wide()), kStraightBelow) | when(bggr, kRightDiagonalTop);
        case Family::Edge2: return when(rggb, kInnerGreenLast) | when(!rggb && !bggr, kInnerLowerLast);
        case Family::Nearest:  // 16-bit: the block on the left; 8-bit: each member its own
            if (wide() || (bggr && !flip())) return kLeftBlock;
            return when(!gbrg, kAverageGreen) | when(rggb && !flip(), kPrefill);
        case Family::Grey: return when(wide() || !(rggb || flip()), kShuffle);  // _Flip forwards to RGGB
        case Family::Bilinear:
        case Family::Gate: return when(!flip(), kPrefill);
        case Family::EdgeSensing:  // method 1's RGGB members forward to method 2
            return when(named("EdgeSensing2") || rggb, kQuieterDiagonal) | when(gbrg && !flip(), kExchanged);
        case Family::Laplacian: return kPrefill | when(rggb && flip(), kCrossed) | when(named("Laplacian2"), kDisplaced);
        case Family::SmoothHue: return when(bggr && flip(), kZeroFillNaN255) | when(bggr && !flip(), kGreenOnBlueAsRed);
        }
        return 0;
    }
};

// Every export of the catalogue, through its declaration in the header.
#define QZRCFA_M(name, linkage, signature, how, what) Member{"QZRCFA_" #name, entry(&QZRCFA_##name)},
inline const Member kMembers[] = {QZRCFA_CATALOGUE(QZRCFA_M)};
#undef QZRCFA_M

inline const Member* find(const std::string& name) {
    for (const Member& m : kMembers)
        if (name == m.name) return &m;
    return nullptr;
}

// Calls the export itself.
template <class T>
int call(const Member& m, T* src, int width, int height, T* dst, unsigned short bitCount) {
    if (m.entry.grey) return reinterpret_cast<int (*)(T*, int, int, T*)>(m.entry.fn)(src, width, height, dst);
    return reinterpret_cast<int (*)(T*, int, int, T*, unsigned short)>(m.entry.fn)(src, width, height, dst, bitCount);
}

// Bayer geometry: the pattern names the colours of the top-left 2x2 tile.
inline int element(char colour) { return colour == 'B' ? 0 : colour == 'G' ? 1 : 2; }
inline char opposite(char colour) { return colour == 'R' ? 'B' : 'R'; }

// One call: samples addressed by linear offset (a column outside the row reaches into
// the next or previous row), output pixels of raw (r, c) top-down or bottom-up.
template <class T>
struct Frame {
    const T* s;
    int W, H;
    T* d;
    int P;  // elements per pixel: bitCount >> 3
    bool flip;
    std::string pattern;

    int S(int r, int c) const { return s[std::ptrdiff_t(r) * W + c]; }
    T* row(int r) const { return d + std::ptrdiff_t(flip ? H - 1 - r : r) * W * P; }
    T* px(int r, int c) const { return row(r) + std::ptrdiff_t(c) * P; }
    char at(int r, int c) const { return pattern[std::size_t((r & 1) * 2 + (c & 1))]; }
    char row_colour(int r) const { return at(r, 0) == 'G' ? at(r, 1) : at(r, 0); }
};

// One-pixel border fill. A ring pixel copies its own sample; green from its horizontal
// partner (column 1 for column 0); at a green site the row's colour from the horizontal
// partner and the other from the vertical partner; at a red or blue site the opposite
// colour from the diagonal. Top row: phase of row 0, partner row below. Middle rows:
// first pixel, and the last pixel read as if the width were even and written as the
// elements that end the output row. Bottom row (raw row 1 below three rows): phase of
// row 1, partner row above.
template <class T>
void edge1(const Frame<T>& f, unsigned flags) {
    enum Where { Top, First, Last, Bottom };
    auto ring = [&](T* at, int r, int c, int pr, int pc, int vr, Where where) {
        const int hc = c == 0 && where != Last ? 1 : c - 1;
        const char here = f.at(pr, pc);
        T v[3];
        v[1] = T(f.S(r, here == 'G' ? c : hc));
        if (here == 'G') {
            const char x = f.row_colour(pr);
            v[element(x)] = T(f.S(r, hc));
            v[element(opposite(x))] = T(f.S(vr, c));
        } else {
            int oc = hc;
            if (where == Last && (r & 1) && (flags & kStraightBelow)) oc = c;
            if (where == Top && c > 0 && !(c & 1) && (flags & kRightDiagonalTop)) oc = c + 1;
            v[element(here)] = T(f.S(r, c));
            v[element(opposite(here))] = T(f.S(vr, oc));
        }
        std::copy(v, v + 3, at);
    };
    for (int c = 0; c < f.W; ++c) ring(f.px(0, c), 0, c, 0, c, 1, Top);
    for (int r = 1; r <= f.H - 2; ++r) {
        ring(f.row(r), r, 0, r, 0, r + 1, First);
        ring(f.row(r) + std::ptrdiff_t(f.W) * f.P - 3, r, f.W - 1, r, 1, r + 1, Last);
    }
    const int s = f.H >= 3 ? f.H - 1 : 1;
    for (int c = 0; c < f.W; ++c) ring(f.px(s, c), s, c, 1, c, s - 1, Bottom);
}

// Two-pixel border fill. Block rule: a pixel handed columns c0, c0 + 1 takes green and
// its row's colour from its own row and the other colour from its partner row, the
// colours being those of the rows whose phases it is read with. Full rows 0 and 1,
// and the bottom pair (rows height - 2, height - 1; 2, 3 below five rows) read with
// the phases of rows 0 and 1; the left pair of a middle row is its first pixel written
// twice as six elements; the right pair, six elements ending the row, from a table of
// the last three columns.
template <class T>
void edge2(const Frame<T>& f, unsigned flags) {
    const int W = f.W;
    auto block = [&](T* v, int own, int phase, int partner, int c0) {
        for (int c = c0; c <= c0 + 1; ++c) {
            v[element(f.at(phase, c))] = T(f.S(own, c));
            if (f.at(phase + 1, c) != 'G') v[element(f.at(phase + 1, c))] = T(f.S(partner, c));
        }
    };
    auto full_row = [&](int r, int phase, int partner) {
        for (int c = 0; c < W; ++c) block(f.px(r, c), r, phase, partner, c == 0 ? 0 : c - 1);
    };
    full_row(0, 0, 1);
    full_row(1, 1, 2);
    for (int r = 2; r <= f.H - 3; ++r) {
        T v[3];
        block(v, r, r, r + 1, 0);
        for (int i = 0; i < 6; ++i) f.row(r)[i] = v[i % 3];
        // Columns back from the row end of the row's colour X, green and the lower row's colour.
        const bool green_row = f.at(r, 0) == 'G';
        const int inner_g = flags & kInnerGreenLast ? 1 : 3, inner_y = flags & kInnerLowerLast ? 1 : 3;
        const int pick[2][3] = {{green_row ? 3 : 2, green_row ? 2 : inner_g, green_row ? 2 : inner_y},
                                {green_row ? 1 : 2, green_row ? 2 : 1, green_row ? 2 : 1}};
        T* tail = f.row(r) + std::ptrdiff_t(W) * f.P - 6;
        const char x = f.row_colour(r);
        for (int k = 0; k < 2; ++k) {
            tail[3 * k + element(x)] = T(f.S(r, W - pick[k][0]));
            tail[3 * k + 1] = T(f.S(r, W - pick[k][1]));
            tail[3 * k + element(opposite(x))] = T(f.S(r + 1, W - pick[k][2]));
        }
    }
    const int p = f.H >= 5 ? f.H - 2 : 2;
    full_row(p, 0, p + 1);
    full_row(p + 1, 1, p);
}

// A pass over rows and columns margin + shift .. size - 1 - margin + shift, rows in
// order, columns left to right.
template <class T, class F>
void pass(const Frame<T>& f, int margin, int shift, F pixel) {
    for (int r = margin + shift; r <= f.H - 1 - margin + shift; ++r)
        for (int c = margin + shift; c <= f.W - 1 - margin + shift; ++c) pixel(r, c, f.px(r, c));
}

// Each missing colour: the floor mean of the side neighbours that carry it, else of
// the diagonal ones.
template <class T>
void bilinear(const Frame<T>& f) {
    static const int kRings[2][4][2] = {{{0, -1}, {0, 1}, {-1, 0}, {1, 0}}, {{-1, -1}, {-1, 1}, {1, -1}, {1, 1}}};
    auto mean = [&](int r, int c, char colour) {
        for (const auto& ring : kRings) {
            int sum = 0, n = 0;
            for (const auto& o : ring)
                if (f.at(r + o[0], c + o[1]) == colour) sum += f.S(r + o[0], c + o[1]), ++n;
            if (n) return sum / n;
        }
        return -1;
    };
    pass(f, 1, 0, [&](int r, int c, T* px) {
        for (char colour : {'B', 'G', 'R'}) px[element(colour)] = T(f.at(r, c) == colour ? f.S(r, c) : mean(r, c, colour));
    });
}

// The 2x2 block of the pixel, its horizontal neighbour and the two samples below them.
template <class T>
void nearest(const Frame<T>& f, unsigned flags) {
    const int h = flags & kLeftBlock ? -1 : 1;
    const bool average = flags & kAverageGreen;
    pass(f, 1, 0, [&](int r, int c, T* px) {
        const char here = f.at(r, c);
        if (here == 'G') {
            const char x = f.row_colour(r);
            px[element(x)] = T(f.S(r, c + h));
            px[element(opposite(x))] = T(f.S(r + 1, c));
            px[1] = T(average ? (f.S(r, c) + f.S(r + 1, c + h)) / 2 : f.S(r, c));
        } else {
            px[element(here)] = T(f.S(r, c));
            px[element(opposite(here))] = T(f.S(r + 1, c + h));
            px[1] = T(average ? (f.S(r, c + h) + f.S(r + 1, c)) / 2 : f.S(r, c + h));
        }
    });
}

// Green along the pair of side neighbours that differ less (all four on a tie); the
// opposite colour along the quieter diagonal (method 2) or from all four diagonals.
template <class T>
void edge_sensing(const Frame<T>& f, unsigned flags) {
    auto choose = [](int a1, int a2, int b1, int b2) {
        const int da = std::abs(a1 - a2), db = std::abs(b1 - b2);
        return da == db ? (a1 + a2 + b1 + b2) / 4 : da < db ? (a1 + a2) / 2 : (b1 + b2) / 2;
    };
    const bool exchanged = flags & kExchanged;
    pass(f, 1, 0, [&](int r, int c, T* px) {
        const char here = f.at(r, c);
        if (here == 'G') {
            const char beside = f.at(r, c - 1);
            px[element(exchanged ? opposite(beside) : beside)] = T((f.S(r, c - 1) + f.S(r, c + 1)) / 2);
            px[element(exchanged ? beside : opposite(beside))] = T((f.S(r - 1, c) + f.S(r + 1, c)) / 2);
            px[1] = T(f.S(r, c));
            return;
        }
        const int ul = f.S(r - 1, c - 1), ur = f.S(r - 1, c + 1), dl = f.S(r + 1, c - 1), dr = f.S(r + 1, c + 1);
        px[element(here)] = T(f.S(r, c));
        px[1] = T(choose(f.S(r, c - 1), f.S(r, c + 1), f.S(r - 1, c), f.S(r + 1, c)));
        px[element(opposite(here))] = T(flags & kQuieterDiagonal ? choose(ul, dr, ur, dl) : (ul + ur + dl + dr) / 4);
    });
}

// Green pass, then the red/blue pass reading its diagonal greens as the elements at -2
// and +4 from the output pixels of the raw rows above and below. Division truncates
// toward zero (as C++'s does); results are clamped to 0..255.
template <class T>
void laplacian(const Frame<T>& f, unsigned flags) {
    const long frame = long(f.W) * f.H;
    auto S = [&](int r, int c) {  // samples at or past the end of the frame read as 0
        const long i = long(r) * f.W + c;
        return i < frame ? f.S(r, c) : 0;
    };
    auto clamp = [](int x) { return T(std::clamp(x, 0, 255)); };
    pass(f, 2, flags & kDisplaced ? 2 : 0, [&](int r, int c, T* px) {
        const char here = f.at(r, c);
        if (here == 'G') {
            px[1] = T(S(r, c));
            return;
        }
        const int x = S(r, c), l = S(r, c - 1), rt = S(r, c + 1), u = S(r - 1, c), dn = S(r + 1, c);
        const int dh = 2 * x - S(r, c - 2) - S(r, c + 2), dv = 2 * x - S(r - 2, c) - S(r + 2, c);
        const int hg = std::abs(l - rt) + std::abs(dh), vg = std::abs(u - dn) + std::abs(dv);
        px[1] = clamp(hg < vg ? dh / 4 + (l + rt) / 2 : vg < hg ? dv / 4 + (u + dn) / 2 : (dh + dv) / 8 + (l + rt + u + dn) / 4);
        px[element(here)] = T(x);
        if (here == 'R') px[0] = T(x);  // until the red/blue pass replaces it
    });
    const bool crossed = flags & kCrossed;
    pass(f, 2, 0, [&](int r, int c, T* px) {
        const char here = f.at(r, c);
        if (here == 'G') {
            const char x = f.row_colour(r);
            px[element(x)] = T((f.S(r, c - 1) + f.S(r, c + 1)) / 2);
            px[element(opposite(x))] = T((f.S(r - 1, c) + f.S(r + 1, c)) / 2);
            return;
        }
        const T* up = f.px(crossed ? r + 1 : r - 1, c);
        const T* lo = f.px(crossed ? r - 1 : r + 1, c);
        const int g = px[1], d1 = 2 * g - up[-2] - lo[4], d2 = 2 * g - up[4] - lo[-2];
        const int a = f.S(r - 1, c - 1), b = f.S(r + 1, c + 1), e = f.S(r - 1, c + 1), h = f.S(r + 1, c - 1);
        const int e1 = std::abs(a - b) + std::abs(d1), e2 = std::abs(e - h) + std::abs(d2);
        px[element(opposite(here))] =
            clamp(e1 < e2 ? (a + b + d1) / 2 : e2 < e1 ? (e + h + d2) / 2 : (a + b + e + h + d1 + d2) / 4);
    });
}

// Integer green pass, then red and blue as own green times the mean of the
// neighbours' colour-to-green ratios in single precision (horizontal neighbours'
// greens at -2 and +4 from the pixel), element 0 stored before element 2 is computed.
template <class T>
void smooth_hue(const Frame<T>& f, unsigned flags) {
    pass(f, 1, 0, [&](int r, int c, T* px) {
        px[1] = T(f.at(r, c) == 'G' ? f.S(r, c) : (f.S(r - 1, c) + f.S(r + 1, c) + f.S(r, c - 1) + f.S(r, c + 1)) / 4);
    });
    const T nan_byte = flags & kZeroFillNaN255 ? 255 : 0;
    auto stored = [&](float x) { return std::isnan(x) ? nan_byte : x > 255.0f ? T(255) : T(x); };
    pass(f, 1, 0, [&](int r, int c, T* px) {
        const float g = px[1];
        const T* up = f.px(r - 1, c);
        const T* dn = f.px(r + 1, c);
        auto q = [&](int rr, int cc, const T* green) { return float(f.S(rr, cc)) / float(*green); };
        auto vertical = [&] { return (q(r - 1, c, up + 1) + q(r + 1, c, dn + 1)) * (g * 0.5f); };
        auto horizontal = [&] { return (q(r, c - 1, px - 2) + q(r, c + 1, px + 4)) * (g * 0.5f); };
        auto diagonal = [&] {
            return (((q(r - 1, c - 1, up - 2) + q(r - 1, c + 1, up + 4)) + q(r + 1, c - 1, dn - 2)) + q(r + 1, c + 1, dn + 4)) *
                   (g * 0.25f);
        };
        char here = f.at(r, c);
        if (here == 'G' && (flags & kGreenOnBlueAsRed) && f.row_colour(r) == 'B') here = 'R';
        if (here == 'R') {
            px[0] = stored(diagonal());
            px[2] = T(f.S(r, c));
        } else if (here == 'B') {
            px[0] = T(f.S(r, c));
            px[2] = stored(diagonal());
        } else if (f.row_colour(r) == 'R') {
            px[0] = stored(vertical());
            px[2] = stored(horizontal());
        } else {
            px[0] = stored(horizontal());
            px[2] = stored(vertical());
        }
    });
}

// Grey: raw rows 0 .. height - 2 averaged (truncated 2x2 means) into their output
// rows and finished at the right, element by element on the output as it stands; the
// row left over copies its neighbour. One row copies the row's width of elements
// before dst (after the row bottom-up).
template <class T>
void grey(const Frame<T>& f, unsigned flags) {
    const int W = f.W;
    if (f.H < 1) return;
    if (f.H == 1) {
        std::memmove(f.d, f.flip ? f.d + W : f.d - W, std::size_t(W) * sizeof(T));
        return;
    }
    const bool shuffle = flags & kShuffle;
    for (int s = 0; s <= f.H - 2; ++s) {
        T* o = f.row(s);
        for (int c = 0; c < W - (shuffle ? 1 : 2); ++c)
            o[c] = T((long(f.S(s, c)) + f.S(s, c + 1) + f.S(s + 1, c) + f.S(s + 1, c + 1)) / 4);
        if (shuffle) {
            // Columns width - 3 and width - 2 into the two elements after the row, then
            // column width - 4 into the last column.
            o[W] = o[W - 3];
            o[W + 1] = o[W - 2];
            o[W - 1] = o[W - 4];
        } else {
            for (int c = std::max(W - 2, 0); c < W; ++c) o[c] = o[c - 1];  // each repeats the one before it
        }
    }
    std::memmove(f.row(f.H - 1), f.row(f.H - 2), std::size_t(W) * sizeof(T));
}

// The model of `m` on dst; returns what the export returns.
template <class T>
int run(const Member& m, const T* src, int width, int height, T* dst, unsigned short bitCount) {
    const bool grey_output = m.family == Family::Grey;
    const Frame<T> f{src, width, height, dst, grey_output ? 1 : bitCount >> 3, m.flip(), m.pattern()};
    if (grey_output) return grey(f, m.flags), 0;
    if (m.family == Family::Gate && bitCount != 24 && bitCount != 32) return -1;
    if (m.flags & kPrefill) std::memset(dst, 255, std::size_t(width * height * bitCount / 8));
    if (m.flags & kZeroFillNaN255) std::memset(dst, 0, std::size_t(width * height * 3));
    // The border fill of the member's own pattern, row order and sample width.
    const bool two = m.family == Family::Laplacian;
    const std::string border = std::string("QZRCFA_NearestNeighbor_Edge") + (two ? "2_" : "1_") + f.pattern +
                               (f.flip ? "_Flip" : "") + (m.wide() ? "_16Bits" : "");
    const unsigned border_flags = m.family == Family::Edge1 || m.family == Family::Edge2 ? m.flags : find(border)->flags;
    if (two || m.family == Family::Edge2) edge2(f, border_flags);
    else edge1(f, border_flags);
    switch (m.family) {
        case Family::Nearest: nearest(f, m.flags); break;
        case Family::Bilinear:
        case Family::Gate: bilinear(f); break;
        case Family::EdgeSensing: edge_sensing(f, m.flags); break;
        case Family::Laplacian: laplacian(f, m.flags); break;
        case Family::SmoothHue: smooth_hue(f, m.flags); break;
        default: break;
    }
    return 0;
}

}  // namespace qzrcfa::model
