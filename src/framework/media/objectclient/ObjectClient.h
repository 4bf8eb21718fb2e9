#pragma once
// S3-compatible object storage client: streams a local file up as an object and an object down to a local
// file, signing every request with AWS Signature Version 4. The configured pool is the bucket.
//
// One client per transfer or per short sequence of transfers, used from one thread at a time; Cancel()
// may come from any thread. No transfer holds a whole file in memory.
//
// Every request gives up when it cannot connect within 10 s or moves less than 1 byte/s for 20 s. With
// EnableHttps the store's certificate is checked against the system's authorities, or, when the environment
// variable BCAST_OBJECT_CA_FILE names a PEM bundle, against that bundle instead (a private authority).

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace CloudStorage {

/// Where the storage is and how to sign for it. Upload and download may use different ports.
struct SStorageServerConfig {
    bool EnableHttps = false;
    int32_t UploadPort = 0;
    int32_t DownloadPort = 0;
    std::string PoolName;  ///< the bucket
    std::string ServerIp;  ///< an address or a host name (an access path)
    std::string AccessKey;
    std::string SecretKey;
};

/// The client's own error codes (reported with module 60 by its callers).
enum ObjectClientError : int {
    kObjectOk = 0,
    kObjectBadConfig = 1,  ///< address, port, pool or keys missing or invalid; a presign expiry out of range
    kObjectNotInitialised = 2,  ///< Init was not called or failed
    kObjectLocalRead = 3,       ///< the local file cannot be opened or read
    kObjectLocalWrite = 4,      ///< the local file cannot be created or written
    kObjectConnect = 5,         ///< the storage cannot be reached (refused, unresolved, timed out)
    kObjectTls = 6,             ///< the TLS handshake or the certificate check failed
    kObjectAccessDenied = 7,    ///< 401/403: keys or signature refused
    kObjectNotFound = 8,        ///< 404: no such pool or object
    kObjectServerError = 9,     ///< any other refusal or an unexpected answer from the storage
    kObjectTransfer = 10,       ///< the transfer broke off or stalled
    kObjectBadUrl = 11,         ///< the object address cannot be understood
    kObjectCancelled = 12,      ///< Cancel() ended the transfer
};

class CObjectClient {
public:
    /// Bytes done and bytes in all (0 when not known yet).
    using ProgressCallback = std::function<void(uint64_t done, uint64_t total)>;

    explicit CObjectClient(const SStorageServerConfig& config);
    ~CObjectClient();
    CObjectClient(const CObjectClient&) = delete;
    CObjectClient& operator=(const CObjectClient&) = delete;

    /// Checks the configuration and that the storage answers for the pool with these keys (a signed HEAD
    /// of the bucket on each configured port). False with the reason in GetLastError.
    bool Init();
    void Uninit();

    /// Downloads an object to `localPath`. `url` names the object: "http(s)://host:port/<pool>/<key>" (only
    /// the path is used; the configured address, download port and scheme are where it is fetched), or
    /// "/<pool>/<key>", or a key inside the configured pool. The file appears complete or not at all: the
    /// data goes to "<localPath>.part", which is renamed on success and removed on failure.
    bool DownloadFile(const std::string& url, const std::string& localPath);

    /// Uploads `localPath` as the object `objectKey` of the pool (default: the file's name) and returns its
    /// address "http(s)://ServerIp:UploadPort/<pool>/<key>" in `url`.
    bool UploadFile(std::string& url, const std::string& localPath, const std::string& objectKey = {});

    /// A presigned GET address of an object, valid for `expirySeconds` (1..604800) from now: anyone holding
    /// it (a browser) fetches the object without the keys. `objectUrl` names the object as for DownloadFile;
    /// the address is on the configured address, download port and scheme. Needs the configuration only (no
    /// Init, no request). False with the reason in GetLastError.
    bool PresignGetUrl(const std::string& objectUrl, int expirySeconds, std::string& url);

    /// The error of the last failed call: one of ObjectClientError and a readable message (the storage's
    /// own error code and text when it gave them).
    void GetLastError(int& code, std::string& message) const;

    void SetProgressCallback(ProgressCallback callback);
    /// Ends a transfer in progress (it fails with kObjectCancelled).
    void Cancel();

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace CloudStorage
