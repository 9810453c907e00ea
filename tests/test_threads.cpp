// Concurrent calls: threads run every export at once, each on its own buffers, and
// every thread's output equals the bytes of a call made alone. Built and run under
// ThreadSanitizer by `make test-tsan`, which reports any data race inside the library
// (shared tables, run-time kernel choice).
#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <thread>
#include <vector>

#include "model.h"

namespace {

using qzrcfa::model::kMembers;
using qzrcfa::model::Member;

constexpr int kWidth = 70, kHeight = 9;  // every wide kernel, with a tail

// One call of `e` on its own copy of `raw`, into a fresh buffer (2 elements of slack
// for the members that write them).
std::vector<std::uint16_t> call(const Member& e, const std::vector<std::uint16_t>& raw, unsigned short bits) {
    const std::size_t pixels = std::size_t(kWidth) * kHeight, out = pixels * (e.entry.grey ? 1 : bits / 8u) + 2;
    std::vector<std::uint16_t> result(out, 0x5A5A);
    if (e.wide()) {
        std::vector<std::uint16_t> src = raw;
        qzrcfa::model::call(e, src.data(), kWidth, kHeight, result.data(), bits);
        return result;
    }
    std::vector<std::uint8_t> src(raw.begin(), raw.end()), dst(out, 0x5A);
    qzrcfa::model::call(e, src.data(), kWidth, kHeight, dst.data(), bits);
    return {dst.begin(), dst.end()};
}

TEST(Threads, ConcurrentCallsOfEveryExportGiveTheSingleThreadBytes) {
    std::mt19937 rng(11);
    std::vector<std::uint16_t> raw8(std::size_t(kWidth) * kHeight), raw16(raw8.size());
    for (std::size_t i = 0; i < raw8.size(); ++i) {
        raw8[i] = std::uint16_t(rng() & 0xFF);
        raw16[i] = std::uint16_t(rng());
    }
    const unsigned short bits[] = {24, 32};
    const std::size_t calls = std::size(kMembers) * 2;
    auto call_at = [&](std::size_t i) {
        const Member& e = kMembers[i / 2];
        return call(e, e.wide() ? raw16 : raw8, bits[i % 2]);
    };
    // The threads make the first calls of the process, so any lazy set-up in the
    // library runs concurrently too. Each starts at a different export, so different
    // families overlap in time.
    constexpr int kThreads = 4;
    std::vector<std::vector<std::vector<std::uint16_t>>> got(kThreads, std::vector<std::vector<std::uint16_t>>(calls));
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            for (std::size_t k = 0; k < calls; ++k) {
                const std::size_t i = (k + std::size_t(t) * 50) % calls;
                got[std::size_t(t)][i] = call_at(i);
            }
        });
    }
    for (std::thread& th : threads) th.join();
    for (std::size_t i = 0; i < calls; ++i) {
        const std::vector<std::uint16_t> alone = call_at(i);
        for (int t = 0; t < kThreads; ++t)
            EXPECT_EQ(got[std::size_t(t)][i], alone) << kMembers[i / 2].name << " bitCount " << bits[i % 2] << ", thread " << t;
    }
}

}  // namespace
