// The extended library's threads: a pool started the first time a request asks for
// more than one thread, shared by every call.
#pragma once

#include "driver/tasks.h"

namespace qzrcfa::ext {

// Processors this program may run on.
int processors();

// The threads of one call: the calling thread and up to threads - 1 of the pool's
// workers (as many as are free to join), which the pool starts on first use.
class CallTasks final : public detail::Tasks {
  public:
    explicit CallTasks(int threads) : threads_(threads) {}
    int threads() const override { return threads_; }
    void run(int count, void (*task)(const void* context, int index), const void* context) const override;

  private:
    int threads_;
};

}  // namespace qzrcfa::ext
