#include "thread/Thread.h"
#include "thread/Handler.h"

#include "support/StderrCapture.h"
#include "support/Wait.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <pthread.h>
#include <regex>
#include <string>
#include <thread>

namespace {

struct Worker {
    virtual ~Worker() {}
    virtual void work() {
        mThread = pthread_self();
        mRuns += 1;
    }
    pthread_t mThread{};
    int mRuns = 0;
};

struct SpecialWorker : Worker {
    void work() override {
        Worker::work();
        mSpecial = true;
        mFinished.store(true); // the thread's last touch of this object
    }
    bool mSpecial = false;
    std::atomic<bool> mFinished{false};
};

TEST(Thread, RunsTheHandlerOnANewThreadJoinedOrDetached) {
    Worker joined;
    PtrRef<Thread> thread = Thread::createThread();
    ASSERT_TRUE(thread->create(new Handler<Worker>(&joined, &Worker::work), false));
    thread->join();
    EXPECT_EQ(joined.mRuns, 1);
    EXPECT_FALSE(pthread_equal(joined.mThread, pthread_self()));

    // Virtual targets dispatch to the object. The thread runs the handler the PThread holds, so
    // the caller keeps its own handle to it while it may still run; the thread handle itself
    // may go at once.
    SpecialWorker worker;
    PtrRef<IHandler> handler(new Handler<Worker>(&worker, &Worker::work));
    {
        PtrRef<Thread> detached = Thread::createThread();
        ASSERT_TRUE(detached->create(handler, true));
        EXPECT_EQ(handler.refCount(), 2);
    }
    ASSERT_TRUE(ovtest::waitUntil([&] { return worker.mFinished.load(); }));
    EXPECT_TRUE(worker.mSpecial);
    EXPECT_EQ(worker.mRuns, 1);
    EXPECT_EQ(handler.refCount(), 1);
}

TEST(Handler, EmptyHandlerReportsInsteadOfCalling) {
    Worker worker;
    Handler<Worker> handler(&worker, &Worker::work);
    handler.destroy();
    Handler<Worker> noObject(nullptr, &Worker::work);

    ovtest::StderrCapture capture;
    handler.handle();
    noObject.handle();
    std::string text = capture.text();
    EXPECT_EQ(worker.mRuns, 0);

    std::smatch match;
    const std::string empty =
        "\\{4\\} Handler\\.h:\\d+, handle\\(\\)\thandle a function!"
        "\\{3\\} Handler\\.h:\\d+, handle\\(\\)\tSomething is empty obj:0, func:";
    std::regex cleared(empty + "0\n" + empty + "(-?\\d+)\n");
    ASSERT_TRUE(std::regex_match(text, match, cleared)) << text;
    EXPECT_NE(match[1].str(), "0"); // a set member function does not print as empty
}

TEST(ThreadSlow, SleepCoversWholeSecondsAndTheRemainder) {
    auto start = std::chrono::steady_clock::now();
    Thread::sleep(1200);
    std::chrono::duration<double> slept = std::chrono::steady_clock::now() - start;
    EXPECT_GE(slept.count(), 1.19);
    EXPECT_LT(slept.count(), 3.0);
}

} // namespace
