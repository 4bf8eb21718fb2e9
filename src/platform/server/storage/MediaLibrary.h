#pragma once
// Stocks the media library at start-up: every media file of the fixture that has an audio recipe is made
// (or found in the media cache), uploaded into its store under the pool and key its address names, and
// its entry then tells the truth about the stored object: size, duration, the store's real port.

#include <string>

#include "platform/server/fixture/Fixture.h"

namespace Platform {

class CObjectStores;
class CMediaCache;

struct MediaStockReport {
    int stored = 0;     ///< files uploaded
    int fromCache = 0;  ///< of those, found in the cache
    int unserved = 0;   ///< files with a recipe whose storage is not served (kept as the fixture says)
    double seconds = 0;
};

/// Uploads the files and updates their entries in `fixture` (size in KB rounded up, duration in seconds
/// rounded, both of the stored object). False with a reason naming the file when one cannot be made or
/// stored.
bool StockMediaLibrary(Fixture& fixture, const CObjectStores& stores, CMediaCache& cache,
                       MediaStockReport& report, std::string& error);

}  // namespace Platform
