// Pacing benchmark of the voice transfer manager: a G.711 file is sent through the RTP speaker group (one
// CUdpTransfer per receiver) to 1, 100 and 1000 receivers on loopback, and once by ffmpeg -re to one
// receiver. The receivers run in a child process and take kernel arrival time stamps (SO_TIMESTAMPNS), so
// their own load does not blur the figures.
//
// Per run: send-time error (|arrival at the first receiver - the sender's intended schedule|), lateness of
// every receiver against that schedule (negative: early), RFC 3550 interarrival jitter, losses, and the
// sender's CPU time. Finally the largest receiver count whose p99 lateness stays under 5 ms.
//
//   bcast-bench-transfer [--seconds 60] [--counts 1,100,1000] [--search-seconds 10] [--no-search]

#include <arpa/inet.h>
#include <fcntl.h>
#include <linux/net_tstamp.h>
#include <netinet/in.h>
#include <poll.h>
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
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "BroadCastPlugin/logical/VoiceTransfer/VoiceTransferManager.h"
#include "framework/base/FormatLog.h"

namespace {

constexpr int kFrameBytes = 320;  // 40 ms of 8000 Hz G.711
constexpr int kIntervalMs = 40;
constexpr double kClockRate = 8000.0;

struct Figures {
    int receivers = 0;
    double sendP50Us = 0, sendP99Us = 0, sendMaxUs = 0;  ///< first receiver against the schedule
    double lateP50Us = 0, lateP99Us = 0, lateMaxUs = 0;  ///< every receiver against the schedule
    double jitterMeanUs = 0, jitterMaxUs = 0;            ///< RFC 3550, over receivers
    long packets = 0, expected = 0;
    double cpuSeconds = 0;
    int payloadBytes = 0;
};

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

/// The child: N sockets, kernel time stamps, until `idleMs` of silence after the first packet. Writes the
/// figures to `out` as text. `manager` selects the schedule: the manager sends frame k at (k - 1) x interval
/// (k >= 1), ffmpeg -re at the time its RTP time stamp says.
void RunReceivers(int count, int portsOut, int resultsOut, bool managerSchedule, int idleMs) {
    std::vector<int> sockets;
    std::string ports;
    for (int i = 0; i < count; ++i) {
        const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK, 0);
        int on = 1;
        setsockopt(fd, SOL_SOCKET, SO_TIMESTAMPNS, &on, sizeof(on));
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address));
        socklen_t length = sizeof(address);
        getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length);
        ports += std::to_string(ntohs(address.sin_port)) + "\n";
        sockets.push_back(fd);
    }
    ports += "end\n";
    if (write(portsOut, ports.data(), ports.size()) < 0) {
        _exit(1);
    }

    const int epoll = epoll_create1(0);
    for (int i = 0; i < count; ++i) {
        epoll_event event{};
        event.events = EPOLLIN;
        event.data.u32 = static_cast<uint32_t>(i);
        epoll_ctl(epoll, EPOLL_CTL_ADD, sockets[static_cast<size_t>(i)], &event);
    }
    struct Arrival {
        uint16_t sequence;
        uint32_t timestamp;
        int64_t ns;
    };
    std::vector<std::vector<Arrival>> arrivals(static_cast<size_t>(count));
    int payloadBytes = 0;
    bool started = false;
    std::vector<epoll_event> events(1024);
    for (;;) {
        const int ready =
            epoll_wait(epoll, events.data(), static_cast<int>(events.size()), started ? idleMs : 30000);
        if (ready <= 0) {
            break;
        }
        for (int e = 0; e < ready; ++e) {
            const uint32_t index = events[static_cast<size_t>(e)].data.u32;
            for (;;) {
                uint8_t packet[2048];
                char control[256];
                iovec vector{packet, sizeof(packet)};
                msghdr message{};
                message.msg_iov = &vector;
                message.msg_iovlen = 1;
                message.msg_control = control;
                message.msg_controllen = sizeof(control);
                const ssize_t size = recvmsg(sockets[index], &message, 0);
                if (size < 12) {
                    break;
                }
                int64_t ns = 0;
                for (cmsghdr* c = CMSG_FIRSTHDR(&message); c != nullptr; c = CMSG_NXTHDR(&message, c)) {
                    if (c->cmsg_level == SOL_SOCKET && c->cmsg_type == SCM_TIMESTAMPNS) {
                        timespec stamp;
                        std::memcpy(&stamp, CMSG_DATA(c), sizeof(stamp));
                        ns = Nanoseconds(stamp);
                    }
                }
                Arrival arrival;
                arrival.sequence = static_cast<uint16_t>(packet[2] << 8 | packet[3]);
                arrival.timestamp = static_cast<uint32_t>(packet[4]) << 24 |
                                    static_cast<uint32_t>(packet[5]) << 16 |
                                    static_cast<uint32_t>(packet[6]) << 8 | packet[7];
                arrival.ns = ns;
                arrivals[index].push_back(arrival);
                payloadBytes = static_cast<int>(size) - 12;
                started = true;
            }
        }
    }

    Figures figures;
    figures.receivers = count;
    figures.payloadBytes = payloadBytes;
    if (!arrivals[0].empty()) {
        const int64_t t0 = arrivals[0].front().ns;
        const uint32_t ts0 = arrivals[0].front().timestamp;
        const uint16_t seq0 = arrivals[0].front().sequence;
        auto ideal = [&](const Arrival& a) -> int64_t {
            if (managerSchedule) {
                const int k = static_cast<uint16_t>(a.sequence - seq0);
                return t0 + static_cast<int64_t>(std::max(k - 1, 0)) * kIntervalMs * 1000000LL;
            }
            return t0 + static_cast<int64_t>((a.timestamp - ts0) / kClockRate * 1e9);
        };
        std::vector<double> send;
        std::vector<double> late;
        std::vector<double> jitters;
        long expected = 0;
        long packets = 0;
        for (size_t r = 0; r < arrivals.size(); ++r) {
            const auto& list = arrivals[r];
            packets += static_cast<long>(list.size());
            if (list.empty()) {
                continue;
            }
            expected += static_cast<uint16_t>(list.back().sequence - list.front().sequence) + 1;
            double jitter = 0;
            for (size_t i = 0; i < list.size(); ++i) {
                const double error = (list[i].ns - ideal(list[i])) / 1000.0;
                late.push_back(error);
                if (r == 0 && i > 0) {
                    send.push_back(std::fabs(error));  // early counts as much as late
                }
                if (i > 0) {
                    const double transit = (list[i].ns - list[i - 1].ns) / 1e9 * kClockRate -
                                           static_cast<int32_t>(list[i].timestamp - list[i - 1].timestamp);
                    jitter += (std::fabs(transit) - jitter) / 16.0;
                }
            }
            jitters.push_back(jitter / kClockRate * 1e6);
        }
        figures.sendP50Us = Percentile(send, 0.50);
        figures.sendP99Us = Percentile(send, 0.99);
        figures.sendMaxUs = send.empty() ? 0 : *std::max_element(send.begin(), send.end());
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
    }
    std::ostringstream text;
    text << figures.receivers << ' ' << figures.sendP50Us << ' ' << figures.sendP99Us << ' '
         << figures.sendMaxUs << ' ' << figures.lateP50Us << ' ' << figures.lateP99Us << ' '
         << figures.lateMaxUs << ' ' << figures.jitterMeanUs << ' ' << figures.jitterMaxUs << ' '
         << figures.packets << ' ' << figures.expected << ' ' << figures.payloadBytes << '\n';
    const std::string result = text.str();
    if (write(resultsOut, result.data(), result.size()) < 0) {
        _exit(1);
    }
    _exit(0);
}

