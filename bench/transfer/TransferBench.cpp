// Pacing benchmark of the voice transfer manager. The receivers run in a child process and take kernel
// arrival time stamps (SO_TIMESTAMPNS), so their own load does not blur the figures.
//
// Default mode: a G.711 file is sent through the RTP speaker group (CUdpTransfer per receiver) to 1, 100,
// 1000 and 5000 receivers on loopback, and by ffmpeg's tee muxer to the same receivers (one RTP output each,
// at most --ffmpeg-max of them) in the same run. Per run: send-time error (|arrival at the first receiver -
// the sender's intended schedule|), lateness of every receiver against that schedule (negative: early),
// RFC 3550 interarrival jitter, losses, the sender's CPU time and its share of one core; then the ratios
// manager / ffmpeg. --cdf DIR writes the lateness distribution of each run (bench/transfer/run.sh plots
// them). Finally, unless --no-search, the largest receiver count whose p99 lateness stays under 5 ms.
//
//   bcast-bench-transfer [--seconds 60] [--counts 1,100,1000,5000] [--cdf DIR] [--ffmpeg-max 1800]
//                        [--search-seconds 10] [--no-search]
//
// Multicast mode (--multicast): the G.711 file to N members of one multicast group, which the RTP speaker
// group sends as one stream, and to N unicast receivers (up to 1000) beside it. Per run: lateness at every
// member, packets, UDP datagrams sent per frame, the sender's CPU.
//
//   bcast-bench-transfer --multicast [--seconds S] [--counts 10,100,1000,10000]
//
// File-broadcast mode (--file): the frames come from the real file pipeline, wired as a file broadcast wires
// it: SetFrameInterval(40, or 24 for MP3), StartSendToOEM(one target per receiver), CVoiceFileEncode::
// StartEncode(PATH, TYPE) whose data callback calls SendData, then SetInputFinished, WaitTransferFinish and
// StopTransfer. The encoder's intermediate files go to a temporary client data directory.
//
//   bcast-bench-transfer --file PATH [--type 1|15] [--seconds S] [--counts 1,100,1000]
//                        [--csv FILE] [--samples DIR]
//
//   --type     1: G.711 u-law, 320-byte frames every 40 ms (default); 15: MP3 frames every 24 ms
//   --seconds  broadcast at most the first S seconds of the file (the encoder is stopped there); default all
//   --csv      appends one line per run (header when the file is new) for scripts such as bench/file/run.sh
//   --samples  writes, per run, the signed pacing error of each frame at the first receiver, in
//              microseconds ("frame error"), to DIR/pacing-<g711|mp3>-<sender>-<receivers>.txt
//
// Figures of the file mode, per receiver count (times in microseconds):
//   pacing     |arrival of frame k at the first receiver - (arrival of frame 0 there + k x interval)|,
//              p50/p99/max over frames k >= 1, and "signed" = the median of arrival - ideal (negative:
//              early). The kernel arrival time at the first receiver stands in for the send time (loopback
//              adds microseconds). For ffmpeg the ideal time is the first arrival + its RTP media time.
//   lateness   arrival - the manager's own schedule at every receiver, as in the default mode: its sending
//              thread sends frame 0 and frame 1 together and frame k at (k - 1) x interval (k >= 1).
//   jitter     RFC 3550 interarrival jitter, mean and max over receivers (media time: the RTP time stamps
//              for G.711 and ffmpeg; sequence x interval for the manager's MP3, whose time stamps count
//              bytes).
//   packets    received / expected from the sequence numbers, over all receivers.
//   cpu        CPU seconds of the sender process during the run: conversion, queueing and sending (ffmpeg:
//              its whole process).
//   peak MB    peak resident set of the sender for that run: VmHWM after resetting it (malloc_trim, then "5"
//              written to /proc/self/clear_refs) before the run; the output says when the reset is refused.
//              It includes the process's baseline (libraries). ffmpeg: its maximum RSS from wait4.
//   encode s   wall time of StartEncode, the conversion that queues the whole file while sending starts.
// ffmpeg -re sends the same file, converted to the same codec, to one receiver in the same run; the ratios
// are manager / ffmpeg at one receiver.

#include <arpa/inet.h>
#include <fcntl.h>
#include <linux/net_tstamp.h>
#include <malloc.h>
#include <netinet/in.h>
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <sys/epoll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "BroadCastPlugin/logical/VoiceProcess/VoiceEncode/VoiceFileEncode.h"
#include "BroadCastPlugin/logical/VoiceTransfer/VoiceTransferManager.h"
#include "framework/base/FormatLog.h"
#include "framework/business/BusinessCommon.h"
#include "framework/netcomm/NetCommManager.h"

namespace {

constexpr int kFrameBytes = 320;  // 40 ms of 8000 Hz G.711
constexpr int kIntervalMs = 40;
constexpr double kClockRate = 8000.0;
constexpr int kTypeG711 = 1;
constexpr int kTypeMp3 = 15;
constexpr int kMp3IntervalMs = 24;            // 1152 samples at 48000 Hz
constexpr double kMpaClockRate = 90000.0;     // RTP clock of MPEG audio (payload type 14), as ffmpeg sends it
constexpr int kMp3PacketSize = 12 + 4 + 576;  // RTP header, MPA header, one 192 kbit/s frame at 48000 Hz

/// A file descriptor, closed with its owner.
class CFd {
public:
    CFd() = default;
    explicit CFd(int fd) : fd_(fd) {}
    ~CFd() { Reset(); }
    CFd(CFd&& other) noexcept : fd_(other.Release()) {}
    CFd& operator=(CFd&& other) noexcept {
        if (this != &other) {
            Reset(other.Release());
        }
        return *this;
    }
    CFd(const CFd&) = delete;
    CFd& operator=(const CFd&) = delete;

    int Get() const { return fd_; }
    bool Valid() const { return fd_ >= 0; }
    int Release() {
        const int fd = fd_;
        fd_ = -1;
        return fd;
    }
    void Reset(int fd = -1) {
        if (fd_ >= 0) {
            close(fd_);
        }
        fd_ = fd;
    }

private:
    int fd_ = -1;
};

/// A private directory under $TMPDIR (or /tmp), removed with everything in it.
class CTempDirectory {
public:
    CTempDirectory() {
        std::error_code error;
        std::string pattern = (std::filesystem::temp_directory_path(error) / "bcast-bench-XXXXXX").string();
        if (error) {
            pattern = "/tmp/bcast-bench-XXXXXX";
        }
        std::vector<char> buffer(pattern.begin(), pattern.end());
        buffer.push_back('\0');
        if (mkdtemp(buffer.data()) != nullptr) {
            path_ = buffer.data();
        }
    }
    ~CTempDirectory() {
        if (!path_.empty()) {
            std::error_code error;
            std::filesystem::remove_all(path_, error);
        }
    }
    CTempDirectory(const CTempDirectory&) = delete;
    CTempDirectory& operator=(const CTempDirectory&) = delete;

