#include "host/Doctor.h"

#include <fcntl.h>
#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <fstream>
#include <thread>
#include <vector>

#include <QCoreApplication>

#include "framework/base/DeviceCodes.h"
#include "framework/base/FileSystem.h"
#include "framework/business/PlatformLogin.h"
#include "framework/business/StreamConfigManager.h"
#include "framework/clientframe/FrameworkManagerInterface.h"
#include "framework/media/audiocom/PortAudioSession.h"
#include "framework/resource/ResourceManager.h"
#include "host/PluginModule.h"

namespace BcastHost {

namespace {

constexpr int kProbeTimeoutMs = 3000;
constexpr int kPushLinkTimeoutMs = 10000;

class CReport {
public:
    explicit CReport(std::ostream& out) : out_(out) {}
    void Ok(const std::string& check, const std::string& detail) {
        out_ << "ok   " << check << ": " << detail << std::endl;
    }
    void Fail(const std::string& check, const std::string& why, const std::string& todo) {
        out_ << "FAIL " << check << ": " << why << "; " << todo << std::endl;
        ++failures_;
    }
    int Failures() const { return failures_; }

private:
    std::ostream& out_;
    int failures_ = 0;
};

void CheckDataDirectory(const ClientConfig& config, const std::string& configPath, CReport& report) {
    const std::string probe = config.dataPath + ".bcast-doctor-" + std::to_string(getpid());
    bool writable = Tal::Base::FileSystem::MakeFullDir(config.dataPath);
    if (writable) {
        std::ofstream file(probe);
        writable = static_cast<bool>(file << "probe\n");
    }
    std::remove(probe.c_str());
    if (writable) {
        report.Ok("data directory", config.dataPath + " is writable");
    } else {
        report.Fail("data directory", config.dataPath + " cannot be created or written",
                    "set /SysConfig/DataPath in " + configPath + " to a directory this user can write");
    }
}

void CheckModule(const std::string& modulePath, CReport& report) {
    CPluginModule module;
    std::string error;
    if (module.Load(modulePath, error)) {
        report.Ok("module", modulePath + " loads with every entry point");
    } else {
        report.Fail("module", error, "reinstall bcast-client or name the module with --module");
    }
}

// Waits for the push link while the application delivers events, bounded.
bool WaitForPushLink(int timeoutMs) {
    auto* framework = TalClientFrameWork::CFrameworkManagerInterface::Instance();
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    while (!framework->IsPushLinkConnected()) {
        if (std::chrono::steady_clock::now() >= deadline) {
            return false;
        }
        QCoreApplication::processEvents();
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    return true;
}

// Probes the devices the client itself connects to, as the platform lists them: devices reached through
// their network interface (TCP) that are not IP speakers streamed to by the platform. IP speakers whose
// stream access type is automatic, delegate or centre delegate get their audio from the platform's streaming
// server, and RTP over UDP gives no answer to probe: both are counted, not probed.
void CheckSpeakerPorts(CReport& report) {
    ResourceManager::CDownloadLogicalResource request;
    request.SetVal_source_type(ResourceManager::kSourceTypeBroadcastElement);
    if (!ResourceManager::CDownloadResourceManager::Instance()->SynIncrementalDownloadLogicalResource(
            request)) {
        report.Fail("speaker ports", "the platform did not list its speakers",
                    "check the platform's log and that the user may read the site's resources");
        return;
    }
    auto* streamConfig = BusinessCommon::CStreamConfigManager::Instance();
    const bool accessTypesKnown = streamConfig->RefreshStreamAccessTypes();
    int probed = 0;
    int streamed = 0;
    int udp = 0;
    std::vector<std::string> unreachable;
    for (const auto& device : ResourceManager::CDeviceManager::Instance()->GetAllDevices()) {
        const int protocol = device->GetAccessProtocol();
        if (protocol == Tal::Base::kAccessProtocolRtpOverUdp) {
            ++udp;
            continue;
        }
        if (protocol != Tal::Base::kAccessProtocolDeviceNetwork || device->GetIPAddress().empty() ||
            device->GetPort() == 0) {
            continue;
        }
        if (accessTypesKnown && device->GetDeviceType() == Tal::Base::kDeviceTypeIpSpeaker) {
            const int access = streamConfig->GetStreamAccessTypeByIpspeakerID(device->GetID());
            if (access == BusinessCommon::kStreamAccessAutomatic ||
                access == BusinessCommon::kStreamAccessDelegate ||
                access == BusinessCommon::kStreamAccessCentreDelegate) {
                ++streamed;
                continue;
            }
        }
        ++probed;
        std::string error;
        const std::string where = device->GetIPAddress() + ":" + std::to_string(device->GetPort());
        if (!ProbeTcp(device->GetIPAddress(), device->GetPort(), kProbeTimeoutMs, error)) {
            unreachable.push_back(device->GetName() + " " + where + " (" + error + ")");
        }
    }
    const std::string notProbed = " (not probed: " + std::to_string(streamed) +
                                  " streamed to by the platform, " + std::to_string(udp) +
                                  " reached by RTP over UDP)";
    if (!unreachable.empty()) {
        std::string list;
        for (const std::string& entry : unreachable) {
            list += (list.empty() ? "" : ", ") + entry;
        }
        report.Fail("speaker ports",
                    std::to_string(unreachable.size()) + " of " + std::to_string(probed) +
                        " devices unreachable: " + list,
                    "check the devices' power and network, and that no firewall blocks their ports");
    } else if (probed + streamed + udp == 0) {
        report.Fail("speaker ports", "the platform lists no speaker", "add speakers to the site");
    } else {
        report.Ok("speaker ports",
                  std::to_string(probed) + " devices the client connects to answer over TCP" + notProbed);
    }
}

void CheckAudio(CReport& report) {
    using Tal::AudioCom::DeviceDirection;
    Tal::AudioCom::CPortAudioSession session;
    if (!session.IsOpen()) {
        const std::string why = "PortAudio cannot start: " + session.ErrorText();
        report.Fail("audio capture", why, "check the sound system (ALSA, PulseAudio)");
        report.Fail("audio playback", why, "check the sound system (ALSA, PulseAudio)");
        return;
    }
    for (DeviceDirection direction : {DeviceDirection::kCapture, DeviceDirection::kPlay}) {
        const bool capture = direction == DeviceDirection::kCapture;
        const std::string check = capture ? "audio capture" : "audio playback";
        const auto devices = Tal::AudioCom::ListDevices(direction);
        const Tal::AudioCom::DeviceEntry* chosen = nullptr;
        for (const auto& entry : devices) {
            if (entry.info.isDefault != 0) {
                chosen = &entry;
            }
        }
        if (chosen == nullptr) {
            report.Fail(check, std::string("no default ") + (capture ? "input" : "output") + " device",
                        capture
                            ? "connect a microphone, or check that PulseAudio or ALSA has a source"
                            : "connect speakers or headphones, or check that PulseAudio or ALSA has a sink");
        } else {
            report.Ok(check, std::string(chosen->info.deviceName) + " (" + chosen->info.hostApiName + ", " +
                                 std::to_string(devices.size()) + " devices)");
        }
    }
}

}  // namespace

bool ProbeTcp(const std::string& host, int port, int timeoutMs, std::string& error) {
    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    const int resolved = getaddrinfo(host.c_str(), std::to_string(port).c_str(), &hints, &found);
    if (resolved != 0) {
        error = std::string("cannot resolve ") + host + ": " + gai_strerror(resolved);
        return false;
    }
    error = "no address";
    bool connected = false;
    for (addrinfo* a = found; a != nullptr && !connected; a = a->ai_next) {
        const int fd = socket(a->ai_family, a->ai_socktype | SOCK_NONBLOCK | SOCK_CLOEXEC, a->ai_protocol);
        if (fd < 0) {
            error = std::strerror(errno);
            continue;
        }
        int rc = connect(fd, a->ai_addr, a->ai_addrlen);
        if (rc != 0 && errno == EINPROGRESS) {
            pollfd p{fd, POLLOUT, 0};
            rc = poll(&p, 1, timeoutMs);
            if (rc == 0) {
                error = "no answer within " + std::to_string(timeoutMs) + " ms";
                rc = -1;
            } else if (rc > 0) {
                int soError = 0;
                socklen_t length = sizeof(soError);
                getsockopt(fd, SOL_SOCKET, SO_ERROR, &soError, &length);
                rc = soError == 0 ? 0 : -1;
                if (soError != 0) {
                    error = std::strerror(soError);
                }
            } else {
                error = std::strerror(errno);
            }
        } else if (rc != 0) {
            error = std::strerror(errno);
        }
        connected = rc == 0;
        close(fd);
    }
    freeaddrinfo(found);
    return connected;
}

int RunDoctor(const ClientConfig& config, const std::string& configPath, const std::string& modulePath,
              std::ostream& out) {
    CReport report(out);
    CheckDataDirectory(config, configPath, report);
    CheckModule(modulePath, report);

    const std::string platform = config.platformAddress + ":" + std::to_string(config.platformPort);
    std::string error;
    const bool reachable = ProbeTcp(config.platformAddress, config.platformPort, kProbeTimeoutMs, error);
    if (reachable) {
        report.Ok("platform reachable", platform + " accepts connections");
    } else {
        report.Fail(
            "platform reachable", platform + ": " + error,
            "start bcast-platform there, or correct /Platform/Address and /Platform/Port in " + configPath);
    }
    bool loggedIn = false;
    if (reachable) {
        BusinessCommon::PlatformLoginRequest login = LoginRequestOf(config);
        login.renewSession = false;
        loggedIn = BusinessCommon::LoginToPlatform(login, error);
        if (loggedIn) {
            report.Ok("login", config.userName + " accepted by " + platform);
        } else {
            report.Fail(
                "login", error,
                "check /User/Name, /User/Password, /Platform/Https and /Platform/CaFile in " + configPath);
        }
    } else {
        report.Fail("login", "not tried, the platform is unreachable", "fix the platform check first");
    }
    if (loggedIn) {
        if (WaitForPushLink(kPushLinkTimeoutMs)) {
            report.Ok("push link", "connected");
        } else {
            report.Fail("push link",
                        "not connected within " + std::to_string(kPushLinkTimeoutMs / 1000) + " s",
                        "check that the platform's push port (by default the REST port + 1) is reachable");
        }
        CheckSpeakerPorts(report);
        BusinessCommon::LogoutFromPlatform();
    } else {
        report.Fail("push link", "not tried without a login", "fix the login first");
        report.Fail("speaker ports", "not tried without a login", "fix the login first");
    }
    CheckAudio(report);
    out << (report.Failures() == 0 ? "doctor: all checks passed"
                                   : "doctor: " + std::to_string(report.Failures()) + " checks failed")
        << std::endl;
    return report.Failures() == 0 ? 0 : 1;
}

}  // namespace BcastHost
