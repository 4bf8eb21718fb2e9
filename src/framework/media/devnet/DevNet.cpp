#include "framework/media/devnet/DevNet.h"

#include <rapidjson/document.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "framework/base/FormatLog.h"
#include "framework/base/HandleTable.h"
#include "framework/media/devnet/DeviceAnswers.h"
#include "framework/media/devnet/DeviceHttp.h"
#include "framework/media/devnet/VoiceTalk.h"

namespace {

using DevNet::CVoiceTalk;
using DevNet::DeviceEndpoint;
using DevNet::HttpResult;

constexpr const char* kLogModule = "DevNet";

thread_local uint32_t t_lastError = DEVNET_NOERROR;

int32_t Fail(uint32_t error) {
    t_lastError = error;
    return 0;
}

int32_t Succeed() {
    t_lastError = DEVNET_NOERROR;
    return 1;
}

/// Logins and voice talks by id, each numbered from 0. Calls take a reference and leave the table's lock
/// before they touch the network.
Tal::Base::CHandleTable<const DeviceEndpoint>& Users() {
    static Tal::Base::CHandleTable<const DeviceEndpoint> table;
    return table;
}

Tal::Base::CHandleTable<CVoiceTalk>& Talks() {
    static Tal::Base::CHandleTable<CVoiceTalk> table;
    return table;
}

/// The login's device and a request handle for it; DEVNET_NOERROR (0) or why there is none.
uint32_t OpenRequest(int32_t userId, DeviceEndpoint& endpoint, DevNet::EasyPtr& easy) {
    auto user = Users().Find(userId);
    if (!user) {
        return DEVNET_INVALID_USERID;
    }
    endpoint = *user;
    easy = DevNet::NewDeviceHandle(endpoint);
    return easy ? DEVNET_NOERROR : DEVNET_NETWORK_FAIL_CONNECT;
}

}  // namespace

namespace DevNet {

namespace {

void CopyText(char* target, size_t size, const rapidjson::Value& object, const char* key) {
    if (object.HasMember(key) && object[key].IsString()) {
        std::strncpy(target, object[key].GetString(), size - 1);
        target[size - 1] = '\0';
    }
}

int32_t ReadInt(const rapidjson::Value& object, const char* key) {
    return object.HasMember(key) && object[key].IsInt() ? object[key].GetInt() : 0;
}

}  // namespace

bool ParseDeviceInfo(const std::string& body, DEVNET_DEVICEINFO& info) {
    rapidjson::Document document;
    document.Parse(body.c_str(), body.size());
    if (document.HasParseError() || !document.IsObject() || !document.HasMember("DeviceInfo") ||
        !document["DeviceInfo"].IsObject()) {
        return false;
    }
    const auto& device = document["DeviceInfo"];
    info = DEVNET_DEVICEINFO{};
    CopyText(info.serialNumber, sizeof(info.serialNumber), device, "serialNumber");
    CopyText(info.deviceName, sizeof(info.deviceName), device, "deviceName");
    CopyText(info.model, sizeof(info.model), device, "model");
    CopyText(info.firmwareVersion, sizeof(info.firmwareVersion), device, "firmwareVersion");
    info.channelCount = ReadInt(device, "channelCount");
    info.voiceChannelCount = ReadInt(device, "voiceChannelCount");
    return true;
}

}  // namespace DevNet

