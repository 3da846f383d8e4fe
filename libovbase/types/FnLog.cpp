#include "types/FnLog.h"

#include <cstdarg>
#include <memory>
#include <string>

namespace {

// Appends the decimal digits of VALUE at OUT; returns the end.
char* appendInt(char* out, int value) {
    unsigned int magnitude = static_cast<unsigned int>(value);
    if (value < 0) {
        *out++ = '-';
        magnitude = 0u - magnitude;
    }
    char digits[12];
    int count = 0;
    do {
        digits[count++] = static_cast<char>('0' + magnitude % 10);
        magnitude /= 10;
    } while (magnitude != 0);
    while (count > 0) {
        *out++ = digits[--count];
    }
    return out;
}

char* appendText(char* out, const char* text, std::size_t length) {
    std::memcpy(out, text, length);
    return out + length;
}

// Writes the BUFFER's first PREFIXLENGTH bytes followed by FMT formatted with ARGS, in one
// fwrite; SIZE is the BUFFER's size.
void writeLine(char* buffer, std::size_t size, std::size_t prefixLength, const char* fmt,
               va_list args) {
    char* message = buffer + prefixLength;
    std::size_t room = size - prefixLength;
    std::size_t length = 0;
    int formatted = 0;
    std::string whole;
    va_list again;
    va_copy(again, args);
    if (!std::strchr(fmt, '%') && (length = std::strlen(fmt)) <= room) {
        // Nothing to convert: the message is the text itself.
        std::memcpy(message, fmt, length);
    } else if ((formatted = std::vsnprintf(message, room, fmt, args)) >= 0) {
        length = static_cast<std::size_t>(formatted);
        if (length >= room) {
            whole.assign(buffer, prefixLength);
            whole.resize(prefixLength + length + 1);
            std::vsnprintf(&whole[prefixLength], length + 1, fmt, again);
            buffer = &whole[0];
        }
    }
    // One lock for both writes of the fallback below.
    flockfile(stderr);
    if (formatted >= 0) {
        std::fwrite(buffer, 1, prefixLength + length, stderr);
    } else {
        // A conversion printf cannot make: write what the one fprintf would have written.
        std::fwrite(buffer, 1, prefixLength, stderr);
        std::vfprintf(stderr, fmt, again);
    }
    funlockfile(stderr);
    va_end(again);
}

} // namespace

void ovLogLine(int level, const char* file, int line, const char* function, const char* fmt, ...) {
    std::size_t fileLength = std::strlen(file);
    std::size_t functionLength = function ? std::strlen(function) : 0;
    // The fixed part is its two names and at most 40 bytes more; most lines fit on the stack.
    std::size_t prefixRoom = fileLength + functionLength + 40;
    char stackBuffer[512];
    std::unique_ptr<char[]> heapBuffer;
    char* buffer = stackBuffer;
    std::size_t size = sizeof stackBuffer;
    if (prefixRoom > size / 2) {
        size += prefixRoom;
        heapBuffer.reset(new char[size]);
        buffer = heapBuffer.get();
    }
    char* out = buffer;
    *out++ = '{';
    out = appendInt(out, level);
    out = appendText(out, "} ", 2);
    out = appendText(out, file, fileLength);
    *out++ = ':';
    out = appendInt(out, line);
    if (function) {
        out = appendText(out, ", ", 2);
        out = appendText(out, function, functionLength);
        out = appendText(out, "()", 2);
    }
    *out++ = '\t';
    va_list args;
    va_start(args, fmt);
    writeLine(buffer, size, static_cast<std::size_t>(out - buffer), fmt, args);
    va_end(args);
}

unsigned int FnLog::sNextCallNumber = 1;
int FnLog::sDepth = 0;

FnLog::FnLog(int level, const char* file, int line, const char* function)
    : mLevel(level), mpFile(file), mLine(line), mpFunction(function),
      mCallNumber(sNextCallNumber++) {
    std::fprintf(stderr, "{%d} %s:%d, %s()\t%*sIN : %d\n", mLevel, mpFile, mLine, mpFunction,
                 2 * sDepth, "", mCallNumber);
    ++sDepth;
}

FnLog::~FnLog() {
    --sDepth;
    std::fprintf(stderr, "{%d} %s:%d, %s()\t%*sOUT: %d\n", mLevel, mpFile, mLine, mpFunction,
                 2 * sDepth, "", mCallNumber);
}
