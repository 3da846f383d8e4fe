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

// Makes PATH immutable (no entry may be added, removed or renamed in a directory, nothing may
// change a file) for as long as it lives: a directory that refuses changes even to root, as a
// read-only remount or a full file system does. ok() is false where the file system or the
// user cannot set the flag; the test then skips.
class Immutable {
public:
    explicit Immutable(const std::string& path);
    ~Immutable() { release(); }
    Immutable(const Immutable&) = delete;
    Immutable& operator=(const Immutable&) = delete;

    bool ok() const { return mSet; }
    // Takes the flag away again.
    void release();

private:
    std::string mPath;
    bool mSet = false;
};

} // namespace ovtest

#endif
