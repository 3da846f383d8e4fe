#include "ToolSupport.h"

#include "OVPlatform.h"

#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <iostream>
#include <sys/stat.h>
#include <unistd.h>

namespace ovtool {
namespace {

bool gVerbose = false;
int gErrFd = 2;            // where the program's own messages go
const char* gProgram = ""; // base name of argv[0]

bool leadingVerbose(int argc, char** argv) {
    for (int i = 1; i < argc && argv[i] && argv[i][0] == '-'; ++i) {
        if (std::strcmp(argv[i], "--") == 0)
            break;
        if (isVerboseOption(argv[i]))
            return true;
    }
    return false;
}

// Runs before any shared library is initialised. Only system calls here: the C library's
// own start-up may not have run yet.
void quietStart(int argc, char** argv, char**) {
    if (argc > 0 && argv[0]) {
        const char* slash = std::strrchr(argv[0], '/');
        gProgram = slash ? slash + 1 : argv[0];
    }
    gVerbose = leadingVerbose(argc, argv);
    if (gVerbose)
        return;
    int saved = ::fcntl(2, F_DUPFD_CLOEXEC, 3);
    int null = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (saved < 0 || null < 0 || ::dup2(null, 2) < 0) {
        // Without /dev/null the diagnostics stay where they were rather than be lost with
        // the program's own messages.
        if (saved >= 0)
            ::close(saved);
    } else {
        gErrFd = saved;
    }
    if (null >= 0)
        ::close(null);
}

__attribute__((section(".preinit_array"), used)) void (*const gQuietStart)(int, char**,
                                                                           char**) = quietStart;

} // namespace

FILE* err() {
    static FILE* stream = gErrFd == 2 ? stderr : ::fdopen(gErrFd, "w");
    return stream ? stream : stderr;
}

bool verbose() {
    return gVerbose;
}

bool isVerboseOption(const char* arg) {
    return std::strcmp(arg, "-v") == 0 || std::strcmp(arg, "--verbose") == 0;
}

void dropVerboseOptions(int& argc, char** argv) {
    int out = 1;
    bool leading = true;
    for (int in = 1; in < argc; ++in) {
        if (leading && (argv[in][0] != '-' || std::strcmp(argv[in], "--") == 0))
            leading = false;
        if (leading && isVerboseOption(argv[in]))
            continue;
        argv[out++] = argv[in];
    }
    argc = out;
    argv[argc] = nullptr;
}

void error(const char* format, ...) {
    FILE* out = err();
    std::fprintf(out, "%s: ", gProgram);
    va_list args;
    va_start(args, format);
    std::vfprintf(out, format, args);
    va_end(args);
    std::fputc('\n', out);
    std::fflush(out);
}

int usageError(const char* format, ...) {
    FILE* out = err();
    std::fprintf(out, "%s: ", gProgram);
    va_list args;
    va_start(args, format);
    std::vfprintf(out, format, args);
    va_end(args);
    std::fprintf(out, "\nTry '%s --help' for more information.\n", gProgram);
    std::fflush(out);
    return EXIT_USAGE;
}

int useDeviceRoot(const char* root, bool create) {
    struct stat st;
    if (::stat(root, &st) == 0) {
        if (!S_ISDIR(st.st_mode)) {
            error("%s: not a directory; a device root is a folder", root);
            return EXIT_NOINPUT;
        }
    } else if (errno != ENOENT || !create) {
        error("%s: no such device root: %s", root, std::strerror(errno));
        return EXIT_NOINPUT;
    } else {
        std::error_code failure;
        std::filesystem::create_directories(root, failure);
        if (failure) {
            error("%s: cannot create the device root: %s", root, failure.message().c_str());
            return EXIT_IOERR;
        }
    }
    ovplatform::setDeviceRoot(root);
    return 0;
}

int finish(int rc) {
    errno = 0;
    std::cout.flush();
    bool failed = std::cout.fail();
    int reason = errno;
    if (std::fflush(stdout) != 0 || std::ferror(stdout)) {
        failed = true;
        reason = reason ? reason : errno;
    }
    if (failed) {
        error("cannot write standard output: %s", reason ? std::strerror(reason) : "write failed");
        return rc == 0 ? EXIT_IOERR : rc;
    }
    return rc;
}

int runTool(int argc, char** argv, void (*usage)(FILE*), int (*run)(int argc, char** argv)) {
    std::signal(SIGPIPE, SIG_IGN);
    dropVerboseOptions(argc, argv);
    if (argc >= 2 && (std::strcmp(argv[1], "-h") == 0 || std::strcmp(argv[1], "--help") == 0)) {
        usage(stdout);
        return finish(0);
    }
    return finish(run(argc, argv));
}

} // namespace ovtool
