#pragma once
// Wall-clock time stamps of the backchannel's frames and packets where they pass in this library (and, with
// its own file prefix, in the streaming server), for the
// broadcast bench. On only when the environment names a directory in BCAST_STREAM_PROBE: each mark appends
// "<point> <rtp seq or -1> <pts in us or -1> <wall-clock us>" to zpsclient-<pid>.txt there. Off, a mark costs
// one test of a flag read once.

#include <gst/gst.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <string>

namespace ZPSClient {

/// `Files::kPrefix` names the probe's file: "<prefix><pid>.txt".
template <typename Files>
class CPacketProbeFor {
public:
    static bool On() { return Instance().file_ != nullptr; }

    /// `seq` is an RTP sequence number or -1, `pts` a buffer time stamp or GST_CLOCK_TIME_NONE.
    static void Mark(const char* point, long seq, GstClockTime pts) {
        CPacketProbeFor& probe = Instance();
        if (probe.file_ == nullptr) {
            return;
        }
        const long long wall = std::chrono::duration_cast<std::chrono::microseconds>(
                                   std::chrono::system_clock::now().time_since_epoch())
                                   .count();
        const long long ptsUs = GST_CLOCK_TIME_IS_VALID(pts) ? static_cast<long long>(pts / GST_USECOND) : -1;
        std::lock_guard<std::mutex> lock(probe.mutex_);
        std::fprintf(probe.file_.get(), "%s %ld %lld %lld\n", point, seq, ptsUs, wall);
        std::fflush(probe.file_.get());
    }

    /// The sequence number of an RTP packet in `buffer`, -1 when it holds none.
    static long RtpSeq(GstBuffer* buffer) {
        guint8 head[4];
        if (buffer == nullptr || gst_buffer_extract(buffer, 0, head, sizeof(head)) != sizeof(head)) {
            return -1;
        }
        return static_cast<long>((head[2] << 8) | head[3]);
    }

private:
    struct FileClose {
        void operator()(std::FILE* file) const { std::fclose(file); }
    };

    CPacketProbeFor() {
        const char* dir = std::getenv("BCAST_STREAM_PROBE");
        if (dir != nullptr && *dir != '\0') {
            const std::string path =
                std::string(dir) + "/" + Files::kPrefix + std::to_string(getpid()) + ".txt";
            file_.reset(std::fopen(path.c_str(), "a"));
        }
    }
    static CPacketProbeFor& Instance() {
        static CPacketProbeFor probe;
        return probe;
    }

    std::mutex mutex_;
    std::unique_ptr<std::FILE, FileClose> file_;
};

struct ClientProbeFiles {
    static constexpr const char* kPrefix = "zpsclient-";
};
using CPacketProbe = CPacketProbeFor<ClientProbeFiles>;

}  // namespace ZPSClient
