// A plain model of the Bayer geometry for tests, written independently of the
// library's own tables: the pattern string names the colours of the top-left tile.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace qzrcfa::test {

// Output element of each colour.
inline int element_of(char colour) { return colour == 'B' ? 0 : colour == 'G' ? 1 : 2; }

// Colour measured at raw (r, c) for a pattern such as "RGGB".
inline char colour_at(const std::string& pattern, int r, int c) { return pattern[std::size_t((r & 1) * 2 + (c & 1))]; }

// The non-green colour measured in row r.
inline char row_colour(const std::string& pattern, int r) {
    const char a = colour_at(pattern, r, 0);
    return a == 'G' ? colour_at(pattern, r, 1) : a;
}

inline char opposite(char colour) { return colour == 'R' ? 'B' : 'R'; }

// Samples addressed by linear offset, as the library addresses them: a column outside
// the row reaches into the neighbouring row.
template <class T>
struct Raw {
    const std::vector<T>& samples;
    int width;
    T operator()(int r, int c) const { return samples[std::size_t(std::ptrdiff_t(r) * width + c)]; }
};

}  // namespace qzrcfa::test
