// What every command-line program of the library shares: where its own messages go, whether
// the library's diagnostics reach the terminal, and how the exit status tells what happened.
//
// The library writes its diagnostics to standard error, some of them while it is being loaded
// (the timer thread starts then), before main() runs. So the decision is taken earlier still:
// a function in the program's pre-initialisation array, which the loader runs before any
// shared library's initialisers, looks at the leading options. Unless one of them is -v (or
// --verbose), standard error is pointed at /dev/null for the whole run, and the program's own
// messages go to the original standard error through err().
//
// Options: -v / --verbose must stand among the leading options, before the first argument
// that does not begin with '-' (and before "--"), so that a value such as "-v" later on the
// command line is never mistaken for it.
//
// Single-threaded use from main(); nothing here is called by the library.
#ifndef OVBASE_TOOLS_COMMON_TOOLSUPPORT_H
#define OVBASE_TOOLS_COMMON_TOOLSUPPORT_H

#include <cstdio>

namespace ovtool {

// Exit statuses shared by the tools (the values of sysexits.h).
const int EXIT_USAGE = 64;   // bad command line
const int EXIT_DATAERR = 65; // input that is not of the form the command needs
const int EXIT_NOINPUT = 66; // an input file that cannot be opened or read
const int EXIT_IOERR = 74;   // a write that failed (for example standard output)

// The stream for the program's own messages: the terminal's standard error, also when the
// library's diagnostics are discarded. Never null; owned by this module.
FILE* err();

// True when -v / --verbose stood among the leading options.
bool verbose();

// True for the two spellings of the verbose option.
bool isVerboseOption(const char* arg);

// Removes the verbose options from the leading options of ARGV, adjusting ARGC, so that the
// program's own parsing never sees them.
void dropVerboseOptions(int& argc, char** argv);

// Writes "PROGRAM: " and the formatted message and a line feed to err().
void error(const char* format, ...) __attribute__((format(printf, 1, 2)));

// A usage error: what was wrong in one line, then how to get the help; returns EXIT_USAGE.
int usageError(const char* format, ...) __attribute__((format(printf, 1, 2)));

// Makes ROOT the device root (ovplatform::setDeviceRoot). 0 when it is a directory, or when it
// is missing and CREATE is true (the command creates things: it is made then); otherwise says
// why and returns EXIT_NOINPUT (a plain file, or a missing root for a command that only
// reads), or EXIT_IOERR when it could not be made.
int useDeviceRoot(const char* root, bool create);

// Flushes standard output; when anything written to it failed (a full disk, a closed pipe)
// reports it and returns EXIT_IOERR when RC was 0, else RC. Call it as `return finish(rc);`.
int finish(int rc);

// The whole of a tool's main: drops the verbose options, answers a first argument of -h or
// --help with USAGE on standard output, else calls RUN with what is left; then finish().
// SIGPIPE is ignored, so that output to a pipe whose reader has gone fails and ends the tool
// with EXIT_IOERR instead of killing it.
int runTool(int argc, char** argv, void (*usage)(FILE*), int (*run)(int argc, char** argv));

} // namespace ovtool

#endif
