#pragma once
// Task queue with a worker thread: tasks of one loop run one after another, in post order, on the loop's
// own thread.

#include <atomic>
#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

namespace Tal {
namespace Base {

/// A unit of work posted to a message loop; the loop keeps it alive until Exec returns.
class CTask {
public:
    virtual ~CTask() = default;
    virtual void Exec() = 0;
};

/// The queue half of a loop. PostTask refuses work while the loop is not running.
class CMessageLoopBase {
public:
    CMessageLoopBase() = default;
    virtual ~CMessageLoopBase() = default;
    CMessageLoopBase(const CMessageLoopBase&) = delete;
    CMessageLoopBase& operator=(const CMessageLoopBase&) = delete;

    /// Queues the task behind the others. False for a null task or when the loop cannot accept work
    /// (not started, quitting or stopped).
    bool PostTask(std::shared_ptr<CTask> task);
    /// Tasks waiting plus the one running; 0 means idle.
    int GetAllTaskCount() const;

protected:
    enum class State { kIdle, kRunning, kQuitting, kStopping };

    /// Runs tasks until Quit (queue drained first) or Stop (queue dropped). Called on the worker thread.
    void RunTasks();
    /// Opens the queue for posting; false when it is already open.
    bool OpenQueue();
    /// Refuses further posts and tells the runner to finish: drain (quit) or drop (stop) the queue.
    void CloseQueue(bool drain);
    /// Back to idle after the runner has returned.
    void ResetQueue();

private:
    mutable std::mutex mutex_;
    std::condition_variable wake_;
    std::deque<std::shared_ptr<CTask>> queue_;
    State state_ = State::kIdle;
    bool taskRunning_ = false;
};

/// A loop with its own thread. Start -> (post tasks) -> Quit or Stop -> Start again is allowed.
class CMessageLoopWorkThread : public CMessageLoopBase {
public:
    explicit CMessageLoopWorkThread(std::string name = "msgloop");
    ~CMessageLoopWorkThread() override;

    /// Creates the thread and runs the loop on it. False when it is already running.
    bool Start();
    /// Runs the tasks already queued, then ends the thread and waits for it. New posts are refused.
    void Quit();
    /// Lets the running task finish, drops the others, ends the thread and waits for it.
    void Stop();
    bool IsRunning() const;
    /// True on the loop's own thread.
    bool IsCurrentThread() const;

protected:
    /// The thread body.
    virtual void Run();

private:
    void Finish(bool drain);

    std::string name_;
    std::mutex threadMutex_;  // serialises Start, Quit and Stop; never taken by the loop's own thread
    std::thread thread_;
    std::atomic<std::thread::id> threadId_{};
};

}  // namespace Base
}  // namespace Tal
