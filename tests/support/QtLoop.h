// Running a Qt event loop in tests: system-channel messages and phone-client signals reach
// their receivers only while the receiver's thread processes Qt events.
#ifndef OVBASE_TESTS_SUPPORT_QTLOOP_H
#define OVBASE_TESTS_SUPPORT_QTLOOP_H

#include <functional>

class QCoreApplication;

namespace ovtest {

// The process's QCoreApplication, created on first call and kept until exit.
QCoreApplication* ensureQtApp();

// Processes this thread's Qt events until DONE() holds or TIMEOUTMS pass; returns DONE().
bool runQtUntil(const std::function<bool()>& done, int timeoutMs = 10000);

// Processes this thread's Qt events for MS milliseconds, to show that nothing (more) arrives.
void runQtFor(int ms);

} // namespace ovtest

#endif
