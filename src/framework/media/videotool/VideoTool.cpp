#include "framework/media/videotool/VideoTool.h"

#include <portaudio.h>

#include <memory>
#include <mutex>
#include <vector>

#include "framework/base/ErrorCode.h"
#include "framework/base/FormatLog.h"
#include "framework/business/ServerSecret.h"
#include "framework/media/audiocom/PortAudioSession.h"
#include "framework/netcomm/PlatformRequest.h"
#include "framework/netcomm/RapidJsonProto.h"

namespace {

using Tal::Base::Error::ErrorCode;
using Tal::Base::Error::kCodeInvalidInput;
using Tal::Base::Error::kModuleFramework;
using Tal::Base::Error::kSubSystemClient;

// Module number of audio device errors.
constexpr int kModuleAudio = 29;

struct VoiceEnvironment {
    std::mutex mutex;
    /// One audio back end initialisation for each InitVoiceEnvir not yet undone.
    std::vector<std::unique_ptr<Tal::AudioCom::CPortAudioSession>> sessions;
    std::string loadPath;
};

VoiceEnvironment& Voice() {
    static VoiceEnvironment env;
    return env;
}

}  // namespace

namespace ORVVideoTool {

bool InitVoiceEnvir(const std::string& configJson) {
    NetworkCommunication::CRapidJsonProto config;
    if (!config.set_str(configJson) || !config.get_bool_v("/GeneralInit", false)) {
        Tal::Base::Error::SetLastError(ErrorCode(kSubSystemClient, kModuleFramework, kCodeInvalidInput));
        TAL_LOG(5, "VideoTool", "[%s]Voice environment configuration is invalid: %s[%s(%d)]",
                configJson.c_str());
        return false;
    }
    VoiceEnvironment& env = Voice();
    std::lock_guard<std::mutex> lock(env.mutex);
    auto session = std::make_unique<Tal::AudioCom::CPortAudioSession>();
    if (!session->IsOpen()) {
        Tal::Base::Error::SetLastError(ErrorCode(kSubSystemClient, kModuleAudio, session->Error()));
        TAL_LOG(5, "VideoTool", "[%s]Audio back end failed to start: %s[%s(%d)]",
                session->ErrorText().c_str());
        return false;
    }
    env.sessions.push_back(std::move(session));
    env.loadPath = config.get_v("/CirroLoadPath", "");
    TAL_LOG(3, "VideoTool", "[%s]Voice environment up, %d audio devices, load path: %s[%s(%d)]",
            Pa_GetDeviceCount(), env.loadPath.c_str());
    return true;
}

bool UnInitVoiceEnvir() {
    VoiceEnvironment& env = Voice();
    std::lock_guard<std::mutex> lock(env.mutex);
    if (env.sessions.empty()) {
        TAL_LOG(4, "VideoTool", "[%s]Voice environment is not initialised.[%s(%d)]");
        return false;
    }
    env.sessions.pop_back();
    return true;
}

bool IsVoiceEnvirInit() {
    VoiceEnvironment& env = Voice();
    std::lock_guard<std::mutex> lock(env.mutex);
    return !env.sessions.empty();
}

std::string GetVoiceEnvirLoadPath() {
    VoiceEnvironment& env = Voice();
    std::lock_guard<std::mutex> lock(env.mutex);
    return env.loadPath;
}

bool RequestVoiceTalkUrl(ORVVideoComm::CVoiceTalkRequestObserverParam& answer, int deviceId, int deviceType,
                         int channel, bool listen, int encodeType) {
    // {"DeviceID":301,"DeviceType":2020,"Channel":0,"Listen":true,"EncodeType":1}
    NetworkCommunication::CRapidJsonProto request;
    request.set_v("/DeviceID", deviceId);
    request.set_v("/DeviceType", deviceType);
    request.set_v("/Channel", channel);
    request.set_bool_v("/Listen", listen);
    request.set_v("/EncodeType", encodeType);
    NetworkCommunication::CRapidJsonProto reply;
    if (!NetworkCommunication::CallPlatform("POST", "/DXAPI/Galewing/Platform/V1/VoiceTalk/Url",
                                            request.get_str(0), reply)) {
        TAL_LOG(5, "VideoTool", "[%s]Voice talk address of device %d refused: %s[%s(%d)]", deviceId,
                NetworkCommunication::DescribeError(Tal::Base::Error::GetLastError()).c_str());
        return false;
    }
    // {"Url":"rtsp://...","UserName":"..","Password":"<enc>","Token":"<enc>","SecureEncryptType":1,...}
    const std::string data = NetworkCommunication::kEnvelopeData;
    const int scheme = reply.get_int_v(data + "/SecureEncryptType", -1);
    std::string password;
    std::string token;
    if (!BusinessCommon::DecryptServerSecret(scheme, reply.get_v(data + "/Password", ""), password,
                                             "voice talk password") ||
        !BusinessCommon::DecryptServerSecret(scheme, reply.get_v(data + "/Token", ""), token,
                                             "voice talk token")) {
        return false;
    }
    const std::string url = reply.get_v(data + "/Url", "");
    if (url.empty()) {
        Tal::Base::Error::SetLastError(ErrorCode(Tal::Base::Error::kSubSystemServer, kModuleFramework,
                                                 Tal::Base::Error::kCodeInvalidInput));
        TAL_LOG(5, "VideoTool", "[%s]Voice talk answer for device %d has no address.[%s(%d)]", deviceId);
        return false;
    }
    answer.SetVal_strUrl(url);
    answer.SetVal_str_username(reply.get_v(data + "/UserName", ""));
    answer.SetVal_strPassword(password);
    answer.SetVal_str_token(token);
    TAL_LOG(3, "VideoTool", "[%s]Voice talk address of device %d: %s[%s(%d)]", deviceId, url.c_str());
    return true;
}

}  // namespace ORVVideoTool
