// Checks on tool runs that the tools' tests share: one finished run, or a table of runs made
// one after another.
#ifndef OVBASE_TESTS_TOOLS_TOOLCHECK_H
#define OVBASE_TESTS_TOOLS_TOOLCHECK_H

#include "support/ToolProcess.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

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

// A step of a table: the arguments after the common ones, the exit status, standard output
// (compared whole, unless left out) and standard error (compared whole when it is empty or
// ends in a line feed, else looked for inside it).
struct Step {
    std::vector<std::string> args;
    int code;
    std::optional<std::string> out;
    std::string err;
    ovtest::ToolOptions options = ovtest::ToolOptions();
};

// Makes the runs STEPS of PROGRAM in their order, each with FIRST before its own arguments.
inline void expectRuns(const char* program, const std::vector<std::string>& first,
                       const std::vector<Step>& steps) {
    for (const Step& run : steps) {
        std::vector<std::string> args = first;
        args.insert(args.end(), run.args.begin(), run.args.end());
        std::string line;
        for (const std::string& arg : run.args)
            line += " " + arg;
        SCOPED_TRACE(line);
        ovtest::ToolResult got = ovtest::runTool(program, args, run.options);
        EXPECT_EQ(run.code, got.exitCode) << got.err;
        if (run.out) {
            EXPECT_EQ(*run.out, got.out);
        }
        if (run.err.empty() || run.err.back() == '\n') {
            EXPECT_EQ(run.err, got.err);
        } else {
            EXPECT_TRUE(contains(got.err, run.err)) << run.err << " in:\n" << got.err;
        }
    }
}

} // namespace tooltest

#endif
