#pragma once
// What broadcasts are doing on the platform: broadcast groups handed out by the address call (one GUID
// each), text-to-speech plays per element, registered recordings, and the secret scheme in force.

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace Platform {

enum class GroupTransport { kSms, kSdk };

/// The prompt tone of one group.
enum class PromptState { kIdle, kPlaying, kFinished, kInterrupted };

/// Status values a client reports with UpdateBroadcastStatus.
enum ReportedStatus { kReportedNone = 0, kReportedStarted = 1, kReportedFailed = 2, kReportedStopped = 3 };

struct BroadcastGroup {
    std::string guid;
    GroupTransport transport = GroupTransport::kSms;
    std::vector<int> elementIds;
    int audioSource = 1;      ///< 1 live talk, 2 file
    int adaptiveNetWork = 0;  ///< the access type the client asked with
    bool promptInFront = false;
    std::string url;
    std::string token;  ///< streaming-server token in plain text; empty without one
    std::string userName;
    int64_t createdMs = 0;
    int reportedStatus = kReportedNone;
    PromptState prompt = PromptState::kIdle;
    int promptSequence = 0;  ///< bumped by every prompt start and stop; a finishing timer checks it
};

struct TtsPlay {
    int elementId = 0;
    std::string content;
    std::string language;
    int playMode = 0;
    std::string assignPlaybackDuration;
    std::string userName;
    int64_t startedMs = 0;
};

struct BroadcastRecord {
    int64_t sequence = 0;
    std::vector<int> elementIds;
    std::string startTime;
    std::string name;
    std::string format;
    int64_t size = 0;  ///< kilobytes, as the client reports it
    int storageServerId = 0;
    std::string storageType;  ///< as sent (a number or a text)
    std::string storeUrl;
    int broadcastMode = 0;
    std::string userName;
    int64_t receivedMs = 0;
    std::string store;         ///< the object store that holds it; empty when the stores are off
    int64_t objectBytes = -1;  ///< the stored object's size; -1 when the stores are off
};

class CBroadcastRegistry {
public:
    /// Oldest groups are forgotten beyond this count.
    static constexpr size_t kMaxGroups = 10000;

    explicit CBroadcastRegistry(int secureEncryptType)
        : initialSecureType_(secureEncryptType), secureType_(secureEncryptType) {}

    void AddGroup(const BroadcastGroup& group);
    bool FindGroup(const std::string& guid, BroadcastGroup& group) const;
    /// Applies `change` to the group under the lock; false when the GUID is unknown.
    bool UpdateGroup(const std::string& guid, const std::function<void(BroadcastGroup&)>& change);
    std::vector<BroadcastGroup> Groups() const;

    /// Starts the play of each element, replacing one that runs.
    void StartTts(const std::vector<TtsPlay>& plays);
    /// Stops the plays of these elements; returns those that were playing.
    std::vector<int> StopTts(const std::vector<int>& elementIds);
    std::vector<TtsPlay> TtsPlays() const;

    /// Keeps a recording and returns its sequence number.
    int64_t AddRecord(BroadcastRecord record);
    std::vector<BroadcastRecord> Records() const;

    int SecureEncryptType() const;
    void SetSecureEncryptType(int type);

    /// Forgets groups, plays and records and restores the fixture's secret scheme.
    void Reset();

private:
    mutable std::mutex mutex_;
    std::vector<BroadcastGroup> groups_;  ///< creation order
    std::map<int, TtsPlay> tts_;
    std::vector<BroadcastRecord> records_;
    int64_t nextRecord_ = 1;
    const int initialSecureType_;
    int secureType_;
};

}  // namespace Platform
