#include "framework/base/MessageLoop.h"

#include <pthread.h>

namespace Tal {
namespace Base {

bool CMessageLoopBase::PostTask(std::shared_ptr<CTask> task) {
    if (!task) {
        return false;
    }
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (state_ != State::kRunning) {
            return false;
        }
        queue_.push_back(std::move(task));
    }
    wake_.notify_one();
    return true;
}

int CMessageLoopBase::GetAllTaskCount() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return static_cast<int>(queue_.size()) + (taskRunning_ ? 1 : 0);
}

bool CMessageLoopBase::OpenQueue() {
    std::lock_guard<std::mutex> lock(mutex_);
    if (state_ != State::kIdle) {
        return false;
    }
    state_ = State::kRunning;
    return true;
}

void CMessageLoopBase::CloseQueue(bool drain) {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (state_ == State::kIdle) {
            return;
        }
        // A stop overrides a quit in progress; a quit never softens a stop.
        if (!drain) {
            state_ = State::kStopping;
            queue_.clear();
        } else if (state_ == State::kRunning) {
            state_ = State::kQuitting;
        }
    }
    wake_.notify_all();
}

void CMessageLoopBase::ResetQueue() {
    std::lock_guard<std::mutex> lock(mutex_);
    queue_.clear();
    state_ = State::kIdle;
}

void CMessageLoopBase::RunTasks() {
    for (;;) {
        std::shared_ptr<CTask> task;
        {
            std::unique_lock<std::mutex> lock(mutex_);
            wake_.wait(lock, [this] { return !queue_.empty() || state_ != State::kRunning; });
            if (state_ == State::kStopping || (state_ == State::kQuitting && queue_.empty())) {
                return;
            }
            task = std::move(queue_.front());
            queue_.pop_front();
            taskRunning_ = true;
        }
        task->Exec();
        // The task is released before the count drops, so a caller that sees 0 sees it gone.
        task.reset();
        std::lock_guard<std::mutex> lock(mutex_);
        taskRunning_ = false;
    }
}

CMessageLoopWorkThread::CMessageLoopWorkThread(std::string name) : name_(std::move(name)) {}

CMessageLoopWorkThread::~CMessageLoopWorkThread() { Stop(); }

bool CMessageLoopWorkThread::Start() {
    std::lock_guard<std::mutex> lock(threadMutex_);
    if (thread_.joinable() || !OpenQueue()) {
        return false;
    }
    thread_ = std::thread([this] {
        threadId_.store(std::this_thread::get_id());
        pthread_setname_np(pthread_self(), name_.substr(0, 15).c_str());
        Run();
    });
    threadId_.store(thread_.get_id());
    return true;
}

void CMessageLoopWorkThread::Run() { RunTasks(); }

void CMessageLoopWorkThread::Quit() { Finish(true); }

void CMessageLoopWorkThread::Stop() { Finish(false); }

void CMessageLoopWorkThread::Finish(bool drain) {
    std::lock_guard<std::mutex> lock(threadMutex_);
    CloseQueue(drain);
    if (!thread_.joinable()) {
        ResetQueue();
        return;
    }
    if (thread_.get_id() == std::this_thread::get_id()) {
        // Called from one of the loop's own tasks: the loop ends after this task; nobody can join here.
        // The object must outlive that task.
        threadId_.store(std::thread::id());
        thread_.detach();
        return;
    }
    thread_.join();
    threadId_.store(std::thread::id());
    ResetQueue();
}

bool CMessageLoopWorkThread::IsRunning() const { return threadId_.load() != std::thread::id(); }

bool CMessageLoopWorkThread::IsCurrentThread() const { return threadId_.load() == std::this_thread::get_id(); }

}  // namespace Base
}  // namespace Tal
