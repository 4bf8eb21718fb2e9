#include "platform/server/PlatformServer.h"

#include <csignal>
#include <cstdio>
#include <filesystem>

#include "framework/base/FileSystem.h"
#include "framework/base/FormatLog.h"
#include "platform/server/handlers/Routes.h"
#include "platform/server/http/HttpServer.h"
#include "platform/server/http/RestGateway.h"
#include "platform/server/push/PushHub.h"
#include "platform/server/push/QtScheduler.h"
#include "platform/server/sim/speakers/SpeakerSim.h"
#include "platform/server/sim/streaming/StreamingServer.h"
#include "platform/server/storage/MediaCache.h"
#include "platform/server/storage/ObjectStores.h"

namespace Platform {

namespace {

// Host part of a Host header: "127.0.0.1:18650" -> "127.0.0.1", "[::1]:18650" -> "[::1]".
std::string HostPart(const std::string& header) {
    if (!header.empty() && header[0] == '[') {
        size_t close = header.find(']');
        return close == std::string::npos ? header : header.substr(0, close + 1);
    }
    size_t colon = header.find(':');
    return colon == std::string::npos ? header : header.substr(0, colon);
}

std::string QueryOf(const std::string& target) {
    size_t mark = target.find('?');
    return mark == std::string::npos ? std::string() : target.substr(mark + 1);
}

std::string UrlHost(const std::string& address) {
    if (address == "0.0.0.0") {
        return "127.0.0.1";
    }
    return address.find(':') != std::string::npos ? "[" + address + "]" : address;
}

// The gateway's view of an HTTP request.
RestRequest ToRestRequest(const httplib::Request& req) {
    RestRequest r;
    r.method = req.method;
    r.path = req.path;
    r.query = QueryOf(req.target);
    for (const auto& p : req.params) {
        r.params.emplace(p.first, p.second);
    }
    r.body = CHttpServer::Body(req);
    r.remote = req.remote_addr + ":" + std::to_string(req.remote_port);
    r.host = HostPart(req.get_header_value("Host"));
    r.authorization = req.get_header_value("Authorization");
    return r;
}

}  // namespace

CPlatformServer::CPlatformServer(PlatformOptions options) : options_(std::move(options)) {}

CPlatformServer::~CPlatformServer() {
    Stop();
    if (scheduler_) {
        scheduler_->Shutdown();
    }
}

bool CPlatformServer::Start(std::string& error) {
    if (options_.speakerDir.empty()) {
        options_.speakerDir = DefaultSpeakerDir();
    }
    if (!ResolveFixturePath(error) || !LoadFixture(fixturePath_, fixture_, error) || !LaunchStores(error)) {
        return false;
    }
    registry_ = std::make_unique<CBroadcastRegistry>(fixture_.secureEncryptType);
    if (!options_.requestLogPath.empty() && !requests_.OpenFile(options_.requestLogPath, error)) {
        return false;
    }
    if (!StartSite(error)) {
        return false;
    }
    context_ = std::make_unique<PlatformContext>(PlatformContext{fixture_, sessions_, *registry_, requests_,
                                                                 oplog_, faults_, *site_, *hub_, stop_,
                                                                 options_.listenAddress, stores_.get()});
    RegisterRoutes();
    gateway_ = std::make_unique<CRestGateway>(api_, control_, *context_);
    if (!StartRest(error)) {
        StopSite();
        return false;
    }
    httpThread_ = std::thread([this] { http_->listen_after_bind(); });
    running_ = true;
    TAL_LOG(Tal::Base::kLogInfo, "Platform",
            "[%s]serving %s (%d elements, %d devices) at %s, push at %s[%s(%d)]", fixturePath_.c_str(),
            static_cast<int>(fixture_.elements.size()), static_cast<int>(fixture_.devices.size()),
            RestUrl().c_str(), PushUrl().c_str());
    return true;
}

bool CPlatformServer::ResolveFixturePath(std::string& error) {
    fixturePath_ = options_.fixturePath;
    if (!fixturePath_.empty()) {
        return true;
    }
    std::string tried;
    for (const std::string& candidate : DefaultFixtureCandidates()) {
        tried += (tried.empty() ? "" : ", ") + candidate;
        if (Tal::Base::FileSystem::FileExists(candidate)) {
            fixturePath_ = candidate;
            return true;
        }
    }
    error = "no fixture given and none found at " + tried;
    return false;
}

bool CPlatformServer::StartSite(std::string& error) {
    hub_ = std::make_unique<CPushHub>(sessions_);
    if (!options_.tlsCert.empty() && !hub_->EnableTls(options_.tlsCert, options_.tlsKey, error)) {
        return false;
    }
    if (!hub_->Listen(options_.listenAddress, static_cast<uint16_t>(options_.EffectivePushPort()), error)) {
        hub_.reset();
        stores_.reset();
        return false;
    }
    scheduler_ = std::make_unique<CQtScheduler>();
    SiteOptions site;
    site.speakerDir = options_.speakerDir;
    site.bindAddress = options_.listenAddress;
    site.anyPorts = options_.anySimPorts;
    site.peers = options_.simPeers;
    site_ = std::make_unique<CSimulatedSite>(fixture_, *registry_, *hub_, *scheduler_, site);
    // The peers' ports go into the fixture before anything is served from it.
    if (!site_->Start(error)) {
        scheduler_->Shutdown();
        hub_->Stop();
        stores_.reset();
        return false;
    }
    // The stores' ports and the stored media go into the fixture before anything is served from it.
    if (!FinishStores(error)) {
        StopSite();
        return false;
    }
    return true;
}

void CPlatformServer::StopSite() {
    scheduler_->Shutdown();
    site_->Stop();
    hub_->Stop();
    stores_.reset();
}

bool CPlatformServer::StartRest(std::string& error) {
    http_ = std::make_unique<CHttpServer>(options_.workerThreads);
    if (!options_.tlsCert.empty() && !http_->EnableTls(options_.tlsCert, options_.tlsKey, error)) {
        return false;
    }
    auto serve = [this](const httplib::Request& req, httplib::Response& res) {
        RestRequest request = ToRestRequest(req);
        RestResponse response = gateway_->Handle(request);
        res.status = response.status;
        res.set_content(response.body, response.contentType.c_str());
    };
    http_->Get(".*", serve);
    http_->Post(".*", serve);
    http_->Put(".*", serve);
    http_->Delete(".*", serve);
    http_->Patch(".*", serve);
    http_->Options(".*", serve);
    // Writes to a peer that went away must fail with EPIPE, not end the program.
    std::signal(SIGPIPE, SIG_IGN);
    if (options_.listenPort == 0) {
        restPort_ = http_->bind_to_any_port(options_.listenAddress);
    } else {
        restPort_ =
            http_->bind_to_port(options_.listenAddress, options_.listenPort) ? options_.listenPort : -1;
    }
    if (restPort_ <= 0) {
        error = "cannot listen on " + options_.listenAddress + ":" + std::to_string(options_.listenPort);
        return false;
    }
    return true;
}

bool CPlatformServer::LaunchStores(std::string& error) {
    if (!options_.objectStores || !options_.simPeers) {
        return true;
    }
    ObjectStoreOptions stores;
    stores.launcher.node = options_.nodeProgram;
    std::error_code ec;
    const std::filesystem::path script = std::filesystem::absolute(options_.objectStoreScript, ec);
    stores.launcher.script = ec ? options_.objectStoreScript : script.string();
    stores.storageDir = options_.storageDir;
    stores.fallbackAddress = options_.listenAddress;
    stores.anyPorts = options_.anySimPorts;
    stores_ = std::make_unique<CObjectStores>(fixture_, stores);
    if (!stores_->Launch(error)) {
        stores_.reset();
        return false;
    }
    return true;
}

bool CPlatformServer::FinishStores(std::string& error) {
    if (!stores_) {
        return true;
    }
    if (!stores_->WaitReady(error)) {
        return false;
    }
    CMediaCache cache(stores_->MediaCacheDir());
    return StockMediaLibrary(fixture_, *stores_, cache, media_, error);
}

std::vector<std::string> CPlatformServer::ObjectStoreLines() const {
    std::vector<std::string> lines;
    if (!stores_) {
        return lines;
    }
    for (const StoreState& s : stores_->Snapshot()) {
        std::string pools;
        for (const std::string& pool : s.planned.pools) {
            pools += (pools.empty() ? "" : ", ") + pool;
        }
        lines.push_back(s.planned.name + " on " + s.Url() + " (pools " + pools + ")");
    }
    return lines;
}

std::string CPlatformServer::MediaLine() const {
    if (!stores_) {
        return std::string();
    }
    char seconds[32];
    std::snprintf(seconds, sizeof(seconds), "%.2f", media_.seconds);
    std::string line = std::to_string(media_.stored) + " files stored (" + std::to_string(media_.fromCache) +
                       " from the cache " + stores_->MediaCacheDir() + ") in " + seconds + " s";
    if (media_.unserved > 0) {
        line += "; " + std::to_string(media_.unserved) + " on storage that is not served";
    }
    return line;
}

void CPlatformServer::RegisterRoutes() {
    AddSessionRoutes(api_, *context_);
    AddTerminalRoutes(api_, *context_);
    AddMediaRoutes(api_, *context_);
    AddConfigRoutes(api_, *context_);
    AddRealtimeRoutes(api_, *context_);
    AddRecordRoutes(api_, *context_);
    AddResourceRoutes(api_, *context_);
    AddDeviceBroadcastRoutes(api_, *context_);
    AddOplogRoutes(api_, *context_);
    AddVoiceTalkRoutes(api_, *context_);
    if (options_.control) {
        AddControlRoutes(control_, *context_);
    }
}

void CPlatformServer::Stop() {
    if (!running_) {
        return;
    }
    running_ = false;
    stop_.Stop();
    http_->stop();
    if (httpThread_.joinable()) {
        httpThread_.join();
    }
    // Pending timers use the speakers, and the speakers publish to the hub: timers go first, the hub last.
    scheduler_->Shutdown();
    site_->Stop();
    hub_->Stop();
    if (stores_) {
        stores_->Stop();
    }
    TAL_LOG(Tal::Base::kLogInfo, "Platform", "[%s]stopped[%s(%d)]");
}

std::string CPlatformServer::RestUrl() const {
    return std::string(options_.tlsCert.empty() ? "http://" : "https://") + UrlHost(options_.listenAddress) +
           ":" + std::to_string(restPort_);
}

std::string CPlatformServer::StreamingUrl() const {
    if (!site_ || site_->Streaming() == nullptr) {
        return std::string();
    }
    return "rtsp://" + UrlHost(options_.listenAddress) + ":" + std::to_string(site_->Streaming()->Port());
}

std::string CPlatformServer::PushUrl() const {
    if (!hub_) {
        return std::string();
    }
    return std::string(hub_->IsTls() ? "wss://" : "ws://") + UrlHost(options_.listenAddress) + ":" +
           std::to_string(hub_->Port()) + kPushPath;
}

}  // namespace Platform
