#pragma once
// An S3-compatible object store for tests: scripts/objectstore/s3rver.js under node on 127.0.0.1, with the
// given key pair and buckets, over http or (with a certificate) https. The store's standard input is a pipe
// held by this object, so the store also ends when the test process does.

#include <memory>
#include <string>
#include <vector>

#include "TestProcess.h"

namespace BcastTest {

struct ObjectStoreOptions {
    std::string accessKey = "test-access";
    std::string secretKey = "test-secret";
    std::vector<std::string> buckets;
    std::string certFile;  ///< PEM certificate and key: both set for https
    std::string keyFile;
    int port = 0;         ///< 0: a free port
    std::string dataDir;  ///< where objects live; empty: a private directory removed with the peer
};

class CObjectStorePeer {
public:
    CObjectStorePeer() = default;
    ~CObjectStorePeer() { Stop(); }
    CObjectStorePeer(const CObjectStorePeer&) = delete;
    CObjectStorePeer& operator=(const CObjectStorePeer&) = delete;

    /// Starts the store and waits at most `timeoutMs` until it listens. False with the reason (including
    /// the store's own output) in Error(). The launcher is found through BCAST_SOURCE_DIR, node on PATH.
    bool Start(const ObjectStoreOptions& options, int timeoutMs = 15000);
    /// Ends the store (its port is free again afterwards).
    void Stop();
    bool IsRunning();

    int Port() const { return port_; }
    const std::string& Scheme() const { return scheme_; }
    /// "http(s)://127.0.0.1:<port>"
    std::string Url() const;
    const std::string& DataDir() const { return dataDir_; }
    const std::string& Error() const { return error_; }

private:
    bool Fail(const std::string& why);
    std::string Output() const;

    std::unique_ptr<CTempDir> ownDir_;  // log file, and the data when none was given
    std::string logPath_;
    std::string dataDir_;
    std::string scheme_;
    std::string error_;
    CBackgroundProcess process_;
    int stdinFd_ = -1;
    int port_ = 0;
};

}  // namespace BcastTest
