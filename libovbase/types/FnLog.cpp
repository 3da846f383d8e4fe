#include "types/FnLog.h"

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
