// RefBase, sp and wp: lifetimes, promotion, and counts under concurrent use.
#include <gtest/gtest.h>

#include <utils/LightRefBase.h>
#include <utils/RefBase.h>

#include <atomic>
#include <thread>
#include <vector>

namespace android {
namespace {

struct Events {
    std::atomic<int> firstRef{0};
    std::atomic<int> lastStrong{0};
    std::atomic<int> destroyed{0};
};

class Tracked : public RefBase {
  public:
    explicit Tracked(Events* events, int value = 0) : mEvents(events), mValue(value) {}
    // Public so that objects never held by sp can be deleted directly.
    ~Tracked() override { mEvents->destroyed++; }
    int value() const { return mValue; }

  protected:
    void onFirstRef() override { mEvents->firstRef++; }
    void onLastStrongRef(const void*) override { mEvents->lastStrong++; }

  private:
    Events* mEvents;
    int mValue;
};

class Derived : public Tracked {
  public:
    using Tracked::Tracked;
};

TEST(RefBaseTest, LastStrongReferenceDestroysOnceWithHooksInOrder) {
    Events events;
    sp<Tracked> a = sp<Tracked>::make(&events, 7);
    EXPECT_EQ(1, events.firstRef.load());
    EXPECT_EQ(1, a->getStrongCount());
    EXPECT_EQ(7, a->value());
    {
        sp<Tracked> b = a;             // copy
        sp<Tracked> c = std::move(b);  // move leaves b empty
        EXPECT_EQ(nullptr, b.get());
        EXPECT_EQ(2, a->getStrongCount());
        sp<RefBase> base = c;  // converting
        EXPECT_EQ(3, a->getStrongCount());
    }
    EXPECT_EQ(1, a->getStrongCount());
    EXPECT_EQ(0, events.destroyed.load());
    a = a;  // self-assignment keeps the object
    EXPECT_EQ(1, a->getStrongCount());
    a.clear();
    EXPECT_EQ(1, events.firstRef.load());
    EXPECT_EQ(1, events.lastStrong.load());
    EXPECT_EQ(1, events.destroyed.load());
    EXPECT_TRUE(a == nullptr);
}

TEST(RefBaseTest, AssignmentReleasesThePreviousObject) {
    Events first, second;
    sp<Tracked> p = new Tracked(&first);
    p = new Tracked(&second);
    EXPECT_EQ(1, first.destroyed.load());
    EXPECT_EQ(0, second.destroyed.load());
    sp<Derived> d = sp<Derived>::make(&first);
    p = d;  // from sp<Derived>
    EXPECT_EQ(1, second.destroyed.load());
    EXPECT_EQ(2, d->getStrongCount());
    p = nullptr;
    d = nullptr;
    EXPECT_EQ(2, first.destroyed.load());
}

TEST(RefBaseTest, ComparisonsUseTheObjectAddress) {
    Events events;
    sp<Tracked> a = sp<Tracked>::make(&events);
    sp<Tracked> b = sp<Tracked>::make(&events);
    sp<RefBase> aBase = a;
    EXPECT_TRUE(a == aBase);
    EXPECT_TRUE(a != b);
    EXPECT_TRUE(a == a.get());
    EXPECT_TRUE(a.get() == a);
    EXPECT_TRUE(a != nullptr);
    EXPECT_FALSE(nullptr == a);
    EXPECT_NE(a < b, b < a);
    sp<Tracked> empty;
    EXPECT_TRUE(empty == nullptr);
    EXPECT_EQ(&*a, a.get());
}

TEST(RefBaseTest, WeakPointerPromotesOnlyWhileTheObjectLives) {
    Events events;
    sp<Tracked> strong = sp<Tracked>::make(&events, 3);
    wp<Tracked> weak = strong;
    wp<RefBase> weakBase = weak;
    EXPECT_EQ(2, weak.get_refs()->getWeakCount());
    {
        sp<Tracked> promoted = weak.promote();
        ASSERT_NE(nullptr, promoted.get());
        EXPECT_EQ(3, promoted->value());
        EXPECT_EQ(2, strong->getStrongCount());
    }
    EXPECT_TRUE(weak == strong);
    EXPECT_EQ(strong.get(), weak.unsafe_get());

    strong.clear();
    EXPECT_EQ(1, events.destroyed.load());
    // The weak block outlives the object: promotion fails, it does not crash.
    EXPECT_EQ(nullptr, weak.promote().get());
    EXPECT_EQ(nullptr, weakBase.promote().get());
    EXPECT_EQ(2, weak.get_refs()->getWeakCount());
    weakBase.clear();
    EXPECT_EQ(1, weak.get_refs()->getWeakCount());
    wp<Tracked> copy = weak;
    EXPECT_EQ(nullptr, copy.promote().get());
    weak.clear();
    EXPECT_TRUE(weak == nullptr);
}

TEST(RefBaseTest, NeverStrongObjects) {
    // Promotion makes the first strong reference; dropping it destroys the object.
    Events events;
    Tracked* raw = new Tracked(&events);
    wp<Tracked> weak = raw;
    EXPECT_EQ(0, raw->getStrongCount());
    sp<Tracked> promoted = weak.promote();
    ASSERT_EQ(raw, promoted.get());
    EXPECT_EQ(1, events.firstRef.load());
    EXPECT_EQ(1, raw->getStrongCount());
    promoted.clear();
    EXPECT_EQ(1, events.destroyed.load());
    EXPECT_EQ(nullptr, weak.promote().get());

    // Deleting one directly is allowed, even while weak references exist.
    delete new Tracked(&events);
    EXPECT_EQ(2, events.destroyed.load());
    Tracked* watched = new Tracked(&events);
    wp<Tracked> watcher = watched;
    delete watched;
    EXPECT_EQ(3, events.destroyed.load());
    EXPECT_EQ(1, events.firstRef.load());
    EXPECT_EQ(nullptr, watcher.promote().get());
}

TEST(RefBaseTest, CreateWeakAndAttemptIncStrongByHand) {
    Events events;
    sp<Tracked> strong = sp<Tracked>::make(&events);
    RefBase::weakref_type* refs = strong->createWeak(this);
    EXPECT_EQ(strong.get(), refs->refBase());
    ASSERT_TRUE(refs->attemptIncStrong(this));
    EXPECT_EQ(2, strong->getStrongCount());
    strong->decStrong(this);
    strong.clear();
    EXPECT_EQ(1, events.destroyed.load());
    EXPECT_FALSE(refs->attemptIncStrong(this));
    refs->decWeak(this);  // frees the block (ASan checks)
}

class Light : public LightRefBase<Light> {
  public:
    explicit Light(int* destroyed) : mDestroyed(destroyed) {}
    ~Light() { ++*mDestroyed; }
    int* mDestroyed;
};

TEST(RefBaseTest, LightRefBaseDeletesAtZero) {
    int destroyed = 0;
    sp<Light> a = sp<Light>::make(&destroyed);
    sp<Light> b = a;
    EXPECT_EQ(2, a->getStrongCount());
    a.clear();
    EXPECT_EQ(0, destroyed);
    b.clear();
    EXPECT_EQ(1, destroyed);
}

// Many threads copy strong pointers and promote weak ones while the main thread drops its own
// reference: the object must die exactly once, after the last holder, and promotions made after
// its death must fail.
TEST(RefBaseThreadTest, ConcurrentCopiesAndPromotionsDestroyExactlyOnce) {
    constexpr int kThreads = 4;
    constexpr int kRounds = 20000;
    for (int trial = 0; trial < 5; ++trial) {
        SCOPED_TRACE(trial);
        Events events;
        sp<Tracked> strong = sp<Tracked>::make(&events, 11);
        wp<Tracked> weak = strong;
        std::atomic<int> ready{0};
        std::atomic<int> badValues{0};
        std::vector<std::thread> threads;
        for (int t = 0; t < kThreads; ++t) {
            sp<Tracked> mine = strong;
            threads.emplace_back([&events, &ready, &badValues, weak, mine]() mutable {
                ready++;
                for (int i = 0; i < kRounds; ++i) {
                    sp<Tracked> copy = mine;
                    sp<Tracked> promoted = weak.promote();
                    if (promoted == nullptr || promoted->value() != 11) badValues++;
                    if (events.destroyed.load() != 0) badValues++;
                }
                mine.clear();  // this thread's last strong reference
                for (int i = 0; i < 100; ++i) {
                    sp<Tracked> late = weak.promote();
                    if (late != nullptr && late->value() != 11) badValues++;
                }
            });
        }
        while (ready.load() < kThreads) std::this_thread::yield();
        strong.clear();
        for (std::thread& t : threads) t.join();
        EXPECT_EQ(0, badValues.load());
        EXPECT_EQ(1, events.destroyed.load());
        EXPECT_EQ(1, events.lastStrong.load());
        EXPECT_EQ(nullptr, weak.promote().get());
    }
}

TEST(RefBaseThreadTest, RacingLastReleaseAgainstPromotion) {
    for (int trial = 0; trial < 200; ++trial) {
        Events events;
        sp<Tracked> strong = sp<Tracked>::make(&events, 5);
        wp<Tracked> weak = strong;
        std::atomic<bool> go{false};
        int promotedValue = -1;
        bool promoted = false;
        std::thread promoter([&] {
            while (!go.load()) std::this_thread::yield();
            sp<Tracked> p = weak.promote();
            if (p != nullptr) {
                promoted = true;
                promotedValue = p->value();
            }
        });
        go = true;
        strong.clear();
        promoter.join();
        // Either the promotion won (and saw a live object) or it lost; the object died once.
        if (promoted) {
            EXPECT_EQ(5, promotedValue);
        }
        EXPECT_EQ(1, events.destroyed.load());
        EXPECT_EQ(nullptr, weak.promote().get());
    }
}

}  // namespace
}  // namespace android