    const std::string& Path() const { return path_; }

private:
    std::string path_;
};

struct Figures {
    int receivers = 0;
    double sendP50Us = 0, sendP99Us = 0, sendMaxUs = 0;  ///< first receiver against the send schedule
    double sendSignedP50Us = 0;                          ///< median of arrival - schedule there
    double lateP50Us = 0, lateP99Us = 0, lateMaxUs = 0;  ///< every receiver against the late schedule
    double jitterMeanUs = 0, jitterMaxUs = 0;            ///< RFC 3550, over receivers
    long packets = 0, expected = 0;
    double cpuSeconds = 0;
    double wallSeconds = 0;  ///< of the sending, for the CPU share
    int payloadBytes = 0;    ///< mean payload of the packets received
    double peakRssMb = 0;
    bool peakReset = false;        ///< peakRssMb covers this run only
    double encodeSeconds = -1;     ///< wall time of StartEncode (file mode)
    double datagramsPerFrame = 0;  ///< UDP datagrams the sender's host sent per frame (multicast mode)
    double userCpuSeconds = 0;     ///< of cpuSeconds, in user space: the sender's own work
};

/// When a frame should have arrived, counted from the first frame at the first receiver.
enum class Schedule {
    kManager,    ///< frame k at (k - 1) x interval (k >= 1): what the manager's sending thread does
    kIdeal,      ///< frame k at k x interval
    kTimestamp,  ///< at the media time of its RTP time stamp (ffmpeg)
};

struct ReceiverSetup {
    int count = 1;
    Schedule send = Schedule::kManager;  ///< schedule of the send (pacing) error at the first receiver
    Schedule late = Schedule::kManager;  ///< schedule of the lateness at every receiver
    int intervalMs = kIntervalMs;
    /// RTP clock rate; 0 when the time stamps do not count time (the manager's MP3 stream advances them by
    /// the frame's bytes): media time is then sequence x interval.
    double clockRate = kClockRate;
    std::string samplesPath;  ///< when set, the signed send error of each frame k >= 1 goes there
    std::string cdfPath;      ///< when set, the lateness distribution over all receivers goes there
    /// When set, a multicast group: every receiver joins it on loopback and binds the group's one port.
    std::string group;
};

/// One receiver of ffmpeg's stream, measured against its RTP time stamps.
ReceiverSetup FfmpegPeer() {
    ReceiverSetup peer;
    peer.count = 1;
    peer.send = Schedule::kTimestamp;
    peer.late = Schedule::kTimestamp;
    return peer;
}

double Percentile(std::vector<double> values, double fraction) {
    if (values.empty()) {
        return 0;
    }
    std::sort(values.begin(), values.end());
    const size_t index =
        std::min(values.size() - 1, static_cast<size_t>(fraction * (values.size() - 1) + 0.5));
    return values[index];
}

int64_t Nanoseconds(const timespec& t) {
    return static_cast<int64_t>(t.tv_sec) * 1000000000LL + t.tv_nsec;
}

double CpuSeconds(const rusage& usage) {
    return usage.ru_utime.tv_sec + usage.ru_stime.tv_sec +
           (usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

/// Resets this process's peak resident set (VmHWM) to its current size; false where the kernel refuses.
bool ResetPeakRss() {
    std::ofstream clear("/proc/self/clear_refs");
    clear << "5";
    clear.flush();
    return static_cast<bool>(clear);
}

/// VmHWM of this process in MiB, 0 when it cannot be read.
double PeakRssMb() {
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.compare(0, 6, "VmHWM:") == 0) {
            return std::atof(line.c_str() + 6) / 1024.0;
        }
    }
    return 0;
}

/// The child: N sockets, kernel time stamps, until `idleMs` of silence after the first packet. Writes the
/// figures to `resultsOut` as text.
void RunReceivers(const ReceiverSetup& setup, int portsOut, int resultsOut, int idleMs) {
    // The receivers stand in for speakers elsewhere: when the bench runs at a real-time priority (chrt),
    // they drop to the normal one so that draining thousands of sockets never holds a core the sender
    // wants. Their kernel time stamps do not depend on when they read.
    const sched_param normal{};
    sched_setscheduler(0, SCHED_OTHER, &normal);
    const int count = setup.count;
    std::vector<CFd> sockets;
    std::string ports;
    in_port_t groupPort = 0;
    for (int i = 0; i < count; ++i) {
        CFd fd(socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK, 0));
        int on = 1;
        setsockopt(fd.Get(), SOL_SOCKET, SO_TIMESTAMPNS, &on, sizeof(on));
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        if (!setup.group.empty()) {
            // Members share the group's port: the first takes a free one.
            setsockopt(fd.Get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
            ip_mreqn membership{};
            inet_pton(AF_INET, setup.group.c_str(), &membership.imr_multiaddr);
            membership.imr_address.s_addr = htonl(INADDR_LOOPBACK);
            if (setsockopt(fd.Get(), IPPROTO_IP, IP_ADD_MEMBERSHIP, &membership, sizeof(membership)) != 0) {
                _exit(1);
            }
            address.sin_addr = membership.imr_multiaddr;
            address.sin_port = groupPort;
        }
        bind(fd.Get(), reinterpret_cast<sockaddr*>(&address), sizeof(address));
        socklen_t length = sizeof(address);
        getsockname(fd.Get(), reinterpret_cast<sockaddr*>(&address), &length);
        groupPort = address.sin_port;
        ports += std::to_string(ntohs(address.sin_port)) + "\n";
        sockets.push_back(std::move(fd));
    }
    ports += "end\n";
    if (write(portsOut, ports.data(), ports.size()) < 0) {
        _exit(1);
    }

    const CFd epoll(epoll_create1(0));
    for (int i = 0; i < count; ++i) {
        epoll_event event{};
        event.events = EPOLLIN;
        event.data.u32 = static_cast<uint32_t>(i);
        epoll_ctl(epoll.Get(), EPOLL_CTL_ADD, sockets[static_cast<size_t>(i)].Get(), &event);
    }
    struct Arrival {
        int64_t index;  ///< sequence number, unwrapped
        uint32_t timestamp;
        int64_t ns;
    };
    std::vector<std::vector<Arrival>> arrivals(static_cast<size_t>(count));
    long long payloadTotal = 0;
    bool started = false;
    std::vector<epoll_event> events(1024);
    constexpr int kBatch = 16;
    mmsghdr messages[kBatch];
    iovec vectors[kBatch];
    uint8_t packets[kBatch][2048];
    char controls[kBatch][64];
    for (;;) {
        const int ready =
            epoll_wait(epoll.Get(), events.data(), static_cast<int>(events.size()), started ? idleMs : 30000);
        if (ready <= 0) {
            break;
        }
        for (int e = 0; e < ready; ++e) {
            const uint32_t index = events[static_cast<size_t>(e)].data.u32;
            auto& list = arrivals[index];
            // Up to kBatch packets a call: one system call per wake-up in the usual case of one packet.
            for (;;) {
                for (int m = 0; m < kBatch; ++m) {
                    vectors[m] = iovec{packets[m], sizeof(packets[m])};
                    messages[m].msg_hdr = msghdr{};
                    messages[m].msg_hdr.msg_iov = &vectors[m];
                    messages[m].msg_hdr.msg_iovlen = 1;
                    messages[m].msg_hdr.msg_control = controls[m];
                    messages[m].msg_hdr.msg_controllen = sizeof(controls[m]);
                }
                const int received = recvmmsg(sockets[index].Get(), messages, kBatch, MSG_DONTWAIT, nullptr);
                for (int m = 0; m < received; ++m) {
                    const uint8_t* packet = packets[m];
                    const auto size = static_cast<ssize_t>(messages[m].msg_len);
                    if (size < 12) {
                        continue;
                    }
                    int64_t ns = 0;
                    msghdr& message = messages[m].msg_hdr;
                    for (cmsghdr* c = CMSG_FIRSTHDR(&message); c != nullptr; c = CMSG_NXTHDR(&message, c)) {
                        if (c->cmsg_level == SOL_SOCKET && c->cmsg_type == SCM_TIMESTAMPNS) {
                            timespec stamp;
                            std::memcpy(&stamp, CMSG_DATA(c), sizeof(stamp));
                            ns = Nanoseconds(stamp);
                        }
                    }
                    if ((packet[1] & 0x7F) >= 72 && (packet[1] & 0x7F) <= 76) {
                        continue;  // RTCP of ffmpeg's RTP muxers
                    }
                    const auto sequence = static_cast<uint16_t>(packet[2] << 8 | packet[3]);
                    Arrival arrival;
                    arrival.index = sequence;
                    if (!list.empty()) {
                        const int64_t previous = list.back().index;
                        arrival.index = previous + static_cast<int16_t>(static_cast<uint16_t>(
                                                       sequence - static_cast<uint16_t>(previous & 0xFFFF)));
                    }
                    arrival.timestamp = static_cast<uint32_t>(packet[4]) << 24 |
                                        static_cast<uint32_t>(packet[5]) << 16 |
                                        static_cast<uint32_t>(packet[6]) << 8 | packet[7];
                    arrival.ns = ns;
                    list.push_back(arrival);
                    payloadTotal += size - 12;
                    started = true;
                }
                if (received < kBatch) {
                    break;
                }
            }
        }
    }

    Figures figures;
    figures.receivers = count;
    if (!arrivals[0].empty()) {
        const int64_t t0 = arrivals[0].front().ns;
        const uint32_t ts0 = arrivals[0].front().timestamp;
        const int64_t index0 = arrivals[0].front().index;
        const int64_t intervalNs = static_cast<int64_t>(setup.intervalMs) * 1000000LL;
        // Each stream counts from its own first packet (ffmpeg's tee starts every output at its own random
        // sequence number and time stamp); time counts from the first arrival at the first receiver.
        int64_t streamIndex0 = index0;
        uint32_t streamTs0 = ts0;
        auto ideal = [&](Schedule schedule, const Arrival& a) -> int64_t {
            const int64_t k = a.index - streamIndex0;
            switch (schedule) {
                case Schedule::kManager:
                    return t0 + std::max<int64_t>(k - 1, 0) * intervalNs;
                case Schedule::kIdeal:
                    return t0 + k * intervalNs;
                case Schedule::kTimestamp:
                    break;
            }
            return t0 + static_cast<int64_t>((a.timestamp - streamTs0) / setup.clockRate * 1e9);
        };
        std::vector<double> send;
        std::vector<double> sendSigned;
        std::vector<double> late;
        std::vector<double> jitters;
        std::ofstream samples;
        if (!setup.samplesPath.empty()) {
            samples.open(setup.samplesPath);
            samples << "# frame  arrival - ideal (us) at the first receiver\n";
        }
        long expected = 0;
        long packets = 0;
        for (size_t r = 0; r < arrivals.size(); ++r) {
            const auto& list = arrivals[r];
            packets += static_cast<long>(list.size());
            if (list.empty()) {
                continue;
            }
            expected += static_cast<long>(list.back().index - list.front().index) + 1;
            streamIndex0 = list.front().index;
            streamTs0 = list.front().timestamp;
            double jitter = 0;  // seconds
            for (size_t i = 0; i < list.size(); ++i) {
                late.push_back((list[i].ns - ideal(setup.late, list[i])) / 1000.0);
                if (r == 0 && i > 0) {
                    const double error = (list[i].ns - ideal(setup.send, list[i])) / 1000.0;
                    send.push_back(std::fabs(error));  // early counts as much as late
                    sendSigned.push_back(error);
                    if (samples.is_open()) {
                        samples << list[i].index - index0 << ' ' << error << '\n';
                    }
                }
                if (i > 0) {
                    const double media =
                        setup.clockRate > 0
                            ? static_cast<int32_t>(list[i].timestamp - list[i - 1].timestamp) /
                                  setup.clockRate
                            : (list[i].index - list[i - 1].index) * setup.intervalMs / 1000.0;
                    const double transit = (list[i].ns - list[i - 1].ns) / 1e9 - media;
                    jitter += (std::fabs(transit) - jitter) / 16.0;
                }
            }
            jitters.push_back(jitter * 1e6);
        }
        if (!setup.cdfPath.empty() && !late.empty()) {
            // The lateness distribution of every packet at every receiver, as 1000 quantiles (ms, fraction).
            std::vector<double> sorted = late;
            std::sort(sorted.begin(), sorted.end());
            std::ofstream cdf(setup.cdfPath);
            cdf << "# lateness_ms fraction (" << count << " receivers, " << sorted.size() << " packets)\n";
            for (int q = 0; q <= 1000; ++q) {
                const size_t at =
                    std::min(sorted.size() - 1, static_cast<size_t>(q / 1000.0 * (sorted.size() - 1)));
                cdf << sorted[at] / 1000.0 << ' ' << q / 1000.0 << '\n';
            }
        }
        figures.sendP50Us = Percentile(send, 0.50);
        figures.sendP99Us = Percentile(send, 0.99);
        figures.sendMaxUs = send.empty() ? 0 : *std::max_element(send.begin(), send.end());
        figures.sendSignedP50Us = Percentile(sendSigned, 0.50);
        figures.lateP50Us = Percentile(late, 0.50);
        figures.lateP99Us = Percentile(late, 0.99);
        figures.lateMaxUs = late.empty() ? 0 : *std::max_element(late.begin(), late.end());
        double sum = 0;
        for (double j : jitters) {
            sum += j;
        }
        figures.jitterMeanUs = jitters.empty() ? 0 : sum / jitters.size();
        figures.jitterMaxUs = jitters.empty() ? 0 : *std::max_element(jitters.begin(), jitters.end());
        figures.packets = packets;
        figures.expected = expected;
        figures.payloadBytes = packets > 0 ? static_cast<int>(payloadTotal / packets) : 0;
    }
    std::ostringstream text;
    text << figures.receivers << ' ' << figures.sendP50Us << ' ' << figures.sendP99Us << ' '
         << figures.sendMaxUs << ' ' << figures.sendSignedP50Us << ' ' << figures.lateP50Us << ' '
         << figures.lateP99Us << ' ' << figures.lateMaxUs << ' ' << figures.jitterMeanUs << ' '
         << figures.jitterMaxUs << ' ' << figures.packets << ' ' << figures.expected << ' '
         << figures.payloadBytes << '\n';
    const std::string result = text.str();
    if (write(resultsOut, result.data(), result.size()) < 0) {
        _exit(1);
    }
    _exit(0);
}

/// Receivers in a child process; Start gives their ports, Finish their figures. A process not finished is
/// killed and reaped with its owner.
class CReceiverProcess {
public:
    CReceiverProcess() = default;
    CReceiverProcess(const CReceiverProcess&) = delete;
    CReceiverProcess& operator=(const CReceiverProcess&) = delete;
    ~CReceiverProcess() {
        if (pid_ > 0) {
            kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
        }
    }

