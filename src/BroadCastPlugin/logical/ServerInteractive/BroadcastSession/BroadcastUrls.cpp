// The broadcast addresses: where each group of speakers is reached (streaming server or device interface),
// with the device login data the module needs for the device groups.

#include <algorithm>
#include <cctype>

#include "BroadCastPlugin/BroadcastLog.h"
#include "BroadCastPlugin/logical/ServerInteractive/BroadcastSession/BroadcastSession.h"
#include "BroadCastPlugin/logical/ServerInteractive/BroadcastSession/PlatformCall.h"
#include "BroadCastPlugin/logical/ServerInteractive/BroadcastSession/PlatformPaths.h"
#include "framework/business/UserCommonManager.h"
#include "framework/resource/ResourceManager.h"

namespace BroadCastPlugin {

using NetworkCommunication::CRapidJsonProto;
using Tal::Base::Error::kSubSystemClient;

int32_t MapAdaptiveNetwork(int32_t networkMode) {
    switch (networkMode) {
        case 0:
        case 2:
        case 3:
        case 20:
            return networkMode;
        default:
            return 0;  // 4 (system default) folds onto 0 on purpose
    }
}

void UpdateDeviceLogins(const std::vector<BroadcastUrlInfo>& urls) {
    for (const BroadcastUrlInfo& info : urls) {
        for (const BroadcastUrlResource& resource : info.Resources) {
            if (resource.DeviceID == -1) {
                continue;
            }
            ResourceManager::CLoginParam login;
            login.SetVal_enumLoginMode(0);
            login.SetVal_strLoginAddress(resource.DeviceIP);
            login.SetVal_uLoginPort(static_cast<uint16_t>(resource.DevicePort));
            login.SetVal_strUserName(resource.DeviceUserName);
            login.SetVal_strUserPwd(resource.DevicePassword);
            login.SetVal_strLoginServerID("");
            if (auto device =
                    ResourceManager::CDeviceManager::Instance()->FindDeviceByID(resource.DeviceID)) {
                device->SetIPModeLoginParam(login);
            }
        }
    }
}

// GET RealTimeBroadcast/CommonUrlList (a GET with a body)
// Request: {"CommonUrlRequest":[{"ResourceType":1027,"ResourceIDs":"1001,1003","AudioSource":1,
//   "AdaptiveNetWork":0,"IsPromptToneSupportedInFront":1}]}
// Answer Data:
// {"CommonUrlList":{"CommonUrl":[{"ResourceGuid":"..","Url":"[sms:1]rtsp://127.0.0.1:18654/b/<guid>",
//   "SMSversion":1,"SecureEncryptType":1,"SMSToken":{"Enable":1,"Token":"<encrypted>"},"ResourceType":1027,
//   "ResourceList":[{"ID":1003,"DevcieInfo":{"DeviceIP":"..","DevicePort":81,"DeviceUserName":"..",
//   "DevicePassword":"<encrypted>","DeviceID":103,"DeviceType":2020,"Channelnfo":{"DeviceIndex":"1",
//   "DeviceResourceID":1003}}}]}]}}
// The device login data of the answer goes to the device registry.
bool CBroadcastSession::GetBroadcastUrl(const std::vector<BroadcastUrlRequest>& requests,
                                        BroadcastUrlResult& result) {
    CRapidJsonProto body;
    for (std::size_t i = 0; i < requests.size(); ++i) {
        const std::string p = Item("/CommonUrlRequest", static_cast<int>(i + 1));
        body.set_v(p + "ResourceType", requests[i].ResourceType);
        body.set_v(p + "ResourceIDs", requests[i].ResourceIDs);
        body.set_v(p + "AudioSource", requests[i].AudioSource);
        body.set_v(p + "AdaptiveNetWork", MapAdaptiveNetwork(requests[i].NetworkMode));
        body.set_v(p + "IsPromptToneSupportedInFront", requests[i].IsPromptToneSupportedInFront ? 1 : 0);
    }
    CPlatformCall call("GET", PlatformPaths::kUrlList, body.get_str(0));
    result.Error = call.Exchange([&](const ErrorCode& e) {
        BCAST_LOG(5, "[%s]GetBroadCastTTSLanuage tts error. request json [%s]. error code: [%d][%d][%s(%d)]",
                  call.Body().c_str(), e.GetMainErrorCode(), e.GetSubErrorCode());
    });
    if (!call.Delivered()) {
        return false;
    }
    if (call.RawAnswer().empty()) {
        result.Error = BadServerResponse(kSubSystemClient);
        BCAST_LOG(5, "[%s]empty strRawData![%s(%d)]");
        return false;
    }
    if (!call.Succeeded()) {
        BCAST_LOG(5, "[%s]ParseRawData failed, [SubSystem: %d],[MainError: %d],[SubError: %d][%s(%d)]",
                  result.Error.GetSubSystemErrorCode(), result.Error.GetMainErrorCode(),
                  result.Error.GetSubErrorCode());
        return false;
    }
    ParseBroadUrlRawData(call.Answer(), result.Urls);
    UpdateDeviceLogins(result.Urls);
    return true;
}

void ParseBroadcastUrl(const std::string& url, BroadcastUrlInfo& info, bool isVersion1) {
    if (url.empty()) {
        return;
    }
    // The method sits between "[" and ":" in the form the server sends ("[sms:...]rtsp://..."). The length
    // is the colon's position minus one, which is the method's length only when "[" comes first.
    const std::size_t bracket = url.find('[');
    const std::size_t colon = url.find(':');
    std::string method;
    const std::size_t start = bracket == std::string::npos ? 0 : bracket + 1;
    if (colon != std::string::npos && colon >= 1 && start <= url.size()) {
        method = url.substr(start, colon - 1);
    } else if (start <= url.size()) {
        method = url.substr(start);
    }
    std::transform(method.begin(), method.end(), method.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    if (method == "sms") {
        info.Method = isVersion1 ? kMethodStreamingV1 : kMethodStreaming;
        info.Url = url;
    } else if (method == "sdk") {
        info.Method = kMethodDeviceSdk;
        info.Url = url;
    } else {
        BCAST_LOG(5,
                  "[%s][CVoiceTalkBaseRequestImpl::ParseVoiceTalkUrl] Invalid Voice Talk Method %s[%s(%d)]",
                  method.c_str());
    }
}

bool ParseBroadUrlRawData(ErrorCode& error, std::vector<BroadcastUrlInfo>& urls, const std::string& rawData) {
    CRapidJsonProto response;
    error = CheckEnvelope(rawData, response);
    if (error.GetSubErrorCode() != 0) {
        return false;
    }
    ParseBroadUrlRawData(response, urls);
    return true;
}

void ParseBroadUrlRawData(const CRapidJsonProto& response, std::vector<BroadcastUrlInfo>& urls) {
    auto* user = BusinessCommon::CUserCommonManager::Instance();
    const std::string list = "/ResponseStatus/Data/CommonUrlList/CommonUrl";
    for (const std::string& p : Items(response, list)) {
        BroadcastUrlInfo info;
        const bool newMethod = response.get_int_v(p + "SecureEncryptType", -1) == 1;
        auto decrypt = [&](std::string& plain, const std::string& text) {
            return newMethod ? user->SensitiveInforDecryption(plain, text, false)
                             : user->Decryption(plain, text, false);
        };
        if (response.is_exist(p + "SMSToken") && response.get_int_v(p + "SMSToken/Enable", 0) == 1) {
            info.TokenEnabled = true;
            if (!decrypt(info.Token, response.get_v(p + "SMSToken/Token", ""))) {
                info.Token.clear();
                if (newMethod) {
                    BCAST_LOG(5, "[%s]Decrypt SMSToken password failed. using new decrypt method.[%s(%d)]");
                } else {
                    BCAST_LOG(5, "[%s]Decrypt SMSToken password failed. using old decrypt method.[%s(%d)]");
                }
            }
        }
        info.ResourceGuid = response.get_v(p + "ResourceGuid", "");
        const std::string address = response.get_v(p + "Url", "");
        BCAST_LOG(3, "[%s]Get broadcast play url:[%s], resource guid: %s[%s(%d)]", address.c_str(),
                  info.ResourceGuid.c_str());
        ParseBroadcastUrl(address, info, response.get_int_v(p + "SMSversion", -1) == 1);

        const std::string resources = p + "ResourceList";
        for (const std::string& q : Items(response, resources)) {
            const std::string d = q + "DevcieInfo/";
            BroadcastUrlResource resource;
            resource.ResourceType = response.get_int_v(p + "ResourceType", -1);
            resource.ID = response.get_int_v(q + "ID", -1);
            resource.DeviceIP = response.get_v(d + "DeviceIP", "");
            resource.DevicePort = response.get_int_v(d + "DevicePort", -1);
            resource.DeviceUserName = response.get_v(d + "DeviceUserName", "");
            const std::string password = response.get_v(d + "DevicePassword", "");
            resource.DeviceID = response.get_int_v(d + "DeviceID", -1);
            resource.DeviceType = response.get_int_v(d + "DeviceType", -1);
            resource.DeviceIndex = response.get_v(d + "Channelnfo/DeviceIndex", "");
            resource.DeviceResourceID = response.get_int_v(d + "Channelnfo/DeviceResourceID", -1);
            if (!password.empty() && !decrypt(resource.DevicePassword, password)) {
                resource.DevicePassword.clear();
                if (newMethod) {
                    BCAST_LOG(5, "[%s]Decrypt device password failed. using new decrypt method.[%s(%d)]");
                } else {
                    BCAST_LOG(5, "[%s]Decrypt device password failed. using old decrypt method.[%s(%d)]");
                }
            }
            info.Resources.push_back(resource);
        }
        urls.push_back(info);
    }
}

}  // namespace BroadCastPlugin
