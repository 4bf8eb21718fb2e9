// bcast-tool rtp-send: G.711 µ-law frames of 40 ms, one RTP packet each, paced in real time.

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "BroadCastPlugin/logical/VoiceTransfer/UDP/UdpTransfer.h"
#include "framework/media/codec/G711Codec.h"
#include "framework/media/mediakit/EncodeTypes.h"
#include "framework/media/mediakit/WavFile.h"
#include "tool/CommandLine.h"
#include "tool/rtp/RtpCommands.h"

namespace {

const Tal::MediaKit::EncodeTypeInfo& kPcmu = *Tal::MediaKit::EncodeTypeOf(BroadCastPlugin::kEncodeG711U);
const int kRate = kPcmu.sampleRate;
const std::size_t kFrameSamples = static_cast<std::size_t>(kPcmu.frameSamples);
const std::chrono::milliseconds kFrameInterval(kPcmu.frameMs);

const char* const kUsage =
    "usage: bcast-tool rtp-send --to HOST:PORT (--wav FILE | --tone HZ [--seconds S]) [--level DBFS]\n"
    "  Sends 8000 Hz G.711 u-law in 40 ms RTP packets (payload type 0), paced in real time.\n"
    "  The WAV file must be 16-bit PCM at 8000 Hz (sox IN -b 16 -r 8000 OUT.wav converts one).\n";

void Usage() {
    std::fputs(kUsage, stderr);
}

/// HOST:PORT -> dotted IPv4 and port.
bool ParseDestination(const std::string& text, std::string& address, uint16_t& port) {
    const size_t colon = text.rfind(':');
    if (colon == std::string::npos || colon == 0) {
        return false;
    }
    const int number = std::atoi(text.c_str() + colon + 1);
    if (number <= 0 || number > 65535) {
        return false;
    }
    addrinfo hints{};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_DGRAM;
    addrinfo* found = nullptr;
    if (getaddrinfo(text.substr(0, colon).c_str(), nullptr, &hints, &found) != 0 || found == nullptr) {
        return false;
    }
    char dotted[INET_ADDRSTRLEN] = {};
    inet_ntop(AF_INET, &reinterpret_cast<sockaddr_in*>(found->ai_addr)->sin_addr, dotted, sizeof(dotted));
    freeaddrinfo(found);
    address = dotted;
    port = static_cast<uint16_t>(number);
    return true;
}

/// The samples of a 16-bit WAV file at 8000 Hz, mixed down to mono. Empty with the reason on stderr.
std::vector<int16_t> WavSamples(const std::string& wavPath) {
    Tal::MediaKit::PcmAudio audio;
    Tal::MediaKit::WavFacts facts;
    std::string error;
    if (!Tal::MediaKit::ReadWav(wavPath, audio, error, &facts)) {
        std::fprintf(stderr, "rtp-send: %s\n", error.c_str());
        return {};
    }
    if (facts.bitsPerSample != 16) {
        std::fprintf(stderr,
                     "rtp-send: %s is not 16-bit PCM (convert it with: sox IN -b 16 -c 1 -r 8000 OUT.wav)\n",
                     wavPath.c_str());
        return {};
    }
    if (audio.sampleRate != kRate) {
        std::fprintf(stderr, "rtp-send: %s is %d Hz; 8000 Hz is needed (sox IN -r 8000 OUT.wav)\n",
                     wavPath.c_str(), audio.sampleRate);
        return {};
    }
    std::vector<int16_t> samples = Tal::MediaKit::MixToMono(audio);
    if (samples.empty()) {
        std::fprintf(stderr, "rtp-send: nothing to send\n");
    }
    return samples;
}

std::vector<int16_t> Tone(double toneHz, double seconds, double levelDbfs) {
    const double amplitude = 32767.0 * std::pow(10.0, levelDbfs / 20.0);
    std::vector<int16_t> samples(static_cast<size_t>(seconds * kRate));
    for (size_t i = 0; i < samples.size(); ++i) {
        samples[i] = static_cast<int16_t>(std::lround(amplitude * std::sin(2.0 * M_PI * toneHz * i / kRate)));
    }
    return samples;
}

/// G.711 u-law frames, one RTP packet each, paced in real time.
void Send(const std::vector<int16_t>& samples, const std::string& address, uint16_t port) {
    BroadCastPlugin::CUdpTransfer transfer;
    transfer.Init(address, port, BroadCastPlugin::kEncodeG711U);
    const size_t frames = (samples.size() + kFrameSamples - 1) / kFrameSamples;
    std::printf("rtp-send: %zu frames (%.2f s) of PCMU to %s:%u\n", frames, frames * 0.04, address.c_str(),
                static_cast<unsigned>(port));
    std::fflush(stdout);

    const auto start = std::chrono::steady_clock::now();
    std::chrono::microseconds worstLateness{0};
    std::vector<uint8_t> frame(kFrameSamples);
    for (size_t index = 0; index < frames; ++index) {
        for (size_t i = 0; i < kFrameSamples; ++i) {
            const size_t at = index * kFrameSamples + i;
            frame[i] = Tal::MediaCodec::LinearToUlaw(at < samples.size() ? samples[at] : 0);
        }
        // Absolute schedule: frame n leaves at start + n x 40 ms, whatever the previous sends cost.
        const auto due = start + kFrameInterval * index;
        std::this_thread::sleep_until(due);
        const auto lateness =
            std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - due);
        worstLateness = std::max(worstLateness, lateness);
        transfer.SendVoice(frame.data(), static_cast<int>(kFrameSamples));
    }
    transfer.Uninit();
    std::printf("rtp-send: sent %zu packets, worst send lateness %.3f ms\n", frames,
                worstLateness.count() / 1000.0);
}

}  // namespace

int RunRtpSend(int argc, char** argv) {
    std::string destination;
    std::string wavPath;
    double toneHz = 0.0;
    double seconds = 5.0;
    double levelDbfs = -6.0;
    CLI::App app("bcast-tool rtp-send: a WAV file or a tone as RTP", "bcast-tool rtp-send");
    app.add_option("--to", destination, "where to send")->required()->type_name("HOST:PORT");
    app.add_option("--wav", wavPath, "the WAV file to send")->type_name("FILE");
    app.add_option("--tone", toneHz, "send a tone of this frequency instead")->type_name("HZ");
    app.add_option("--seconds", seconds, "how long the tone lasts (default 5)")->type_name("S");
    app.add_option("--level", levelDbfs, "the tone's level (default -6)")->type_name("DBFS");
    const int parsed = BcastTool::ParseCommandWords(app, argc, argv, "rtp-send", kUsage);
    if (parsed >= 0) {
        return parsed;
    }
    std::string address;
    uint16_t port = 0;
    if (destination.empty() || !ParseDestination(destination, address, port) ||
        (wavPath.empty() == (toneHz <= 0.0)) || seconds <= 0.0) {
        Usage();
        return 2;
    }

    const std::vector<int16_t> samples =
        wavPath.empty() ? Tone(toneHz, seconds, levelDbfs) : WavSamples(wavPath);
    if (samples.empty()) {
        if (wavPath.empty()) {
            std::fprintf(stderr, "rtp-send: nothing to send\n");
        }
        return 1;
    }
    Send(samples, address, port);
    return 0;
}