    bool Start(const ReceiverSetup& setup, std::vector<uint16_t>& ports) {
        int portsPipe[2];
        int resultsPipe[2];
        if (pipe(portsPipe) != 0) {
            return false;
        }
        CFd portsRead(portsPipe[0]);
        CFd portsWrite(portsPipe[1]);
        if (pipe(resultsPipe) != 0) {
            return false;
        }
        results_.Reset(resultsPipe[0]);
        CFd resultsWrite(resultsPipe[1]);
        pid_ = fork();
        if (pid_ < 0) {
            return false;
        }
        if (pid_ == 0) {
            portsRead.Reset();
            results_.Reset();
            RunReceivers(setup, portsWrite.Get(), resultsWrite.Get(), 2000);
        }
        portsWrite.Reset();
        resultsWrite.Reset();
        std::string text;
        char buffer[65536];
        while (text.find("end\n") == std::string::npos) {
            const ssize_t size = read(portsRead.Get(), buffer, sizeof(buffer));
            if (size <= 0) {
                break;
            }
            text.append(buffer, static_cast<size_t>(size));
        }
        std::istringstream lines(text);
        std::string line;
        while (std::getline(lines, line) && line != "end") {
            ports.push_back(static_cast<uint16_t>(std::stoi(line)));
        }
        return static_cast<int>(ports.size()) == setup.count;
    }

