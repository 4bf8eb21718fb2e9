// "compare": how well a recording (a speaker's WAV) matches what was sent.

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "tool/CommandLine.h"
#include "tool/ToolCommand.h"
#include "tool/audio/AudioCompare.h"

namespace BcastTool {

namespace {

int RunCompare(int argc, char** argv) {
    std::string reference;
    std::string recording;
    double maxDelay = 3.0;
    double minCorrelation = -1;
    CLI::App app("bcast-tool compare: how well a recording matches a reference: correlation and delay",
                 "bcast-tool compare");
    app.add_option("REFERENCE", reference, "the WAV that was sent")->required();
    app.add_option("RECORDING", recording, "the WAV that was recorded")->required();
    app.add_option("--max-delay", maxDelay, "the longest delay looked for (default 3)")
        ->check(CLI::PositiveNumber)
        ->type_name("SECONDS");
    app.add_option("--min-correlation", minCorrelation, "exit 1 below this correlation")->type_name("C");
    const int parsed =
        ParseCommandWords(app, argc, argv, "compare",
                          "usage: bcast-tool compare REFERENCE.wav RECORDING.wav [--max-delay SECONDS] "
                          "[--min-correlation C]\n");
    if (parsed >= 0) {
        return parsed;
    }
    PcmAudio ref, rec, ref8, rec8;
    std::string error;
    if (!ReadWavMono(reference, ref, error) || !ReadWavMono(recording, rec, error)) {
        std::fprintf(stderr, "compare: %s\n", error.c_str());
        return 1;
    }
    // Speakers play 8 kHz audio: compare at that rate.
    if (!ToRate(ref, 8000, ref8) || !ToRate(rec, 8000, rec8)) {
        std::fprintf(stderr, "compare: resampling failed\n");
        return 1;
    }
    const AudioMatch match = CompareAudio(ref8, rec8, maxDelay);
    std::printf("reference %.2f s, recording %.2f s, correlation %.3f, delay %.0f ms\n",
                match.referenceSeconds, match.recordingSeconds, match.correlation, match.delayMs);
    return match.correlation >= minCorrelation ? 0 : 1;
}

}  // namespace

void AddAudioCommands(CommandList& commands) {
    commands.push_back({"compare", "REFERENCE.wav RECORDING.wav [--max-delay S] [--min-correlation C]",
                        "how well a recording matches a reference: correlation and delay", &RunCompare});
}

}  // namespace BcastTool
