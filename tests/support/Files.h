// Whole-file helpers for tests.
#ifndef OVBASE_TESTS_SUPPORT_FILES_H
#define OVBASE_TESTS_SUPPORT_FILES_H

#include <string>

namespace ovtest {

// Writes CONTENT to PATH, creating missing parent directories; false on failure.
bool writeFile(const std::string& path, const std::string& content);

// The file's bytes, or "" when it cannot be read.
std::string readFile(const std::string& path);

bool fileExists(const std::string& path);

} // namespace ovtest

#endif
