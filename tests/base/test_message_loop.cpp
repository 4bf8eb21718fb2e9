#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <mutex>
#include <thread>
#include <vector>

#include "framework/base/MessageLoop.h"

using Tal::Base::CMessageLoopWorkThread;
using Tal::Base::CTask;

namespace {

class FunctionTask : public CTask {
public:
    explicit FunctionTask(std::function<void()> fn) : fn_(std::move(fn)) {}
    void Exec() override { fn_(); }

private:
    std::function<void()> fn_;
};

std::shared_ptr<CTask> MakeTask(std::function<void()> fn) {
    return std::make_shared<FunctionTask>(std::move(fn));
}

// Signals its destruction so tests can see when the loop let go of it.
class LifetimeTask : public CTask {
public:
    LifetimeTask(std::atomic<bool>* destroyed, std::atomic<bool>* aliveDuringExec)
        : destroyed_(destroyed), aliveDuringExec_(aliveDuringExec) {}
    ~LifetimeTask() override { destroyed_->store(true); }
    void Exec() override {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        aliveDuringExec_->store(!destroyed_->load());
    }

private:
    std::atomic<bool>* destroyed_;
    std::atomic<bool>* aliveDuringExec_;
};

}  // namespace

TEST(MessageLoop, RefusesTasksUntilStartedAndAfterStop) {
    CMessageLoopWorkThread loop("t-refuse");
    EXPECT_FALSE(loop.PostTask(MakeTask([] {})));
    EXPECT_FALSE(loop.PostTask(nullptr));
    ASSERT_TRUE(loop.Start());
    EXPECT_FALSE(loop.Start()) << "a running loop cannot be started twice";
    EXPECT_FALSE(loop.PostTask(nullptr));
    EXPECT_TRUE(loop.PostTask(MakeTask([] {})));
    loop.Stop();
    EXPECT_FALSE(loop.IsRunning());
    EXPECT_FALSE(loop.PostTask(MakeTask([] {})));
}

TEST(MessageLoop, RunsTasksInPostOrderOnOneThread) {
    CMessageLoopWorkThread loop("t-order");
    ASSERT_TRUE(loop.Start());
    std::mutex mutex;
    std::vector<int> order;
    std::vector<std::thread::id> threads;
    std::atomic<int> concurrent{0};
    std::atomic<int> maxConcurrent{0};
    // Two posting threads interleave; each thread's own tasks must keep their relative order.
    auto poster = [&](int base) {
        for (int i = 0; i < 200; ++i) {
            ASSERT_TRUE(loop.PostTask(MakeTask([&, v = base + i] {
                int now = ++concurrent;
                int seen = maxConcurrent.load();
                while (now > seen && !maxConcurrent.compare_exchange_weak(seen, now)) {
                }
                {
                    std::lock_guard<std::mutex> lock(mutex);
                    order.push_back(v);
                    threads.push_back(std::this_thread::get_id());
                }
                --concurrent;
            })));
        }
    };
    std::thread a(poster, 0);
    std::thread b(poster, 1000);
    a.join();
    b.join();
    loop.Quit();
    ASSERT_EQ(order.size(), 400u);
    EXPECT_EQ(maxConcurrent.load(), 1) << "tasks of one loop never overlap";
    int lastA = -1, lastB = 999;
    for (int v : order) {
        if (v < 1000) {
            EXPECT_GT(v, lastA);
            lastA = v;
        } else {
            EXPECT_GT(v, lastB);
            lastB = v;
        }
    }
    for (auto id : threads) {
        EXPECT_EQ(id, threads.front());
        EXPECT_NE(id, std::this_thread::get_id());
    }
}

TEST(MessageLoop, KeepsTaskAliveUntilExecReturnsAndReleasesAfter) {
    CMessageLoopWorkThread loop("t-life");
    ASSERT_TRUE(loop.Start());
    std::atomic<bool> destroyed{false};
    std::atomic<bool> aliveDuringExec{false};
    {
        auto task = std::make_shared<LifetimeTask>(&destroyed, &aliveDuringExec);
        ASSERT_TRUE(loop.PostTask(task));
    }  // the caller's reference is gone before the task runs
    loop.Quit();
    EXPECT_TRUE(aliveDuringExec.load());
    EXPECT_TRUE(destroyed.load()) << "the loop must not keep finished tasks";
}

