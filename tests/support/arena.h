// Test buffers with room around them, so a test can say exactly which elements a call
// may touch, and random raw frames.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <random>
#include <set>
#include <vector>

namespace qzrcfa::test {

// A buffer of `size` elements inside a larger arena: `before` elements of slack in
// front and `after` behind. Every element, slack included, starts at `fill`.
template <class T>
class Arena {
  public:
    Arena(std::size_t size, T fill, std::size_t before = 64, std::size_t after = 64)
        : before_(before), size_(size), store_(before + size + after, fill) {}

    T* data() { return store_.data() + before_; }
    const T* data() const { return store_.data() + before_; }
    std::size_t size() const { return size_; }
    T& operator[](std::ptrdiff_t i) { return data()[i]; }
    T operator[](std::ptrdiff_t i) const { return data()[i]; }

    // The image part alone.
    std::vector<T> image() const { return {data(), data() + size_}; }

    // Offsets (relative to data(), so slack in front is negative) of every element
    // that differs from `other`, an arena of the same shape.
    std::vector<std::ptrdiff_t> differences(const Arena& other) const {
        std::vector<std::ptrdiff_t> out;
        for (std::size_t i = 0; i < store_.size(); ++i) {
            if (store_[i] != other.store_[i]) out.push_back(std::ptrdiff_t(i) - std::ptrdiff_t(before_));
        }
        return out;
    }

    std::ptrdiff_t first() const { return -std::ptrdiff_t(before_); }
    std::ptrdiff_t last() const { return std::ptrdiff_t(store_.size() - before_) - 1; }

  private:
    std::size_t before_;
    std::size_t size_;
    std::vector<T> store_;
};

// The set of output elements a call writes: the call runs twice, into arenas filled
// with two different values, and every element that changed in either run was
// written (a written value cannot equal both fills). Exact for calls whose written
// values do not depend on what the buffer held before.
template <class T>
std::set<std::ptrdiff_t> written_elements(std::size_t size, const std::function<void(T*)>& call,
                                          std::size_t slack = 64) {
    std::set<std::ptrdiff_t> out;
    for (T fill : {T(0x5A), T(~T(0x5A))}) {
        Arena<T> pristine(size, fill, slack, slack);
        Arena<T> used(size, fill, slack, slack);
        call(used.data());
        for (std::ptrdiff_t i : used.differences(pristine)) out.insert(i);
    }
    return out;
}

// Offsets outside [0, size) in a set of written offsets.
inline std::vector<std::ptrdiff_t> outside(const std::set<std::ptrdiff_t>& offsets, std::size_t size) {
    std::vector<std::ptrdiff_t> out;
    for (std::ptrdiff_t i : offsets) {
        if (i < 0 || i >= std::ptrdiff_t(size)) out.push_back(i);
    }
    return out;
}

// A raw frame of random samples, reproducible from its seed. Two further rows of
// random samples follow the frame, because some members read just past its end by
// design (the one-pixel fill of BGGR on odd widths, for one).
template <class T>
std::vector<T> random_frame(int width, int height, std::uint32_t seed, unsigned max = sizeof(T) == 1 ? 255u : 65535u) {
    std::mt19937 rng(seed * 2654435761u + std::uint32_t(width) * 40503u + std::uint32_t(height));
    std::uniform_int_distribution<unsigned> dist(0, max);
    std::vector<T> frame(std::size_t(width) * std::size_t(height + 2));
    for (T& v : frame) v = T(dist(rng));
    return frame;
}

// Output rows in reverse order (each row `row_elements` long).
template <class T>
std::vector<T> reversed_rows(const std::vector<T>& image, std::size_t row_elements) {
    std::vector<T> out(image.size());
    const std::size_t rows = image.size() / row_elements;
    for (std::size_t r = 0; r < rows; ++r) {
        std::copy_n(image.begin() + std::ptrdiff_t(r * row_elements), row_elements,
                    out.begin() + std::ptrdiff_t((rows - 1 - r) * row_elements));
    }
    return out;
}

}  // namespace qzrcfa::test
