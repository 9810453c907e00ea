// The pool when things go wrong: fork, tasks that throw, threads that cannot start.
//
// The program claims four processors, whatever the machine has, so that the pool wants
// three workers, and it stands in front of pthread_create to refuse or hold thread
// creations. The pool starts its workers once per process, so the cases about starting
// them run in forked children, whose pool starts afresh (the fork case checks that).
// Every call here is CallTasks(4) over kCount indices. `make test-tsan` runs only the
// case that does not fork: ThreadSanitizer does not support threads started in a
// child of a threaded process.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sched.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <climits>
#include <condition_variable>
#include <cstdio>
#include <functional>
#include <mutex>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>

#include "ext/pool.h"

using namespace std::chrono_literals;

namespace {

// Thread creations: how many more may succeed before they fail with EAGAIN (as under
// a pids limit), how many failed so far; and a creation held inside (hold: 1 asks for
// the next one, 2 while it waits, 3 lets it go).
std::atomic<int> starts_left{INT_MAX}, refused{0}, hold{0};

}  // namespace

extern "C" int sched_getaffinity(pid_t, size_t size, cpu_set_t* set) {
    CPU_ZERO_S(size, set);
    for (int cpu = 0; cpu < 4; ++cpu) CPU_SET_S(cpu, size, set);
    return 0;
}

extern "C" int pthread_create(pthread_t* thread, const pthread_attr_t* attr, void* (*start)(void*), void* arg) {
    using Create = int (*)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
    static const auto real = reinterpret_cast<Create>(dlsym(RTLD_NEXT, "pthread_create"));
    if (int asked = 1; hold.compare_exchange_strong(asked, 2)) {
        hold.notify_all();
        hold.wait(2);
    }
    if (starts_left.fetch_sub(1) <= 0) return ++refused, EAGAIN;
    return real(thread, attr, start, arg);
}

