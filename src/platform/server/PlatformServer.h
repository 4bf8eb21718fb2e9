#pragma once
// The reference platform: REST interface, push link, and the state behind them, served from a fixture.
// Start and Stop run on the thread of the Qt event loop that carries the push link.

#include <memory>
#include <string>
#include <thread>

#include "platform/server/PlatformContext.h"
#include "platform/server/PlatformOptions.h"
#include "platform/server/http/Router.h"

namespace Platform {

class CHttpServer;
class CPushHub;
class CQtScheduler;
class CRestGateway;

class CPlatformServer {
public:
    explicit CPlatformServer(PlatformOptions options);
    ~CPlatformServer();
    CPlatformServer(const CPlatformServer&) = delete;
    CPlatformServer& operator=(const CPlatformServer&) = delete;

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

private:
    void RegisterRoutes();

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
