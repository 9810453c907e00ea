// The threads of a call, as the frame drivers see them: a set of tasks run on up to a
// number of threads, bands of rows, and the progress of rows computed by several threads
// at once.
#pragma once

#include <atomic>
#include <cstdint>

namespace qzrcfa::detail {

// The threads of a parallel call (the extended library's; the exports never have any).
// run(count, task, context) calls task(context, i) for every i in [0, count) on up to
// threads() threads, the caller among them, and returns when every call has returned,
// after which all their writes are visible to the caller.
class Tasks {
  public:
    virtual int threads() const = 0;
    virtual void run(int count, void (*task)(const void* context, int index), const void* context) const = 0;

    template <class F>
    void for_each(int count, const F& f) const {
        run(count, [](const void* context, int i) { (*static_cast<const F*>(context))(i); }, &f);
    }

  protected:
    ~Tasks() = default;
};

// Rows begin .. end - 1 split into `count` bands as even as rows allow: band i.
struct Bands {
    int begin, end, count;
    int first(int i) const { return begin + int(std::int64_t(end - begin) * i / count); }
};

// Progress of the rows of a pass computed by several threads at once, each row by one
// thread from left to right: how many of its columns are done. A thread that waits for
// a row spins a little (the row above is usually a chunk away), then sleeps until the
// row's thread publishes: a waiter whose processor the system takes away costs the
// other thread nothing, and a descheduled publisher costs the waiter no spinning.
struct RowProgress {
    std::atomic<int>* done;  // per row of the pass, from its first row
    int first_row;
    void publish(int r, int columns) {
        done[r - first_row].store(columns, std::memory_order_release);
        done[r - first_row].notify_all();
    }
    void await(int r, int columns) const {
        std::atomic<int>& row = done[r - first_row];
        for (int spins = 0; spins < 256; ++spins)
            if (row.load(std::memory_order_acquire) >= columns) return;
        for (int seen = row.load(std::memory_order_acquire); seen < columns; seen = row.load(std::memory_order_acquire))
            row.wait(seen, std::memory_order_acquire);
    }
};

}  // namespace qzrcfa::detail
