#pragma once
// Makes the audio of a media file from its recipe (spoken words with espeak-ng, the prompt-tone chime, a
// sine tone) as a WAV (16-bit PCM) or MP3 (LAME) file, and reads the length of such a file back.
//
// The files come in layouts a client has to convert before it plays them to 8000 Hz speakers, as a real
// library's files do: speech as WAV 22050 Hz mono (espeak-ng's own rate), speech as MP3 44100 Hz mono
// 64 kbit/s, chimes and tones as WAV 44100 Hz stereo or MP3 44100 Hz stereo 128 kbit/s.

#include <string>

#include "platform/server/fixture/Fixture.h"

namespace Platform {

struct AudioLayout {
    int sampleRate = 0;
    int channels = 1;
    int bitRate = 0;  ///< bit/s, MP3 only
};

/// The layout a recipe is made in for "wav" or "mp3".
AudioLayout LayoutFor(const MediaRecipe& recipe, const std::string& format);

/// Makes the recipe's audio as `format` at `path`. `workDirectory` holds espeak-ng's temporary files.
/// False with a reason (espeak-ng missing or failing, an encoder or file error).
bool RenderMedia(const MediaRecipe& recipe, const std::string& format, const std::string& path,
                 const std::string& workDirectory, std::string& error);

struct AudioFacts {
    int sampleRate = 0;
    int channels = 0;
    double seconds = 0;
};

/// Reads rate, channels and length of a 16-bit PCM WAV file (from its header) or an MP3 file (from its
/// frame headers). False with a reason for anything else.
bool InspectAudio(const std::string& path, const std::string& format, AudioFacts& facts, std::string& error);

}  // namespace Platform
