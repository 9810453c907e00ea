// The threads of a call, as the frame drivers see them: a set of tasks run on up to a
// number of threads, and bands of rows.
#pragma once

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

}  // namespace qzrcfa::detail
