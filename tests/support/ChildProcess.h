// A child process for tests that need several processes: started with its arguments and extra
// environment, its standard output read line by line with time-outs, its standard input
// written by the test. The child is killed if the test process dies first, and killed and
// reaped when the object goes, so no test leaves processes behind.
#ifndef OVBASE_TESTS_SUPPORT_CHILDPROCESS_H
#define OVBASE_TESTS_SUPPORT_CHILDPROCESS_H

#include <functional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace ovtest {

// ARGV made ready to start. In a cross build whose tests run under an emulator, a program of
// this build (one in the build folder, or "/proc/self/exe", which becomes this program's path
// since the emulator would take it for its own) is started through the emulator; the host's
// programs (dbus-daemon, dbus-send) run as they are. start() and runTool() apply it; code
// that starts a program itself does so.
std::vector<std::string> ownProgram(std::vector<std::string> argv);

// Starts ARGV through ownProgram (ARGV[0] searched in PATH unless it holds a '/'), its
// environment being this process's plus ENV ("NAME=VALUE" entries), with FDS as its standard
// input, output and error. SETUP, when set, runs in the child just before exec and may only
// make system calls. The child is killed if this process dies first. Its pid, or -1 with the
// reason in *REASON when the program cannot be run. The caller keeps FDS and reaps the child.
pid_t spawn(const std::vector<std::string>& argv, const std::vector<std::string>& env,
            const int fds[3], const std::function<void()>& setup, std::string* reason);

class ChildProcess {
public:
    // Where the child's standard error goes.
    enum Stderr { DISCARD, TO_STDOUT };

    ChildProcess() = default;
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    // Runs ARGV as spawn() does; false, with the reason in *REASON, when it cannot be run.
    bool start(const std::vector<std::string>& argv, const std::vector<std::string>& env = {},
               Stderr err = DISCARD, std::string* reason = nullptr);

    // The next line of the child's output, without its line feed; false on time-out or when
    // the output ended first.
    bool readLine(std::string* line, int timeoutMs = 10000);
    // Reads lines until one begins with PREFIX (kept in *LINE when not null); false on
    // time-out or end of output. Lines passed over are kept in skipped().
    bool waitForLine(const std::string& prefix, std::string* line = nullptr, int timeoutMs = 10000);
    const std::vector<std::string>& skipped() const { return mSkipped; }

    bool writeLine(const std::string& line);
    void closeInput();

    // Waits for the child to end and returns its status as waitpid() gives it; -1 on time-out
    // (the child is left running).
    int wait(int timeoutMs = 10000);
    bool kill(int signal);

private:
    pid_t mPid = -1;
    int mIn = -1;
    int mOut = -1;
    std::string mBuffer; // output read but not yet returned as lines
    bool mEnded = false;
    std::vector<std::string> mSkipped;
};

} // namespace ovtest

#endif
