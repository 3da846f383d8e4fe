// The template engine prints nothing, but the rest of the library logs from its own threads
// while a test captures standard error (the timer thread announces itself when the library is
// loaded). engineOutput() drops those diagnostic lines and the line breaks, so what is left of a
// capture is what the engine or libxml2 printed.
#ifndef OVBASE_TESTS_DPTEMPLATE_ENGINEOUTPUT_H
#define OVBASE_TESTS_DPTEMPLATE_ENGINEOUTPUT_H

#include <algorithm>
#include <regex>
#include <string>

inline std::string engineOutput(const std::string& captured) {
    // "{level} file:line[, function()]\tmessage", the message running to the line's end or to
    // the next diagnostic written into the same line.
    static const std::regex diagnostic("\\{[0-9]+\\} [^\\t\\n]*\\t[^{\\n]*");
    std::string rest = std::regex_replace(captured, diagnostic, "");
    rest.erase(std::remove(rest.begin(), rest.end(), '\n'), rest.end());
    return rest;
}

#endif