    bool Finish(Figures& figures) {
        std::string text;
        char buffer[4096];
        ssize_t size;
        while ((size = read(results_.Get(), buffer, sizeof(buffer))) > 0) {
            text.append(buffer, static_cast<size_t>(size));
        }
        results_.Reset();
        int status = 0;
        waitpid(pid_, &status, 0);
        pid_ = -1;
        std::istringstream in(text);
        in >> figures.receivers >> figures.sendP50Us >> figures.sendP99Us >> figures.sendMaxUs >>
            figures.sendSignedP50Us >> figures.lateP50Us >> figures.lateP99Us >> figures.lateMaxUs >>
            figures.jitterMeanUs >> figures.jitterMaxUs >> figures.packets >> figures.expected >>
            figures.payloadBytes;
        return static_cast<bool>(in);
    }

private:
    pid_t pid_ = -1;
    CFd results_;
};

/// The data chunk of a WAV file (G.711 u-law as sox writes it).
std::string WavData(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::string all((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    size_t at = 12;
    while (at + 8 <= all.size()) {
        uint32_t size = 0;
        std::memcpy(&size, all.data() + at + 4, 4);
        if (all.compare(at, 4, "data") == 0) {
            return all.substr(at + 8, size);
        }
        at += 8 + size + (size & 1);
    }
    return std::string();
}

/// One target per receiver port, at `address` (a multicast group: the same for every target).
std::vector<BroadCastPlugin::OEMTransferTarget> Targets(const std::vector<uint16_t>& ports,
                                                        int32_t encodeType,
                                                        const std::string& address = "127.0.0.1") {
    std::vector<BroadCastPlugin::OEMTransferTarget> targets;
    for (size_t i = 0; i < ports.size(); ++i) {
        targets.push_back({static_cast<int32_t>(i), address, ports[i], encodeType});
    }
    return targets;
}

/// UDP datagrams this network namespace has sent ("Udp: ... OutDatagrams" of /proc/net/snmp).
long UdpDatagramsSent() {
    std::ifstream snmp("/proc/net/snmp");
    std::string names;
    std::string values;
    while (std::getline(snmp, names) && std::getline(snmp, values)) {
        if (names.rfind("Udp:", 0) != 0) {
            continue;
        }
        std::istringstream n(names);
        std::istringstream v(values);
        std::string name;
        std::string value;
        while (n >> name && v >> value) {
            if (name == "OutDatagrams") {
                return std::atol(value.c_str());
            }
        }
    }
    return -1;
}

/// `group` empty: one receiver per target; else a multicast group all receivers join, each target a member.
bool RunManager(const std::string& audio, int receivers, Figures& figures, const std::string& cdfPath = "",
                const std::string& group = "") {
    CReceiverProcess process;
    std::vector<uint16_t> ports;
    ReceiverSetup setup;
    setup.count = receivers;
    setup.cdfPath = cdfPath;
    setup.group = group;
    if (!process.Start(setup, ports)) {
        return false;
    }
    const auto targets =
        Targets(ports, BroadCastPlugin::kEncodeG711U, group.empty() ? std::string("127.0.0.1") : group);
    const long datagramsBefore = UdpDatagramsSent();
    rusage before{};
    getrusage(RUSAGE_SELF, &before);
    const auto begin = std::chrono::steady_clock::now();
    {
        BroadCastPlugin::CVoiceTransferManager manager;
        manager.SetFrameInterval(kIntervalMs);
        manager.StartSendToOEM(targets);
        for (size_t offset = 0; offset + kFrameBytes <= audio.size(); offset += kFrameBytes) {
            manager.SendData(reinterpret_cast<const uint8_t*>(audio.data() + offset), kFrameBytes);
        }
        manager.SetInputFinished();
        manager.WaitTransferFinish();
        manager.StopTransfer();
    }
    rusage after{};
    getrusage(RUSAGE_SELF, &after);
    const double wall = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
    if (!process.Finish(figures)) {
        return false;
    }
    figures.cpuSeconds = CpuSeconds(after) - CpuSeconds(before);
    figures.userCpuSeconds = (after.ru_utime.tv_sec - before.ru_utime.tv_sec) +
                             (after.ru_utime.tv_usec - before.ru_utime.tv_usec) / 1e6;
    figures.wallSeconds = wall;
    figures.datagramsPerFrame = static_cast<double>(UdpDatagramsSent() - datagramsBefore) /
                                static_cast<double>(audio.size() / kFrameBytes);
    return true;
}

/// ffmpeg -re sending the G.711 tone file to every receiver through its tee muxer: one RTP muxer per
/// receiver behind one decoder and encoder, 320 samples (40 ms) per packet as the manager sends. arealtime
/// releases each packet at its own time: -re alone paces the demuxer, which reads the WAV file in blocks of
/// half a second, so every half second a block's packets would leave at once.
/// Runs /usr/bin/ffmpeg with `command` (its name first), its standard output (and error, when `quiet`) to
/// /dev/null, and waits for it; false when it cannot be started. Its wait status and resource usage are
/// returned.
bool ExecFfmpeg(std::vector<std::string> command, bool quiet, int& status, rusage& usage) {
    std::vector<char*> argv;
    for (auto& argument : command) {
        argv.push_back(argument.data());
    }
    argv.push_back(nullptr);
    const pid_t ffmpeg = fork();
    if (ffmpeg < 0) {
        return false;
    }
    if (ffmpeg == 0) {
        const int null = open("/dev/null", O_WRONLY);
        dup2(null, STDOUT_FILENO);
        if (quiet) {
            dup2(null, STDERR_FILENO);
        }
        execv("/usr/bin/ffmpeg", argv.data());
        _exit(127);
    }
    status = 0;
    usage = rusage{};
    wait4(ffmpeg, &status, 0, &usage);
    return true;
}

bool RunFfmpegTee(const std::string& toneFile, int receivers, Figures& figures, const std::string& cdfPath) {
    CReceiverProcess process;
    std::vector<uint16_t> ports;
    ReceiverSetup setup = FfmpegPeer();
    setup.count = receivers;
    setup.cdfPath = cdfPath;
    if (!process.Start(setup, ports)) {
        return false;
    }
    // RTCP goes to the receiver's own port, where the receiver skips it: port + 1 may be another receiver's,
    // or closed. One argument may not exceed 128 KiB, about 3000 outputs written so ("127.1" saves bytes).
    std::string tee;
    for (const uint16_t port : ports) {
        tee += (tee.empty() ? "" : "|") + std::string("[f=rtp]rtp://127.1:") + std::to_string(port) +
               "?rtcpport=" + std::to_string(port);
    }
    std::vector<std::string> command = {"ffmpeg", "-nostdin",  "-loglevel",
                                        "fatal",  "-re",       "-i",
                                        toneFile, "-af",       "asetnsamples=n=320,arealtime",
                                        "-c:a",   "pcm_mulaw", "-f",
                                        "tee",    "-map",      "0:a",
                                        tee};
    const auto begin = std::chrono::steady_clock::now();
    int status = 0;
    rusage usage{};
    if (!ExecFfmpeg(std::move(command), false, status, usage)) {
        return false;
    }
    const double wall = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
    const bool received = process.Finish(figures);
    if (!received || !WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        std::fprintf(stderr, "ffmpeg tee to %d receivers: %s %d, %ld packets received\n", receivers,
                     WIFSIGNALED(status) ? "signal" : "exit status",
                     WIFSIGNALED(status) ? WTERMSIG(status) : WEXITSTATUS(status),
                     received ? figures.packets : 0L);
        return false;
    }
    figures.cpuSeconds = CpuSeconds(usage);
    figures.wallSeconds = wall;
    figures.peakRssMb = usage.ru_maxrss / 1024.0;
    return true;
}

/// A file broadcast as the speaker manager runs it, from the file to the RTP speakers.
struct FileBroadcast {
    std::string path;
    int type = kTypeG711;
    int seconds = 0;  ///< 0: the whole file
    int IntervalMs() const { return type == kTypeMp3 ? kMp3IntervalMs : kIntervalMs; }
    const char* Name() const { return type == kTypeMp3 ? "mp3" : "g711"; }
};

bool RunFileBroadcast(const FileBroadcast& file, int receivers, const std::string& samplesPath,
                      Figures& figures) {
    CReceiverProcess process;
    std::vector<uint16_t> ports;
    ReceiverSetup setup;
    setup.count = receivers;
    setup.send = Schedule::kIdeal;
    setup.late = Schedule::kManager;
    setup.intervalMs = file.IntervalMs();
    setup.clockRate = file.type == kTypeMp3 ? 0 : kClockRate;
    setup.samplesPath = samplesPath;
    if (!process.Start(setup, ports)) {
        return false;
    }
    const auto targets =
        Targets(ports, file.type == kTypeMp3 ? BroadCastPlugin::kEncodeMP3 : BroadCastPlugin::kEncodeG711U);
    // Free heap the allocator kept from earlier runs, so that the peak is this run's.
    malloc_trim(0);
    const bool peakReset = ResetPeakRss();
    bool encoded = false;
    double encodeSeconds = 0;
    rusage before{};
    getrusage(RUSAGE_SELF, &before);
    {
        BroadCastPlugin::CVoiceTransferManager manager;
        BroadCastPlugin::CVoiceFileEncode encoder;
        const long limit = file.seconds > 0 ? file.seconds * 1000L / file.IntervalMs() : 0;
        long frames = 0;
        manager.SetFrameInterval(file.IntervalMs());
        manager.StartSendToOEM(targets);
        encoder.SetDataCallback([&](const uint8_t* data, int size) {
            if (limit > 0 && frames >= limit) {
                encoder.StopEncode();  // ends at its next chunk
                return;
            }
            ++frames;
            manager.SendData(data, static_cast<int32_t>(size));
        });
        const auto begin = std::chrono::steady_clock::now();
        encoded = encoder.StartEncode(file.path, file.type);
        encodeSeconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
        manager.SetInputFinished();
        manager.WaitTransferFinish();
        manager.StopTransfer();
    }
    rusage after{};
    getrusage(RUSAGE_SELF, &after);
    const double peak = PeakRssMb();
    if (!process.Finish(figures)) {
        return false;
    }
    figures.cpuSeconds = CpuSeconds(after) - CpuSeconds(before);
    figures.peakRssMb = peak;
    figures.peakReset = peakReset;
    figures.encodeSeconds = encodeSeconds;
    if (!encoded) {
        std::fprintf(stderr, "StartEncode failed for %s (type %d)\n", file.path.c_str(), file.type);
    }
    return encoded && figures.packets > 0;
}

/// Runs ffmpeg with `arguments` (after the program name, before the RTP URL) to one receiver.
bool RunFfmpeg(const std::vector<std::string>& arguments, const ReceiverSetup& setup, Figures& figures) {
    CReceiverProcess process;
    std::vector<uint16_t> ports;
    if (!process.Start(setup, ports)) {
        return false;
    }
    std::vector<std::string> command = {"ffmpeg"};
    command.insert(command.end(), arguments.begin(), arguments.end());
    command.push_back("rtp://127.0.0.1:" + std::to_string(ports[0]));
    int status = 0;
    rusage usage{};
    if (!ExecFfmpeg(std::move(command), true, status, usage)) {
        return false;
    }
    if (!process.Finish(figures) || !WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        return false;
    }
    figures.cpuSeconds = CpuSeconds(usage);
    figures.peakRssMb = usage.ru_maxrss / 1024.0;
    figures.peakReset = true;
    return true;
}

/// ffmpeg -re converting the broadcast's file to the same codec as the pipeline and sending it.
std::vector<std::string> FileFfmpegArguments(const FileBroadcast& file, int packetSize) {
    std::vector<std::string> arguments = {"-nostdin", "-re"};
    if (file.seconds > 0) {
        arguments.insert(arguments.end(), {"-t", std::to_string(file.seconds)});
    }
    arguments.insert(arguments.end(), {"-i", file.path, "-ac", "1"});
    if (packetSize != 0 && file.type != kTypeMp3) {
        // Frames of 320 samples at 8000 Hz, so that each packet carries 40 ms as the manager's do (the
        // resampler hands the encoder blocks of another size otherwise).
        arguments.insert(arguments.end(), {"-af", "aresample=8000,asetnsamples=n=320"});
    }
    if (file.type == kTypeMp3) {
        arguments.insert(arguments.end(), {"-ar", "48000", "-c:a", "libmp3lame", "-b:a", "192k"});
    } else {
        arguments.insert(arguments.end(), {"-ar", "8000", "-c:a", "pcm_mulaw"});
    }
    arguments.insert(arguments.end(), {"-f", "rtp"});
    if (packetSize != 0) {
        arguments.insert(arguments.end(), {"-packetsize", std::to_string(packetSize)});
    }
    return arguments;
}

double CpuPercent(const Figures& f) {
    return f.wallSeconds > 0 ? 100.0 * f.cpuSeconds / f.wallSeconds : 0.0;
}

void PrintRow(const char* sender, const Figures& f) {
    std::printf("%-10s %9d %8.0f %8.0f %8.0f | %8.0f %8.0f %8.0f | %8.1f %8.1f | %9ld/%-9ld | %7.2f %6.1f\n",
                sender, f.receivers, f.sendP50Us, f.sendP99Us, f.sendMaxUs, f.lateP50Us, f.lateP99Us,
                f.lateMaxUs, f.jitterMeanUs, f.jitterMaxUs, f.packets, f.expected, f.cpuSeconds,
                CpuPercent(f));
    std::fflush(stdout);
}

void PrintFileHeader() {
    std::printf("%-9s %9s %8s %8s %8s %8s | %8s %8s %8s | %8s %8s | %19s | %7s %7s %7s\n", "sender",
                "receivers", "pace p50", "p99", "max", "signed", "late p50", "p99", "max", "jitter", "max",
                "packets/expected", "cpu s", "peak MB", "encode s");
}

void PrintFileRow(const std::string& sender, const Figures& f) {
    char encode[32] = "-";
    if (f.encodeSeconds >= 0) {
        std::snprintf(encode, sizeof(encode), "%.2f", f.encodeSeconds);
    }
    std::printf(
        "%-9s %9d %8.0f %8.0f %8.0f %8.0f | %8.0f %8.0f %8.0f | %8.1f %8.1f | %9ld/%-9ld | %7.2f %7.1f %7s\n",
        sender.c_str(), f.receivers, f.sendP50Us, f.sendP99Us, f.sendMaxUs, f.sendSignedP50Us, f.lateP50Us,
        f.lateP99Us, f.lateMaxUs, f.jitterMeanUs, f.jitterMaxUs, f.packets, f.expected, f.cpuSeconds,
        f.peakRssMb, encode);
    std::fflush(stdout);
}

/// One CSV line per run; the header goes first when the file is new or empty.
void AppendCsv(const std::string& path, const FileBroadcast& file, const std::string& sender,
               const Figures& f) {
    if (path.empty()) {
        return;
    }
    std::error_code error;
    const bool fresh = !std::filesystem::exists(path, error) || std::filesystem::file_size(path, error) == 0;
    std::ofstream out(path, std::ios::app);
    if (fresh) {
        out << "type,sender,receivers,pace_p50_us,pace_p99_us,pace_max_us,pace_signed_p50_us,late_p50_us,"
               "late_p99_us,late_max_us,jitter_mean_us,jitter_max_us,packets,expected,cpu_s,peak_rss_mb,"
               "peak_reset,encode_s\n";
    }
    out << file.Name() << ',' << sender << ',' << f.receivers << ',' << f.sendP50Us << ',' << f.sendP99Us
        << ',' << f.sendMaxUs << ',' << f.sendSignedP50Us << ',' << f.lateP50Us << ',' << f.lateP99Us << ','
        << f.lateMaxUs << ',' << f.jitterMeanUs << ',' << f.jitterMaxUs << ',' << f.packets << ','
        << f.expected << ',' << f.cpuSeconds << ',' << f.peakRssMb << ',' << (f.peakReset ? 1 : 0) << ','
        << f.encodeSeconds << '\n';
}

int RunFileMode(const FileBroadcast& file, const std::vector<int>& counts, const std::string& csvPath,
                const std::string& samplesDir) {
    std::error_code error;
    if (!std::filesystem::is_regular_file(file.path, error)) {
        std::fprintf(stderr, "no such file: %s\n", file.path.c_str());
        return 1;
    }
    // The encoder's intermediate files go to the client data directory.
    CTempDirectory data;
    if (data.Path().empty()) {
        std::fprintf(stderr, "cannot create a temporary directory\n");
        return 1;
    }
    BusinessCommon::CFrameSystemConfigMgr::Instance()->SetClientDataPath(data.Path());
    auto samplesPath = [&](const std::string& sender, int receivers) {
        if (samplesDir.empty()) {
            return std::string();
        }
        return samplesDir + "/pacing-" + file.Name() + "-" + sender + "-" + std::to_string(receivers) +
               ".txt";
    };
    if (!samplesDir.empty()) {
        std::filesystem::create_directories(samplesDir, error);
    }

    const bool mp3 = file.type == kTypeMp3;
    const std::string length =
        file.seconds > 0 ? "first " + std::to_string(file.seconds) + " s" : "whole file";
    std::printf("file broadcast of %s, type %d (%s), %s; times in microseconds\n", file.path.c_str(),
                file.type, mp3 ? "MP3 frames every 24 ms" : "G.711 u-law, 320-byte frames every 40 ms",
                length.c_str());
    std::printf(
        "pace: |arrival of frame k - (arrival of frame 0 + k x %d ms)| at the first receiver, p50/p99/max "
        "over\n"
        "      k >= 1; the kernel arrival time stamp (SO_TIMESTAMPNS) at the first receiver stands in for "
        "the\n"
        "      send time. signed: median of arrival - ideal (negative: early). ffmpeg: ideal = first arrival "
        "+\n"
        "      RTP media time.\n"
        "late: arrival - the manager's own schedule (frame k at (k - 1) x interval, k >= 1; ffmpeg: its RTP\n"
        "      time stamps) at every receiver; jitter: RFC 3550, mean and max over receivers\n"
        "cpu:  CPU seconds of the sender process (conversion + sending); peak MB: its peak RSS in the run;\n"
        "      encode s: wall time of StartEncode (the whole file queued)\n",
        file.IntervalMs());
    // Probe once whether the peak can be reset here; each run resets it again.
    if (!ResetPeakRss()) {
        std::printf(
            "peak MB: resetting VmHWM (5 > /proc/self/clear_refs) is not supported here: each figure is the\n"
            "         peak since the process started\n");
    }
    std::printf("\n");
    PrintFileHeader();

    Figures oneReceiver;
    bool failed = false;
    for (int count : counts) {
        Figures figures;
        if (!RunFileBroadcast(file, count, samplesPath("manager", count), figures)) {
            std::fprintf(stderr, "file broadcast to %d receivers failed\n", count);
            failed = true;
            break;
        }
        PrintFileRow("manager", figures);
        AppendCsv(csvPath, file, "manager", figures);
        if (count == 1) {
            oneReceiver = figures;
        }
    }

    // The peer: ffmpeg -re converting and sending the same file to one receiver.
    ReceiverSetup peer = FfmpegPeer();
    peer.intervalMs = file.IntervalMs();
    peer.clockRate = mp3 ? kMpaClockRate : kClockRate;
    const int smallPacket = mp3 ? kMp3PacketSize : kFrameBytes + 12;
    const std::string smallName = "ffmpeg" + std::to_string(smallPacket);
    Figures ffmpeg;
    Figures ffmpegSmall;
    peer.samplesPath = samplesPath("ffmpeg", 1);
    const bool ffmpegOk = RunFfmpeg(FileFfmpegArguments(file, 0), peer, ffmpeg);
    peer.samplesPath = samplesPath(smallName, 1);
    const bool smallOk = RunFfmpeg(FileFfmpegArguments(file, smallPacket), peer, ffmpegSmall);
    if (ffmpegOk) {
        PrintFileRow("ffmpeg", ffmpeg);
        AppendCsv(csvPath, file, "ffmpeg", ffmpeg);
    }
    if (smallOk) {
        PrintFileRow(smallName, ffmpegSmall);
        AppendCsv(csvPath, file, smallName, ffmpegSmall);
    }
    if (!ffmpegOk || !smallOk) {
        std::fprintf(stderr, "ffmpeg run failed\n");
        failed = true;
    }
    const std::string codec = mp3 ? "-ar 48000 -c:a libmp3lame -b:a 192k" : "-ar 8000 -c:a pcm_mulaw";
    std::printf("ffmpeg:    ffmpeg -re -i FILE -ac 1 %s -f rtp rtp://127.0.0.1:PORT; mean payload %d bytes\n",
                codec.c_str(), ffmpeg.payloadBytes);
    std::printf(
        "%s: the same with %s-packetsize %d,\n"
        "           one frame per packet as the manager sends; mean payload %d bytes\n",
        smallName.c_str(), mp3 ? "" : "-af aresample=8000,asetnsamples=n=320 ", smallPacket,
        ffmpegSmall.payloadBytes);
    std::printf("manager:   mean payload %d bytes at one receiver\n", oneReceiver.payloadBytes);
    std::printf("ffmpeg's figures are its own process: cpu and peak MB (maximum RSS) from wait4.\n");
    if (oneReceiver.receivers == 1) {
        auto ratio = [](double ours, double theirs) { return theirs != 0 ? ours / theirs : 0.0; };
        for (const auto& [name, peerFigures, ok] : {std::make_tuple(std::string("ffmpeg"), ffmpeg, ffmpegOk),
                                                    std::make_tuple(smallName, ffmpegSmall, smallOk)}) {
            if (ok) {
                std::printf(
                    "manager / %s, one receiver: pace p99 %.3f, jitter %.3f, cpu %.3f, peak RSS %.3f\n",
                    name.c_str(), ratio(oneReceiver.sendP99Us, peerFigures.sendP99Us),
                    ratio(oneReceiver.jitterMeanUs, peerFigures.jitterMeanUs),
                    ratio(oneReceiver.cpuSeconds, peerFigures.cpuSeconds),
                    ratio(oneReceiver.peakRssMb, peerFigures.peakRssMb));
            }
        }
    }
    BusinessCommon::CFrameSystemConfigMgr::Instance()->SetClientDataPath("");
    return failed ? 1 : 0;
}

/// Multicast mode: the tone to N members of one multicast group (the RTP speaker group opens one stream for
/// them) and, up to `unicastMax`, to N unicast receivers for comparison.
int RunMulticastMode(const std::string& audio, const std::vector<int>& counts, int unicastMax) {
    // A multicast stream leaves by the interface that reaches the platform server: loopback here, where the
    // members listen.
    NetworkCommunication::ServerSession session;
    session.host = "127.0.0.1";
    session.port = 1;
    NetworkCommunication::CNetCommManager::Instance()->SetSession(session);
    constexpr const char* kGroup = "239.255.77.1";
    std::printf(
        "multicast group %s on loopback; datagrams/frame: UDP datagrams this host sent per frame\n"
        "(/proc/net/snmp OutDatagrams); cpu: the sender process, which on loopback includes the\n"
        "kernel's delivery to every member inside the send; user: its user-space part\n\n",
        kGroup);
    std::printf("%-10s %9s | %8s %8s %8s | %19s | %10s | %7s %6s %7s\n", "sender", "receivers", "late p50",
                "p99", "max", "packets/expected", "dgram/frame", "cpu", "cpu %", "user");
    auto print = [](const char* sender, const Figures& f) {
        std::printf("%-10s %9d | %8.0f %8.0f %8.0f | %9ld/%-9ld | %10.2f | %7.2f %6.1f %7.2f\n", sender,
                    f.receivers, f.lateP50Us, f.lateP99Us, f.lateMaxUs, f.packets, f.expected,
                    f.datagramsPerFrame, f.cpuSeconds, CpuPercent(f), f.userCpuSeconds);
        std::fflush(stdout);
    };
    std::vector<Figures> members;
    for (int count : counts) {
        Figures multicast;
        if (!RunManager(audio, count, multicast, "", kGroup)) {
            std::fprintf(stderr, "multicast run with %d members failed\n", count);
            return 1;
        }
        print("multicast", multicast);
        members.push_back(multicast);
        if (count <= unicastMax) {
            Figures unicast;
            if (!RunManager(audio, count, unicast)) {
                std::fprintf(stderr, "unicast run with %d receivers failed\n", count);
                return 1;
            }
            print("unicast", unicast);
        }
    }
    std::printf("\nmulticast, against %d members: ", members.front().receivers);
    for (const Figures& f : members) {
        std::printf(
            "%d members: datagrams/frame %.2f, cpu x%.2f, user cpu x%.2f; ", f.receivers, f.datagramsPerFrame,
            members.front().cpuSeconds > 0 ? f.cpuSeconds / members.front().cpuSeconds : 0.0,
            members.front().userCpuSeconds > 0 ? f.userCpuSeconds / members.front().userCpuSeconds : 0.0);
    }
    std::printf("\n");
    return 0;
}

void Usage(const char* program) {
    std::fprintf(stderr,
                 "usage: %s [--seconds S] [--counts 1,100,1000,5000] [--search-seconds S] [--no-search]\n"
                 "          [--cdf DIR] [--ffmpeg-max N]\n"
                 "       %s --file PATH [--type 1|15] [--seconds S] [--counts 1,100,1000] [--csv FILE]\n"
                 "          [--samples DIR]\n"
                 "       %s --multicast [--seconds S] [--counts 10,100,1000,10000]\n",
                 program, program, program);
}

}  // namespace

int main(int argc, char** argv) {
    int seconds = 60;
    bool secondsGiven = false;
    int searchSeconds = 10;
    bool search = true;
    std::vector<int> counts = {1, 100, 1000, 5000};
    FileBroadcast file;
    std::string csvPath;
    std::string samplesDir;
    std::string cdfDir;
    // ffmpeg 5.1's tee crashed (SIGSEGV) here with 2000 RTP outputs always and with 1000 now and then. 0: no
    // ffmpeg runs.
    int ffmpegMax = 1000;
    bool multicast = false;
    bool countsGiven = false;
    for (int i = 1; i < argc; ++i) {
        const std::string option = argv[i];
        if (option == "--seconds" && i + 1 < argc) {
            seconds = std::atoi(argv[++i]);
            secondsGiven = true;
        } else if (option == "--search-seconds" && i + 1 < argc) {
            searchSeconds = std::atoi(argv[++i]);
        } else if (option == "--no-search") {
            search = false;
        } else if (option == "--multicast") {
            multicast = true;
        } else if (option == "--counts" && i + 1 < argc) {
            countsGiven = true;
            counts.clear();
            std::stringstream list(argv[++i]);
            std::string item;
            while (std::getline(list, item, ',')) {
                counts.push_back(std::atoi(item.c_str()));
            }
        } else if (option == "--file" && i + 1 < argc) {
            file.path = argv[++i];
        } else if (option == "--type" && i + 1 < argc) {
            file.type = std::atoi(argv[++i]);
        } else if (option == "--csv" && i + 1 < argc) {
            csvPath = argv[++i];
        } else if (option == "--samples" && i + 1 < argc) {
            samplesDir = argv[++i];
        } else if (option == "--cdf" && i + 1 < argc) {
            cdfDir = argv[++i];
        } else if (option == "--ffmpeg-max" && i + 1 < argc) {
            ffmpegMax = std::atoi(argv[++i]);
        } else {
            Usage(argv[0]);
            return 2;
        }
    }
    if (file.type != kTypeG711 && file.type != kTypeMp3) {
        Usage(argv[0]);
        return 2;
    }
    signal(SIGPIPE, SIG_IGN);
    // 5000 receivers take 5000 descriptors in the receiving process and as many in the sender (and twice as
    // many in ffmpeg, whose RTP outputs have an RTCP socket each): the soft limit goes up to the hard one.
    rlimit files{};
    if (getrlimit(RLIMIT_NOFILE, &files) == 0 && files.rlim_cur < files.rlim_max) {
        files.rlim_cur = files.rlim_max;
        setrlimit(RLIMIT_NOFILE, &files);
    }
    Tal::Base::LogConfig log;
    log.stderrLevel = Tal::Base::kLogError;
    Tal::Base::InitLog(log);

    if (!file.path.empty()) {
        file.seconds = secondsGiven ? seconds : 0;
        return RunFileMode(file, counts, csvPath, samplesDir);
    }

    // The G.711 file: a 440 Hz tone, u-law in a WAV file, made by sox.
    CTempDirectory directory;
    if (directory.Path().empty()) {
        return 1;
    }
    auto makeFile = [&](int length) {
        const std::string path = directory.Path() + "/tone-" + std::to_string(length) + ".wav";
        const std::string command =
            "sox -n -r 8000 -c 1 -e u-law " + path + " synth " + std::to_string(length) + " sine 440 vol 0.5";
        return std::system(command.c_str()) == 0 ? path : std::string();
    };
    const std::string toneFile = makeFile(seconds);
    const std::string audio = WavData(toneFile);
    if (audio.size() < static_cast<size_t>(seconds) * 8000) {
        std::fprintf(stderr, "sox could not make the G.711 file\n");
        return 1;
    }

    std::printf("G.711 file: %d s, %zu frames of %d bytes (40 ms); times in microseconds, CPU in seconds\n",
                seconds, audio.size() / kFrameBytes, kFrameBytes);
    if (multicast) {
        return RunMulticastMode(audio, countsGiven ? counts : std::vector<int>{10, 100, 1000, 10000}, 1000);
    }
    std::printf(
        "receivers: a separate process, kernel arrival time stamps (SO_TIMESTAMPNS)\n"
        "send error: |arrival at the first receiver - intended schedule|; lateness: arrival - schedule at\n"
        "every receiver (negative: early); jitter: RFC 3550 interarrival jitter, mean and max over "
        "receivers;\n"
        "cpu: CPU seconds of the sender (manager: this process; ffmpeg: its process), cpu %%: of one core\n"
        "over the run's wall time\n"
        "ffmpeg-tee: ffmpeg -re -i FILE -af asetnsamples=n=320,arealtime -c:a pcm_mulaw -f tee -map 0:a\n"
        "            \"[f=rtp]rtp://127.1:P1?rtcpport=P1|...\" (one 332-byte packet per 40 ms per "
        "receiver,\n"
        "            as the manager sends); its schedule is its RTP time stamps\n\n");
    std::printf("%-10s %9s %8s %8s %8s | %8s %8s %8s | %8s %8s | %19s | %7s %6s\n", "sender", "receivers",
                "send p50", "p99", "max", "late p50", "p99", "max", "jitter", "max", "packets/expected",
                "cpu", "cpu %");
    auto cdfPath = [&](const std::string& sender, int count) {
        return cdfDir.empty() ? std::string()
                              : cdfDir + "/lateness-" + sender + "-" + std::to_string(count) + ".txt";
    };
    if (!cdfDir.empty()) {
        std::error_code error;
        std::filesystem::create_directories(cdfDir, error);
    }
    struct Pair {
        Figures manager;
        Figures ffmpeg;
        bool ffmpegOk = false;
    };
    std::vector<Pair> pairs;
    int ffmpegRunAtMax = 0;
    for (int count : counts) {
        Pair pair;
        if (!RunManager(audio, count, pair.manager, cdfPath("manager", count))) {
            std::fprintf(stderr, "run with %d receivers failed\n", count);
            return 1;
        }
        PrintRow("manager", pair.manager);
        // Beyond the outputs ffmpeg's tee takes, it runs once at its largest count.
        const int ffmpegCount = std::min(count, ffmpegMax);
        if (ffmpegCount > 0 && (ffmpegCount == count || ffmpegRunAtMax == 0)) {
            pair.ffmpegOk = RunFfmpegTee(toneFile, ffmpegCount, pair.ffmpeg, cdfPath("ffmpeg", ffmpegCount));
            if (pair.ffmpegOk) {
                PrintRow("ffmpeg-tee", pair.ffmpeg);
            } else {
                std::printf("%-10s %9d   ffmpeg failed (exit status or no packets)\n", "ffmpeg-tee",
                            ffmpegCount);
            }
            if (ffmpegCount == ffmpegMax) {
                ffmpegRunAtMax = ffmpegCount;
            }
        }
        pairs.push_back(pair);
    }
    std::printf("\nmanager / ffmpeg-tee at the same receiver count:\n");
    for (const auto& pair : pairs) {
        if (!pair.ffmpegOk) {
            continue;
        }
        auto ratio = [](double ours, double theirs) { return theirs != 0 ? ours / theirs : 0.0; };
        std::printf("  %5d receivers (ffmpeg %5d): late p99 %.3f, late max %.3f, jitter %.3f, cpu %.3f\n",
                    pair.manager.receivers, pair.ffmpeg.receivers,
                    ratio(pair.manager.lateP99Us, pair.ffmpeg.lateP99Us),
                    ratio(pair.manager.lateMaxUs, pair.ffmpeg.lateMaxUs),
                    ratio(pair.manager.jitterMeanUs, pair.ffmpeg.jitterMeanUs),
                    ratio(pair.manager.cpuSeconds, pair.ffmpeg.cpuSeconds));
    }
    if (!cdfDir.empty()) {
        std::printf("lateness distributions: %s/lateness-<manager|ffmpeg>-<receivers>.txt\n", cdfDir.c_str());
    }

    if (search) {
        // Largest receiver count whose p99 lateness stays under 5 ms: double, then bisect (runs of
        // searchSeconds).
        const std::string shortAudio = audio.substr(0, static_cast<size_t>(searchSeconds) * 8000);
        auto good = [&](int count, Figures& figures) {
            return RunManager(shortAudio, count, figures) && figures.lateP99Us < 5000.0 &&
                   figures.packets == figures.expected;
        };
        std::printf("\nsearch (%d s per run):\n", searchSeconds);
        int low = 0;
        int high = 0;
        for (int count = 1000; count <= 9000; count *= 2) {
            Figures figures;
            const bool ok = good(count, figures);
            PrintRow(ok ? "ok" : "over", figures);
            if (!ok) {
                high = count;
                break;
            }
            low = count;
        }
        if (high == 0) {
            std::printf("p99 lateness stays under 5 ms up to %d receivers (descriptor limit of the run)\n",
                        low);
        } else {
            while (high - low > std::max(50, low / 20)) {
                const int middle = (low + high) / 2;
                Figures figures;
                const bool ok = good(middle, figures);
                PrintRow(ok ? "ok" : "over", figures);
                (ok ? low : high) = middle;
            }
            std::printf("largest receiver count with p99 lateness under 5 ms: about %d (fails at %d)\n", low,
                        high);
        }
    }
    return 0;
}
