#pragma once
// The recording of a broadcast: the live talk recorded to a dated WAV file, and what is handed to the
// platform once the broadcast ends (the talk's file, or the record of a file broadcast).

#include <cstdint>
#include <map>
#include <string>

#include "BroadCastPlugin/logical/IPSpeakerManager/SpeakerStateTable.h"

namespace BroadCastPlugin {

class CVoiceRecord;

/// What a broadcast leaves to upload.
struct RecordSource {
    std::map<int32_t, SpeakerEntry> speakers;
    std::string startTime;
    int kind = -1;  ///< BroadcastKind
    std::string playFilePath;
};

class CTalkRecording {
public:
    explicit CTalkRecording(CVoiceRecord& recorder) : recorder_(recorder) {}

    /// Starts recording into <capture data path>Audio/<YYYYMMDD>/; false when the folder or the file
    /// cannot be made.
    bool Start(int32_t encodeType);
    /// Uploads the talk's recording or records the file broadcast, when the configuration asks for it.
    void Upload(const RecordSource& source);

private:
    CVoiceRecord& recorder_;
};

}  // namespace BroadCastPlugin
