// Strict parsing of numbers and NAME=VALUE pairs given on a command line, shared by the tools.
#ifndef OVBASE_TOOLS_COMMON_TOOLARGS_H
#define OVBASE_TOOLS_COMMON_TOOLARGS_H

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>

namespace ovtool {

// True, with *VALUE set, when TEXT is a whole decimal number from LOW to HIGH.
inline bool parseNumber(const char* text, long low, long high, long* value) {
    char* end = nullptr;
    errno = 0;
    long number = std::strtol(text, &end, 10);
    if (!*text || *end || errno == ERANGE || number < low || number > high)
        return false;
    *value = number;
    return true;
}

// True, with *NAME and *VALUE set, when TEXT is NAME=VALUE with a NAME that is not empty (the
// value may be, and may hold '=').
inline bool parseProperty(const char* text, std::string* name, std::string* value) {
    const char* equals = std::strchr(text, '=');
    if (!equals || equals == text)
        return false;
    name->assign(text, equals);
    value->assign(equals + 1);
    return true;
}

} // namespace ovtool

#endif
