// The main of every test program. The library's timer thread starts when the library is loaded
// and announces itself on standard error a moment later, from its own thread. Before any test
// runs, main waits until that thread sits in its wait without a deadline: from then on it
// writes nothing until a test registers a timer, so a test that captures standard error sees
// only what it caused. A program that uses nothing of the library (the linker then leaves it
// out) has no such thread and does not wait.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <dirent.h>
#include <dlfcn.h>
#include <fstream>
#include <linux/futex.h>
#include <sstream>
#include <string>
#include <sys/syscall.h>
#include <thread>
#include <vector>

namespace {

enum class ThreadState { Missing, Busy, Idle };

std::string firstLine(const std::string& path) {
    std::ifstream in(path);
    std::string line;
    std::getline(in, line);
    return line;
}

bool isFutexCall(long number) {
#ifdef SYS_futex_time64
    if (number == SYS_futex_time64)
        return true;
#endif
#ifdef SYS_futex
    if (number == SYS_futex)
        return true;
#endif
    return false;
}

// A thread is idle when the kernel shows it blocked in a futex wait without a time-out, which
// is where pthread_cond_wait without a deadline sleeps (FUTEX_WAIT_BITSET; a contended mutex or
// stdio lock waits with FUTEX_WAIT instead). Where the kernel does not show system calls, a
// sleeping thread counts as idle.
ThreadState stateOf(const std::string& task) {
    std::string call = firstLine(task + "/syscall");
    if (call.empty()) {
        std::string stat = firstLine(task + "/stat");
        size_t paren = stat.rfind(')');
        if (paren == std::string::npos || paren + 2 >= stat.size())
            return ThreadState::Missing;
        return stat[paren + 2] == 'S' ? ThreadState::Idle : ThreadState::Busy;
    }
    std::istringstream fields(call);
    long number = -1;
    std::string word;
    std::vector<unsigned long> args;
    if (!(fields >> number))
        return ThreadState::Busy; // "running"
    while (fields >> word)
        args.push_back(std::strtoul(word.c_str(), nullptr, 16));
    if (!isFutexCall(number) || args.size() < 4)
        return ThreadState::Busy;
    bool condWait = (args[1] & FUTEX_CMD_MASK) == FUTEX_WAIT_BITSET;
    return condWait && args[3] == 0 ? ThreadState::Idle : ThreadState::Busy;
}

// The state of the thread named NAME, or Missing when the process has none (yet).
ThreadState threadState(const std::string& name) {
    DIR* tasks = opendir("/proc/self/task");
    if (!tasks)
        return ThreadState::Missing;
    ThreadState state = ThreadState::Missing;
    while (dirent* entry = readdir(tasks)) {
        if (entry->d_name[0] == '.')
            continue;
        std::string task = std::string("/proc/self/task/") + entry->d_name;
        if (firstLine(task + "/comm") == name) {
            state = stateOf(task);
            break;
        }
    }
    closedir(tasks);
    return state;
}

bool waitForTimerThread() {
    void* library = dlopen("libovbase.so.0", RTLD_LAZY | RTLD_NOLOAD);
    if (!library)
        return true;
    dlclose(library);
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (threadState("ThreadTimer") != ThreadState::Idle) {
        if (std::chrono::steady_clock::now() > deadline)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

} // namespace

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    if (!waitForTimerThread()) {
        std::fprintf(stderr, "test main: the library's timer thread did not reach its idle wait "
                             "within 30 seconds\n");
        return 1;
    }
    return RUN_ALL_TESTS();
}
