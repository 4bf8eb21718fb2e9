#include "framework/media/objectclient/ObjectClient.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <ctime>
#include <filesystem>

#include "framework/base/FormatLog.h"
#include "framework/media/objectclient/FileDigest.h"
#include "framework/media/objectclient/ObjectAddress.h"
#include "framework/media/objectclient/PartFile.h"
#include "framework/media/objectclient/S3Signing.h"
#include "framework/media/objectclient/SignedRequest.h"
#include "framework/media/objectclient/StoreError.h"

namespace CloudStorage {

namespace {

constexpr const char* kModule = "ObjectClient";

bool ValidPort(int32_t port) {
    return port >= 1 && port <= 65535;
}

// A host name or address literal: nothing that would end the authority part of a URL or split it.
bool ValidHost(const std::string& host) {
    if (host.empty()) {
        return false;
    }
    for (unsigned char c : host) {
        if (c <= ' ' || c == '/' || c == '?' || c == '#' || c == '@' || c == '\\' || c == 0x7F) {
            return false;
        }
    }
    return true;
}

bool CheckConfig(const SStorageServerConfig& config, std::string& why) {
    if (!ValidHost(config.ServerIp)) {
        why = "the storage address is empty or malformed ('" + config.ServerIp + "')";
    } else if (!ValidPort(config.DownloadPort) || !ValidPort(config.UploadPort)) {
        why = "ports must be 1..65535 (download " + std::to_string(config.DownloadPort) + ", upload " +
              std::to_string(config.UploadPort) + ")";
    } else if (config.PoolName.empty() || config.PoolName.find('/') != std::string::npos) {
        why = "the pool name is empty or contains '/' ('" + config.PoolName + "')";
    } else if (config.AccessKey.empty() || config.SecretKey.empty()) {
        why = "the access key and the secret key are both needed";
    } else {
        return true;
    }
    return false;
}

}  // namespace

struct CObjectClient::Impl {
    SStorageServerConfig config;
    bool initialised = false;
    int lastCode = kObjectOk;
    std::string lastMessage;
    std::atomic<bool> cancel{false};
    ProgressCallback progress;

    // Records the error of the call in progress; the public method logs it.
    bool Fail(int code, const std::string& message) {
        lastCode = code;
        lastMessage = message;
        return false;
    }

    std::string Base(int32_t port) const { return ServerBase(config.EnableHttps, config.ServerIp, port); }

    // Runs one request; on failure records the error, with `notFound` added to the message of a 404.
    bool Run(const SRequestPlan& plan, SRequestOutcome& outcome, const std::string& notFound = {}) {
        CSignedRequest request(config.AccessKey, config.SecretKey, cancel, progress);
        outcome = request.Perform(plan);
        std::string message;
        ObjectClientError error = ClassifyOutcome(outcome, plan.method, plan.url, message);
        if (error == kObjectNotFound && !notFound.empty()) {
            message += " (" + notFound + ")";
        }
        return error == kObjectOk || Fail(error, message);
    }

    bool CheckPool(int32_t port) {
        SRequestPlan plan;
        plan.method = "HEAD";
        plan.url = ObjectUrl(Base(port), config.PoolName);
        plan.payloadSha256 = kEmptyBodySha256;
        SRequestOutcome outcome;
        return Run(plan, outcome, "no pool '" + config.PoolName + "' on this storage");
    }

    bool Ready(const char* operation) {
        if (!initialised) {
            return Fail(kObjectNotInitialised, std::string(operation) + ": the client is not initialised");
        }
        // A Cancel() meant for an earlier transfer does not end this one.
        cancel.store(false);
        return true;
    }

    bool Init() {
        initialised = false;
        cancel.store(false);
        std::string why;
        if (!CheckConfig(config, why)) {
            return Fail(kObjectBadConfig, "bad storage configuration: " + why);
        }
        if (!CheckPool(config.DownloadPort)) {
            return false;
        }
        if (config.UploadPort != config.DownloadPort && !CheckPool(config.UploadPort)) {
            return false;
        }
        initialised = true;
        return true;
    }

    bool Download(const std::string& url, const std::string& localPath, SRequestOutcome& outcome,
                  std::string& objectUrl) {
        if (!Ready("DownloadFile")) {
            return false;
        }
        SObjectName name;
        std::string why;
        if (!ParseObjectName(url, config.PoolName, name, why)) {
            return Fail(kObjectBadUrl, "cannot read the object address '" + url + "': " + why);
        }
        if (localPath.empty()) {
            return Fail(kObjectLocalWrite, "DownloadFile: no local path");
        }
        CPartFile part(localPath);
        if (!part.Open(why)) {
            return Fail(kObjectLocalWrite, why);
        }
        SRequestPlan plan;
        plan.method = "GET";
        plan.url = ObjectUrl(Base(config.DownloadPort), name.pool, name.key);
        plan.sink = part.Get();
        plan.payloadSha256 = kEmptyBodySha256;
        objectUrl = plan.url;
        if (!Run(plan, outcome)) {
            return false;  // the .part file goes with `part`
        }
        if (!part.Commit(why)) {
            return Fail(kObjectLocalWrite, "GET " + plan.url + ": " + why);
        }
        return true;
    }

