// Soak: cycles live talks, file broadcasts, listens and stops against the reference platform, with one
// speaker per transport (streaming server, device interface, RTP over UDP), for a number of minutes. Every
// minute it prints the process's resident memory, heap in use, threads, open descriptors (without the
// REST client's kept connections) and kept REST handles, the cycles and failures of the minute, and the
// arrival lateness at the UDP speaker (p50/p99/worst, against the packets' media time). At the end it
// compares the last minute with the first.
//
//   bcast-soak --minutes N [--max-rss-growth-mb M]
//
// Exit code 0 when no cycle failed and neither threads nor descriptors grew (beyond the wake-up descriptors
// of REST handles the module newly keeps), nor RSS beyond M when given.

#include <QApplication>

#include <malloc.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "AudioCheck.h"
#include "BroadCastPlugin/controller/BroadcastController/BroadcastController.h"
#include "ModuleAgainstPlatform.h"
#include "PlatformProcess.h"
#include "RestClient.h"
#include "TestFiles.h"
#include "framework/netcomm/NetCommManager.h"
#include "framework/netcomm/RapidJsonProto.h"
#include "support/QtWait.h"

using NetworkCommunication::CRapidJsonProto;

namespace {

constexpr int kStreaming = 1001;  // streaming server
constexpr int kDeviceSdk = 1003;  // device network interface
constexpr int kUdp = 1006;        // RTP over UDP
constexpr int kUdpDevice = 301;   // the device of element 1006
constexpr int kTalkMs = 4000;
constexpr int kListenMs = 2000;
constexpr double kFileSeconds = 3.0;

struct ProcessFigures {
    double rssMb = 0;
    double heapMb = 0;  ///< handed out by malloc and not given back: RSS beyond fragmentation
    int threads = 0;
    int descriptors = 0;
    int requestHandles = 0;  ///< the module's kept REST handles, each with libcurl's wake-up descriptors
    std::vector<std::string> targets;  ///< what the counted descriptors point at, for the report
};

// Socket inodes of the TCP connections to 127.0.0.1:`port`: the REST client keeps up to eight of them open
// between calls, as many as calls ran at once, so they are not counted as descriptors that grow.
std::vector<std::string> KeptConnectionInodes(int port) {
    std::vector<std::string> inodes;
    char remote[32];
    std::snprintf(remote, sizeof(remote), "0100007F:%04X", port);
    std::ifstream tcp("/proc/net/tcp");
    std::string line;
    std::getline(tcp, line);  // the header
    while (std::getline(tcp, line)) {
        std::istringstream fields(line);
        std::string slot, local, peer, state, queues, timer, retransmits, uid, timeout, inode;
        fields >> slot >> local >> peer >> state >> queues >> timer >> retransmits >> uid >> timeout >> inode;
        if (peer == remote) {
            inodes.push_back("socket:[" + inode + "]");
        }
    }
    return inodes;
}

ProcessFigures MeasureOnce(int restPort) {
    ProcessFigures f;
    f.heapMb = static_cast<double>(mallinfo2().uordblks) / (1024.0 * 1024.0);
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.rfind("VmRSS:", 0) == 0) {
            f.rssMb = std::atof(line.c_str() + 6) / 1024.0;
        } else if (line.rfind("Threads:", 0) == 0) {
            f.threads = std::atoi(line.c_str() + 8);
        }
    }
    f.requestHandles = static_cast<int>(NetworkCommunication::CNetCommManager::IdleRequestHandles());
    const std::vector<std::string> kept = KeptConnectionInodes(restPort);
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code error;
        const std::string target = std::filesystem::read_symlink(entry.path(), error).string();
        if (std::find(kept.begin(), kept.end(), target) == kept.end()) {
            ++f.descriptors;
            f.targets.push_back(target);
        }
    }
    return f;
}

