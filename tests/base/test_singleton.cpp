#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "framework/base/Singleton.h"

namespace {

std::atomic<int> g_constructed{0};

class Counted {
public:
    int value = 7;

private:
    friend class Tal::Base::CSingleton<Counted>;
    Counted() {
        ++g_constructed;
        // Widen the window in which a broken accessor would build a second instance.
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    ~Counted() = default;
    friend struct std::default_delete<Counted>;
};

}  // namespace

TEST(Singleton, ConcurrentFirstUseCreatesExactlyOneInstance) {
    using S = Tal::Base::CSingleton<Counted>;
    EXPECT_EQ(S::InstanceIfExists(), nullptr) << "querying never creates";
    std::vector<std::thread> threads;
    std::vector<Counted*> seen(8, nullptr);
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([&, i] { seen[i] = S::Instance(); });
    }
    for (auto& t : threads) {
        t.join();
    }
    EXPECT_EQ(g_constructed.load(), 1);
    for (auto* p : seen) {
        EXPECT_EQ(p, seen[0]);
    }
    EXPECT_EQ(S::InstanceIfExists(), seen[0]);
    S::DestroyInstance();
    EXPECT_EQ(S::InstanceIfExists(), nullptr);
    Counted* again = S::Instance();
    EXPECT_NE(again, nullptr);
    EXPECT_EQ(g_constructed.load(), 2) << "a destroyed singleton is created anew on next use";
    S::DestroyInstance();
}
