// libFuzzer target: the device protocol as the module's device-network client reads the devices' answers,
// and as the device simulator reads the requests' digest authorisation. Input fields are separated by 0x01:
//   answer body 0x01 Authorization header [0x01 two bytes: curl code, HTTP status selector]
// The body is read as a login answer and as the answer to opening a talk, and mapped to an error with the
// curl code and status; "@N" in the header stands for the nonce the simulator's last challenge gave, so that
// verification gets past the nonce check. Besides crashes and hangs, the target traps when a refused login
// answer changes the device information, an accepted one leaves a text field unterminated, or the simulator
// accepts a header that does not name its user and the requested target.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "FuzzSupport.h"
#include "framework/media/devnet/DeviceAnswers.h"
#include "framework/media/devnet/DeviceHttp.h"
#include "platform/devicesim/DigestAuth.h"

using FuzzSupport::Check;

namespace {

const char* const kRealm = "devsim";
const char* const kUser = "admin";
const char* const kPassword = "secret";
const char* const kTarget = "/ISAPI/System/TwoWayAudio/channels/1/open";

DeviceSim::CDigestAuthenticator* g_auth = nullptr;
std::string g_nonce;

std::string NonceOf(const std::string& challenge) {
    const std::string key = "nonce=\"";
    const std::size_t at = challenge.find(key);
    const std::size_t end = challenge.find('"', at + key.size());
    return challenge.substr(at + key.size(), end - at - key.size());
}

bool Setup() {
    FuzzSupport::QuietLogs();
    g_auth = new DeviceSim::CDigestAuthenticator(kRealm, kUser, kPassword);
    g_nonce = NonceOf(g_auth->Challenge());
    // A header built as a client builds it is accepted: the harness reaches the digest comparison.
    const std::string ha1 = DeviceSim::Md5Hex(std::string(kUser) + ":" + kRealm + ":" + kPassword);
    const std::string ha2 = DeviceSim::Md5Hex(std::string("PUT:") + kTarget);
    const std::string response = DeviceSim::Md5Hex(ha1 + ":" + g_nonce + ":00000001:abc:auth:" + ha2);
    const std::string header = std::string("Digest username=\"") + kUser + "\", realm=\"" + kRealm +
                               "\", nonce=\"" + g_nonce + "\", uri=\"" + kTarget +
                               "\", qop=auth, nc=00000001, cnonce=\"abc\", response=\"" + response + "\"";
    Check(g_auth->Verify("PUT", kTarget, header));
    return true;
}
const bool g_ready = Setup();

bool Terminated(const char* text, std::size_t size) {
    return std::memchr(text, '\0', size) != nullptr;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    (void)g_ready;
    const std::vector<std::string> fields = FuzzSupport::SplitFields(data, size);
    const std::string& body = fields[0];

    DEVNET_DEVICEINFO info;
    std::memset(&info, 0x5A, sizeof(info));
    DEVNET_DEVICEINFO before = info;
    if (DevNet::ParseDeviceInfo(body, info)) {
        Check(Terminated(info.serialNumber, sizeof(info.serialNumber)));
        Check(Terminated(info.deviceName, sizeof(info.deviceName)));
        Check(Terminated(info.model, sizeof(info.model)));
        Check(Terminated(info.firmwareVersion, sizeof(info.firmwareVersion)));
    } else {
        Check(std::memcmp(&info, &before, sizeof(info)) == 0);
    }

    const std::string talkId = DevNet::ParseTalkId(body);
    Check(talkId.find('\0') == std::string::npos);

    DevNet::HttpResult result;
    if (fields.size() > 2 && fields[2].size() >= 2) {
        result.code = static_cast<CURLcode>(static_cast<uint8_t>(fields[2][0]) % 100);
        result.status = 100 + static_cast<uint8_t>(fields[2][1]) * 2;
    } else {
        result.status = 200;
    }
    result.body = body;
    const uint32_t error = DevNet::ErrorForResult(result);
    (void)error;

    if (fields.size() > 1) {
        std::string header = fields[1];
        for (std::size_t at = header.find("@N"); at != std::string::npos; at = header.find("@N", at)) {
            header.replace(at, 2, g_nonce);
            at += g_nonce.size();
        }
        if (g_auth->Verify("PUT", kTarget, header)) {
            Check(header.find(kUser) != std::string::npos && header.find(kTarget) != std::string::npos);
        }
    }
    return 0;
}