/// A socket's inode as the kernel's tables show it (protocol, local and peer address, TCP state), so a
/// descriptor that stayed open says which connection it is.
std::string DescribeSocket(const std::string& target) {
    const std::string inode = target.substr(8, target.size() - 9);  // socket:[N]
    for (const char* table : {"tcp", "tcp6", "udp", "udp6", "unix"}) {
        std::ifstream in(std::string("/proc/net/") + table);
        std::string line;
        std::getline(in, line);
        while (std::getline(in, line)) {
            std::istringstream fields(line);
            std::vector<std::string> f{std::istream_iterator<std::string>(fields), {}};
            const bool unix = std::strcmp(table, "unix") == 0;
            const size_t inodeField = unix ? 6 : 9;
            if (f.size() > inodeField && f[inodeField] == inode) {
                return target + " " + table + " " +
                       (unix ? (f.size() > 7 ? f[7] : "unnamed") : f[1] + " -> " + f[2] + " st " + f[3]);
            }
        }
    }
    return target;
}

/// The figures once the last cycle's short-lived threads and connections are gone: the smallest of a few
/// readings over a second and a half of quiet.
ProcessFigures Measure(int restPort) {
    ProcessFigures least = MeasureOnce(restPort);
    for (int i = 0; i < 5; ++i) {
        BcastTest::Settle(300);
        const ProcessFigures now = MeasureOnce(restPort);
        least.rssMb = std::min(least.rssMb, now.rssMb);
        least.heapMb = std::min(least.heapMb, now.heapMb);
        least.threads = std::min(least.threads, now.threads);
        least.requestHandles = std::max(least.requestHandles, now.requestHandles);
        if (now.descriptors < least.descriptors) {
            least.descriptors = now.descriptors;
            least.targets = now.targets;
        }
    }
    return least;
}

struct Lateness {
    double p50 = 0, p99 = 0, worst = 0;
    int samples = 0;
};

class CSoak {
public:
    CSoak(const PlatformTest::CPlatformProcess& platform, std::string filePath)
        : control_(platform.RestUrl()), filePath_(std::move(filePath)) {}

    /// One cycle: a live talk to all three, a file to all three, a listen to the streaming speaker. False
    /// (with the step in `failed`) when a step did not do what it should within its time.
    bool Cycle(std::string& failed) {
        auto* controller = BroadCastPlugin::CBroadcastController::Instance();
        BroadCastPlugin::IPSpeakBroadcastParam param;
        param.elementIDs = {kStreaming, kDeviceSdk, kUdp};
        std::map<int, int> before = Sessions();
        if (!controller->AsyncStartSpeakVoice(param, nullptr) || !AllReached(before, 20000)) {
            failed = "live talk start";
            Stop();
            return false;
        }
        BcastTest::Settle(kTalkMs);
        if (!Stop()) {
            failed = "live talk stop";
            return false;
        }
        before = Sessions();
        if (!controller->AsyncStartPlayAudioFile(param, filePath_, nullptr) || !AllReached(before, 20000)) {
            failed = "file broadcast start";
            Stop();
            return false;
        }
        BcastTest::Settle(static_cast<int>(kFileSeconds * 1000));
        if (!Stop()) {
            failed = "file broadcast stop";
            return false;
        }
        if (!controller->AsyncStartListen(kStreaming, nullptr) ||
            !BcastTest::WaitFor([this] { return ListenStreams() > 0; }, 10000)) {
            failed = "listen start";
            controller->AsyncStopListen(nullptr);
            return false;
        }
        BcastTest::Settle(kListenMs);
        controller->AsyncStopListen(nullptr);
        if (!BcastTest::WaitFor([this] { return ListenStreams() == 0; }, 10000)) {
            failed = "listen stop";
            return false;
        }
        return true;
    }