    bool Upload(const std::string& localPath, const std::string& objectKey, SRequestOutcome& outcome,
                std::string& objectUrl) {
        if (!Ready("UploadFile")) {
            return false;
        }
        std::string key =
            objectKey.empty() ? std::filesystem::path(localPath).filename().string() : objectKey;
        key.erase(0, key.find_first_not_of('/'));
        if (key.empty()) {
            return Fail(kObjectBadUrl, "UploadFile: no object key for '" + localPath + "'");
        }
        FilePtr file(std::fopen(localPath.c_str(), "rb"));
        struct stat info {};
        if (!file || ::fstat(::fileno(file.get()), &info) != 0) {
            return Fail(kObjectLocalRead, "cannot open " + localPath + ": " + std::strerror(errno));
        }
        if (!S_ISREG(info.st_mode)) {
            return Fail(kObjectLocalRead, "cannot upload " + localPath + ": not a regular file");
        }
        SRequestPlan plan;
        plan.method = "PUT";
        plan.url = ObjectUrl(Base(config.UploadPort), config.PoolName, key);
        plan.source = file.get();
        plan.sourceBytes = static_cast<uint64_t>(info.st_size);
        // First pass: the body's hash goes into the signed headers before the body itself is sent.
        std::string why;
        if (!Sha256OfFile(file.get(), plan.payloadSha256, why)) {
            return Fail(kObjectLocalRead, "cannot read " + localPath + ": " + why);
        }
        if (!Run(plan, outcome)) {
            return false;
        }
        objectUrl = plan.url;
        return true;
    }

    bool Presign(const std::string& url, int expirySeconds, std::string& presigned, std::string& objectUrl) {
        std::string why;
        if (!CheckConfig(config, why)) {
            return Fail(kObjectBadConfig, "bad storage configuration: " + why);
        }
        if (expirySeconds < 1 || expirySeconds > kPresignMaxSeconds) {
            return Fail(kObjectBadConfig, "PresignGetUrl: the expiry must be 1.." +
                                              std::to_string(kPresignMaxSeconds) + " s, not " +
                                              std::to_string(expirySeconds));
        }
        SObjectName name;
        if (!ParseObjectName(url, config.PoolName, name, why)) {
            return Fail(kObjectBadUrl, "cannot read the object address '" + url + "': " + why);
        }
        const std::string base = Base(config.DownloadPort);
        objectUrl = ObjectUrl(base, name.pool, name.key);
        SPresignPlan plan;
        plan.https = config.EnableHttps;
        plan.host = config.ServerIp;
        plan.port = config.DownloadPort;
        plan.path = objectUrl.substr(base.size());
        plan.accessKey = config.AccessKey;
        plan.secretKey = config.SecretKey;
        plan.expirySeconds = expirySeconds;
        plan.signedAt = std::time(nullptr);
        presigned = PresignUrl(plan);
        return !presigned.empty() ||
               Fail(kObjectServerError, "PresignGetUrl: signing " + objectUrl + " failed");
    }
};

#define OBJECT_LOG_FAILURE(impl)                                                                    \
    TAL_LOG(Tal::Base::kLogError, kModule, "[%s]%s (error %d)[%s(%d)]", (impl).lastMessage.c_str(), \
            (impl).lastCode)

CObjectClient::CObjectClient(const SStorageServerConfig& config) : impl_(std::make_unique<Impl>()) {
    impl_->config = config;
}

CObjectClient::~CObjectClient() = default;

bool CObjectClient::Init() {
    if (!impl_->Init()) {
        OBJECT_LOG_FAILURE(*impl_);
        return false;
    }
    const SStorageServerConfig& config = impl_->config;
    TAL_LOG(Tal::Base::kLogInfo, kModule, "[%s]storage %s ready for pool %s (upload port %d)[%s(%d)]",
            impl_->Base(config.DownloadPort).c_str(), config.PoolName.c_str(), config.UploadPort);
    return true;
}

void CObjectClient::Uninit() {
    impl_->initialised = false;
}

bool CObjectClient::DownloadFile(const std::string& url, const std::string& localPath) {
    SRequestOutcome outcome;
    std::string objectUrl;
    if (!impl_->Download(url, localPath, outcome, objectUrl)) {
        OBJECT_LOG_FAILURE(*impl_);
        return false;
    }
    TAL_LOG(Tal::Base::kLogInfo, kModule, "[%s]GET %s -> %s: %llu bytes in %.3f s[%s(%d)]", objectUrl.c_str(),
            localPath.c_str(), static_cast<unsigned long long>(outcome.bytes), outcome.seconds);
    return true;
}

bool CObjectClient::UploadFile(std::string& url, const std::string& localPath, const std::string& objectKey) {
    SRequestOutcome outcome;
    std::string objectUrl;
    if (!impl_->Upload(localPath, objectKey, outcome, objectUrl)) {
        OBJECT_LOG_FAILURE(*impl_);
        return false;
    }
    url = objectUrl;
    TAL_LOG(Tal::Base::kLogInfo, kModule, "[%s]PUT %s <- %s: %llu bytes in %.3f s[%s(%d)]", objectUrl.c_str(),
            localPath.c_str(), static_cast<unsigned long long>(outcome.bytes), outcome.seconds);
    return true;
}

bool CObjectClient::PresignGetUrl(const std::string& objectUrl, int expirySeconds, std::string& url) {
    std::string presigned;
    std::string address;
    if (!impl_->Presign(objectUrl, expirySeconds, presigned, address)) {
        OBJECT_LOG_FAILURE(*impl_);
        return false;
    }
    url = presigned;
    // The signature is left out of the log: the address alone grants access until it expires.
    TAL_LOG(Tal::Base::kLogInfo, kModule, "[%s]presigned GET %s for %d s[%s(%d)]", address.c_str(),
            expirySeconds);
    return true;
}

void CObjectClient::GetLastError(int& code, std::string& message) const {
    code = impl_->lastCode;
    message = impl_->lastMessage;
}

void CObjectClient::SetProgressCallback(ProgressCallback callback) {
    impl_->progress = std::move(callback);
}

void CObjectClient::Cancel() {
    impl_->cancel.store(true);
}

}  // namespace CloudStorage
