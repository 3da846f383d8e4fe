#include "support/ToolProcess.h"

#include "support/ChildProcess.h"

#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <regex>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace ovtest {
namespace {

void closeFd(int& fd) {
    if (fd >= 0)
        ::close(fd);
    fd = -1;
}

// Reads what FD holds into TEXT; false at the end of the stream.
bool drain(int fd, std::string& text) {
    char buffer[4096];
    ssize_t count = ::read(fd, buffer, sizeof buffer);
    if (count > 0) {
        text.append(buffer, static_cast<std::size_t>(count));
        return true;
    }
    return count < 0 && (errno == EINTR || errno == EAGAIN);
}

} // namespace

ToolResult runTool(const std::string& program, const std::vector<std::string>& args,
                   const ToolOptions& options) {
    ToolResult result;
    int in[2] = {-1, -1}, out[2] = {-1, -1}, err[2] = {-1, -1};
    if (::pipe2(in, O_CLOEXEC) != 0 || ::pipe2(out, O_CLOEXEC) != 0 || ::pipe2(err, O_CLOEXEC) != 0)
        return result;
    if (!options.stdoutFile.empty()) {
        closeFd(out[0]);
        closeFd(out[1]);
        out[1] = ::open(options.stdoutFile.c_str(), O_WRONLY | O_CLOEXEC);
    } else if (options.closedStdout) {
        closeFd(out[0]); // nobody will ever read what the tool writes
    }
    // The test process must survive a tool that ends before reading all its input.
    std::signal(SIGPIPE, SIG_IGN);

    std::vector<std::string> argv(1, program);
    argv.insert(argv.end(), args.begin(), args.end());
    const int fds[3] = {in[0], out[1], err[1]};
    pid_t child = spawn(
        argv, {}, fds,
        [&options] {
            ::signal(SIGPIPE, SIG_DFL); // as from a shell: the tool must ignore it itself
            if (options.fileSizeLimit >= 0) {
                ::signal(SIGXFSZ, SIG_IGN);
                rlimit limit;
                limit.rlim_cur = limit.rlim_max = static_cast<rlim_t>(options.fileSizeLimit);
                ::setrlimit(RLIMIT_FSIZE, &limit);
            }
            if (!options.workDir.empty() && ::chdir(options.workDir.c_str()) != 0)
                ::_exit(126);
        },
        nullptr);
    closeFd(in[0]);
    closeFd(out[1]);
    closeFd(err[1]);
    if (child < 0) {
        closeFd(in[1]);
        closeFd(out[0]);
        closeFd(err[0]);
        return result;
    }

    // The input is small: the pipe takes it whole before the tool reads any of it.
    if (::write(in[1], options.input.data(), options.input.size()) !=
        static_cast<ssize_t>(options.input.size()))
        closeFd(in[1]);
    if (!options.holdInput)
        closeFd(in[1]);

    const auto deadline =
        std::chrono::steady_clock::now() + std::chrono::seconds(options.timeoutSeconds);
    int status = 0;
    bool ended = false;
    while (!ended) {
        if (std::chrono::steady_clock::now() >= deadline) {
            ::kill(child, SIGKILL);
            result.timedOut = true;
        }
        pollfd fds[2] = {{out[0], POLLIN, 0}, {err[0], POLLIN, 0}};
        ::poll(fds, 2, 20); // a closed descriptor (-1) is passed over
        if (fds[0].revents && !drain(out[0], result.out))
            closeFd(out[0]);
        if (fds[1].revents && !drain(err[0], result.err))
            closeFd(err[0]);
        // The tool's end is seen once its outputs are closed and it has been reaped; a held
        // input stays open all that time.
        if (out[0] < 0 && err[0] < 0)
            ended = ::waitpid(child, &status, WNOHANG) == child;
    }
    closeFd(in[1]);
    if (WIFEXITED(status))
        result.exitCode = WEXITSTATUS(status);
    else if (WIFSIGNALED(status))
        result.signal = WTERMSIG(status);
    return result;
}

bool hasDiagnostics(const std::string& text) {
    static const std::regex diagnostic("\\{[0-9]+\\} [A-Za-z0-9_]+\\.(cpp|h):[0-9]+");
    return std::regex_search(text, diagnostic);
}

} // namespace ovtest
