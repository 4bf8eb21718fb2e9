#include "platform/server/PlatformOptions.h"

#include <cerrno>
#include <climits>
#include <cstdlib>

#include <unistd.h>

#include "framework/base/FileSystem.h"

namespace Platform {

namespace {

bool ParseInt(const std::string& text, long low, long high, int& value) {
    char* end = nullptr;
    errno = 0;
    long v = std::strtol(text.c_str(), &end, 10);
    if (text.empty() || errno != 0 || end == nullptr || *end != '\0' || v < low || v > high) {
        return false;
    }
    value = static_cast<int>(v);
    return true;
}

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

bool ParseCommandLine(const std::vector<std::string>& args, PlatformOptions& options, std::string& error) {
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& flag = args[i];
        if (flag == "-h" || flag == "--help") {
            options.help = true;
            continue;
        }
        if (flag == "--no-control") {
            options.control = false;
            continue;
        }
        if (flag == "--no-peers") {
            options.simPeers = false;
            continue;
        }
        if (i + 1 >= args.size()) {
            error = flag.rfind("--", 0) == 0 ? "missing value after " + flag : "unexpected argument " + flag;
            return false;
        }
        const std::string& value = args[++i];
        if (flag == "--fixture") {
            options.fixturePath = value;
        } else if (flag == "--listen") {
            if (!ParseListen(value, options.listenAddress, options.listenPort)) {
                error = "--listen wants ADDR:PORT (port 0..65535), got " + value;
                return false;
            }
        } else if (flag == "--push-port") {
            if (!ParseInt(value, 0, 65535, options.pushPort)) {
                error = "--push-port wants 0..65535, got " + value;
                return false;
            }
        } else if (flag == "--tls-cert") {
            options.tlsCert = value;
        } else if (flag == "--tls-key") {
            options.tlsKey = value;
        } else if (flag == "--log-level") {
            if (!ParseInt(value, 1, 6, options.logLevel)) {
                error = "--log-level wants 1..6, got " + value;
                return false;
            }
        } else if (flag == "--request-log") {
            options.requestLogPath = value;
        } else if (flag == "--speaker-dir") {
            if (value.empty()) {
                error = "--speaker-dir wants a directory";
                return false;
            }
            options.speakerDir = value;
        } else if (flag == "--object-store") {
            if (value != "auto" && value != "off") {
                error = "--object-store wants auto or off, got " + value;
                return false;
            }
            options.objectStores = value == "auto";
        } else if (flag == "--storage-dir") {
            if (value.empty()) {
                error = "--storage-dir wants a directory";
                return false;
            }
            options.storageDir = value;
        } else if (flag == "--node") {
            if (value.empty()) {
                error = "--node wants a program";
                return false;
            }
            options.nodeProgram = value;
        } else if (flag == "--object-store-script") {
            if (value.empty()) {
                error = "--object-store-script wants a file";
                return false;
            }
            options.objectStoreScript = value;
        } else if (flag == "--sim-ports") {
            if (value != "fixture" && value != "any") {
                error = "--sim-ports wants fixture or any, got " + value;
                return false;
            }
            options.anySimPorts = value == "any";
        } else if (flag == "--threads") {
            int threads = 0;
            if (!ParseInt(value, 2, 256, threads)) {
                error = "--threads wants 2..256, got " + value;
                return false;
            }
            options.workerThreads = static_cast<size_t>(threads);
        } else {
            error = "unknown option " + flag;
            return false;
        }
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
    return "usage: bcast-platform [--fixture FILE] [--listen ADDR:PORT] [--push-port N]\n"
           "                      [--tls-cert FILE --tls-key FILE] [--log-level N] [--request-log FILE]\n"
           "                      [--threads N] [--no-control] [--speaker-dir DIR]\n"
           "                      [--sim-ports fixture|any] [--no-peers] [--object-store auto|off]\n"
           "                      [--storage-dir DIR] [--node PROGRAM] [--object-store-script FILE]\n"
           "  --fixture FILE      the site to serve (default: fixtures/demo-site.json in the current "
           "directory,\n"
           "                      else in the installed share/bcast, else in the source tree)\n"
           "  --listen ADDR:PORT  REST address (default 127.0.0.1:18650; port 0 picks a free one)\n"
           "  --push-port N       websocket push port (default: REST port + 1; 0 picks a free one)\n"
           "  --tls-cert/--tls-key  serve https and wss with this PEM certificate chain and key\n"
           "  --log-level N       stderr log threshold, 1 trace .. 6 fatal (default 3)\n"
           "  --request-log FILE  also append every request as a JSON line to FILE\n"
           "  --threads N         REST worker threads (default 16)\n"
           "  --no-control        do not serve the /_control/ interface (faults, logs, reset)\n"
           "  --speaker-dir DIR   where each simulated speaker writes <element id>.wav (default:\n"
           "                      $TMPDIR or /tmp, bcast-platform-speakers-<uid>)\n"
           "  --sim-ports P       fixture: the streaming server, devices and UDP speakers listen on the\n"
           "                      fixture's ports (default); any: on free ports, which the platform hands "
           "out\n"
           "  --no-peers          simulate the speakers only: no streaming server, devices, UDP sockets or\n"
           "                      object stores\n"
           "  --object-store M    auto: run an object store for the local cloud storage and each local\n"
           "                      storage server, holding the media library (default); off: none, the\n"
           "                      storage answers keep the fixture's addresses\n"
           "  --storage-dir DIR   the stores' objects (per run) and the media cache (default: $TMPDIR or\n"
           "                      /tmp, bcast-platform-storage-<uid>)\n"
           "  --node PROGRAM      the Node.js program that runs the stores (default: node on PATH)\n"
           "  --object-store-script FILE  the stores' launcher (default: scripts/objectstore/s3rver.js in\n"
           "                      the current directory, else share/bcast/objectstore/s3rver.js of the\n"
           "                      installation, else in the source tree)\n";
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
