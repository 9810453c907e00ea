// The border-fill members' descriptions, which their family file
// (CFA_NearestNeighbor_Edge.cpp) fills in and runs.
#pragma once

#include <array>
#include <cstdint>

#include "driver/fill.h"
#include "kernels/bayer.h"

namespace qzrcfa::detail {

// A source sample relative to the position being filled: S(s + dr, c + dc). Reads are
// by linear offset, so a column outside 0 .. width - 1 reaches into the next or
// previous raw row.
struct Tap {
    std::int8_t dr, dc;
};
using Taps = std::array<Tap, 3>;  // blue, green, red

// The one-pixel fill of one pattern: which sample feeds which element, by case.
struct Edge1Table {
    Taps top[3];        // row 0: c == 0, c odd, c even > 0
    Taps middle[2][2];  // [row parity][0 = first pixel (c = 0), 1 = last pixel (c = width - 1)]
    Taps bottom[3];     // last row: c == 0, c odd, c even > 0
};

struct Edge1Member {
    const Edge1Table* table;
    bool flip;
};

// One pixel of a right pair of the two-pixel fill: the row's own colour X and green
// from row r, the lower row's colour Y from row r + 1; columns counted from the row end
// (-1 is width - 1).
struct RightPick {
    std::int8_t x, g, y;
};

struct Edge2Member {
    Pattern pattern;
    bool flip;
    RightPick colour_row_inner;  // colour row, pixel width - 2: each pattern's own choice
};

// The bytes a border fill `ring` pixels wide writes at each end of each of its middle
// rows (rows ring .. height - 1 - ring): its side pixels as three elements each,
// whatever the pixel stride.
constexpr int border_side_elements(int ring) { return 3 * ring; }

// Runs a border fill on rows `pitches` elements apart (the exports: their width and
// width * bitCount / 8).
int border_fill(const Edge1Member& m, const std::uint8_t* src, int width, int height, std::uint8_t* dst,
                unsigned short bitCount, Pitches pitches);
int border_fill(const Edge1Member& m, const std::uint16_t* src, int width, int height, std::uint16_t* dst,
                unsigned short bitCount, Pitches pitches);
int border_fill(const Edge2Member& m, const std::uint8_t* src, int width, int height, std::uint8_t* dst,
                unsigned short bitCount, Pitches pitches);

}  // namespace qzrcfa::detail
