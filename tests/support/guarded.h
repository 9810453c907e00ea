// Memory against an inaccessible page, so that a read or write one byte outside a
// buffer faults, even in code built without sanitizers.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace qzrcfa::test {

// `bytes` of read-write memory between two inaccessible pages, starting right after
// the first (at_end false) or ending right before the second (at_end true).
class Guarded {
  public:
    Guarded(std::size_t bytes, bool at_end) {
        const std::size_t page = std::size_t(::sysconf(_SC_PAGESIZE));
        span_ = (bytes + page - 1) / page * page + 2 * page;
        void* m = ::mmap(nullptr, span_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (m == MAP_FAILED) std::abort();
        base_ = static_cast<std::uint8_t*>(m);
        if (::mprotect(base_ + page, span_ - 2 * page, PROT_READ | PROT_WRITE) != 0) std::abort();
        data_ = at_end ? base_ + span_ - page - bytes : base_ + page;
        std::memset(data_, 0x5A, bytes);
    }
    ~Guarded() { ::munmap(base_, span_); }
    Guarded(const Guarded&) = delete;
    Guarded& operator=(const Guarded&) = delete;
    std::uint8_t* data() const { return data_; }

  private:
    std::uint8_t* base_;
    std::uint8_t* data_;
    std::size_t span_;
};

}  // namespace qzrcfa::test