TEST(MessageLoop, TaskCountIncludesRunningTask) {
    CMessageLoopWorkThread loop("t-count");
    ASSERT_TRUE(loop.Start());
    EXPECT_EQ(loop.GetAllTaskCount(), 0);
    std::promise<void> entered;
    std::promise<void> release;
    auto releaseFuture = release.get_future().share();
    ASSERT_TRUE(loop.PostTask(MakeTask([&] {
        entered.set_value();
        releaseFuture.wait();
    })));
    ASSERT_TRUE(loop.PostTask(MakeTask([] {})));
    ASSERT_TRUE(loop.PostTask(MakeTask([] {})));
    entered.get_future().wait();
    EXPECT_EQ(loop.GetAllTaskCount(), 3);
    release.set_value();
    loop.Quit();
    EXPECT_EQ(loop.GetAllTaskCount(), 0);
}

TEST(MessageLoop, QuitDrainsQueueStopDropsIt) {
    std::atomic<int> ran{0};
    std::promise<void> release;
    auto releaseFuture = release.get_future().share();

    CMessageLoopWorkThread quitting("t-quit");
    ASSERT_TRUE(quitting.Start());
    ASSERT_TRUE(quitting.PostTask(MakeTask([&] { releaseFuture.wait(); })));
    for (int i = 0; i < 5; ++i) {
        ASSERT_TRUE(quitting.PostTask(MakeTask([&] { ++ran; })));
    }
    std::thread releaser([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(30));
        release.set_value();
    });
    quitting.Quit();
    releaser.join();
    EXPECT_EQ(ran.load(), 5) << "Quit runs what was queued before it";

    std::atomic<int> dropped{0};
    std::promise<void> entered;
    std::promise<void> release2;
    auto release2Future = release2.get_future().share();
    CMessageLoopWorkThread stopping("t-stop");
    ASSERT_TRUE(stopping.Start());
    ASSERT_TRUE(stopping.PostTask(MakeTask([&] {
        entered.set_value();
        release2Future.wait();
    })));
    for (int i = 0; i < 5; ++i) {
        ASSERT_TRUE(stopping.PostTask(MakeTask([&] { ++dropped; })));
    }
    entered.get_future().wait();
    std::thread releaser2([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(30));
        release2.set_value();
    });
    stopping.Stop();
    releaser2.join();
    EXPECT_EQ(dropped.load(), 0) << "Stop lets the running task end and drops the rest";
}

TEST(MessageLoop, QuitThenStartAgainAcceptsAndRunsNewWork) {
    CMessageLoopWorkThread loop("t-restart");
    std::atomic<int> ran{0};
    for (int round = 0; round < 3; ++round) {
        ASSERT_TRUE(loop.Start()) << "round " << round;
        ASSERT_TRUE(loop.PostTask(MakeTask([&] { ++ran; })));
        loop.Quit();
        EXPECT_FALSE(loop.IsRunning());
        EXPECT_FALSE(loop.PostTask(MakeTask([&] { ++ran; }))) << "posts between Quit and Start are refused";
    }
    EXPECT_EQ(ran.load(), 3);
    // Quit or Stop on a loop that is not running is harmless.
    loop.Quit();
    loop.Stop();
    ASSERT_TRUE(loop.Start());
    ASSERT_TRUE(loop.PostTask(MakeTask([&] { ++ran; })));
    loop.Stop();
    EXPECT_LE(ran.load(), 4);
}

TEST(MessageLoop, TaskMayQuitItsOwnLoopWithoutDeadlock) {
    auto loop = std::make_unique<CMessageLoopWorkThread>("t-self");
    ASSERT_TRUE(loop->Start());
    std::promise<void> done;
    ASSERT_TRUE(loop->PostTask(MakeTask([&] {
        EXPECT_TRUE(loop->IsCurrentThread());
        loop->Quit();
        done.set_value();
    })));
    ASSERT_EQ(done.get_future().wait_for(std::chrono::seconds(5)), std::future_status::ready);
    EXPECT_FALSE(loop->IsCurrentThread());
    EXPECT_FALSE(loop->PostTask(MakeTask([] {})));
    // Give the detached runner time to leave before the object goes away.
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
}

TEST(MessageLoop, ConcurrentPostAndStopNeverLosesTheLoop) {
    for (int round = 0; round < 20; ++round) {
        CMessageLoopWorkThread loop("t-race");
        ASSERT_TRUE(loop.Start());
        std::atomic<bool> go{true};
        std::atomic<int> accepted{0};
        std::thread poster([&] {
            while (go.load()) {
                if (loop.PostTask(MakeTask([] {}))) {
                    ++accepted;
                }
            }
        });
        // Stop while posts are arriving.
        while (accepted.load() == 0) {
            std::this_thread::yield();
        }
        loop.Stop();
        go = false;
        poster.join();
        EXPECT_EQ(loop.GetAllTaskCount(), 0);
        EXPECT_GT(accepted.load(), 0);
    }
}
