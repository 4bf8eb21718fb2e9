#pragma once
// The transport interface of the voice transfer manager and the set-up operations of its three back ends.

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "BroadCastPlugin/common/BroadcastTypes.h"

namespace BroadCastPlugin {

/// Transfer types: a sending transport is fed frames, a listening one only delivers received audio.
enum VoiceTransferType { kTransferSend = 0, kTransferListen = 1 };

/// One open connection to a receiver (or a group of receivers behind one session).
class IVoiceTransfer {
public:
    virtual ~IVoiceTransfer() = default;
    /// Stops the transport and releases its connection or handle.
    virtual void Uninit() = 0;
    /// Sends one encoded frame; false on failure.
    virtual bool SendVoice(const uint8_t* data, int32_t size) = 0;
    virtual void SetTransferType(int type) { transferType = type; }
    virtual int32_t GetTransferType() const { return transferType; }

protected:
    int32_t transferType = kTransferSend;
};

/// Receives audio of a listening session: (encoded bytes, size).
using ZPSDataCallback = std::function<void(const uint8_t* data, int32_t size)>;

/// A streaming-server session (voice talk up, speaker audio down).
class IZPSVoiceTransfer : public IVoiceTransfer {
public:
    /// Creates and configures the session; `token` may be empty.
    virtual bool Init(const std::string& token) = 0;
    /// Opens the talk stream; `second` and `third` are the target's user name and password, passed through.
    virtual bool StartVoiceTalk(const std::string& url, const std::string& second,
                                const std::string& third) = 0;
    virtual void SetDataCallback(ZPSDataCallback callback) = 0;
    virtual bool GetZPSAudioParam(ZPSAudioParam& param) = 0;
};

/// A device reached through the device network interface.
class ISDKVoiceTransfer : public IVoiceTransfer {
public:
    virtual bool Init(const SDKTransferTarget& target) = 0;
};

/// A speaker reached by RTP over UDP.
class IUdpVoiceTransfer : public IVoiceTransfer {
public:
    virtual bool Init(const std::string& ipAddress, uint16_t port, int32_t encodeType) = 0;
};

/// Creates the transports the manager opens; replaced in tests.
class ITransferFactory {
public:
    virtual ~ITransferFactory() = default;
    virtual std::shared_ptr<IZPSVoiceTransfer> CreateZPSTransfer() = 0;
    virtual std::shared_ptr<ISDKVoiceTransfer> CreateSDKTransfer() = 0;
    virtual std::shared_ptr<IUdpVoiceTransfer> CreateUdpTransfer() = 0;
};

}  // namespace BroadCastPlugin
