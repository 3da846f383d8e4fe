// Diagnostics of the library: every line goes to standard error in one formatted write, in
// one of two shapes, with a level at its head (2 recoverable, 3 failure, 4 timer and stream
// events, 5 trace). FnLog brackets a function call with indented IN and OUT lines.
#ifndef OVBASE_TYPES_FNLOG_H
#define OVBASE_TYPES_FNLOG_H

#include <cstdio>
#include <cstring>

// The part of a source path after its last '/'; the whole path when it has none.
inline const char* ovBaseName(const char* path) {
    const char* slash = std::strrchr(path, '/');
    return slash ? slash + 1 : path;
}

// Writes "{LEVEL} FILE:LINE, FUNCTION()\t", or "{LEVEL} FILE:LINE\t" when FUNCTION is null,
// followed by FMT formatted as printf formats it, in one write to standard error: the same bytes
// as one fprintf of the whole line, made without formatting the fixed part through printf.
void ovLogLine(int level, const char* file, int line, const char* function, const char* fmt, ...)
    __attribute__((format(printf, 5, 6)));

// "{level} file:line, function()\t" followed by the message. FMT must be a string literal.
#define OV_LOG(level, fmt, ...)                                                                    \
    ovLogLine((level), ovBaseName(__FILE__), __LINE__, __func__, fmt, ##__VA_ARGS__)

// "{level} file:line\t" followed by the message. FMT must be a string literal.
#define OV_LOG_NOFUNC(level, fmt, ...)                                                             \
    ovLogLine((level), ovBaseName(__FILE__), __LINE__, nullptr, fmt, ##__VA_ARGS__)

#define OV_FNLOG_JOIN2(a, b) a##b
#define OV_FNLOG_JOIN(a, b) OV_FNLOG_JOIN2(a, b)
// Traces the enclosing scope with an FnLog named after the line it stands on.
#define OV_FNLOG(level)                                                                            \
    FnLog OV_FNLOG_JOIN(ovFnLog_, __LINE__)((level), ovBaseName(__FILE__), __LINE__, __func__)

class FnLog {
public:
    FnLog(int level, const char* file, int line, const char* function);
    virtual ~FnLog();

    FnLog(const FnLog&) = delete;
    FnLog& operator=(const FnLog&) = delete;

    // Process-wide and deliberately unsynchronised: traces of several threads may interleave.
    static unsigned int sNextCallNumber; // starts at 1
    static int sDepth;                   // starts at 0

private:
    int mLevel;
    const char* mpFile;
    int mLine;
    const char* mpFunction;
    unsigned int mCallNumber;
};

#endif