namespace {

constexpr int kCount = 16;
enum class Thrower { None, Worker, Caller };

// One watched call. Each task first waits (a few seconds at most) until `meet` threads
// have entered a task, so a call shows that that many took part.
struct Watched {
    int meet = 4;
    Thrower thrower = Thrower::None;
    std::thread::id caller = std::this_thread::get_id();
    std::array<std::atomic<int>, kCount> runs{};
    std::atomic<int> inside{0}, late{0};  // tasks running; tasks begun after run() returned
    std::atomic<bool> returned{false};
    std::mutex mutex;
    std::condition_variable entered;
    std::set<std::thread::id> threads;
};

void task(const void* context, int i) {
    Watched& w = *static_cast<Watched*>(const_cast<void*>(context));
    if (w.returned) ++w.late;
    ++w.inside;
    ++w.runs[std::size_t(i)];
    const bool on_caller = std::this_thread::get_id() == w.caller;
    {
        std::unique_lock<std::mutex> lock(w.mutex);
        w.threads.insert(std::this_thread::get_id());
        w.entered.notify_all();
        w.entered.wait_for(lock, 5s, [&] { return int(w.threads.size()) >= w.meet; });
        // Still inside when the caller throws, so that its run() must wait for this task.
        if (w.thrower == Thrower::Caller && !on_caller) w.entered.wait_for(lock, 200ms, [&] { return w.returned.load(); });
    }
    --w.inside;
    if (w.thrower == (on_caller ? Thrower::Caller : Thrower::Worker)) throw std::runtime_error(on_caller ? "caller" : "worker");
}

// Runs `w` and says what went wrong ("" when nothing did): an exception other than
// the one its thrower throws, a task still running when run() returned, an index run
// twice (or, with no thrower, not at all), fewer threads than `meet`.
std::string call(Watched& w) {
    std::string error = "none";
    try {
        qzrcfa::ext::CallTasks(4).run(kCount, task, &w);
    } catch (const std::exception& e) {
        error = e.what();
    }
    w.returned = true;
    std::string problems;
    const char* expected = w.thrower == Thrower::None ? "none" : w.thrower == Thrower::Worker ? "worker" : "caller";
    if (error != expected) problems += "exception " + error + ", not " + expected + "; ";
    if (w.inside > 0) problems += std::to_string(w.inside) + " tasks still running after run(); ";
    int twice = 0, never = 0;
    for (const std::atomic<int>& runs : w.runs) twice += runs > 1, never += runs == 0;
    if (twice > 0) problems += std::to_string(twice) + " indices ran more than once; ";
    if (w.thrower == Thrower::None && never > 0) problems += std::to_string(never) + " indices never ran; ";
    if (int(w.threads.size()) < w.meet) problems += "only " + std::to_string(w.threads.size()) + " threads took part; ";
    return problems;
}

std::string threaded_call() {
    Watched w;
    return call(w);
}

// Runs `body` in a child process, which then exits normally (static destructors and
// all); returns what went wrong: what the body said, how the child ended, or that it
// was still running after `limit` (it is killed then).
std::string in_child(const std::function<std::string()>& body, std::chrono::milliseconds limit) {
    int said[2];
    if (pipe(said) != 0) return "no pipe";
    std::fflush(nullptr);
    const pid_t parent = getpid(), pid = fork();
    if (pid < 0) return "no fork";
    if (pid == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (getppid() != parent) _exit(1);
        close(said[0]);
        const std::string problems = body();
        if (!problems.empty() && write(said[1], problems.data(), problems.size()) < 0) _exit(2);
        std::exit(problems.empty() ? 0 : 1);
    }
    close(said[1]);
    int status = 0;
    const auto deadline = std::chrono::steady_clock::now() + limit;
    std::string problems;
    while (waitpid(pid, &status, WNOHANG) == 0) {
        if (std::chrono::steady_clock::now() > deadline) {
            kill(pid, SIGKILL);
            waitpid(pid, &status, 0);
            problems = "still running after " + std::to_string(limit.count()) + " ms; ";
            break;
        }
        std::this_thread::sleep_for(5ms);
    }
    char text[512];
    for (ssize_t n; (n = read(said[0], text, sizeof text)) > 0;) problems.append(text, std::size_t(n));
    close(said[0]);
    if (problems.empty() && !(WIFEXITED(status) && WEXITSTATUS(status) == 0))
        problems = WIFSIGNALED(status) ? "killed by signal " + std::to_string(WTERMSIG(status)) : "exit status " + std::to_string(WEXITSTATUS(status));
    return problems;
}

// In a child: another thread's call is starting the pool's workers, holding the
// pool's lock, when this thread forks; the grandchild must still call on threads.
std::string fork_while_starting() {
    std::string starter_problems;
    std::thread starter([&] {
        hold = 1;
        starter_problems = threaded_call();
    });
    for (int h; (h = hold.load()) != 2;) hold.wait(h);
    const std::string problems = in_child(threaded_call, 1s);
    hold = 3;
    hold.notify_all();
    starter.join();
    return problems + starter_problems;
}

TEST(PoolFailure, ForkedChildrenCallOnThreadsOfTheirOwnAndExit) {
    ASSERT_EQ(threaded_call(), "");
    EXPECT_EQ(in_child(threaded_call, 1s), "") << "forked after a threaded call";
    EXPECT_EQ(in_child(fork_while_starting, 3s), "") << "forked while another thread started the workers";
    EXPECT_EQ(threaded_call(), "") << "the parent after its children";
}

TEST(PoolFailure, ExceptionsOfTasksReachTheCallerOnceNoTaskRuns) {
    for (Thrower thrower : {Thrower::Worker, Thrower::Caller}) {
        const char* where = thrower == Thrower::Worker ? "thrown on a worker" : "thrown on the caller";
        Watched failed;
        failed.meet = 2;
        failed.thrower = thrower;
        EXPECT_EQ(call(failed), "") << where;
        EXPECT_EQ(threaded_call(), "") << "the call after one " << where;
        EXPECT_EQ(failed.late, 0) << "tasks begun after run() returned, " << where;
    }
}

TEST(PoolFailure, WorkersThatCannotStartLeaveTheCallsFewerThreads) {
    for (int starts : {1, 0}) {
        EXPECT_EQ(in_child(
                      [starts] {
                          starts_left = starts;
                          Watched w;
                          w.meet = starts + 1;
                          std::string problems = call(w);
                          if (refused == 0) problems += "no thread creation refused; ";
                          // A later call starts the workers the pool lacks.
                          starts_left = INT_MAX;
                          return problems + threaded_call();
                      },
                      10s),
                  "")
            << starts << " of 3 workers started";
    }
}

}  // namespace
