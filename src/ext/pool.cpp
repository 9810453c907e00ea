// The thread pool behind parallel requests.
//
// Workers wait for jobs. A job is one Tasks::run call: `count` task indices, taken one
// at a time by the calling thread and by up to threads - 1 workers. The caller takes
// indices too, so a job completes even when every worker is busy with other calls;
// it returns once every index has run and no worker still holds the job.
#include "ext/pool.h"

#include <signal.h>

#include <algorithm>
#include <atomic>
#include <sched.h>

#include <condition_variable>
#include <list>
#include <mutex>
#include <thread>
#include <vector>

namespace qzrcfa::ext {
namespace {

struct Job {
    void (*task)(const void*, int);
    const void* context;
    int count;
    int helpers_wanted;
    std::atomic<int> next{0};
    int finished = 0;  // under the pool's mutex
    int helpers = 0;   // workers inside work(), under the pool's mutex
};

class Pool {
  public:
    static Pool& instance() {
        static Pool pool;
        return pool;
    }

    void run(Job& job) {
        {
            std::lock_guard<std::mutex> lock(mutex_);
            jobs_.push_back(&job);
        }
        if (job.helpers_wanted > 0) wake_.notify_all();
        const int done = work(job);
        std::unique_lock<std::mutex> lock(mutex_);
        job.finished += done;
        jobs_.remove(&job);
        finished_.wait(lock, [&] { return job.finished == job.count && job.helpers == 0; });
    }

  private:
    // The workers are started with every asynchronous signal blocked, so that a signal
    // sent to the process goes to the application's own threads: a thread that blocks
    // a signal around work of its own (the tools' temporary files) then gets it once it
    // unblocks, instead of a worker taking it in the meantime. Faults stay deliverable.
    Pool() {
        sigset_t blocked, old;
        sigfillset(&blocked);
        for (int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP}) sigdelset(&blocked, fault);
        pthread_sigmask(SIG_BLOCK, &blocked, &old);
        try {
            const int workers = std::max(0, processors() - 1);
            for (int i = 0; i < workers; ++i) threads_.emplace_back([this] { serve(); });
        } catch (...) {
            pthread_sigmask(SIG_SETMASK, &old, nullptr);
            throw;
        }
        pthread_sigmask(SIG_SETMASK, &old, nullptr);
    }

    ~Pool() {
        {
            std::lock_guard<std::mutex> lock(mutex_);
            stopping_ = true;
        }
        wake_.notify_all();
        for (std::thread& t : threads_) t.join();
    }

    // Runs indices of the job until none is left; returns how many it ran.
    static int work(Job& job) {
        int done = 0;
        for (int i = job.next.fetch_add(1); i < job.count; i = job.next.fetch_add(1)) {
            job.task(job.context, i);
            ++done;
        }
        return done;
    }

    Job* open_job() {
        for (Job* job : jobs_)
            if (job->helpers < job->helpers_wanted && job->next.load() < job->count) return job;
        return nullptr;
    }

    void serve() {
        std::unique_lock<std::mutex> lock(mutex_);
        for (;;) {
            Job* job = nullptr;
            wake_.wait(lock, [&] { return stopping_ || (job = open_job()) != nullptr; });
            if (stopping_) return;
            ++job->helpers;
            lock.unlock();
            const int done = work(*job);
            lock.lock();
            job->finished += done;
            --job->helpers;
            finished_.notify_all();
        }
    }

    std::mutex mutex_;
    std::condition_variable wake_, finished_;
    std::list<Job*> jobs_;
    bool stopping_ = false;
    std::vector<std::thread> threads_;
};

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
    Pool::instance().run(job);
}

}  // namespace qzrcfa::ext
