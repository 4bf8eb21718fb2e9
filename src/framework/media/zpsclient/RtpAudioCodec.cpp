#include "framework/media/zpsclient/RtpAudioCodec.h"

#include <strings.h>

#include "framework/media/zpsclient/ZPSClient.h"

namespace ZPSClient {

namespace {

const RtpAudioCodec kCodecs[] = {
    {"PCMU", ZPS_CODEC_G711U, "rtppcmupay", "rtppcmudepay", nullptr, 0, 8000},
    {"PCMA", ZPS_CODEC_G711A, "rtppcmapay", "rtppcmadepay", nullptr, 0, 8000},
    // G.722 announces an 8000 Hz RTP clock for its 16000 Hz samples (RFC 3551).
    {"G722", ZPS_CODEC_G722, "rtpg722pay", "rtpg722depay", nullptr, 16000, 8000},
    {"MPA", ZPS_CODEC_MP3, "rtpmpapay", "rtpmpadepay", "mpegaudioparse", 0, 0},
};

}  // namespace

const RtpAudioCodec* FindRtpAudioCodec(const std::string& encodingName) {
    for (const auto& codec : kCodecs) {
        if (strcasecmp(codec.encodingName, encodingName.c_str()) == 0) {
            return &codec;
        }
    }
    return nullptr;
}

std::string EncodedCapsFor(const RtpAudioCodec& codec, int clockRate, int channels) {
    const std::string rate = std::to_string(clockRate > 0 ? clockRate : 8000);
    const std::string count = std::to_string(channels > 0 ? channels : 1);
    switch (codec.codec) {
        case ZPS_CODEC_G711U:
            return "audio/x-mulaw, rate=(int)" + rate + ", channels=(int)" + count;
        case ZPS_CODEC_G711A:
            return "audio/x-alaw, rate=(int)" + rate + ", channels=(int)" + count;
        case ZPS_CODEC_G722:
            return "audio/G722, rate=(int)16000, channels=(int)1";
        case ZPS_CODEC_MP3:
            return "audio/mpeg, mpegversion=(int)1";
        default:
            return std::string();
    }
}

}  // namespace ZPSClient
