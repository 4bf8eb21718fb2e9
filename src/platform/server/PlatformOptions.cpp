#include "platform/server/PlatformOptions.h"

#include <cerrno>
#include <climits>
#include <cstdlib>

#include <unistd.h>

#include <CLI/CLI.hpp>

#include "framework/base/FileSystem.h"
#include "platform/server/ParseInt.h"

namespace Platform {

namespace {

// "ADDR:PORT", "[v6]:PORT" or "PORT".
bool ParseListen(const std::string& text, std::string& address, int& port) {
    size_t colon = text.rfind(':');
    if (colon == std::string::npos) {
        return ParseInt(text, 0, 65535, port);
    }
    std::string host = text.substr(0, colon);
    if (host.size() >= 2 && host.front() == '[' && host.back() == ']') {
        host = host.substr(1, host.size() - 2);
    }
    if (host.empty() || !ParseInt(text.substr(colon + 1), 0, 65535, port)) {
        return false;
    }
    address = host;
    return true;
}

}  // namespace

int PlatformOptions::EffectivePushPort() const {
    if (pushPort >= 0) {
        return pushPort;
    }
    return listenPort == 0 ? 0 : listenPort + 1;
}

namespace {

// The parser of the command line; values that need more than a type are kept as text and checked after.
struct ParsedText {
    std::string listen;
    std::string pushPort;
    std::string logLevel;
    std::string threads;
    std::string simPorts;
    std::string objectStore;
};

void DefineOptions(CLI::App& app, PlatformOptions& options, ParsedText& text) {
    app.allow_extras();
    app.add_flag("--version", options.version, "print the version and exit");
    app.add_option("--fixture", options.fixturePath,
                   "the site to serve (default: fixtures/demo-site.json in the current directory, else in "
                   "share/bcast of the installation, else in the source tree)")
        ->type_name("FILE");
    app.add_option("--listen", text.listen, "REST address (default 127.0.0.1:18650; port 0 picks a free one)")
        ->type_name("ADDR:PORT");
    app.add_option("--push-port", text.pushPort,
                   "websocket push port (default: REST port + 1; 0 picks a free one)")
        ->type_name("N");
    app.add_option("--tls-cert", options.tlsCert, "serve https and wss with this PEM certificate chain")
        ->type_name("FILE");
    app.add_option("--tls-key", options.tlsKey, "the key of --tls-cert")->type_name("FILE");
    app.add_option("--log-level", text.logLevel, "stderr log threshold, 1 trace .. 6 fatal (default 3)")
        ->type_name("N");
    app.add_option("--request-log", options.requestLogPath,
                   "also append every request as a JSON line to FILE")
        ->type_name("FILE");
    app.add_option("--threads", text.threads, "REST worker threads (default 16)")->type_name("N");
    app.add_flag("--no-control", "do not serve the /_control/ interface (faults, logs, reset)");
    app.add_option("--speaker-dir", options.speakerDir,
                   "where each simulated speaker writes <element id>.wav (default: $TMPDIR or /tmp, "
                   "bcast-platform-speakers-<uid>)")
        ->type_name("DIR");
    app.add_option("--sim-ports", text.simPorts,
                   "fixture: the streaming server, devices and UDP speakers listen on the fixture's ports "
                   "(default); any: on free ports, which the platform hands out")
        ->type_name("fixture|any");
    app.add_flag("--no-peers",
                 "simulate the speakers only: no streaming server, devices, UDP sockets or object stores");
    app.add_option("--object-store", text.objectStore,
                   "auto: run an object store for the local cloud storage and each local storage server, "
                   "holding the media library (default); off: none, the storage answers keep the fixture's "
                   "addresses")
        ->type_name("auto|off");
    app.add_option("--storage-dir", options.storageDir,
                   "the stores' objects (per run) and the media cache (default: $TMPDIR or /tmp, "
                   "bcast-platform-storage-<uid>)")
        ->type_name("DIR");
    app.add_option("--node", options.nodeProgram,
                   "the Node.js program that runs the stores (default: node on PATH)")
        ->type_name("PROGRAM");
    app.add_option("--object-store-script", options.objectStoreScript,
                   "the stores' launcher (default: scripts/objectstore/s3rver.js in the current directory, "
                   "else share/bcast/objectstore/s3rver.js of the installation, else in the source tree)")
        ->type_name("FILE");
    app.footer(
        "exit codes: 0 stopped by SIGINT or SIGTERM, 1 the server could not start, 2 bad command line");
}

CLI::App MakeParser() {
    return CLI::App(
        "bcast-platform: the reference platform server. Serves the REST interface and the push "
        "link of a site described by a fixture file until SIGINT or SIGTERM.",
        "bcast-platform");
}

}  // namespace

// An option given with an empty value: "<name> wants <what>".
bool RequireValue(const CLI::App& app, const char* name, const std::string& value, const char* what,
                  std::string& error) {
    if (app.count(name) > 0 && value.empty()) {
        error = std::string(name) + " wants " + what;
        return false;
    }
    return true;
}

// An option of two words; `target` says whether it is the first.
bool ReadChoice(const CLI::App& app, const char* name, const std::string& value, const char* first,
                const char* second, bool& target, std::string& error) {
    if (app.count(name) == 0) {
        return true;
    }
    if (value != first && value != second) {
        error = std::string(name) + " wants " + first + " or " + second + ", got " + value;
        return false;
    }
    target = value == first;
    return true;
}

// An integer option within [low, high].
bool ReadNumber(const CLI::App& app, const char* name, const std::string& value, int low, int high,
                int& target, std::string& error) {
    if (app.count(name) > 0 && !ParseInt(value, low, high, target)) {
        error = std::string(name) + " wants " + std::to_string(low) + ".." + std::to_string(high) + ", got " +
                value;
        return false;
    }
    return true;
}

// The values of the options given, in the order they are checked; the first wrong one is the error.
bool CheckValues(const CLI::App& app, const ParsedText& text, PlatformOptions& options, std::string& error) {
    if (app.count("--listen") > 0 && !ParseListen(text.listen, options.listenAddress, options.listenPort)) {
        error = "--listen wants ADDR:PORT (port 0..65535), got " + text.listen;
        return false;
    }
    bool fixturePorts = !options.anySimPorts;
    int threads = static_cast<int>(options.workerThreads);
    const bool valid =
        ReadNumber(app, "--push-port", text.pushPort, 0, 65535, options.pushPort, error) &&
        ReadNumber(app, "--log-level", text.logLevel, 1, 6, options.logLevel, error) &&
        RequireValue(app, "--speaker-dir", options.speakerDir, "a directory", error) &&
        ReadChoice(app, "--object-store", text.objectStore, "auto", "off", options.objectStores, error) &&
        RequireValue(app, "--storage-dir", options.storageDir, "a directory", error) &&
        RequireValue(app, "--node", options.nodeProgram, "a program", error) &&
        RequireValue(app, "--object-store-script", options.objectStoreScript, "a file", error) &&
        ReadChoice(app, "--sim-ports", text.simPorts, "fixture", "any", fixturePorts, error) &&
        ReadNumber(app, "--threads", text.threads, 2, 256, threads, error);
    if (valid) {
        options.anySimPorts = !fixturePorts;
        options.workerThreads = static_cast<size_t>(threads);
    }
    return valid;
}

bool ParseCommandLine(const std::vector<std::string>& args, PlatformOptions& options, std::string& error) {
    CLI::App app = MakeParser();
    ParsedText text;
    DefineOptions(app, options, text);
    // CLI11 takes a vector of arguments last first.
    std::vector<std::string> reversed(args.rbegin(), args.rend());
    try {
        app.parse(reversed);
    } catch (const CLI::CallForHelp&) {
        options.help = true;
        return true;
    } catch (const CLI::ParseError& e) {
        error = e.what();
        return false;
    }
    for (const std::string& extra : app.remaining()) {
        error = extra.rfind("-", 0) == 0 ? "unknown option " + extra : "unexpected argument " + extra;
        return false;
    }
    options.control = app.count("--no-control") == 0;
    options.simPeers = app.count("--no-peers") == 0;
    if (!CheckValues(app, text, options, error)) {
        return false;
    }
    if (options.tlsCert.empty() != options.tlsKey.empty()) {
        error = "--tls-cert and --tls-key go together";
        return false;
    }
    if (options.listenPort != 0 && options.EffectivePushPort() == options.listenPort) {
        error = "the push port must differ from the REST port";
        return false;
    }
    if (options.speakerDir.empty()) {
        options.speakerDir = DefaultSpeakerDir();
    }
    if (options.storageDir.empty()) {
        options.storageDir = DefaultStorageDir();
    }
    if (options.objectStoreScript.empty()) {
        options.objectStoreScript = DefaultObjectStoreScript();
    }
    return true;
}

std::string UsageText() {
    PlatformOptions options;
    ParsedText text;
    CLI::App app = MakeParser();
    DefineOptions(app, options, text);
    return app.help();
}

std::string DefaultSpeakerDir() {
    const char* tmp = std::getenv("TMPDIR");
    const std::string base = tmp != nullptr && tmp[0] != '\0' ? tmp : "/tmp";
    return base + "/bcast-platform-speakers-" + std::to_string(::getuid());
}

std::string DefaultStorageDir() {
    const char* tmp = std::getenv("TMPDIR");
    const std::string base = tmp != nullptr && tmp[0] != '\0' ? tmp : "/tmp";
    return base + "/bcast-platform-storage-" + std::to_string(::getuid());
}

namespace {

// share/bcast of the installation the program runs from ("" when unknown).
std::string InstalledDataDir() {
#ifdef BCAST_PLATFORM_DATADIR_FROM_BIN
    char buffer[4096];
    const ssize_t n = ::readlink("/proc/self/exe", buffer, sizeof(buffer) - 1);
    if (n > 0) {
        const std::string exe(buffer, static_cast<size_t>(n));
        return exe.substr(0, exe.rfind('/') + 1) + BCAST_PLATFORM_DATADIR_FROM_BIN + "/";
    }
#endif
    return std::string();
}

}  // namespace

std::string DefaultObjectStoreScript() {
    const std::string relative = "scripts/objectstore/s3rver.js";
    if (Tal::Base::FileSystem::FileExists(relative)) {
        return relative;
    }
    const std::string dataDir = InstalledDataDir();
    if (!dataDir.empty() && Tal::Base::FileSystem::FileExists(dataDir + "objectstore/s3rver.js")) {
        return dataDir + "objectstore/s3rver.js";
    }
#ifdef BCAST_PLATFORM_SOURCE_DIR
    return std::string(BCAST_PLATFORM_SOURCE_DIR) + "/" + relative;
#else
    return relative;
#endif
}

std::vector<std::string> DefaultFixtureCandidates() {
    std::vector<std::string> candidates = {"fixtures/demo-site.json"};
    const std::string dataDir = InstalledDataDir();
    if (!dataDir.empty()) {
        candidates.push_back(dataDir + "fixtures/demo-site.json");
    }
#ifdef BCAST_PLATFORM_SOURCE_DIR
    candidates.push_back(std::string(BCAST_PLATFORM_SOURCE_DIR) + "/fixtures/demo-site.json");
#endif
    return candidates;
}

}  // namespace Platform
