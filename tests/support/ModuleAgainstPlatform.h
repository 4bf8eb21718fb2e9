#pragma once
// The module in this process against a platform process and a PulseAudio virtual microphone: the demo
// site's platform, the framework started with a scratch data directory and a file log, the demo operator
// logged in, the broadcast controller started. For benchmarks and the soak, which drive the controller.
// Another site, other platform options and the audio back end kept up (as the plugin's lifecycle keeps it)
// are chosen with RigOptions.

#include <memory>
#include <string>
#include <vector>

#include "BroadCastPlugin/controller/BroadcastController/BroadcastController.h"
#include "PlatformProcess.h"
#include "PulseAudioPeer.h"
#include "RestClient.h"
#include "TestFiles.h"
#include "framework/base/FormatLog.h"
#include "framework/business/BusinessCommon.h"
#include "framework/business/PlatformLogin.h"
#include "framework/media/videotool/VideoTool.h"

namespace BcastTest {

struct RigOptions {
    std::vector<std::string> platformArgs{"--fixture", PlatformTest::DemoFixture()};
    bool audioBackEndUp = false;  ///< start the audio back end before the login and keep it up
};

class CModuleRig {
public:
    explicit CModuleRig(const std::string& tag) : work_(tag) {}
    ~CModuleRig() {
        if (moduleStarted_) {
            BroadCastPlugin::CBroadcastController::Instance()->Unit();
            BusinessCommon::LogoutFromPlatform();
            BusinessCommon::UnInitBusinessCommon();
        }
        if (audioBackEndUp_) {
            ORVVideoTool::UnInitVoiceEnvir();
        }
        platform_.Stop();
        pulse_.Stop();
    }
    CModuleRig(const CModuleRig&) = delete;
    CModuleRig& operator=(const CModuleRig&) = delete;

    /// False with the reason in `error` when a peer, the login or the controller does not start.
    bool Start(std::string& error) { return Start(RigOptions(), error); }

    bool Start(const RigOptions& options, std::string& error) {
        if (!pulse_.Start(&error)) {
            error = "PulseAudio: " + error;
            return false;
        }
        pulse_.ExportClientEnvironment();
        if (!platform_.Start(options.platformArgs)) {
            error = "platform: " + platform_.Error();
            return false;
        }
        Tal::Base::LogConfig logConfig;
        logConfig.directory = work_.File("log");  // the log goes to a file; stderr only for fatal lines
        logConfig.stderrLevel = Tal::Base::kLogFatal;
        Tal::Base::InitLog(logConfig);
        BusinessCommon::InitBusinessCommon(nullptr, "en_US");
        BusinessCommon::CFrameSystemConfigMgr::Instance()->SetClientDataPath(work_.File("client"));
        BusinessCommon::CFrameSystemConfigMgr::Instance()->SetVideoCaptureDataPath(work_.File("capture"));
        moduleStarted_ = true;
        if (options.audioBackEndUp) {
            audioBackEndUp_ = ORVVideoTool::InitVoiceEnvir(R"({"GeneralInit":true,"CirroInit":true})");
            if (!audioBackEndUp_) {
                error = "the audio back end did not start";
                return false;
            }
        }
        BusinessCommon::PlatformLoginRequest login;
        login.address = "127.0.0.1";
        login.port = std::stoi(platform_.RestUrl().substr(platform_.RestUrl().rfind(':') + 1));
        login.user = PlatformTest::kUser;
        login.password = PlatformTest::kPassword;
        if (!BusinessCommon::LoginToPlatform(login, error)) {
            error = "login: " + error;
            return false;
        }
        if (!BroadCastPlugin::CBroadcastController::Instance()->Init()) {
            error = "the controller did not start";
            return false;
        }
        return true;
    }

    CPulseAudioPeer& Pulse() { return pulse_; }
    PlatformTest::CPlatformProcess& Platform() { return platform_; }
    const CTempDir& Work() const { return work_; }

private:
    CPulseAudioPeer pulse_;
    PlatformTest::CPlatformProcess platform_;
    CTempDir work_;
    bool moduleStarted_ = false;
    bool audioBackEndUp_ = false;
};

}  // namespace BcastTest
