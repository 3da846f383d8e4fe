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
    // Everything the child needs is made before fork: the test process has threads, so the
    // child may only make system calls until exec.
    std::vector<std::string> words(1, program);
    words.insert(words.end(), args.begin(), args.end());
    words = ownProgram(words);
    std::vector<char*> argv;
    for (std::string& word : words)
        argv.push_back(&word[0]);
    argv.push_back(nullptr);

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

    pid_t child = ::fork();
    if (child == 0) {
        ::signal(SIGPIPE, options.ignoreSigpipe ? SIG_IGN : SIG_DFL);
        if (options.fileSizeLimit >= 0) {
            ::signal(SIGXFSZ, SIG_IGN);
            rlimit limit;
            limit.rlim_cur = limit.rlim_max = static_cast<rlim_t>(options.fileSizeLimit);
            ::setrlimit(RLIMIT_FSIZE, &limit);
        }
        if (!options.workDir.empty() && ::chdir(options.workDir.c_str()) != 0)
            ::_exit(126);
        ::dup2(in[0], 0);
        ::dup2(out[1], 1);
        ::dup2(err[1], 2);
        ::execv(argv[0], argv.data());
        ::_exit(127);
    }
    closeFd(in[0]);
    closeFd(out[1]);
    closeFd(err[1]);
    if (child < 0) {
        closeFd(in[1]);
        closeFd(out[0]);
        closeFd(err[0]);
        return result;
    }
    result.started = true;

    const auto deadline =
        std::chrono::steady_clock::now() + std::chrono::seconds(options.timeoutSeconds);
    std::string::size_type written = 0;
    if (options.input.empty() && !options.holdInput)
        closeFd(in[1]);
    if (in[1] >= 0)
        ::fcntl(in[1], F_SETFL, O_NONBLOCK);

    int status = 0;
    bool ended = false;
    while (!ended) {
        if (std::chrono::steady_clock::now() >= deadline) {
            ::kill(child, SIGKILL);
            result.timedOut = true;
        }
        pollfd fds[3];
        nfds_t count = 0;
        if (out[0] >= 0)
            fds[count++] = {out[0], POLLIN, 0};
        if (err[0] >= 0)
            fds[count++] = {err[0], POLLIN, 0};
        if (in[1] >= 0 && written < options.input.size())
            fds[count++] = {in[1], POLLOUT, 0};
        ::poll(fds, count, 20);
        for (nfds_t i = 0; i < count; ++i) {
            if (!fds[i].revents)
                continue;
            if (fds[i].fd == out[0] && !drain(out[0], result.out))
                closeFd(out[0]);
            else if (fds[i].fd == err[0] && !drain(err[0], result.err))
                closeFd(err[0]);
            else if (fds[i].fd == in[1]) {
                ssize_t n =
                    ::write(in[1], options.input.data() + written, options.input.size() - written);
                if (n > 0)
                    written += static_cast<std::string::size_type>(n);
                if (n < 0 && errno != EAGAIN && errno != EINTR)
                    closeFd(in[1]);
                else if (written == options.input.size() && !options.holdInput)
                    closeFd(in[1]);
            }
        }
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
