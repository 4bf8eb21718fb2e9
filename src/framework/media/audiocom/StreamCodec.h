#pragma once
// The library's codec numbers and the checks of stream parameters.

#include <memory>

#include "framework/media/audiocom/AudioCom.h"
#include "framework/media/codec/AudioCodec.h"

namespace Tal {
namespace AudioCom {

/// The built-in codec of a codec number; false for numbers that are unknown or not built in.
bool CodecOfNumber(uint32_t number, MediaCodec::CodecId* id);

/// Checks parameters and makes the encoder of a capture output stream; AUDIOCOM_ERR_* code.
int MakeEncoder(const AUDIOCOM_STREAM_PARAM& param, std::unique_ptr<MediaCodec::IAudioEncoder>* encoder);
/// Checks parameters and makes the decoder of a received stream; AUDIOCOM_ERR_* code.
int MakeDecoder(const AUDIOCOM_STREAM_PARAM& param, std::unique_ptr<MediaCodec::IAudioDecoder>* decoder);

}  // namespace AudioCom
}  // namespace Tal
