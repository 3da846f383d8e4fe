// The main of every test program. The library's timer thread starts when the library is loaded
// and announces itself on standard error a moment later, from its own thread. Before any test
// runs, main waits until that thread sits in its wait without a deadline: from then on it
// writes nothing until a test registers a timer, so a test that captures standard error sees
// only what it caused. A program that uses nothing of the library (the linker then leaves it
// out) has no such thread and does not wait, nor does a program that only lists its tests.
#include "support/ChildProcess.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <dirent.h>
#include <dlfcn.h>
#include <fstream>
#include <linux/futex.h>
#include <pthread.h>
#include <sstream>
#include <string>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

typedef std::chrono::steady_clock Clock;

std::string firstLine(const std::string& path) {
    std::ifstream in(path);
    std::string line;
    std::getline(in, line);
    return line;
}

// A thread's system call as /proc/.../syscall shows it: the call's number and arguments, or
// number -1 while the thread runs. Nothing is shown where the kernel does not show calls.
struct Call {
    bool shown = false;
    long number = -1;
    std::vector<unsigned long> args;

    explicit Call(const std::string& task) {
        std::string line = firstLine(task + "/syscall");
        shown = !line.empty();
        std::istringstream fields(line);
        std::string word;
        if (!(fields >> number))
            number = -1;
        while (fields >> word)
            args.push_back(std::strtoul(word.c_str(), nullptr, 16));
    }

    // A futex wait without a time-out, which is where pthread_cond_wait without a deadline
    // sleeps (FUTEX_WAIT_BITSET; a contended mutex or stdio lock waits with FUTEX_WAIT).
    bool endlessCondWait(long futexCall) const {
        return number == futexCall && args.size() >= 4 &&
               (args[1] & FUTEX_CMD_MASK) == FUTEX_WAIT_BITSET && args[3] == 0;
    }
};

// The number under which the kernel shows the futex call, learnt from a thread of our own
// sleeping in pthread_cond_wait: under an emulator the kernel shows the host's numbers, not
// the target's. -1 when the kernel shows no system calls.
long futexCallNumber() {
    struct Sleeper {
        pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
        pthread_cond_t wake = PTHREAD_COND_INITIALIZER;
        long tid = 0;
        bool done = false;

        static void* run(void* self) {
            Sleeper& s = *static_cast<Sleeper*>(self);
            pthread_mutex_lock(&s.mutex);
            s.tid = ::syscall(SYS_gettid);
            while (!s.done)
                pthread_cond_wait(&s.wake, &s.mutex);
            pthread_mutex_unlock(&s.mutex);
            return nullptr;
        }
    } sleeper;
    pthread_t thread;
    if (pthread_create(&thread, nullptr, &Sleeper::run, &sleeper) != 0)
        return -1;
    long tid = 0;
    while (tid == 0) { // once its tid is set and the lock free, the sleeper is in its wait
        pthread_mutex_lock(&sleeper.mutex);
        tid = sleeper.tid;
        pthread_mutex_unlock(&sleeper.mutex);
        std::this_thread::yield();
    }
    long number = -1;
    auto deadline = Clock::now() + std::chrono::seconds(5);
    while (Clock::now() < deadline) {
        Call call("/proc/self/task/" + std::to_string(tid));
        if (!call.shown)
            break;
        if (call.number != -1 && call.endlessCondWait(call.number)) {
            number = call.number;
            break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    pthread_mutex_lock(&sleeper.mutex);
    sleeper.done = true;
    pthread_cond_signal(&sleeper.wake);
    pthread_mutex_unlock(&sleeper.mutex);
    pthread_join(thread, nullptr);
    return number;
}

// Whether the task sits in a deadline-free condition wait. Where the kernel shows no system
// calls (FUTEXCALL -1), a sleeping thread counts as idle.
bool idle(const std::string& task, long futexCall) {
    if (futexCall != -1)
        return Call(task).endlessCondWait(futexCall);
    std::string stat = firstLine(task + "/stat");
    size_t paren = stat.rfind(')');
    return paren != std::string::npos && paren + 2 < stat.size() && stat[paren + 2] == 'S';
}

// The /proc path of the thread named NAME; empty when the process has none (yet).
std::string findThread(const std::string& name) {
    DIR* tasks = opendir("/proc/self/task");
    if (!tasks)
        return std::string();
    std::string found;
    while (dirent* entry = readdir(tasks)) {
        std::string task = std::string("/proc/self/task/") + entry->d_name;
        if (entry->d_name[0] != '.' && firstLine(task + "/comm") == name) {
            found = task;
            break;
        }
    }
    closedir(tasks);
    return found;
}

bool waitForTimerThread() {
    void* library = dlopen("libovbase.so.0", RTLD_LAZY | RTLD_NOLOAD);
    if (!library)
        return true;
    dlclose(library);
    long futexCall = futexCallNumber();
    auto deadline = Clock::now() + std::chrono::seconds(30);
    for (;;) {
        std::string task = findThread("ThreadTimer");
        if (!task.empty() && idle(task, futexCall))
            return true;
        if (Clock::now() > deadline)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

} // namespace

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
#ifdef OVTEST_EMULATOR
    // Death tests in the thread-safe style start this program again with execv; the host
    // cannot run it, so they start it through the emulator (gtest's hook for the command line
    // of those children).
    std::vector<std::string> self = testing::internal::GetArgvs();
    self[0] = "/proc/self/exe";
    testing::internal::SetInjectableArgvs(ovtest::ownProgram(self));
#endif
    if (!testing::GTEST_FLAG(list_tests) && !waitForTimerThread()) {
        std::fprintf(stderr, "test main: the library's timer thread did not reach its idle wait "
                             "within 30 seconds\n");
        return 1;
    }
    return RUN_ALL_TESTS();
}
