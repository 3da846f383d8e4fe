// Checks on a finished tool run that the tools' tests share.
#ifndef OVBASE_TESTS_TOOLS_TOOLCHECK_H
#define OVBASE_TESTS_TOOLS_TOOLCHECK_H

#include "support/ToolProcess.h"

#include <gtest/gtest.h>

#include <string>

namespace tooltest {

inline bool contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

// RUN exited with CODE and its standard error holds ERR.
inline ::testing::AssertionResult exits(const ovtest::ToolResult& run, int code,
                                        const std::string& err = "") {
    if (run.exitCode == code && contains(run.err, err))
        return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "exit status " << run.exitCode << ", wanted " << code
                                         << " with \"" << err << "\" on standard error:\n"
                                         << run.err;
}

} // namespace tooltest

#endif
