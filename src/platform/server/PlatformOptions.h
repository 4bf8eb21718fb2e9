#pragma once
// The platform program's settings and their command line.

#include <cstddef>
#include <string>
#include <vector>

namespace Platform {

constexpr char kDefaultListenAddress[] = "127.0.0.1";
constexpr int kDefaultListenPort = 18650;

struct PlatformOptions {
    std::string fixturePath;  ///< empty: the default fixture (see DefaultFixtureCandidates)
    std::string listenAddress = kDefaultListenAddress;
    int listenPort = kDefaultListenPort;  ///< 0: any free port
    int pushPort = -1;                    ///< -1: listenPort + 1, or any free port when listenPort is 0
    std::string tlsCert;
    std::string tlsKey;
    int logLevel = 3;  ///< log lines at or above this level go to stderr
    std::string requestLogPath;
    size_t workerThreads = 16;
    bool control = true;       ///< serve the /_control/ interface
    std::string speakerDir;    ///< where the simulated speakers write what they play; see DefaultSpeakerDir
    bool anySimPorts = false;  ///< --sim-ports any: simulated peers on free ports, not the fixture's
    bool simPeers = true;      ///< --no-peers: no streaming server, devices, UDP speakers or object stores
    bool objectStores = true;  ///< --object-store auto|off: run the object stores of the fixture's storage
    std::string storageDir;    ///< the stores' objects and the media cache; see DefaultStorageDir
    std::string nodeProgram = "node";  ///< runs the object stores; looked up on PATH without a slash
    std::string objectStoreScript;     ///< the stores' launcher; empty: see DefaultObjectStoreScript
    bool help = false;
    bool version = false;  ///< --version: print the version and exit

    /// The push port to bind.
    int EffectivePushPort() const;
};

/// Reads the arguments after the program name (with CLI11). False with a one-line message on an unknown
/// flag, a missing or bad value. --help sets `help`, --version `version`.
bool ParseCommandLine(const std::vector<std::string>& args, PlatformOptions& options, std::string& error);
/// The --help text: usage, every option with its default, the exit codes.
std::string UsageText();

/// $TMPDIR (or /tmp) /bcast-platform-speakers-<uid>.
std::string DefaultSpeakerDir();

/// $TMPDIR (or /tmp) /bcast-platform-storage-<uid>.
std::string DefaultStorageDir();

/// scripts/objectstore/s3rver.js below the current directory when it is there, else objectstore/s3rver.js in
/// the installed data directory (share/bcast relative to the program), else below the source tree the
/// program was built from.
std::string DefaultObjectStoreScript();

/// Where the default fixture is looked for, in order: fixtures/demo-site.json below the current directory,
/// then below the installed data directory (share/bcast relative to the program), then below the source
/// tree the program was built from.
std::vector<std::string> DefaultFixtureCandidates();

}  // namespace Platform
