// The thread pool behind parallel requests.
//
// Workers wait for jobs. A job is one Tasks::run call: `count` task indices, taken one
// at a time by the calling thread and by up to threads - 1 workers. The caller takes
// indices too, so a job completes even when every worker is busy with other calls or
// none could be started. run() returns once every index has been taken and no worker
// still holds the job: nothing reaches into the caller's frame after that.
//
// What the pool is built to outlive:
// - A task that throws, on a worker or on the caller. The exception is caught where it
//   happens and stops the job: indices nobody has taken yet are skipped. The caller
//   still takes the job off the queue and waits until no worker holds it, then
//   rethrows the first exception (gbri's bands allocate, so this is how running out of
//   memory reaches the caller).
// - Threads that cannot start (a pids limit in a container, no memory for a stack).
//   Workers are started by the first call that wants one; a start that fails leaves
//   the pool with the workers it has, down to none, and calls run on those and the
//   caller. Every later threaded call tries again to start the missing workers: a limit
//   may lift, and one refused thread creation costs little next to a call worth
//   splitting.
// - fork(). Only the forking thread exists in the child: the workers are gone, and the
//   pool's mutex may be held, and its condition variables waited on, by threads that
//   do not exist there. The child handler builds a fresh, empty pool in place of the
//   old one, whose state it abandons as it is (it frees and unlocks nothing), and the
//   child's first threaded call starts workers of its own, as a new process does. No
//   prepare handler takes the pool's lock, so fork() never waits for the pool. A task
//   must not fork: its child would wait for the call's workers, which it does not have.
// - exit(). The pool is never destroyed: a destructor would have to stop workers that
//   may still be running calls of other threads (or, in a child, do not exist), and
//   exit() would wait for them. Workers sleep until the process ends; the library is
//   linked with -z nodelete, so that their code stays mapped.
#include "ext/pool.h"

#include <pthread.h>
#include <sched.h>
#include <signal.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <new>
#include <thread>

namespace qzrcfa::ext {
namespace {

struct Job {
    void (*task)(const void*, int);
    const void* context;
    int count;
    int helpers_wanted;
    std::atomic<int> next{0};
    std::atomic<bool> failed{false};
    std::exception_ptr error{};  // the first exception, kept by the thread that set `failed`
    // Under the pool's mutex:
    int helpers = 0;  // workers inside work()
    Job* before = nullptr;
    Job* after = nullptr;
};

// Runs indices of the job until none is left or a task has thrown.
void work(Job& job) {
    for (int i = job.next.fetch_add(1); i < job.count; i = job.next.fetch_add(1)) {
        try {
            job.task(job.context, i);
        } catch (...) {
            if (!job.failed.exchange(true)) job.error = std::current_exception();
            job.next.store(job.count);
            return;
        }
    }
}

// The caller cannot be cancelled inside run(): waiting for the workers is a
// cancellation point, and unwinding from it would leave them the job in a dead frame.
class NoCancel {
  public:
    NoCancel() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &old_); }
    ~NoCancel() { pthread_setcancelstate(old_, nullptr); }

  private:
    int old_;
};

// Workers are started with every asynchronous signal blocked, so that a signal sent to
// the process goes to the application's own threads: a thread that blocks a signal
// around work of its own (the tools' temporary files) then gets it once it unblocks,
// instead of a worker taking it in the meantime. Faults stay deliverable. A new thread
// takes the mask of the thread that creates it.
class AsyncSignalsBlocked {
  public:
    AsyncSignalsBlocked() {
        sigset_t blocked;
        sigfillset(&blocked);
        for (int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP}) sigdelset(&blocked, fault);
        pthread_sigmask(SIG_BLOCK, &blocked, &old_);
    }
    ~AsyncSignalsBlocked() { pthread_sigmask(SIG_SETMASK, &old_, nullptr); }

  private:
    sigset_t old_;
};

class Pool {
  public:
    void run(Job& job) {
        NoCancel no_cancel;
        bool queued = false;
        {
            std::lock_guard<std::mutex> lock(mutex_);
            start_workers();
            if (workers_ > 0) {
                push(job);
                queued = true;
            }
        }
        if (queued) wake_.notify_all();
        work(job);
        if (queued) {
            std::unique_lock<std::mutex> lock(mutex_);
            unlink(job);
            finished_.wait(lock, [&] { return job.helpers == 0; });
        }
        if (job.error) std::rethrow_exception(job.error);
    }

  private:
    // Under the mutex: starts the workers the pool lacks, until one fails to start. The
    // new workers wait for the mutex until the caller lets it go.
    void start_workers() {
        if (wanted_ < 0) wanted_ = std::max(0, processors() - 1);
        if (workers_ >= wanted_) return;
        AsyncSignalsBlocked blocked;
        pthread_attr_t detached;
        if (pthread_attr_init(&detached) != 0) return;
        pthread_attr_setdetachstate(&detached, PTHREAD_CREATE_DETACHED);
        for (pthread_t thread; workers_ < wanted_; ++workers_)
            if (pthread_create(&thread, &detached, serve, this) != 0) break;
        pthread_attr_destroy(&detached);
    }

    static void* serve(void* pool) {
        static_cast<Pool*>(pool)->serve();
        return nullptr;
    }

    void serve() {
        std::unique_lock<std::mutex> lock(mutex_);
        for (;;) {
            Job* job = nullptr;
            wake_.wait(lock, [&] { return (job = open_job()) != nullptr; });
            ++job->helpers;
            lock.unlock();
            work(*job);
            lock.lock();
            // Notified under the mutex: the caller cannot see helpers == 0 and leave
            // until this worker lets the mutex go, and the job is not touched after.
            if (--job->helpers == 0) finished_.notify_all();
        }
    }

    Job* open_job() const {
        for (Job* job = first_; job != nullptr; job = job->after)
            if (job->helpers < job->helpers_wanted && job->next.load() < job->count) return job;
        return nullptr;
    }

    void push(Job& job) {
        job.before = last_;
        (last_ != nullptr ? last_->after : first_) = &job;
        last_ = &job;
    }

    void unlink(Job& job) {
        (job.before != nullptr ? job.before->after : first_) = job.after;
        (job.after != nullptr ? job.after->before : last_) = job.before;
    }

    std::mutex mutex_;
    std::condition_variable wake_, finished_;
    Job* first_ = nullptr;  // the queue: calls that may still take helpers
    Job* last_ = nullptr;
    int wanted_ = -1;  // workers to start: processors less the caller, counted on first use
    int workers_ = 0;
};

Pool* make_pool() {
    static Pool* const pool = new Pool;
    pthread_atfork(nullptr, nullptr, [] { new (pool) Pool; });
    return pool;
}

// Made when the library is loaded, before any thread can call into it.
Pool* const shared_pool = make_pool();

}  // namespace

// The processors this thread may run on: one system call, where
// std::thread::hardware_concurrency reads a file in /sys on every call.
int processors() {
    cpu_set_t set;
    if (sched_getaffinity(0, sizeof set, &set) == 0) return std::max(1, CPU_COUNT(&set));
    return std::max(1, int(std::thread::hardware_concurrency()));
}

void CallTasks::run(int count, void (*task)(const void* context, int index), const void* context) const {
    if (count <= 0) return;
    if (threads_ <= 1 || count == 1) {
        for (int i = 0; i < count; ++i) task(context, i);
        return;
    }
    Job job{task, context, count, std::min(threads_, count) - 1};
    shared_pool->run(job);
}

}  // namespace qzrcfa::ext
