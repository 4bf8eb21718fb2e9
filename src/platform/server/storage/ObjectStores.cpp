#include "platform/server/storage/ObjectStores.h"

#include <curl/curl.h>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>

#include "framework/base/FormatLog.h"
#include "platform/server/storage/PortHold.h"

namespace Platform {

namespace fs = std::filesystem;

namespace {

constexpr char kRunPrefix[] = "run-";

constexpr char kRunLock[] = ".lock";

// Run directories of platforms that ended without cleaning up (killed) are removed. A running platform
// holds the lock of its run directory (flock works across process namespaces, where pids say nothing).
void RemoveStaleRuns(const std::string& storageDir) {
    std::error_code ec;
    fs::directory_iterator it(storageDir, ec);
    for (; !ec && it != fs::directory_iterator(); it.increment(ec)) {
        if (it->path().filename().string().rfind(kRunPrefix, 0) != 0) {
            continue;
        }
        Tal::Base::CUniqueFd lock(::open((it->path() / kRunLock).c_str(), O_RDWR | O_CLOEXEC));
        if (lock.Valid() && ::flock(lock.Get(), LOCK_EX | LOCK_NB) == 0) {
            std::error_code ignored;
            fs::remove_all(it->path(), ignored);
        }
    }
}

std::string UrlHost(const std::string& address) {
    return address.find(':') != std::string::npos ? "[" + address + "]" : address;
}

}  // namespace

std::string StoreState::Url() const {
    return "http://" + UrlHost(planned.address) + ":" + std::to_string(port);
}

struct CObjectStores::Slot {
    PlannedStore planned;
    std::string dataDir;
    std::string logPath;
    /// Serialises the starts and stops of this store; held while a restarted store gets ready.
    std::mutex operation;
    std::unique_ptr<CStoreProcess> process;  ///< with `operation` held
    CPortHold hold;                          ///< with `operation` held: the port while it is stopped
    // With CObjectStores::mutex_ held:
    int port = 0;
    bool running = false;
    std::string accessKey;
    std::string secretKey;
};

CObjectStores::CObjectStores(Fixture& fixture, ObjectStoreOptions options)
    : fixture_(fixture), options_(std::move(options)) {
    // Before any thread uses libcurl (the probes and the object client).
    curl_global_init(CURL_GLOBAL_DEFAULT);
}

CObjectStores::~CObjectStores() {
    Stop();
    curl_global_cleanup();
}

bool CObjectStores::Launch(std::string& error) {
    if (!PlanStorage(fixture_, options_.fallbackAddress, plan_, error)) {
        return false;
    }
    std::error_code ec;
    fs::create_directories(options_.storageDir, ec);
    if (ec) {
        error = "cannot create the storage directory " + options_.storageDir + ": " + ec.message();
        return false;
    }
    RemoveStaleRuns(options_.storageDir);
    std::string pattern =
        (fs::path(options_.storageDir) / (kRunPrefix + std::to_string(::getpid()) + "-XXXXXX")).string();
    runDir_ = ::mkdtemp(&pattern[0]) != nullptr ? pattern : std::string();
    runLock_.Reset(runDir_.empty()
                       ? -1
                       : ::open((fs::path(runDir_) / kRunLock).c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    if (!runLock_.Valid() || ::flock(runLock_.Get(), LOCK_EX | LOCK_NB) != 0) {
        error = "cannot set up a directory for the object stores in " + options_.storageDir;
        runLock_.Reset();
        return false;
    }
    for (const PlannedStore& planned : plan_.stores) {
        auto slot = std::make_unique<Slot>();
        slot->planned = planned;
        slot->dataDir = (fs::path(runDir_) / planned.name).string();
        slot->logPath = (fs::path(runDir_) / (planned.name + ".log")).string();
        slot->accessKey = planned.accessKey;
        slot->secretKey = planned.secretKey;
        fs::create_directories(slot->dataDir, ec);
        if (ec) {
            error = "cannot create " + slot->dataDir + ": " + ec.message();
            StopAll();
            return false;
        }
        StoreProcessConfig config;
        config.name = planned.name;
        config.address = planned.address;
        config.port = options_.anyPorts ? 0 : planned.port;
        config.accessKey = planned.accessKey;
        config.secretKey = planned.secretKey;
        config.buckets = planned.pools;
        config.dataDir = slot->dataDir;
        config.logPath = slot->logPath;
        slot->process = std::make_unique<CStoreProcess>(options_.launcher, config);
        if (!slot->process->Spawn(error)) {
            slots_.push_back(std::move(slot));
            StopAll();
            return false;
        }
        slots_.push_back(std::move(slot));
    }
    return true;
}

bool CObjectStores::WaitReady(std::string& error) {
    const auto deadline = std::chrono::steady_clock::now() + options_.readyTimeout;
    for (const std::unique_ptr<Slot>& slot : slots_) {
        bool ready = false;
        {
            std::lock_guard<std::mutex> operation(slot->operation);
            ready = slot->process->WaitReady(deadline, error);
            if (ready) {
                std::lock_guard<std::mutex> lock(mutex_);
                slot->port = slot->process->Port();
                slot->running = true;
            }
        }
        if (!ready) {
            if (!options_.anyPorts && slot->planned.port != 0) {
                error += " [" + slot->planned.address + ":" + std::to_string(slot->planned.port) + "]";
            }
            StopAll();
            return false;
        }
    }
    WritePortsIntoFixture();
    for (const std::unique_ptr<Slot>& slot : slots_) {
        TAL_LOG(Tal::Base::kLogInfo, "Platform", "[%s]object store %s listens on %s:%d[%s(%d)]",
                slot->planned.name.c_str(), slot->planned.address.c_str(), slot->port);
    }
    return true;
}

void CObjectStores::WritePortsIntoFixture() {
    for (const std::unique_ptr<Slot>& slot : slots_) {
        if (slot->planned.storageServerId == 0) {
            fixture_.storage.objectUploadPort = slot->port;
            fixture_.storage.objectDownloadPort = slot->port;
        } else {
            for (StorageServer& server : fixture_.storageServers) {
                if (server.id == slot->planned.storageServerId) {
                    server.objectPort = slot->port;
                }
            }
        }
    }
    for (MediaFileEntry& file : fixture_.files) {
        const Slot* slot = FindSlot(StoreNameOf(file, plan_));
        ObjectUrl url;
        if (slot == nullptr || !ParseObjectUrl(file.storeUrl, url)) {
            continue;
        }
        if (url.host.empty()) {
            url.host = UrlHost(slot->planned.address);
        }
        file.storeUrl = WithPort(url, slot->port);
    }
}

void CObjectStores::StopAll() {
    // All at once: each store gets its SIGTERM before the first is waited for.
    for (const std::unique_ptr<Slot>& slot : slots_) {
        std::lock_guard<std::mutex> operation(slot->operation);
        if (slot->process) {
            slot->process->Terminate();
        }
    }
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(3);
    for (const std::unique_ptr<Slot>& slot : slots_) {
        std::lock_guard<std::mutex> operation(slot->operation);
        if (slot->process) {
            slot->process->Reap(deadline);
            slot->process.reset();
        }
        slot->hold.Release();
        std::lock_guard<std::mutex> lock(mutex_);
        slot->running = false;
    }
    slots_.clear();
    if (runLock_.Valid()) {
        std::error_code ec;
        fs::remove_all(runDir_, ec);
        runLock_.Reset();
    }
}

void CObjectStores::Stop() {
    StopAll();
}

std::vector<StoreState> CObjectStores::Snapshot() const {
    std::vector<StoreState> states;
    std::lock_guard<std::mutex> lock(mutex_);
    for (const std::unique_ptr<Slot>& slot : slots_) {
        StoreState s;
        s.planned = slot->planned;
        s.port = slot->port;
        s.running = slot->running;
        s.accessKey = slot->accessKey;
        s.secretKey = slot->secretKey;
        s.dataDir = slot->dataDir;
        s.logPath = slot->logPath;
        states.push_back(s);
    }
    return states;
}

bool CObjectStores::Endpoint(const std::string& name, StoreEndpoint& endpoint) const {
    const Slot* slot = FindSlot(name);
    if (slot == nullptr) {
        return false;
    }
    std::lock_guard<std::mutex> lock(mutex_);
    endpoint.address = slot->planned.address;
    endpoint.port = slot->port;
    endpoint.accessKey = slot->accessKey;
    endpoint.secretKey = slot->secretKey;
    return true;
}

std::string CObjectStores::Locate(const ObjectUrl& url) const {
    std::string first;
    std::lock_guard<std::mutex> lock(mutex_);
    for (const std::unique_ptr<Slot>& slot : slots_) {
        const std::vector<std::string>& pools = slot->planned.pools;
        if (std::find(pools.begin(), pools.end(), url.pool) == pools.end()) {
            continue;
        }
        if (url.port != 0 && url.port == slot->port) {
            return slot->planned.name;
        }
        if (first.empty()) {
            first = slot->planned.name;
        }
    }
    return first;
}

std::string CObjectStores::MediaCacheDir() const {
    return (fs::path(options_.storageDir) / "media-cache").string();
}

CObjectStores::Slot* CObjectStores::FindSlot(const std::string& name) const {
    for (const std::unique_ptr<Slot>& slot : slots_) {
        if (!name.empty() && slot->planned.name == name) {
            return slot.get();
        }
    }
    return nullptr;
}

bool CObjectStores::StartSlot(Slot& slot, const std::string& accessKey, const std::string& secretKey,
                              std::string& error) {
    int port = 0;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        port = slot.port;
    }
    StoreProcessConfig config;
    config.name = slot.planned.name;
    config.address = slot.planned.address;
    config.port = port;
    config.accessKey = accessKey;
    config.secretKey = secretKey;
    config.buckets = slot.planned.pools;
    config.dataDir = slot.dataDir;
    config.logPath = slot.logPath;
    slot.hold.Release();
    slot.process = std::make_unique<CStoreProcess>(options_.launcher, config);
    if (!slot.process->Spawn(error) ||
        !slot.process->WaitReady(std::chrono::steady_clock::now() + options_.readyTimeout, error)) {
        slot.process.reset();
        std::string ignored;
        slot.hold.Take(slot.planned.address, port, ignored);
        return false;
    }
    std::lock_guard<std::mutex> lock(mutex_);
    slot.running = true;
    slot.accessKey = accessKey;
    slot.secretKey = secretKey;
    return true;
}

void CObjectStores::StopSlot(Slot& slot) {
    int port = 0;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        slot.running = false;
        port = slot.port;
    }
    if (slot.process) {
        slot.process->Stop();
        slot.process.reset();
    }
    std::string error;
    if (!slot.hold.Held() && !slot.hold.Take(slot.planned.address, port, error)) {
        TAL_LOG(Tal::Base::kLogWarn, "Platform", "[%s]object store %s stopped; %s[%s(%d)]",
                slot.planned.name.c_str(), error.c_str());
    }
}

CObjectStores::Control CObjectStores::SetRunning(const std::string& name, bool running, std::string& error) {
    Slot* slot = FindSlot(name);
    if (slot == nullptr) {
        return Control::kUnknownStore;
    }
    std::lock_guard<std::mutex> operation(slot->operation);
    if (!running) {
        // Also for a store that ended by itself: its port is then kept too.
        StopSlot(*slot);
        TAL_LOG(Tal::Base::kLogInfo, "Platform",
                "[%s]object store %s stopped by the control interface[%s(%d)]", name.c_str());
        return Control::kDone;
    }
    if (slot->process && slot->process->Running()) {
        return Control::kDone;
    }
    std::string accessKey;
    std::string secretKey;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        accessKey = slot->accessKey;
        secretKey = slot->secretKey;
    }
    return StartSlot(*slot, accessKey, secretKey, error) ? Control::kDone : Control::kFailed;
}

