#pragma once
// Business-common services of the client framework: language, data paths, network time-out level,
// the network message loop and a millisecond sleep.

#include <memory>
#include <mutex>
#include <string>
#include <utility>

#include "framework/base/MessageLoop.h"

namespace BusinessCommon {

/// Starts the business-common services (the network message loop) and stores the language.
bool InitBusinessCommon(void* reserved, const std::string& language);
/// Stops the network message loop; queued tasks are dropped.
void UnInitBusinessCommon();
/// The language given at start-up ("en_US", "zh_CN", ...); "en_US" until set.
std::string GetLanguage();
void SetLanguage(const std::string& language);

/// Sleeps the calling thread for the given number of milliseconds.
void MSleep(int milliseconds);

/// Data paths and the network time-out level of the client. Directory paths end with a slash.
class CFrameSystemConfigMgr {
public:
    static CFrameSystemConfigMgr* Instance();

    /// Working files of the client (temporary audio, logs).
    std::string GetClientDataPath() const;
    void SetClientDataPath(const std::string& path);
    /// Captured media of the client (recordings, the local audio cache under "Audio/").
    std::string GetVideoCaptureDataPath() const;
    void SetVideoCaptureDataPath(const std::string& path);
    /// Network time-out level: 0 short, 1 medium, 2 long; other values behave as 0.
    int GetNetOverTime() const;
    void SetNetOverTime(int level);

private:
    /// A setting read or written under the lock.
    template <class T>
    T Get(T CFrameSystemConfigMgr::*field) const {
        std::lock_guard<std::mutex> lock(mutex_);
        return this->*field;
    }
    template <class T>
    void Set(T CFrameSystemConfigMgr::*field, T value) {
        std::lock_guard<std::mutex> lock(mutex_);
        this->*field = std::move(value);
    }

    mutable std::mutex mutex_;
    std::string clientDataPath_;
    std::string captureDataPath_;
    int netOverTime_ = 0;
};

/// The message loop on which network-originated work (push frames) is handled, off the link's thread.
class CMessageLoopForNetworkComm {
public:
    static CMessageLoopForNetworkComm* Instance();
    /// False when the loop is not running (business common not initialised) or the task is null.
    bool PostTask(std::shared_ptr<Tal::Base::CTask> task);
    int GetAllTaskCount() const;
    bool Start();
    void Stop();

private:
    Tal::Base::CMessageLoopWorkThread loop_{"netcomm-loop"};
};

}  // namespace BusinessCommon
