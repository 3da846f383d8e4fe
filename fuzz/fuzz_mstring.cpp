// MString's number parsing and UTF-8 decoding of arbitrary bytes.
#include "types/MString.h"

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const MString text(reinterpret_cast<const char*>(data), size);
    volatile int sink = text.toHexInt();
    if (!text.empty() && MString::isDigit(text[0]))
        sink = text.toInt();

    // Decoding walks the whole text and never beyond it, one code point at a time giving what
    // the whole text gives.
    std::wstring stepped;
    size_t pos = 0;
    while (pos < text.size()) {
        unsigned int length = 0;
        int cp = text.read(text.data() + pos, length);
        if (length == 0 || pos + length > text.size() || cp < -1)
            __builtin_trap();
        if (cp != -1)
            stepped.push_back(static_cast<wchar_t>(cp));
        pos += length;
    }
    // What decodes re-encodes and decodes to the same code points.
    const std::wstring wide = text.toWide();
    if (stepped != wide)
        __builtin_trap();
    const MString encoded(wide);
    std::wstring expected;
    for (wchar_t c : wide)
        if (static_cast<uint32_t>(c) < 0x110000)
            expected.push_back(c);
    if (encoded.toWide() != expected)
        __builtin_trap();
    (void)sink;
    return 0;
}