    /// The UDP speaker's arrival lateness since the last call.
    Lateness TakeLateness() {
        Lateness l;
        CRapidJsonProto devices;
        devices.set_str(control_.Send("GET", "/_control/devices", "").body);
        for (int i = 1; i <= devices.get_cnt("/ResponseStatus/Data/Devices"); ++i) {
            const std::string p = "/ResponseStatus/Data/Devices[" + std::to_string(i) + "]";
            if (devices.get_int_v(p + "/DeviceID", 0) == kUdpDevice) {
                l.samples = devices.get_int_v(p + "/LatenessSamples", 0);
                l.p50 = devices.get_double_v(p + "/LatenessP50Ms", 0);
                l.p99 = devices.get_double_v(p + "/LatenessP99Ms", 0);
                l.worst = devices.get_double_v(p + "/LatenessMaxMs", 0);
            }
        }
        control_.Send("POST", "/_control/devices/lateness/reset", "{}");
        return l;
    }

private:
    std::map<int, int> Sessions() {
        CRapidJsonProto all;
        all.set_str(control_.Send("GET", "/_control/speakers", "").body);
        std::map<int, int> sessions;
        for (int i = 1; i <= all.get_cnt("/ResponseStatus/Data/Speakers"); ++i) {
            const std::string p = "/ResponseStatus/Data/Speakers[" + std::to_string(i) + "]";
            sessions[all.get_int_v(p + "/ElementID", 0)] = all.get_int_v(p + "/Sessions", 0);
        }
        return sessions;
    }
    /// Every target speaker started a new session (its audio arrives).
    bool AllReached(const std::map<int, int>& before, int timeoutMs) {
        return BcastTest::WaitFor(
            [&] {
                const std::map<int, int> now = Sessions();
                for (int id : {kStreaming, kDeviceSdk, kUdp}) {
                    if (now.count(id) == 0 || now.at(id) <= before.at(id)) {
                        return false;
                    }
                }
                return true;
            },
            timeoutMs);
    }
    int ListenStreams() {
        CRapidJsonProto streaming;
        streaming.set_str(control_.Send("GET", "/_control/streaming", "").body);
        return streaming.get_int_v("/ResponseStatus/Data/ListenStreams", -1);
    }
    bool Stop() {
        auto* controller = BroadCastPlugin::CBroadcastController::Instance();
        controller->AsyncStopBroadcast(nullptr);
        return BcastTest::WaitFor([controller] { return controller->GetMainTaskCount() == 0; }, 15000);
    }

    PlatformTest::CRestClient control_;
    std::string filePath_;
};

int Fail(const std::string& why) {
    std::fprintf(stderr, "soak: %s\n", why.c_str());
    return 1;
}

}  // namespace

