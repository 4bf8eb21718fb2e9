#include "framework/media/devnet/RealtimeFormat.h"

#include "framework/media/devnet/DevNet.h"

namespace DevNet {

namespace {
constexpr uint32_t kConfigAnswerSize = 4096;
constexpr const char* kRealtimeRequest = "PUT /DXAPI/VideoIntercom/broadcast/realtime?format=json";
}  // namespace

std::string RealtimeFormatBody(int32_t encodeType) {
    switch (encodeType) {
        case kEncodeMP3:
            return "{\"BroadcastRealtime\":{\"enabled\":true,\"transportType\":\"unicast\",\"audioLevel\":15,"
                   "\"audioType\":\"MP3\",\"samplingRate\":48}}";
        case kEncodeG711U:
            return "{\"BroadcastRealtime\":{\"enabled\":true,\"transportType\":\"unicast\",\"audioLevel\":15,"
                   "\"audioType\":\"G.711ulaw\"}}";
        default:
            return std::string();
    }
}

RealtimeFormatResult ConfigureRealtimeFormat(int32_t userId, int32_t encodeType) {
    RealtimeFormatResult result;
    const std::string body = RealtimeFormatBody(encodeType);
    std::string answer(kConfigAnswerSize, '\0');
    DEVNET_STDCONFIG_INPUT input{};
    input.requestUrl = kRealtimeRequest;
    input.inBuffer = body.c_str();
    input.inBufferSize = static_cast<uint32_t>(body.size());
    DEVNET_STDCONFIG_OUTPUT output{};
    output.outBuffer = &answer[0];
    output.outBufferSize = kConfigAnswerSize;
    if (DEVNET_StdConfig(userId, &input, &output)) {
        result.stdConfigOk = true;
        result.answer.assign(answer.c_str());
        return result;
    }
    result.stdConfigError = DEVNET_GetLastError();
    DEVNET_BROADCAST_REALTIME_CFG config{};
    config.encodeType = static_cast<uint8_t>(encodeType);
    result.fallbackOk =
        DEVNET_SetDeviceConfig(userId, DEVNET_SET_BROADCAST_REALTIME_CFG, 1, &config, sizeof(config)) != 0;
    if (!result.fallbackOk) {
        result.fallbackError = DEVNET_GetLastError();
    }
    return result;
}

}  // namespace DevNet
