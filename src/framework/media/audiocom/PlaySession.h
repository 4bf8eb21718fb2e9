#pragma once
// One play handle: decodes received stream data and plays it on a PortAudio output stream.

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "framework/media/audiocom/AudioCom.h"
#include "framework/media/audiocom/DeviceSession.h"
#include "framework/media/audiocom/PaStreamHandle.h"
#include "framework/media/audiocom/PcmConverter.h"
#include "framework/media/codec/AudioCodec.h"

namespace Tal {
namespace AudioCom {

class CPlaySession final : public CDeviceSession {
public:
    static constexpr uint32_t kMaxVolume = 100;

    explicit CPlaySession(int32_t handle);
    ~CPlaySession();

    /// Each operation returns an AUDIOCOM_ERR_* code.
    int OpenStream(const AUDIOCOM_STREAM_PARAM& param);
    int SetDecodeCallback(AUDIOCOM_DataCallBackEx callback, void* user);
    int Start();
    int Input(const uint8_t* data, uint32_t size);
    /// 0..100, applied by the PortAudio callback to each block it plays.
    int SetVolume(uint32_t volume);
    uint32_t Volume() const { return volume_.load(); }

private:
    static int OnAudio(const void* input, void* output, unsigned long frames,
                       const PaStreamCallbackTimeInfo* time, PaStreamCallbackFlags flags, void* user);
    int StopLocked() override;

    // Written by any caller, read once per block by the PortAudio callback: the volume adds no lock there.
    std::atomic<uint32_t> volume_{kMaxVolume};

    // Every operation runs under controlMutex_; the decoder and converter are used under it.
    PaStreamPtr stream_;
    std::unique_ptr<MediaCodec::IAudioDecoder> decoder_;
    int playRate_ = 0;
    std::unique_ptr<CPcmConverter> converter_;  // decoded format -> play rate, made on the first block
    AUDIOCOM_DataCallBackEx decodeCallback_ = nullptr;
    void* decodeUser_ = nullptr;
    std::vector<int16_t> decoded_;
    std::vector<int16_t> converted_;

    // Filled by Input, emptied by the PortAudio thread.
    std::mutex fifoMutex_;
    std::vector<int16_t> fifo_;
    std::size_t fifoRead_ = 0;
};

}  // namespace AudioCom
}  // namespace Tal
