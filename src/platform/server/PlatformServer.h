#pragma once
// The reference platform: REST interface, push link, and the state behind them, served from a fixture.
// Start and Stop run on the thread of the Qt event loop that carries the push link.

#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "framework/base/NonCopyable.h"
#include "platform/server/PlatformContext.h"
#include "platform/server/PlatformOptions.h"
#include "platform/server/http/Router.h"
#include "platform/server/storage/MediaLibrary.h"

namespace Platform {

class CHttpServer;
class CPushHub;
class CQtScheduler;
class CRestGateway;
class CObjectStores;

class CPlatformServer : private Tal::Base::CNonCopyable {
public:
    explicit CPlatformServer(PlatformOptions options);
    ~CPlatformServer();

    /// Loads the fixture and starts listening. False with a reason; nothing is left running then.
    bool Start(std::string& error);
    /// Stops serving; requests in progress finish first, injected delays are cut short.
    void Stop();

    std::string RestUrl() const;
    std::string PushUrl() const;
    /// rtsp://HOST:PORT of the streaming server, empty when the site runs without peers.
    std::string StreamingUrl() const;
    const std::string& SpeakerDir() const { return options_.speakerDir; }
    const std::string& FixturePath() const { return fixturePath_; }
    /// One line per running object store: "local on http://127.0.0.1:18655 (pools broadcast)".
    std::vector<std::string> ObjectStoreLines() const;
    /// What stocking the media library did; empty without object stores.
    std::string MediaLine() const;

private:
    void RegisterRoutes();
    /// The fixture given, or the first default one that exists.
    bool ResolveFixturePath(std::string& error);
    /// Starts the push hub, the simulated site and the object stores' part; stops what it started on failure.
    bool StartSite(std::string& error);
    /// Stops what StartSite started.
    void StopSite();
    /// Binds the REST server to its port; the caller starts its thread.
    bool StartRest(std::string& error);
    /// Starts the object stores' programs (they get ready while the site starts).
    bool LaunchStores(std::string& error);
    /// Waits for the stores and puts the media library into them.
    bool FinishStores(std::string& error);

    PlatformOptions options_;
    std::string fixturePath_;
    Fixture fixture_;
    CSessionStore sessions_;
    std::unique_ptr<CBroadcastRegistry> registry_;
    CRequestLog requests_;
    COperationLog oplog_;
    CFaultInjector faults_;
    CStopSignal stop_;
    std::unique_ptr<CPushHub> hub_;
    std::unique_ptr<CQtScheduler> scheduler_;
    std::unique_ptr<CSimulatedSite> site_;
    std::unique_ptr<CObjectStores> stores_;  ///< null with --object-store off or --no-peers
    MediaStockReport media_;
    std::unique_ptr<PlatformContext> context_;
    CRouter api_;
    CRouter control_;
    std::unique_ptr<CRestGateway> gateway_;
    std::unique_ptr<CHttpServer> http_;
    std::thread httpThread_;
    int restPort_ = 0;
    bool running_ = false;
};

}  // namespace Platform
