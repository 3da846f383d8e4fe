#include "support/ChildProcess.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <iterator>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

extern char** environ;

namespace ovtest {
namespace {

typedef std::chrono::steady_clock Clock;

int msLeft(Clock::time_point deadline) {
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
    return left.count() > 0 ? static_cast<int>(left.count()) : 0;
}

} // namespace

std::vector<std::string> ownProgram(std::vector<std::string> argv) {
#ifdef OVTEST_EMULATOR
    static const char* const emulator[] = {OVTEST_EMULATOR};
    static const std::string buildDir = OVTEST_BUILD_DIR "/";
    if (argv.empty())
        return argv;
    if (argv[0] == "/proc/self/exe") {
        char path[4096];
        ssize_t length = ::readlink("/proc/self/exe", path, sizeof path);
        if (length > 0 && length < ssize_t(sizeof path))
            argv[0].assign(path, size_t(length));
    }
    if (argv[0].compare(0, buildDir.size(), buildDir) == 0)
        argv.insert(argv.begin(), std::begin(emulator), std::end(emulator));
#endif
    return argv;
}

pid_t spawn(const std::vector<std::string>& argv, const std::vector<std::string>& env,
            const int fds[3], const std::function<void()>& setup, std::string* reason) {
    // Everything the child needs is built before fork: the test process has threads, so the
    // child may only make system calls until exec.
    const std::vector<std::string> words = ownProgram(argv);
    std::vector<char*> args;
    for (const std::string& arg : words)
        args.push_back(const_cast<char*>(arg.c_str()));
    args.push_back(nullptr);
    std::vector<char*> envp;
    for (char** e = environ; *e; ++e)
        envp.push_back(*e);
    for (const std::string& entry : env)
        envp.push_back(const_cast<char*>(entry.c_str()));
    envp.push_back(nullptr);

    int status[2]; // closed by a successful exec; else it carries exec's errno
    if (::pipe2(status, O_CLOEXEC) != 0) {
        if (reason)
            *reason = std::string("pipe: ") + std::strerror(errno);
        return -1;
    }
    pid_t parent = ::getpid();
    pid_t pid = ::fork();
    if (pid == 0) {
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (::getppid() != parent)
            ::_exit(127);
        for (int fd = 0; fd < 3; ++fd)
            ::dup2(fds[fd], fd);
        if (setup)
            setup();
        ::execvpe(args[0], args.data(), envp.data());
        int error = errno;
        ssize_t ignored = ::write(status[1], &error, sizeof error);
        (void)ignored;
        ::_exit(127);
    }
    int error = errno;
    ::close(status[1]);
    if (pid > 0 && ::read(status[0], &error, sizeof error) == sizeof error) {
        ::waitpid(pid, nullptr, 0);
        pid = -1;
    }
    ::close(status[0]);
    if (pid < 0 && reason)
        *reason = "cannot run " + argv[0] + ": " + std::strerror(error);
    return pid;
}

ChildProcess::~ChildProcess() {
    closeInput();
    if (mPid > 0) {
        ::kill(mPid, SIGKILL);
        ::waitpid(mPid, nullptr, 0);
    }
    if (mOut >= 0)
        ::close(mOut);
}

bool ChildProcess::start(const std::vector<std::string>& argv, const std::vector<std::string>& env,
                         Stderr err, std::string* reason) {
    int in[2], out[2];
    if (::pipe2(in, O_CLOEXEC) != 0 || ::pipe2(out, O_CLOEXEC) != 0) {
        if (reason)
            *reason = std::string("pipe: ") + std::strerror(errno);
        return false;
    }
    const int devNull = err == DISCARD ? ::open("/dev/null", O_WRONLY | O_CLOEXEC) : -1;
    const int fds[3] = {in[0], out[1], err == TO_STDOUT ? out[1] : devNull};
    mPid = spawn(argv, env, fds, nullptr, reason);
    if (devNull >= 0)
        ::close(devNull);
    ::close(in[0]);
    ::close(out[1]);
    mIn = in[1];
    mOut = out[0];
    return mPid > 0;
}

bool ChildProcess::readLine(std::string* line, int timeoutMs) {
    Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    while (true) {
        std::string::size_type end = mBuffer.find('\n');
        if (end != std::string::npos) {
            *line = mBuffer.substr(0, end);
            mBuffer.erase(0, end + 1);
            return true;
        }
        if (mEnded || mOut < 0)
            return false;
        pollfd fd = {mOut, POLLIN, 0};
        int ready = ::poll(&fd, 1, msLeft(deadline));
        if (ready < 0 && errno == EINTR)
            continue;
        if (ready <= 0)
            return false;
        char chunk[4096];
        ssize_t n = ::read(mOut, chunk, sizeof chunk);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            mEnded = true;
        else
            mBuffer.append(chunk, static_cast<size_t>(n));
    }
}

bool ChildProcess::waitForLine(const std::string& prefix, std::string* line, int timeoutMs) {
    Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    std::string next;
    while (readLine(&next, msLeft(deadline))) {
        if (next.compare(0, prefix.size(), prefix) == 0) {
            if (line)
                *line = next;
            return true;
        }
        mSkipped.push_back(next);
    }
    return false;
}

bool ChildProcess::writeLine(const std::string& line) {
    if (mIn < 0)
        return false;
    std::string text = line + "\n";
    // A child that has gone makes the write fail with EPIPE; the test must not die of SIGPIPE.
    std::signal(SIGPIPE, SIG_IGN);
    return ::write(mIn, text.data(), text.size()) == static_cast<ssize_t>(text.size());
}

void ChildProcess::closeInput() {
    if (mIn >= 0)
        ::close(mIn);
    mIn = -1;
}

int ChildProcess::wait(int timeoutMs) {
    if (mPid <= 0)
        return -1;
    Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    while (true) {
        int status = 0;
        pid_t done = ::waitpid(mPid, &status, WNOHANG);
        if (done == mPid) {
            mPid = -1;
            return status;
        }
        if (done < 0 || msLeft(deadline) == 0)
            return -1;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
}

bool ChildProcess::kill(int signal) {
    return mPid > 0 && ::kill(mPid, signal) == 0;
}

} // namespace ovtest
