#pragma once
// One S3-compatible object store, run as a child process: `node s3rver.js` (scripts/objectstore). The store
// listens once it prints "READY {"port":N,...}"; it ends when its standard input closes, so the write end of
// that pipe is kept here for as long as the store should live, and a store never outlives the platform.

#include <sys/types.h>

#include <chrono>
#include <string>
#include <vector>

#include "framework/base/NonCopyable.h"
#include "framework/base/UniqueFd.h"

namespace Platform {

/// How a store is started: the node program (looked up on PATH without a slash) and the launcher script.
struct StoreLauncher {
    std::string node = "node";
    std::string script;
};

struct StoreProcessConfig {
    std::string name;  ///< for messages: "local" or a storage server id
    std::string address;
    int port = 0;  ///< 0: any free port
    std::string accessKey;
    std::string secretKey;
    std::vector<std::string> buckets;
    std::string dataDir;
    std::string logPath;  ///< the store's stderr
};

class CStoreProcess : private Tal::Base::CNonCopyable {
public:
    CStoreProcess(StoreLauncher launcher, StoreProcessConfig config);
    ~CStoreProcess();

    /// Starts the program. False with a reason when it cannot be run.
    bool Spawn(std::string& error);
    /// Waits for READY until `deadline`. False with a reason (and what to do about it) when the store ended
    /// or stayed silent; the process is stopped then.
    bool WaitReady(std::chrono::steady_clock::time_point deadline, std::string& error);
    /// Asks the store to end (SIGTERM); Reap waits for it.
    void Terminate();
    /// Waits for the end until `deadline`, then kills it (SIGKILL).
    void Reap(std::chrono::steady_clock::time_point deadline);
    /// Terminate and Reap with a grace of `grace`.
    void Stop(std::chrono::milliseconds grace = std::chrono::milliseconds(3000));

    /// Still running (it may have died since it was started).
    bool Running();
    /// The port it listens on, once ready.
    int Port() const { return port_; }
    const StoreProcessConfig& Config() const { return config_; }

private:
    /// The line of the store's log that says why it ended.
    std::string LogReason() const;
    std::string ExitReason(int status) const;

    StoreLauncher launcher_;
    StoreProcessConfig config_;
    pid_t pid_ = -1;
    int exitStatus_ = -1;         ///< waitpid status once reaped
    Tal::Base::CUniqueFd stdin_;  ///< the store lives while this is open
    Tal::Base::CUniqueFd stdout_;
    std::string output_;
    int port_ = 0;
};

}  // namespace Platform
