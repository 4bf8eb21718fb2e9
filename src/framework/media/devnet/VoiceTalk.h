#pragma once
// One voice talk: opens a talk session on the device, streams queued audio to it in one chunked upload on a
// worker thread, and closes the session.
//
//   POST /DXAPI/VideoIntercom/voiceTalk/open?format=json   {"channel":1}  -> {"VoiceTalk":{"talkID":"..."}}
//   PUT  /DXAPI/VideoIntercom/voiceTalk/<talkID>/audio     (chunked, the encoded audio)
//   DELETE /DXAPI/VideoIntercom/voiceTalk/<talkID>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>

#include "framework/media/devnet/DeviceHttp.h"

namespace DevNet {

class CVoiceTalk {
public:
    /// Audio that may wait for the connection; beyond it SendVoiceData fails with DEVNET_BUFFER_FULL.
    static constexpr size_t kMaxPendingBytes = 64 * 1024;
    /// Longest wait for the device to take the rest of the audio and answer when a talk stops.
    static constexpr std::chrono::seconds kFinishTimeout{5};

    CVoiceTalk(const DeviceEndpoint& endpoint, int32_t userId, int32_t channel);
    ~CVoiceTalk();
    CVoiceTalk(const CVoiceTalk&) = delete;
    CVoiceTalk& operator=(const CVoiceTalk&) = delete;

    /// Opens the talk on the device and starts the upload. DEVNET_NOERROR or the error.
    uint32_t Open();
    /// Queues audio. DEVNET_NOERROR or the error.
    uint32_t Send(const char* data, uint32_t size);
    /// Finishes the upload (bounded) and closes the talk on the device. DEVNET_NOERROR or the error.
    uint32_t Close();

    int32_t UserId() const { return userId_; }

private:
    void UploadLoop();
    static size_t ReadAudio(char* buffer, size_t size, size_t count, void* self);

    const DeviceEndpoint endpoint_;
    const int32_t userId_;
    const int32_t channel_;
    std::string talkId_;
    EasyPtr easy_;
    MultiPtr multi_;
    std::thread worker_;

    std::mutex mutex_;  ///< guards the fields below
    std::string pending_;
    bool paused_ = false;
    bool finishing_ = false;
    bool ended_ = false;
    uint32_t error_ = 0;
    std::string uploadAnswer_;
    long uploadStatus_ = 0;
};

}  // namespace DevNet
