// A machine without a sound card: no sound server reachable and ALSA's default device pointing at a card
// that does not exist. PortAudio then initialises and lists no device.

#include <gtest/gtest.h>
#include <portaudio.h>
#include <stdlib.h>

#include <fstream>
#include <memory>

#include "BroadCastPlugin/logical/VoiceProcess/VoiceCapture/VoiceCapture.h"
#include "TestProcess.h"
#include "framework/base/ErrorCode.h"
#include "framework/base/FormatLog.h"
#include "framework/media/audiocom/AudioCom.h"

using namespace BroadCastPlugin;
using namespace BcastTest;

namespace {

class NoSoundCardTest : public ::testing::Test {
public:
    // Before the first use of ALSA in this process: ALSA reads its configuration once.
    static void SetUpTestSuite() {
        dir_ = std::make_unique<CTempDir>("bcast-nocard");
        std::ofstream(dir_->File("asound.conf"))
            << "pcm.!default { type hw card 99 }\nctl.!default { type hw card 99 }\n";
        ::setenv("ALSA_CONFIG_PATH", dir_->File("asound.conf").c_str(), 1);
        ::setenv("PULSE_SERVER", ("unix:" + dir_->File("no-server")).c_str(), 1);
        ::setenv("JACK_NO_START_SERVER", "1", 1);
    }
    static void TearDownTestSuite() { dir_.reset(); }

protected:
    static std::unique_ptr<CTempDir> dir_;
    Tal::Base::CLogCapture log_;
};

std::unique_ptr<CTempDir> NoSoundCardTest::dir_;

void ExpectCaptureError(int code) {
    Tal::Base::Error::ErrorCode error = Tal::Base::Error::GetLastError();
    EXPECT_EQ(error.GetSubSystemErrorCode(), 2);
    EXPECT_EQ(error.GetMainErrorCode(), 29);
    EXPECT_EQ(error.GetSubErrorCode(), code);
}

}  // namespace

TEST_F(NoSoundCardTest, LibraryReportsNoDevices) {
    uint32_t count = 99;
    ASSERT_EQ(AUDIOCOM_GetSoundCardNum(&count), 1) << "PortAudio itself initialises without a card";
    EXPECT_EQ(count, 0u);
    AUDIOCOM_SOUNDCARD_INFO info{};
    EXPECT_EQ(AUDIOCOM_GetOneSoundCardInfo(0, &info), 0);
    EXPECT_EQ(AUDIOCOM_GetLastError(-1), AUDIOCOM_ERR_NO_DEVICE);
    ASSERT_EQ(AUDIOCOM_GetPlayDeviceNum(&count), 1);
    EXPECT_EQ(count, 0u);
    int32_t handle = 5;
    EXPECT_EQ(AUDIOCOM_CreateCaptureHandle(&handle, "default"), 0);
    EXPECT_EQ(handle, -1);
    EXPECT_EQ(AUDIOCOM_GetLastError(handle), AUDIOCOM_ERR_NO_DEVICE);
}

TEST_F(NoSoundCardTest, StartCaptureFailsWithCode5) {
    CVoiceCapture capture;
    EXPECT_FALSE(capture.StartCapture(1));
    EXPECT_FALSE(capture.IsCapturing());
    ExpectCaptureError(5);
    EXPECT_TRUE(log_.Contains(
        "][AudioComCreateCaptureHandle::CreateCaptureHandle] fail\xEF\xBC\x8C[iSoundCardNum\xEF\xBC\x9A"
        "0][",
        5));
    EXPECT_TRUE(log_.Contains("][AudioComCreateCaptureHandle::CreateCaptureHandlebyDeviceName] fail[", 5));

    log_.Clear();
    capture.StopCapture();
    EXPECT_TRUE(log_.Contains("]is not capture data, return back.[", 5));
    EXPECT_EQ(log_.Lines().size(), 1u) << "a stop without capture only logs";

    ZPSAudioParam param;
    param.sampleRate = 8000;
    param.bitRate = 64000;
    param.encodeType = 1;
    EXPECT_FALSE(capture.StartDecodePlay(param));
    ExpectCaptureError(5);
    EXPECT_TRUE(log_.Contains("][AudioComCreatePlayHandle::CreatePlayHandle] fail[", 5));
    uint8_t byte = 0xFF;
    EXPECT_FALSE(capture.InputStreamData(&byte, 1));
}

TEST_F(NoSoundCardTest, PortAudioInitialisationIsPairedWithOtherUsers) {
    // Another library of the process (the voice environment) holds PortAudio up meanwhile.
    ASSERT_EQ(Pa_Initialize(), paNoError);
    uint32_t count = 0;
    ASSERT_EQ(AUDIOCOM_GetSoundCardNum(&count), 1);
    CVoiceCapture capture;
    EXPECT_FALSE(capture.StartCapture(1));
    EXPECT_GE(Pa_GetDeviceCount(), 0) << "our terminations must not end the other user's initialisation";
    ASSERT_EQ(Pa_Terminate(), paNoError);
    EXPECT_EQ(Pa_GetDeviceCount(), paNotInitialized) << "and ours are all terminated";
}
