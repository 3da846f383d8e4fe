#include "thread/PtrRef.h"
#include "thread/Handler.h"

#include <gtest/gtest.h>

#include <utility>

namespace {

struct Tracked {
    explicit Tracked(int* deaths) : mpDeaths(deaths) {}
    virtual ~Tracked() { ++*mpDeaths; }
    int* mpDeaths;
};

struct DerivedTracked : Tracked {
    using Tracked::Tracked;
};

TEST(PtrRef, CopiesShareOneCountAndTheLastReleaseDeletesMovesDoNotCount) {
    int deathsA = 0, deathsB = 0;
    PtrRef<Tracked> a(new Tracked(&deathsA));
    {
        PtrRef<Tracked> copy(a);
        PtrRef<Tracked>& alias = copy;
        copy = alias; // self-assignment changes nothing
        EXPECT_EQ(a.refCount(), 2);
    }
    EXPECT_EQ(a.refCount(), 1);

    PtrRef<DerivedTracked> b(new DerivedTracked(&deathsB));
    PtrRef<Tracked> base(b); // a handle to the base shares the derived handle's count
    EXPECT_EQ(b.refCount(), 2);
    a = base; // releases the last reference to A's object
    EXPECT_EQ(deathsA, 1);
    EXPECT_EQ(b.refCount(), 3);
    b = PtrRef<DerivedTracked>();
    base = PtrRef<Tracked>();
    EXPECT_EQ(deathsB, 0);
    a = PtrRef<Tracked>();
    EXPECT_EQ(deathsB, 1);

    // Null handles carry no count, copied or assigned.
    PtrRef<Tracked> empty(nullptr), copy(empty);
    a = empty;
    EXPECT_FALSE(empty.hasCount() || copy.hasCount() || a.hasCount());
    EXPECT_TRUE(a == nullptr);

    // Moving hands the reference over without counting.
    int deaths = 0;
    PtrRef<Tracked> source(new Tracked(&deaths));
    PtrRef<Tracked> kept(source);
    PtrRef<Tracked> moved(std::move(source));
    EXPECT_TRUE(source == nullptr);
    EXPECT_FALSE(source.hasCount());
    EXPECT_EQ(moved.refCount(), 2);

    PtrRef<Tracked> target(new Tracked(&deaths));
    target = std::move(moved);
    EXPECT_EQ(deaths, 1);     // the target's previous object was released
    target = std::move(kept); // same object: nothing changes hands
    EXPECT_EQ(target.refCount(), 2);
    EXPECT_TRUE(kept != nullptr);
}

struct CountingHandler : IHandler {
    explicit CountingHandler(int* deaths) : mpDeaths(deaths) {}
    ~CountingHandler() { ++*mpDeaths; }
    void handle() override {}
    int* mpDeaths;
};

// IHandler as a second base sits inside the object, not at its start.
struct Payload {
    virtual ~Payload() {}
    long mData[4] = {};
};
struct LaterBaseHandler : Payload, CountingHandler {
    explicit LaterBaseHandler(int* deaths) : CountingHandler(deaths) {}
};

TEST(PtrRef, HandlerStorageIsFreedWithoutRunningItsDestructor) {
    int deaths = 0;
    {
        PtrRef<IHandler> handler(new CountingHandler(&deaths));
        PtrRef<IHandler> copy(handler);
        LaterBaseHandler* inner = new LaterBaseHandler(&deaths);
        ASSERT_NE(static_cast<void*>(static_cast<IHandler*>(inner)), static_cast<void*>(inner));
        PtrRef<IHandler> later(inner); // freed from the object's start, not from its base
    }
    EXPECT_EQ(deaths, 0);
}

} // namespace
