// A default-content index file of arbitrary bytes: its directory is read and every entry's
// bytes are fetched, which must never crash, hang or allocate more than the file holds
// (libFuzzer's -malloc_limit_mb catches the last). Run it with -close_fd_mask=2: the reader
// writes a diagnostic line for most inputs.
#include "storage/NR_DefaultContentMgr.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <sys/mman.h>
#include <unistd.h>

namespace {

// One in-memory file for the whole run, rewritten for each input and opened by its path.
int memoryFile() {
    static int fd = memfd_create("fuzz_dcindex", MFD_CLOEXEC);
    return fd;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const int fd = memoryFile();
    if (fd < 0 || ftruncate(fd, 0) != 0 || pwrite(fd, data, size, 0) != static_cast<ssize_t>(size))
        __builtin_trap();
    const std::string path = "/proc/self/fd/" + std::to_string(fd);

    DefaultContentIndex index(path);
    if (index.getItems().size() > size / 10)
        __builtin_trap(); // every entry takes at least ten bytes of the file
    for (const auto& entry : index.getItems()) {
        const DefaultContentIndexItem& item = entry.second;
        std::string bytes;
        const bool delivered = DefaultContentIndex::readResource(path, item, &bytes);
        if (delivered != (item.mOffset >= 0 && item.mLength >= 0 &&
                          int64_t(item.mOffset) + item.mLength <= int64_t(size)))
            __builtin_trap(); // delivered exactly when the entry lies inside the file
        if (delivered && bytes != std::string(reinterpret_cast<const char*>(data) + item.mOffset,
                                              static_cast<size_t>(item.mLength)))
            __builtin_trap();
    }
    return 0;
}
