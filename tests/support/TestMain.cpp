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
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace {

typedef std::chrono::steady_clock Clock;

std::string firstLine(const std::string& path) {
    std::ifstream in(path);
    std::string line;
    std::getline(in, line);
    return line;
}

// Whether the task sits in a futex wait without a time-out, which is where pthread_cond_wait
// without a deadline sleeps (FUTEX_WAIT_BITSET; a contended mutex or stdio lock waits with
// FUTEX_WAIT). /proc/.../syscall shows the call's number and arguments; only the arguments are
// read, since under an emulator the number is the host's, and no other call the timer thread
// makes has these. Where the kernel shows no system calls, a sleeping thread counts as idle.
bool idle(const std::string& task) {
    std::string call = firstLine(task + "/syscall");
    if (call.empty()) {
        std::string stat = firstLine(task + "/stat");
        size_t paren = stat.rfind(')');
        return paren != std::string::npos && paren + 2 < stat.size() && stat[paren + 2] == 'S';
    }
    std::istringstream fields(call);
    std::string word;
    fields >> word; // the number, "-1" outside a call, or "running"
    std::vector<unsigned long> args;
    while (fields >> word)
        args.push_back(std::strtoul(word.c_str(), nullptr, 16));
    return args.size() >= 4 && (args[1] & FUTEX_CMD_MASK) == FUTEX_WAIT_BITSET && args[3] == 0;
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
    auto deadline = Clock::now() + std::chrono::seconds(30);
    for (;;) {
        std::string task = findThread("ThreadTimer");
        if (!task.empty() && idle(task))
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
