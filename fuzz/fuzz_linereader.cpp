// UTF-8 line reading of arbitrary bytes. The same bytes are read twice, once from a string
// stream and once through a stream buffer that hands them out in small chunks (the first
// byte picks the size): both must give the same lines.
#include "types/UTF_8Util.h"

#include "support/ChunkedBuffer.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <sstream>
#include <streambuf>
#include <string>
#include <vector>

namespace {

std::vector<ovTypes::String> lines(std::istream& in) {
    UTF_8Util::LineReader reader(in);
    std::vector<ovTypes::String> out;
    bool end = false;
    for (;;) {
        ovTypes::String line = reader.readLine(end);
        if (end)
            break;
        for (wchar_t c : line)
            if (c == L'\n' || c == L'\r' || c < 0)
                __builtin_trap();
        out.push_back(line);
    }
    if (!reader.readLine(end).empty() || !end)
        __builtin_trap(); // the end is reported for good
    return out;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0)
        return 0;
    const size_t chunk = data[0] % 8 + 1;
    const std::string bytes(reinterpret_cast<const char*>(data) + 1, size - 1);
    std::istringstream whole(bytes);
    ovtest::ChunkedBuffer buf(bytes, chunk);
    std::istream pieces(&buf);
    if (lines(whole) != lines(pieces))
        __builtin_trap();
    return 0;
}
