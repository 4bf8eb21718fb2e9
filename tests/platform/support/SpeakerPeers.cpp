#include "SpeakerPeers.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <cstring>
#include <functional>
#include <thread>

#include "framework/media/codec/G711Codec.h"
#include "framework/media/devnet/DevNet.h"
#include "framework/media/zpsclient/ZPSClient.h"

namespace PlatformTest {

std::vector<uint8_t> G711Tone(double hz, double seconds, bool alaw, double amplitude) {
    const std::size_t count = static_cast<std::size_t>(seconds * 8000);
    std::vector<uint8_t> out(count);
    for (std::size_t i = 0; i < count; ++i) {
        const auto sample =
            static_cast<int16_t>(std::lround(amplitude * 32767.0 * std::sin(2.0 * M_PI * hz * i / 8000.0)));
        out[i] = alaw ? Tal::MediaCodec::LinearToAlaw(sample) : Tal::MediaCodec::LinearToUlaw(sample);
    }
    return out;
}

std::vector<int16_t> DecodeUlaw(const std::vector<uint8_t>& data) {
    std::vector<int16_t> out;
    out.reserve(data.size());
    for (uint8_t byte : data) {
        out.push_back(Tal::MediaCodec::UlawToLinear(byte));
    }
    return out;
}

int SendPaced(const std::vector<uint8_t>& data, std::size_t frameBytes,
              const std::function<bool(const uint8_t*, std::size_t)>& send) {
    const auto start = std::chrono::steady_clock::now();
    int sent = 0;
    for (std::size_t at = 0; at < data.size(); at += frameBytes) {
        std::this_thread::sleep_until(start + std::chrono::microseconds(at * 125));  // 8000 bytes per second
        if (!send(data.data() + at, std::min(frameBytes, data.size() - at))) {
            break;
        }
        ++sent;
    }
    return sent;
}

CZpsSession::CZpsSession() : handle_(ZPSClient_CreateSession()) {}

CZpsSession::~CZpsSession() {
    if (handle_ >= 0) {
        ZPSClient_DestroySession(handle_);
    }
}

bool CZpsSession::Start(const std::string& url, const std::string& token, const std::string& user,
                        const std::string& password, int& error, bool udp) {
    error = 0;
    if (handle_ < 0) {
        error = static_cast<int>(ZPSClient_GetLastError());
        return false;
    }
    ZPSClient_SetRtspTimeout(handle_, 6);
    std::string params = std::string("{\"transport\":\"") + (udp ? "udp" : "tcp") + "\"";
    if (!token.empty()) {
        params += ",\"token\":\"" + token + "\"";
    }
    params += "}";
    ZPSClient_SetSessionParams(handle_, params.c_str(), static_cast<int>(params.size()));
    ZPSClient_SetDataCallBack(handle_, &CZpsSession::OnData, this);
    if (ZPSClient_StartVoiceTalk(handle_, url.c_str(), "bcast-platform-test", 36864, user.c_str(),
                                 password.c_str()) != 0) {
        error = static_cast<int>(ZPSClient_GetLastError());
        return false;
    }
    return true;
}

bool CZpsSession::Send(const uint8_t* data, std::size_t size) {
    return ZPSClient_SendVoiceData(handle_, data, static_cast<int>(size)) == 0;
}

void CZpsSession::Stop() {
    if (handle_ >= 0) {
        ZPSClient_Stop(handle_);
    }
}

std::vector<uint8_t> CZpsSession::Received() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return received_;
}

void CZpsSession::ClearReceived() {
    std::lock_guard<std::mutex> lock(mutex_);
    received_.clear();
}

bool CZpsSession::AudioInfo(uint32_t& codec, uint32_t& sampleRate) const {
    ZPSClient_AudioInfo info{};
    if (ZPSClient_GetAudioInfo(handle_, &info) != 0) {
        return false;
    }
    codec = info.codec;
    sampleRate = info.sampleRate;
    return true;
}

int CZpsSession::OnData(int, void* user, int, const unsigned char* data, unsigned int size) {
    auto* self = static_cast<CZpsSession*>(user);
    std::lock_guard<std::mutex> lock(self->mutex_);
    self->received_.insert(self->received_.end(), data, data + size);
    return 0;
}

CDevnetTalk::~CDevnetTalk() {
    Close();
}

bool CDevnetTalk::Login(const std::string& address, int port, const std::string& user,
                        const std::string& password, uint32_t& error) {
    DEVNET_DEVICEINFO info{};
    user_ = DEVNET_Login(address.c_str(), static_cast<uint16_t>(port), user.c_str(), password.c_str(), &info);
    error = user_ < 0 ? DEVNET_GetLastError() : 0;
    return user_ >= 0;
}

bool CDevnetTalk::Open(int channel, uint32_t& error) {
    static const char kRequest[] = "PUT /DXAPI/VideoIntercom/broadcast/realtime?format=json";
    static const char kBody[] =
        R"({"BroadcastRealtime":{"enabled":true,"transportType":"unicast","audioLevel":15,"audioType":"G.711ulaw"}})";
    char answer[4096] = {0};
    DEVNET_STDCONFIG_INPUT input{kRequest, kBody, static_cast<uint32_t>(std::strlen(kBody))};
    DEVNET_STDCONFIG_OUTPUT output{answer, sizeof(answer), 0, 0};
    if (DEVNET_StdConfig(user_, &input, &output) == 0) {
        error = DEVNET_GetLastError();
        return false;
    }
    talk_ = DEVNET_StartVoiceTalk(user_, channel, nullptr, nullptr);
    error = talk_ < 0 ? DEVNET_GetLastError() : 0;
    return talk_ >= 0;
}

bool CDevnetTalk::Send(const uint8_t* data, std::size_t size) {
    return DEVNET_SendVoiceData(talk_, reinterpret_cast<const char*>(data), static_cast<uint32_t>(size)) != 0;
}

void CDevnetTalk::Close() {
    if (talk_ >= 0) {
        DEVNET_StopVoiceTalk(talk_);
        talk_ = -1;
    }
    if (user_ >= 0) {
        DEVNET_Logout(user_);
        user_ = -1;
    }
}

CRtpSender::CRtpSender(int port, int payloadType, uint32_t ssrc)
    : socket_(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)), port_(port), stream_(payloadType, ssrc) {}

CRtpSender::~CRtpSender() {
    if (socket_ >= 0) {
        ::close(socket_);
    }
}

bool CRtpSender::Send(const uint8_t* payload, std::size_t size) {
    // One timestamp unit per payload byte: what the G.711 streams of these tests carry.
    const std::vector<uint8_t> packet = stream_.Next(payload, size, static_cast<uint32_t>(size));
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(static_cast<uint16_t>(port_));
    to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const ssize_t sent =
        ::sendto(socket_, packet.data(), packet.size(), 0, reinterpret_cast<sockaddr*>(&to), sizeof(to));
    return sent == static_cast<ssize_t>(packet.size());
}

}  // namespace PlatformTest
