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

TEST(PtrRef, CopiesShareOneCountAndTheLastReleaseDeletes) {
    int deaths = 0;
    {
        PtrRef<Tracked> first(new Tracked(&deaths));
        EXPECT_EQ(first.refCount(), 1);
        {
            PtrRef<Tracked> second(first);
            PtrRef<Tracked> third;
            third = second;
            EXPECT_EQ(first.refCount(), 3);
            EXPECT_EQ(third.get(), first.get());
        }
        EXPECT_EQ(first.refCount(), 1);
        EXPECT_EQ(deaths, 0);
    }
    EXPECT_EQ(deaths, 1);
}

TEST(PtrRef, AssignmentReleasesTheHeldObjectButNotOnSelfAssignment) {
    int deathsA = 0, deathsB = 0;
    PtrRef<Tracked> a(new Tracked(&deathsA));
    PtrRef<Tracked> b(new Tracked(&deathsB));
    PtrRef<Tracked>& alias = a;
    a = alias;
    EXPECT_EQ(a.refCount(), 1);
    EXPECT_EQ(deathsA, 0);

    a = b;
    EXPECT_EQ(deathsA, 1);
    EXPECT_EQ(b.refCount(), 2);

    b = PtrRef<Tracked>();
    EXPECT_TRUE(b == nullptr);
    EXPECT_FALSE(b.hasCount());
    EXPECT_EQ(a.refCount(), 1);
    EXPECT_EQ(deathsB, 0);
}

TEST(PtrRef, NullHandlesCarryNoCount) {
    PtrRef<Tracked> empty(nullptr);
    EXPECT_FALSE(empty.hasCount());
    PtrRef<Tracked> copy(empty);
    EXPECT_FALSE(copy.hasCount());
    PtrRef<Tracked> assigned;
    assigned = empty;
    EXPECT_FALSE(assigned.hasCount());
    EXPECT_TRUE(assigned == nullptr);
    EXPECT_FALSE(static_cast<bool>(assigned));
}

TEST(PtrRef, HandleToBaseSharesTheDerivedCount) {
    int deaths = 0;
    PtrRef<DerivedTracked> derived(new DerivedTracked(&deaths));
    {
        PtrRef<Tracked> base(derived);
        EXPECT_EQ(derived.refCount(), 2);
        derived = PtrRef<DerivedTracked>();
        EXPECT_EQ(base.refCount(), 1);
        EXPECT_EQ(deaths, 0);
    }
    EXPECT_EQ(deaths, 1);
}

TEST(PtrRef, MovingHandsTheReferenceOverWithoutCounting) {
    int deaths = 0;
    PtrRef<Tracked> source(new Tracked(&deaths));
    PtrRef<Tracked> kept(source);
    PtrRef<Tracked> moved(std::move(source));
    EXPECT_TRUE(source == nullptr);
    EXPECT_FALSE(source.hasCount());
    EXPECT_EQ(moved.refCount(), 2);

    PtrRef<Tracked> target(new Tracked(&deaths));
    target = std::move(moved);
    EXPECT_EQ(deaths, 1); // the target's previous object was released
    EXPECT_EQ(target.refCount(), 2);
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

TEST(PtrRef, HandlerStorageIsFreedWithoutRunningItsDestructor) {
    int deaths = 0;
    {
        PtrRef<IHandler> handler(new CountingHandler(&deaths));
        PtrRef<IHandler> copy(handler);
        EXPECT_EQ(copy.refCount(), 2);
    }
    EXPECT_EQ(deaths, 0);
}

} // namespace