/// Receivers in a child process; Start gives their ports, Finish their figures.
class CReceiverProcess {
public:
    bool Start(int count, bool managerSchedule, std::vector<uint16_t>& ports) {
        int portsPipe[2];
        int resultsPipe[2];
        if (pipe(portsPipe) != 0 || pipe(resultsPipe) != 0) {
            return false;
        }
        pid_ = fork();
        if (pid_ == 0) {
            close(portsPipe[0]);
            close(resultsPipe[0]);
            RunReceivers(count, portsPipe[1], resultsPipe[1], managerSchedule, 2000);
        }
        close(portsPipe[1]);
        close(resultsPipe[1]);
        results_ = resultsPipe[0];
        std::string text;
        char buffer[65536];
        while (text.find("end\n") == std::string::npos) {
            const ssize_t size = read(portsPipe[0], buffer, sizeof(buffer));
            if (size <= 0) {
                break;
            }
            text.append(buffer, static_cast<size_t>(size));
        }
        close(portsPipe[0]);
        std::istringstream lines(text);
        std::string line;
        while (std::getline(lines, line) && line != "end") {
            ports.push_back(static_cast<uint16_t>(std::stoi(line)));
        }
        return static_cast<int>(ports.size()) == count;
    }

    bool Finish(Figures& figures) {
        std::string text;
        char buffer[4096];
        ssize_t size;
        while ((size = read(results_, buffer, sizeof(buffer))) > 0) {
            text.append(buffer, static_cast<size_t>(size));
        }
        close(results_);
        int status = 0;
        waitpid(pid_, &status, 0);
        std::istringstream in(text);
        in >> figures.receivers >> figures.sendP50Us >> figures.sendP99Us >> figures.sendMaxUs >>
            figures.lateP50Us >> figures.lateP99Us >> figures.lateMaxUs >> figures.jitterMeanUs >>
            figures.jitterMaxUs >> figures.packets >> figures.expected >> figures.payloadBytes;
        return static_cast<bool>(in);
    }

private:
    pid_t pid_ = -1;
    int results_ = -1;
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

bool RunManager(const std::string& audio, int receivers, Figures& figures) {
    CReceiverProcess process;
    std::vector<uint16_t> ports;
    if (!process.Start(receivers, true, ports)) {
        return false;
    }
    std::vector<BroadCastPlugin::OEMTransferTarget> targets;
    for (int i = 0; i < receivers; ++i) {
        targets.push_back({i, "127.0.0.1", ports[static_cast<size_t>(i)], BroadCastPlugin::kEncodeG711U});
    }
    rusage before{};
    getrusage(RUSAGE_SELF, &before);
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
    if (!process.Finish(figures)) {
        return false;
    }
    figures.cpuSeconds = CpuSeconds(after) - CpuSeconds(before);
    return true;
}

/// `packetSize` 0 runs the plain command; otherwise ffmpeg's "-packetsize" limits its RTP packets.
bool RunFfmpeg(const std::string& file, int packetSize, Figures& figures) {
    CReceiverProcess process;
    std::vector<uint16_t> ports;
    if (!process.Start(1, false, ports)) {
        return false;
    }
    const std::string url = "rtp://127.0.0.1:" + std::to_string(ports[0]);
    const pid_t ffmpeg = fork();
    if (ffmpeg == 0) {
        const int null = open("/dev/null", O_WRONLY);
        dup2(null, STDOUT_FILENO);
        dup2(null, STDERR_FILENO);
        const std::string size = std::to_string(packetSize);
        if (packetSize == 0) {
            execl("/usr/bin/ffmpeg", "ffmpeg", "-nostdin", "-re", "-i", file.c_str(), "-c:a", "pcm_mulaw",
                  "-f", "rtp", url.c_str(), static_cast<char*>(nullptr));
        } else {
            execl("/usr/bin/ffmpeg", "ffmpeg", "-nostdin", "-re", "-i", file.c_str(), "-c:a", "pcm_mulaw",
                  "-f", "rtp", "-packetsize", size.c_str(), url.c_str(), static_cast<char*>(nullptr));
        }
        _exit(127);
    }
    int status = 0;
    rusage usage{};
    wait4(ffmpeg, &status, 0, &usage);
    if (!process.Finish(figures) || !WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        return false;
    }
    figures.cpuSeconds = CpuSeconds(usage);
    return true;
}

void PrintRow(const char* sender, const Figures& f) {
    std::printf("%-9s %9d %8.0f %8.0f %8.0f | %8.0f %8.0f %8.0f | %8.1f %8.1f | %9ld/%-9ld | %7.2f\n", sender,
                f.receivers, f.sendP50Us, f.sendP99Us, f.sendMaxUs, f.lateP50Us, f.lateP99Us, f.lateMaxUs,
                f.jitterMeanUs, f.jitterMaxUs, f.packets, f.expected, f.cpuSeconds);
    std::fflush(stdout);
}

}  // namespace

