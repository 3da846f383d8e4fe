// Runs a built command-line tool as a child process, as a user would from a shell, and hands
// back its exit status and what it wrote, so that tests check the tool from the outside.
// Called from the test's own thread; each call waits for the child to end.
#ifndef OVBASE_TESTS_SUPPORT_TOOLPROCESS_H
#define OVBASE_TESTS_SUPPORT_TOOLPROCESS_H

#include <string>
#include <vector>

namespace ovtest {

struct ToolOptions {
    std::string input;         // written to standard input, a pipe; at most 64 KiB
    bool holdInput = false;    // keep that pipe open until the tool ends, as a stalled writer
    std::string stdoutFile;    // when set, standard output goes to this file (/dev/full)
    bool closedStdout = false; // standard output is a pipe whose reading end is closed
    long fileSizeLimit = -1;   // RLIMIT_FSIZE in bytes; SIGXFSZ ignored, so writes fail
    std::string workDir;       // the tool's working directory when set
    int timeoutSeconds = 60;   // after this the tool is killed and the run marked timed out
};

struct ToolResult {
    int exitCode = -1;     // the exit status; -1 when a signal ended the tool
    int signal = 0;        // the signal that ended it, 0 when it exited
    bool timedOut = false; // killed after ToolOptions::timeoutSeconds
    std::string out;       // standard output (empty when redirected by the options)
    std::string err;       // standard error
};

// Runs PROGRAM with ARGS (not including the program name).
ToolResult runTool(const std::string& program, const std::vector<std::string>& args,
                   const ToolOptions& options = ToolOptions());

// True when TEXT holds a line in the shape of the library's diagnostics
// ("{level} file.cpp:line..."), which the tools keep off the terminal unless -v.
bool hasDiagnostics(const std::string& text);

} // namespace ovtest

#endif
