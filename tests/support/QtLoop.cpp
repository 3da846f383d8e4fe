#include "support/QtLoop.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <chrono>
#include <thread>

namespace ovtest {

QCoreApplication* ensureQtApp() {
    if (!QCoreApplication::instance()) {
        static int argc = 1;
        static char name[] = "ovbase-test";
        static char* argv[] = {name, nullptr};
        new QCoreApplication(argc, argv); // lives until exit, as an application does
    }
    return QCoreApplication::instance();
}

bool runQtUntil(const std::function<bool()>& done, int timeoutMs) {
    ensureQtApp();
    auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    while (!done()) {
        if (std::chrono::steady_clock::now() >= deadline)
            return done();
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

void runQtFor(int ms) {
    runQtUntil([] { return false; }, ms);
}

} // namespace ovtest
