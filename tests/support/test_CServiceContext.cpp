// The service context: a part is made on first use and is the same object on every later use
// in its context; a scoped context starts with fresh parts and, when it ends, the one before it
// is current again with its parts as they were; parts end in the reverse order of their making,
// while their context is still current; a part is found from worker threads.

#include "support/CServiceContext.h"

#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <vector>

namespace {

struct Counter {
    int value = 0;
};

// Records the order in which parts end, in a list that outlives the context.
std::vector<std::string>* g_ended = nullptr;

struct EndsFirstMade {
    ~EndsFirstMade() {
        if (g_ended) g_ended->push_back("first");
    }
};

struct EndsSecondMade {
    ~EndsSecondMade() {
        if (g_ended) g_ended->push_back("second");
    }
};

// Asks for another part while it ends: that one is made in the same context and ends too.
struct AsksWhileEnding {
    ~AsksWhileEnding() {
        ServicePart<Counter>().value = 99;
        if (g_ended) g_ended->push_back("asked");
    }
};

struct MadeByAnother {
    int value = 7;
};

// Asks for another part while it is made.
struct AsksWhileMade {
    AsksWhileMade() : other(ServicePart<MadeByAnother>().value) {}
    int other;
};

TEST(ServiceContext, APartIsMadeOnFirstUseAndStaysTheSameObject) {
    CScopedServiceContext context;
    Counter& first = ServicePart<Counter>();
    EXPECT_EQ(first.value, 0);
    first.value = 5;
    EXPECT_EQ(&ServicePart<Counter>(), &first);
    EXPECT_EQ(ServicePart<Counter>().value, 5);
}

TEST(ServiceContext, AScopedContextStartsFreshAndTheOneBeforeComesBack) {
    CScopedServiceContext outer;
    ServicePart<Counter>().value = 1;
    CServiceContext* outerContext = &CServiceContext::Current();
    {
        CScopedServiceContext inner;
        EXPECT_NE(&CServiceContext::Current(), outerContext);
        EXPECT_EQ(ServicePart<Counter>().value, 0);
        ServicePart<Counter>().value = 2;
    }
    EXPECT_EQ(&CServiceContext::Current(), outerContext);
    EXPECT_EQ(ServicePart<Counter>().value, 1);
}

TEST(ServiceContext, PartsEndInTheReverseOrderOfTheirMaking) {
    std::vector<std::string> ended;
    g_ended = &ended;
    {
        CScopedServiceContext context;
        ServicePart<EndsFirstMade>();
        ServicePart<EndsSecondMade>();
    }
    g_ended = nullptr;
    EXPECT_EQ(ended, (std::vector<std::string>{"second", "first"}));
}

TEST(ServiceContext, APartThatAsksForAnotherWhileItEndsGetsOneOfItsOwnContext) {
    CScopedServiceContext outer;
    ServicePart<Counter>().value = 1;
    std::vector<std::string> ended;
    g_ended = &ended;
    {
        CScopedServiceContext inner;
        ServicePart<AsksWhileEnding>();
    }
    g_ended = nullptr;
    EXPECT_EQ(ended, std::vector<std::string>{"asked"});
    // The part it asked for was the ending context's, not the outer one's.
    EXPECT_EQ(ServicePart<Counter>().value, 1);
}

TEST(ServiceContext, APartMayAskForAnotherWhileItIsMade) {
    CScopedServiceContext context;
    EXPECT_EQ(ServicePart<AsksWhileMade>().other, 7);
    EXPECT_EQ(ServicePart<MadeByAnother>().value, 7);
}

TEST(ServiceContext, ThreadsThatAskAtOnceGetTheSamePart) {
    CScopedServiceContext context;
    std::vector<Counter*> seen(8, nullptr);
    std::vector<std::thread> threads;
    for (size_t i = 0; i < seen.size(); ++i)
        threads.emplace_back([&seen, i] { seen[i] = &ServicePart<Counter>(); });
    for (std::thread& thread : threads)
        thread.join();
    for (Counter* part : seen)
        EXPECT_EQ(part, &ServicePart<Counter>());
}

} // namespace
