#pragma once
// Transport to IP speakers through the streaming-media server: one streaming client session per object, used
// for talking (frames go up the stream) or for listening (a speaker's audio comes back through the data
// callback).

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include "BroadCastPlugin/logical/VoiceTransfer/IVoiceTransfer.h"
#include "BroadCastPlugin/logical/VoiceTransfer/ZPS/ZPSSession.h"
#include "framework/base/LogThrottle.h"
#include "framework/media/zpsclient/ZPSClient.h"

namespace BroadCastPlugin {

/// RTSP time-out in seconds for a network time-out level: 0 -> 6, 1 -> 9, 2 -> 12, other -> 6.
int RtspTimeoutForNetLevel(int level);

/// Fills `param` from the streaming client's 32-byte audio information block (rate defaults applied; an
/// unknown codec leaves the encode type untouched).
void FillAudioParamFromInfo(const ZPSClient_AudioInfo& info, ZPSAudioParam& param);

class CZPSTransfer : public IZPSVoiceTransfer {
public:
    CZPSTransfer() = default;
    ~CZPSTransfer() override;
    CZPSTransfer(const CZPSTransfer&) = delete;
    CZPSTransfer& operator=(const CZPSTransfer&) = delete;

    bool Init(const std::string& token) override;
    bool StartVoiceTalk(const std::string& url, const std::string& second, const std::string& third) override;
    bool SendVoice(const uint8_t* data, int32_t size) override;
    void StopVoiceTalk();
    void Uninit() override;
    bool GetZPSAudioParam(ZPSAudioParam& param) override;
    void SetDataCallback(ZPSDataCallback callback) override;

    /// Registered with the streaming client; `user` is the transfer object.
    static int ZPSDataCallBack(int session, void* user, int dataType, const unsigned char* data,
                               unsigned int size);

private:
    std::shared_ptr<CZPSSession> Session() const;

    mutable std::mutex mutex_;  ///< guards the session and the callback
    Tal::Base::CLogThrottle sendFailures_;
    ZPSDataCallback dataCallback_;
    /// Shared with the calls that use the session at the moment, so that Uninit cannot close it under them.
    /// Declared last: it goes first, while the callback it may still call is alive.
    std::shared_ptr<CZPSSession> session_;
};

}  // namespace BroadCastPlugin
