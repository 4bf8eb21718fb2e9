#include "platform/server/sim/streaming/MediaLaunch.h"

namespace Platform {

// A media that never sends anything: the talk addresses only receive. The listen source keeps at most two
// seconds queued and drops the oldest beyond that, so a listener that stops reading cannot grow it.
const char* const kNoDownstream = "( fakesrc num-buffers=0 ! fakesink async=false )";
const char* const kListenLaunch =
    "( appsrc name=listen_src is-live=true do-timestamp=true format=time max-bytes=32000 "
    "leaky-type=downstream "
    "caps=\"audio/x-raw,format=S16LE,layout=interleaved,rate=8000,channels=1\" ! "
    "mulawenc ! rtppcmupay name=pay0 pt=0 )";

std::string BackchannelLaunch(SpeakerCodec codec) {
    std::string caps;
    std::string depay;
    switch (codec) {
        case SpeakerCodec::kPcma:
            caps = "payload=(int)8, clock-rate=(int)8000, encoding-name=(string)PCMA";
            depay = "rtppcmadepay";
            break;
        case SpeakerCodec::kMp3:
            caps = "payload=(int)14, clock-rate=(int)90000, encoding-name=(string)MPA";
            depay = "rtpmpadepay";
            break;
        default:
            caps = "payload=(int)0, clock-rate=(int)8000, encoding-name=(string)PCMU";
            depay = "rtppcmudepay";
            break;
    }
    // gst-rtsp-server's ONVIF media finds the backchannel by the element named depay_backchannel.
    return "( capsfilter caps=\"application/x-rtp, media=(string)audio, " + caps +
           "\" name=depay_backchannel ! " + depay +
           " ! appsink name=backchannel_sink sync=false async=false emit-signals=false )";
}

bool BackchannelCodecOf(const std::string& name, const std::string& compressionType, SpeakerCodec& codec) {
    std::string key = name;
    if (key.empty()) {
        if (compressionType.empty() || compressionType == "G711_u") {
            key = "PCMU";
        } else if (compressionType == "G711_a") {
            key = "PCMA";
        } else if (compressionType == "MP3") {
            key = "MPA";
        } else {
            return false;
        }
    }
    if (key == "PCMU") {
        codec = SpeakerCodec::kPcmu;
    } else if (key == "PCMA") {
        codec = SpeakerCodec::kPcma;
    } else if (key == "MPA") {
        codec = SpeakerCodec::kMp3;
    } else {
        return false;
    }
    return true;
}

}  // namespace Platform
