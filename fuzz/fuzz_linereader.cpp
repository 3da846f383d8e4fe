// UTF-8 line reading of arbitrary bytes. The same bytes are read twice, once from a string
// stream and once through a stream buffer that hands them out in small chunks (the first
// byte picks the size): both must give the lines that decoding the whole text at once
// (MString) and splitting it at line feeds gives, carriage returns dropped.
#include "types/UTF_8Util.h"

#include "support/ChunkedBuffer.h"
#include "types/MString.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
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

// What the reader gives after its constructor has skipped leading white space and a byte
// order mark (EF and the two bytes after it, unchecked).
std::vector<ovTypes::String> decodedAndSplit(const std::string& bytes) {
    size_t at = 0;
    while (at < bytes.size() && bytes[at] != '\0' && std::strchr(" \t\n\v\f\r", bytes[at]))
        ++at;
    if (at < bytes.size() && static_cast<unsigned char>(bytes[at]) == 0xEF)
        at = std::min(bytes.size(), at + 3);
    std::vector<ovTypes::String> out(1);
    for (wchar_t c : MString(bytes.substr(at)).toWide()) {
        if (c == L'\n')
            out.emplace_back();
        else if (c != L'\r')
            out.back().push_back(c);
    }
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
    const std::vector<ovTypes::String> expected = decodedAndSplit(bytes);
    if (lines(whole) != expected || lines(pieces) != expected)
        __builtin_trap();
    return 0;
}