CObjectStores::Control CObjectStores::SetKeys(const std::string& name, const std::string& accessKey,
                                              const std::string& secretKey, std::string& error) {
    Slot* slot = FindSlot(name);
    if (slot == nullptr) {
        return Control::kUnknownStore;
    }
    std::lock_guard<std::mutex> operation(slot->operation);
    StopSlot(*slot);
    if (!StartSlot(*slot, accessKey, secretKey, error)) {
        return Control::kFailed;
    }
    TAL_LOG(Tal::Base::kLogInfo, "Platform", "[%s]object store %s restarted with other keys[%s(%d)]",
            name.c_str());
    return Control::kDone;
}

bool CObjectStores::Reset(std::string& error) {
    bool ok = true;
    for (const std::unique_ptr<Slot>& slot : slots_) {
        std::lock_guard<std::mutex> operation(slot->operation);
        bool fixtureKeys = false;
        {
            std::lock_guard<std::mutex> lock(mutex_);
            fixtureKeys =
                slot->accessKey == slot->planned.accessKey && slot->secretKey == slot->planned.secretKey;
        }
        if (fixtureKeys && slot->process && slot->process->Running()) {
            continue;
        }
        StopSlot(*slot);
        std::string problem;
        if (!StartSlot(*slot, slot->planned.accessKey, slot->planned.secretKey, problem)) {
            error += (error.empty() ? "" : "; ") + problem;
            ok = false;
        }
    }
    return ok;
}

}  // namespace Platform
