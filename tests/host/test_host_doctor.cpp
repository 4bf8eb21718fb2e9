// `bcast-host doctor` as a program against the real platform and a private PulseAudio server: every check
// passes when all is up, and the failing checks name what is wrong when the platform is down, when there
// is no audio device, and when the login or the data directory is wrong.

#include <gtest/gtest.h>

#include <sys/socket.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "PlatformProcess.h"
#include "PulseAudioPeer.h"
#include "RestClient.h"
#include "TestProcess.h"

namespace {

void WriteConfig(const std::string& path, int port, const std::string& password,
                 const std::string& dataPath) {
    std::ofstream(path) << R"({"Platform":{"Address":"127.0.0.1","Port":)" << port << R"(},"User":{"Name":")"
                        << PlatformTest::kUser << R"(","Password":")" << password
                        << R"("},"SysConfig":{"Language":"en_US","StderrLogLevel":6,"DataPath":")" << dataPath
                        << R"("}})";
}

// The doctor's line of one check: "ok   CHECK: ..." or "FAIL CHECK: ...", empty when there is none.
std::string CheckLine(const std::string& output, const std::string& check) {
    std::istringstream in(output);
    std::string found;
    for (std::string line; std::getline(in, line);) {
        if (line.rfind("ok   " + check + ":", 0) == 0 || line.rfind("FAIL " + check + ":", 0) == 0) {
            EXPECT_TRUE(found.empty()) << "two lines for " << check << "\n" << output;
            found = line;
        }
    }
    return found;
}

void ExpectOk(const std::string& output, const std::string& check) {
    EXPECT_EQ(CheckLine(output, check).rfind("ok   ", 0), 0u) << check << "\n" << output;
}

void ExpectFail(const std::string& output, const std::string& check, const std::string& fragment) {
    const std::string line = CheckLine(output, check);
    EXPECT_EQ(line.rfind("FAIL ", 0), 0u) << check << "\n" << output;
    EXPECT_NE(line.find(fragment), std::string::npos) << check << ": " << fragment << "\n" << output;
    EXPECT_NE(line.find("; "), std::string::npos) << "a failed check says what to do: " << line;
}

}  // namespace

TEST(HostDoctor, ChecksThePlatformTheLoginThePushLinkThePortsTheAudioAndTheDataDirectory) {
    BcastTest::CPulseAudioPeer pulse;
    std::string error;
    ASSERT_TRUE(pulse.Start(&error)) << error;
    PlatformTest::CPlatformProcess platform;
    ASSERT_TRUE(platform.Start({"--fixture", PlatformTest::DemoFixture()})) << platform.Error();
    const std::string& rest = platform.RestUrl();
    const int port = std::stoi(rest.substr(rest.rfind(':') + 1));
    BcastTest::CTempDir dir("host-doctor");
    const std::vector<std::string> checks = {"data directory", "module",        "platform reachable",
                                             "login",          "push link",     "speaker ports",
                                             "audio capture",  "audio playback"};
    auto doctor = [&](const std::string& config, const std::vector<std::string>& env) {
        return BcastTest::RunProcess({BcastTest::Program("bcast-host"), "doctor", "--config", config}, 120000,
                                     env);
    };

    {
        SCOPED_TRACE("everything up");
        WriteConfig(dir.File("up.json"), port, PlatformTest::kPassword, dir.File("data"));
        const BcastTest::ProcessResult run = doctor(dir.File("up.json"), pulse.ClientEnvironment());
        EXPECT_EQ(run.exitCode, 0) << run.output;
        for (const std::string& check : checks) {
            ExpectOk(run.output, check);
        }
        // The demo site: the lobby speaker (direct) and the gate encoder answer on their device interface;
        // the hall and corridor speakers get their audio from the platform, two speakers by RTP over UDP.
        EXPECT_NE(CheckLine(run.output, "speaker ports")
                      .find("2 devices the client connects to answer over TCP (not probed: 2 streamed to by "
                            "the platform, 2 reached by RTP over UDP)"),
                  std::string::npos)
            << run.output;
        EXPECT_NE(run.output.find("doctor: all checks passed"), std::string::npos) << run.output;
    }
    {
        SCOPED_TRACE("platform down");
        const int unused = BcastTest::FreeLoopbackPort(SOCK_STREAM);
        ASSERT_GT(unused, 0);
        WriteConfig(dir.File("down.json"), unused, PlatformTest::kPassword, dir.File("data"));
        const BcastTest::ProcessResult run = doctor(dir.File("down.json"), pulse.ClientEnvironment());
        EXPECT_EQ(run.exitCode, 1) << run.output;
        ExpectFail(run.output, "platform reachable", "127.0.0.1:" + std::to_string(unused));
        EXPECT_NE(CheckLine(run.output, "platform reachable").find("start bcast-platform"),
                  std::string::npos);
        EXPECT_NE(CheckLine(run.output, "platform reachable").find(dir.File("down.json")), std::string::npos)
            << "names the configuration to correct";
        ExpectFail(run.output, "login", "not tried");
        ExpectFail(run.output, "push link", "not tried");
        ExpectFail(run.output, "speaker ports", "not tried");
        ExpectOk(run.output, "data directory");
        ExpectOk(run.output, "module");
        ExpectOk(run.output, "audio capture");
        EXPECT_NE(run.output.find("doctor: 4 checks failed"), std::string::npos) << run.output;
    }
    {
        SCOPED_TRACE("no audio device");
        // ALSA reaches only PulseAudio (ctest's asound.conf), and no PulseAudio server answers there.
        const BcastTest::ProcessResult run =
            doctor(dir.File("up.json"),
                   {"PULSE_SERVER=unix:" + dir.File("no-pulse-server"), "JACK_NO_START_SERVER=1"});
        EXPECT_EQ(run.exitCode, 1) << run.output;
        ExpectFail(run.output, "audio capture", "no default input device");
        ExpectFail(run.output, "audio playback", "no default output device");
        ExpectOk(run.output, "login");
        ExpectOk(run.output, "push link");
        EXPECT_NE(run.output.find("doctor: 2 checks failed"), std::string::npos) << run.output;
    }
    {
        SCOPED_TRACE("wrong password and a data directory that cannot be written");
        WriteConfig(dir.File("bad.json"), port, "not-the-password", "/proc/bcast-doctor");
        const BcastTest::ProcessResult run = doctor(dir.File("bad.json"), pulse.ClientEnvironment());
        EXPECT_EQ(run.exitCode, 1) << run.output;
        ExpectOk(run.output, "platform reachable");
        ExpectFail(run.output, "login", "/User/Password");
        ExpectFail(run.output, "data directory", "/proc/bcast-doctor/");
        ExpectFail(run.output, "push link", "not tried");
    }
    EXPECT_EQ(platform.Stop(), 0) << platform.Stderr();
    pulse.Stop();
}