int main(int argc, char** argv) {
    double minutes = 1;
    double maxRssGrowthMb = -1;
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--minutes") == 0 && i + 1 < argc) {
            minutes = std::atof(argv[++i]);
        } else if (std::strcmp(argv[i], "--max-rss-growth-mb") == 0 && i + 1 < argc) {
            maxRssGrowthMb = std::atof(argv[++i]);
        } else {
            return Fail(std::string("unknown argument ") + argv[i] +
                        "; usage: bcast-soak --minutes N [--max-rss-growth-mb M]");
        }
    }
    if (minutes <= 0) {
        return Fail("--minutes wants a positive number");
    }
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);

    BcastTest::CModuleRig rig("soak");
    std::string error;
    if (!rig.Start(error)) {
        return Fail(error);
    }
    const BcastTest::CTempDir& work = rig.Work();
    const std::string file = work.File("file.wav");
    const std::string made = BcastTest::MakeToneWav(file, 16000, {440.0}, kFileSeconds);
    if (!made.empty()) {
        return Fail("cannot make the file to play: " + made);
    }

    CSoak soak(rig.Platform(), file);
    const std::string restUrl = rig.Platform().RestUrl();
    const int restPort = std::stoi(restUrl.substr(restUrl.rfind(':') + 1));
    // A first cycle warms the libraries' one-time state (codecs, GStreamer plug-ins, thread pools) up before
    // the first figures are taken.
    std::string failed;
    if (!soak.Cycle(failed)) {
        return Fail("the warm-up cycle failed at: " + failed);
    }
    soak.TakeLateness();

    std::printf("%6s %6s %8s %8s %8s %7s %5s %7s %22s\n", "minute", "cycles", "failures", "rss MB", "heap MB",
                "threads", "fds", "handles", "udp lateness ms p50/p99/max");
    std::vector<ProcessFigures> perMinute;
    std::vector<Lateness> lateness;
    int totalFailures = 0;
    const auto start = std::chrono::steady_clock::now();
    const auto end = start + std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                                 std::chrono::duration<double, std::ratio<60>>(minutes));
    for (int minute = 1; std::chrono::steady_clock::now() < end; ++minute) {
        const auto minuteEnd = std::min(end, start + std::chrono::minutes(minute));
        int cycles = 0, failures = 0;
        while (std::chrono::steady_clock::now() < minuteEnd) {
            ++cycles;
            if (!soak.Cycle(failed)) {
                ++failures;
                std::printf("  minute %d cycle %d failed at: %s\n", minute, cycles, failed.c_str());
            }
        }
        const ProcessFigures f = Measure(restPort);
        const Lateness l = soak.TakeLateness();
        perMinute.push_back(f);
        lateness.push_back(l);
        totalFailures += failures;
        std::printf("%6d %6d %8d %8.1f %8.2f %7d %5d %7d %8.2f/%.2f/%.2f\n", minute, cycles, failures,
                    f.rssMb, f.heapMb, f.threads, f.descriptors, f.requestHandles, l.p50, l.p99, l.worst);
        std::fflush(stdout);
    }

    const ProcessFigures& first = perMinute.front();
    const ProcessFigures& last = perMinute.back();
    const double hours = std::max(1.0 / 60, (perMinute.size() - 1) / 60.0);
    std::printf(
        "first -> last minute: rss %.1f -> %.1f MB (%.2f MB/hour), heap in use %.2f -> %.2f MB, threads %d "
        "-> "
        "%d, fds %d -> %d, udp lateness p99 %.2f -> %.2f ms; %d failed cycles\n",
        first.rssMb, last.rssMb, (last.rssMb - first.rssMb) / hours, first.heapMb, last.heapMb, first.threads,
        last.threads, first.descriptors, last.descriptors, lateness.front().p99, lateness.back().p99,
        totalFailures);
    bool ok = totalFailures == 0;
    auto problem = [&ok](const std::string& what) {
        Fail(what);
        ok = false;
    };
    if (last.threads > first.threads) {
        problem("threads grew");
    }
    // A kept REST handle holds libcurl's wake-up pair (two descriptors, one where libcurl has eventfd) beside
    // its connection: the pool grows to as many handles as requests once ran at once, at most eight.
    const int pooledGrowth = 2 * std::max(0, last.requestHandles - first.requestHandles);
    if (pooledGrowth > 0) {
        std::printf("kept REST handles %d -> %d: up to %d more descriptors are theirs\n",
                    first.requestHandles, last.requestHandles, pooledGrowth);
    }
    if (last.descriptors > first.descriptors + pooledGrowth) {
        for (const std::string& target : last.targets) {
            if (std::find(first.targets.begin(), first.targets.end(), target) == first.targets.end()) {
                std::fprintf(
                    stderr, "  new descriptor: %s\n",
                    target.rfind("socket:[", 0) == 0 ? DescribeSocket(target).c_str() : target.c_str());
            }
        }
        problem("descriptors grew");
    }
    if (maxRssGrowthMb >= 0 && last.rssMb - first.rssMb > maxRssGrowthMb) {
        problem("resident memory grew by more than " + std::to_string(maxRssGrowthMb) + " MB");
    }
    std::printf("soak %s\n", ok ? "ok" : "FAILED");
    return ok ? 0 : 1;
}
