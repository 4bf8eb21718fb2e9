#pragma once
// The object stores behind the platform's storage: one child process per served store (see StoragePlan),
// started together, stopped on shutdown, and switched by the control interface (stopped with their port
// kept, restarted with other keys, reset to the fixture's state). Each store keeps its objects in a
// directory of its own under "<storage dir>/run-<pid>-<random>/", which goes away with the platform.
//
// Launch, WaitReady and Stop run on the thread that starts and stops the platform while nothing else uses
// the stores; the other calls may come from any thread while the platform serves.

#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "framework/base/NonCopyable.h"
#include "framework/base/UniqueFd.h"
#include "platform/server/fixture/Fixture.h"
#include "platform/server/storage/ObjectProbe.h"
#include "platform/server/storage/StoragePlan.h"
#include "platform/server/storage/StoreProcess.h"

namespace Platform {

struct ObjectStoreOptions {
    StoreLauncher launcher;
    std::string storageDir;
    std::string fallbackAddress = "127.0.0.1";  ///< where the local cloud storage listens without ServerIp
    bool anyPorts = false;                      ///< every store on a free port instead of the fixture's
    std::chrono::milliseconds readyTimeout = std::chrono::seconds(10);
};

/// One store as the control interface shows it.
struct StoreState {
    PlannedStore planned;  ///< with the fixture's keys (what the platform hands out)
    int port = 0;          ///< where it listens (kept while it is stopped)
    bool running = false;
    std::string accessKey;  ///< the keys the store accepts now
    std::string secretKey;
    std::string dataDir;
    std::string logPath;

    std::string Url() const;
};

class CObjectStores : private Tal::Base::CNonCopyable {
public:
    enum class Control { kDone, kUnknownStore, kFailed };

    CObjectStores(Fixture& fixture, ObjectStoreOptions options);
    ~CObjectStores();

    /// Works out the stores and starts their programs; they get ready while the platform starts the rest.
    /// False with a reason; nothing is left running then.
    bool Launch(std::string& error);
    /// Waits until every store listens, then writes where into the fixture (local cloud storage ports,
    /// storage servers' object ports, the port of every media address in a served store). False with a
    /// reason; nothing is left running then.
    bool WaitReady(std::string& error);
    /// Stops every store and removes their objects.
    void Stop();

    std::vector<StoreState> Snapshot() const;
    const std::vector<UnservedStorage>& NotServed() const { return plan_.notServed; }
    const StoragePlan& Plan() const { return plan_; }
    /// Where a store listens and the keys it accepts now; false for an unknown store.
    bool Endpoint(const std::string& name, StoreEndpoint& endpoint) const;
    /// The store that holds the pool of `url` (the one on the address's port when several do); empty when
    /// no served store has that pool.
    std::string Locate(const ObjectUrl& url) const;
    /// The media cache directory below the storage directory.
    std::string MediaCacheDir() const;

    /// Stops (its port stays taken) or starts a store again on its port.
    Control SetRunning(const std::string& name, bool running, std::string& error);
    /// Restarts a store with other keys; the platform keeps handing out the fixture's.
    Control SetKeys(const std::string& name, const std::string& accessKey, const std::string& secretKey,
                    std::string& error);
    /// Every store running with the fixture's keys again.
    bool Reset(std::string& error);

private:
    struct Slot;

    Slot* FindSlot(const std::string& name) const;
    /// Both with the slot's operation lock held.
    bool StartSlot(Slot& slot, const std::string& accessKey, const std::string& secretKey,
                   std::string& error);
    void StopSlot(Slot& slot);
    void WritePortsIntoFixture();
    void StopAll();

    Fixture& fixture_;
    ObjectStoreOptions options_;
    StoragePlan plan_;
    std::string runDir_;
    Tal::Base::CUniqueFd runLock_;  ///< held while this platform owns runDir_
    std::vector<std::unique_ptr<Slot>> slots_;
    mutable std::mutex mutex_;  ///< guards the slots' port, running flag and keys
};

}  // namespace Platform