extern "C" {

int32_t DEVNET_Login(const char* address, uint16_t port, const char* userName, const char* password,
                     DEVNET_DEVICEINFO* deviceInfo) {
    if (address == nullptr || address[0] == '\0' || port == 0 || userName == nullptr || password == nullptr) {
        Fail(DEVNET_PARAMETER_ERROR);
        return -1;
    }
    DeviceEndpoint endpoint;
    endpoint.address = address;
    endpoint.port = port;
    endpoint.userName = userName;
    endpoint.password = password;
    DevNet::EasyPtr easy = DevNet::NewDeviceHandle(endpoint);
    if (!easy) {
        Fail(DEVNET_NETWORK_FAIL_CONNECT);
        return -1;
    }
    HttpResult answer = DevNet::PerformRequest(
        easy.get(), "GET", endpoint.Url("/DXAPI/System/deviceInfo?format=json"), "", nullptr);
    DEVNET_DEVICEINFO info{};
    if (!answer.Ok()) {
        uint32_t error = DevNet::ErrorForResult(answer);
        if (answer.code == CURLE_OK && answer.status == 403) {
            error = DEVNET_LOGIN_REFUSED;
        }
        TAL_LOG(5, kLogModule, "[%s]Login to %s:%u failed: curl %d, http %ld, error %u[%s(%d)]", address,
                static_cast<unsigned>(port), static_cast<int>(answer.code), answer.status, error);
        Fail(error);
        return -1;
    }
    if (!DevNet::ParseDeviceInfo(answer.body, info)) {
        TAL_LOG(5, kLogModule, "[%s]Device %s:%u answered the login with: %s[%s(%d)]", address,
                static_cast<unsigned>(port), answer.body.c_str());
        Fail(DEVNET_NETWORK_RECV_ERROR);
        return -1;
    }
    if (deviceInfo != nullptr) {
        *deviceInfo = info;
    }
    const int32_t userId = Users().Add(std::make_shared<const DeviceEndpoint>(endpoint));
    TAL_LOG(3, kLogModule, "[%s]Logged in to %s (%s) at %s:%u as user %d.[%s(%d)]", info.deviceName,
            info.serialNumber, address, static_cast<unsigned>(port), userId);
    Succeed();
    return userId;
}

int32_t DEVNET_Logout(int32_t userId) {
    if (!Users().Remove(userId)) {
        return Fail(DEVNET_INVALID_USERID);
    }
    // The login's talks end with it.
    for (auto& talk :
         Talks().RemoveIf([userId](const CVoiceTalk& talk) { return talk.UserId() == userId; })) {
        talk->Close();
    }
    return Succeed();
}

int32_t DEVNET_StdConfig(int32_t userId, const DEVNET_STDCONFIG_INPUT* input,
                         DEVNET_STDCONFIG_OUTPUT* output) {
    if (input == nullptr || input->requestUrl == nullptr ||
        (input->inBuffer == nullptr && input->inBufferSize > 0)) {
        return Fail(DEVNET_PARAMETER_ERROR);
    }
    // "PUT /DXAPI/VideoIntercom/broadcast/realtime?format=json": method, one space, absolute path.
    const std::string requestLine = input->requestUrl;
    const size_t space = requestLine.find(' ');
    if (space == std::string::npos || space == 0 || requestLine.size() <= space + 1 ||
        requestLine[space + 1] != '/') {
        return Fail(DEVNET_PARAMETER_ERROR);
    }
    const std::string method = requestLine.substr(0, space);
    const std::string path = requestLine.substr(space + 1);
    DeviceEndpoint endpoint;
    DevNet::EasyPtr easy;
    if (const uint32_t error = OpenRequest(userId, endpoint, easy)) {
        return Fail(error);
    }
    const std::string body = input->inBufferSize > 0 ? std::string(input->inBuffer, input->inBufferSize) : "";
    HttpResult answer = DevNet::PerformRequest(easy.get(), method, endpoint.Url(path), body,
                                               body.empty() ? nullptr : "application/json");
    bool fits = true;
    if (output != nullptr) {
        output->httpStatus = static_cast<int32_t>(answer.status);
        output->returnedSize = static_cast<uint32_t>(answer.body.size());
        if (output->outBuffer != nullptr && output->outBufferSize > 0) {
            const size_t copied = std::min<size_t>(answer.body.size(), output->outBufferSize - 1);
            std::memcpy(output->outBuffer, answer.body.data(), copied);
            output->outBuffer[copied] = '\0';
            fits = copied == answer.body.size();
        }
    }
    if (!answer.Ok()) {
        TAL_LOG(4, kLogModule, "[%s]%s failed on %s: curl %d, http %ld, %s[%s(%d)]", requestLine.c_str(),
                endpoint.address.c_str(), static_cast<int>(answer.code), answer.status, answer.body.c_str());
        return Fail(DevNet::ErrorForResult(answer));
    }
    if (!fits) {
        return Fail(DEVNET_BUFFER_TOO_SMALL);
    }
    return Succeed();
}

int32_t DEVNET_SetDeviceConfig(int32_t userId, uint32_t command, int32_t channel, const void* config,
                               uint32_t configSize) {
    if (config == nullptr || configSize == 0) {
        return Fail(DEVNET_PARAMETER_ERROR);
    }
    DeviceEndpoint endpoint;
    DevNet::EasyPtr easy;
    if (const uint32_t error = OpenRequest(userId, endpoint, easy)) {
        return Fail(error);
    }
    const std::string path =
        "/DXAPI/System/deviceConfig/" + std::to_string(command) + "?channel=" + std::to_string(channel);
    HttpResult answer = DevNet::PerformRequest(easy.get(), "PUT", endpoint.Url(path),
                                               std::string(static_cast<const char*>(config), configSize),
                                               "application/octet-stream");
    if (!answer.Ok()) {
        TAL_LOG(4, kLogModule, "[%s]Configuration %u failed on %s: curl %d, http %ld[%s(%d)]", command,
                endpoint.address.c_str(), static_cast<int>(answer.code), answer.status);
        return Fail(DevNet::ErrorForResult(answer));
    }
    return Succeed();
}

int32_t DEVNET_StartVoiceTalk(int32_t userId, int32_t channel, DEVNET_VoiceDataCallBack callback, void*) {
    if (callback != nullptr) {
        // Our devices send no audio back during a broadcast talk.
        TAL_LOG(5, kLogModule, "[%s]Audio from the device is not supported; pass no callback.[%s(%d)]");
        Fail(DEVNET_NOSUPPORT);
        return -1;
    }
    if (channel < 1) {
        Fail(DEVNET_CHANNEL_ERROR);
        return -1;
    }
    auto user = Users().Find(userId);
    if (!user) {
        Fail(DEVNET_INVALID_USERID);
        return -1;
    }
    auto talk = std::make_shared<CVoiceTalk>(*user, userId, channel);
    const uint32_t error = talk->Open();
    if (error != DEVNET_NOERROR) {
        Fail(error);
        return -1;
    }
    const int32_t handle = Talks().Add(talk);
    Succeed();
    return handle;
}

int32_t DEVNET_SendVoiceData(int32_t voiceHandle, const char* data, uint32_t size) {
    auto talk = Talks().Find(voiceHandle);
    if (!talk) {
        return Fail(DEVNET_INVALID_HANDLE);
    }
    const uint32_t error = talk->Send(data, size);
    return error == DEVNET_NOERROR ? Succeed() : Fail(error);
}

int32_t DEVNET_StopVoiceTalk(int32_t voiceHandle) {
    auto talk = Talks().Remove(voiceHandle);
    if (!talk) {
        return Fail(DEVNET_INVALID_HANDLE);
    }
    const uint32_t error = talk->Close();
    return error == DEVNET_NOERROR ? Succeed() : Fail(error);
}

uint32_t DEVNET_GetLastError(void) {
    return t_lastError;
}

}  // extern "C"

static_assert(sizeof(DEVNET_BROADCAST_REALTIME_CFG) == 32, "configuration 1059 is 32 bytes");
