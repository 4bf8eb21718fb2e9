#include "platform/server/storage/MediaLibrary.h"

#include <chrono>
#include <cmath>

#include "framework/base/FormatLog.h"
#include "framework/media/objectclient/ObjectClient.h"
#include "platform/server/storage/MediaCache.h"
#include "platform/server/storage/MediaRender.h"
#include "platform/server/storage/ObjectProbe.h"
#include "platform/server/storage/ObjectStores.h"

namespace Platform {

namespace {

bool Upload(const StoreEndpoint& store, const ObjectUrl& url, const std::string& localPath,
            std::string& error) {
    CloudStorage::SStorageServerConfig config;
    config.ServerIp = store.address;
    config.UploadPort = store.port;
    config.DownloadPort = store.port;
    config.PoolName = url.pool;
    config.AccessKey = store.accessKey;
    config.SecretKey = store.secretKey;
    CloudStorage::CObjectClient client(config);
    std::string stored;
    if (client.Init() && client.UploadFile(stored, localPath, url.key)) {
        return true;
    }
    int code = 0;
    std::string message;
    client.GetLastError(code, message);
    error = "upload failed (" + std::to_string(code) + "): " + message;
    return false;
}

}  // namespace

bool StockMediaLibrary(Fixture& fixture, const CObjectStores& stores, CMediaCache& cache,
                       MediaStockReport& report, std::string& error) {
    const auto started = std::chrono::steady_clock::now();
    report = MediaStockReport();
    for (MediaFileEntry& file : fixture.files) {
        if (file.audio.kind == MediaRecipe::Kind::kNone) {
            continue;
        }
        const std::string what = "media file " + std::to_string(file.id) + " (" + file.name + "): ";
        const std::string storeName = StoreNameOf(file, stores.Plan());
        StoreEndpoint store;
        if (storeName.empty() || !stores.Endpoint(storeName, store)) {
            ++report.unserved;
            TAL_LOG(Tal::Base::kLogWarn, "Platform",
                    "[%s]%sits storage is not served; no object is made[%s(%d)]", what.c_str());
            continue;
        }
        ObjectUrl url;
        if (!ParseObjectUrl(file.storeUrl, url)) {
            error = what + "\"StoreUrl\" must name /<pool>/<key>, got " + file.storeUrl;
            return false;
        }
        std::string localPath;
        bool hit = false;
        AudioFacts facts;
        if (!cache.Get(file.audio, file.format, localPath, hit, error) ||
            !InspectAudio(localPath, file.format, facts, error)) {
            error = what + error;
            return false;
        }
        int64_t bytes = 0;
        std::string problem;
        if (!Upload(store, url, localPath, problem) ||
            HeadObject(store, url.pool, url.key, bytes, problem) != ProbeResult::kFound) {
            error = what + "cannot store it in object store " + storeName + ": " + problem;
            return false;
        }
        file.size = static_cast<int>((bytes + 1023) / 1024);
        file.duration = std::max(1, static_cast<int>(std::lround(facts.seconds)));
        ++report.stored;
        report.fromCache += hit ? 1 : 0;
        TAL_LOG(Tal::Base::kLogInfo, "Platform", "[%s]%sstored %s (%lld bytes, %.2f s%s)[%s(%d)]",
                what.c_str(), file.storeUrl.c_str(), static_cast<long long>(bytes), facts.seconds,
                hit ? ", cached" : "");
    }
    report.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
    return true;
}

}  // namespace Platform
