// Temporary directories for tests: a plain one, and one that is also the device root for as
// long as it lives, so built-in device paths land inside it.
#ifndef OVBASE_TESTS_SUPPORT_TEMPDIR_H
#define OVBASE_TESTS_SUPPORT_TEMPDIR_H

#include <string>

namespace ovtest {

class TempDir {
public:
    TempDir();
    virtual ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::string& path() const { return mPath; }
    // PATH's place inside this directory; RELATIVE may start with '/'.
    std::string file(const std::string& relative) const;

private:
    std::string mPath;
};

class TempDeviceRoot : public TempDir {
public:
    TempDeviceRoot();
    ~TempDeviceRoot() override;
};

} // namespace ovtest

#endif