int main(int argc, char** argv) {
    int seconds = 60;
    int searchSeconds = 10;
    bool search = true;
    std::vector<int> counts = {1, 100, 1000};
    for (int i = 1; i < argc; ++i) {
        const std::string option = argv[i];
        if (option == "--seconds" && i + 1 < argc) {
            seconds = std::atoi(argv[++i]);
        } else if (option == "--search-seconds" && i + 1 < argc) {
            searchSeconds = std::atoi(argv[++i]);
        } else if (option == "--no-search") {
            search = false;
        } else if (option == "--counts" && i + 1 < argc) {
            counts.clear();
            std::stringstream list(argv[++i]);
            std::string item;
            while (std::getline(list, item, ',')) {
                counts.push_back(std::atoi(item.c_str()));
            }
        } else {
            std::fprintf(stderr,
                         "usage: %s [--seconds S] [--counts 1,100,1000] [--search-seconds S] [--no-search]\n",
                         argv[0]);
            return 2;
        }
    }
    signal(SIGPIPE, SIG_IGN);
    Tal::Base::LogConfig log;
    log.stderrLevel = Tal::Base::kLogError;
    Tal::Base::InitLog(log);

    // The G.711 file: a 440 Hz tone, u-law in a WAV file, made by sox.
    char directory[] = "/tmp/bcast-bench-XXXXXX";
    if (mkdtemp(directory) == nullptr) {
        return 1;
    }
    auto makeFile = [&](int length) {
        const std::string path = std::string(directory) + "/tone-" + std::to_string(length) + ".wav";
        const std::string command =
            "sox -n -r 8000 -c 1 -e u-law " + path + " synth " + std::to_string(length) + " sine 440 vol 0.5";
        return std::system(command.c_str()) == 0 ? path : std::string();
    };
    const std::string file = makeFile(seconds);
    const std::string audio = WavData(file);
    if (audio.size() < static_cast<size_t>(seconds) * 8000) {
        std::fprintf(stderr, "sox could not make the G.711 file\n");
        return 1;
    }

    std::printf("G.711 file: %d s, %zu frames of %d bytes (40 ms); times in microseconds, CPU in seconds\n",
                seconds, audio.size() / kFrameBytes, kFrameBytes);
    std::printf(
        "send error: |arrival at the first receiver - intended schedule|; lateness: arrival - schedule at\n"
        "every receiver (negative: early); jitter: RFC 3550 interarrival jitter, mean and max over "
        "receivers\n\n");
    std::printf("%-9s %9s %8s %8s %8s | %8s %8s %8s | %8s %8s | %19s | %7s\n", "sender", "receivers",
                "send p50", "p99", "max", "late p50", "p99", "max", "jitter", "max", "packets/expected",
                "cpu");
    Figures oneReceiver;
    for (int count : counts) {
        Figures figures;
        if (!RunManager(audio, count, figures)) {
            std::fprintf(stderr, "run with %d receivers failed\n", count);
            return 1;
        }
        PrintRow("manager", figures);
        if (count == 1) {
            oneReceiver = figures;
        }
    }
    Figures ffmpeg;
    Figures ffmpegSmall;
    if (!RunFfmpeg(file, 0, ffmpeg) || !RunFfmpeg(file, kFrameBytes + 12, ffmpegSmall)) {
        std::fprintf(stderr, "ffmpeg run failed\n");
        return 1;
    }
    PrintRow("ffmpeg", ffmpeg);
    PrintRow("ffmpeg332", ffmpegSmall);
    std::printf(
        "ffmpeg:    ffmpeg -re -i FILE -c:a pcm_mulaw -f rtp rtp://127.0.0.1:PORT (packets up to 1400 "
        "bytes)\n"
        "ffmpeg332: the same with -packetsize 332 (320-byte payloads, as the manager sends)\n"
        "ffmpeg's schedule is its RTP time stamps; -re releases whole demuxed blocks, so it runs ahead.\n");
    if (oneReceiver.receivers == 1) {
        auto ratio = [](double ours, double theirs) { return theirs != 0 ? ours / theirs : 0.0; };
        for (const auto* peer : {&ffmpeg, &ffmpegSmall}) {
            std::printf("\nmanager / %s, one receiver: send error p99 %.3f, jitter %.3f, cpu %.3f",
                        peer == &ffmpeg ? "ffmpeg" : "ffmpeg332",
                        ratio(oneReceiver.sendP99Us, peer->sendP99Us),
                        ratio(oneReceiver.jitterMeanUs, peer->jitterMeanUs),
                        ratio(oneReceiver.cpuSeconds, peer->cpuSeconds));
        }
        std::printf("\n");
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
