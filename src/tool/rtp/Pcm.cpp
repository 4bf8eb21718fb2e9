#include "tool/rtp/Pcm.h"

#include <cmath>
#include <cstdio>
#include <cstring>
#include <memory>

namespace BcastTool {

namespace {

struct FileCloser {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using FilePtr = std::unique_ptr<std::FILE, FileCloser>;

uint32_t Le32(const uint8_t* p) {
    return static_cast<uint32_t>(p[0]) | static_cast<uint32_t>(p[1]) << 8 |
           static_cast<uint32_t>(p[2]) << 16 | static_cast<uint32_t>(p[3]) << 24;
}

uint16_t Le16(const uint8_t* p) {
    return static_cast<uint16_t>(p[0] | p[1] << 8);
}

void PutLe32(uint8_t* p, uint32_t v) {
    for (int i = 0; i < 4; ++i) {
        p[i] = static_cast<uint8_t>(v >> (8 * i));
    }
}

void PutLe16(uint8_t* p, uint16_t v) {
    p[0] = static_cast<uint8_t>(v);
    p[1] = static_cast<uint8_t>(v >> 8);
}

}  // namespace

bool ReadWav(const std::string& path, PcmAudio& audio, std::string& error) {
    FilePtr file(std::fopen(path.c_str(), "rb"));
    if (!file) {
        error = "cannot open " + path;
        return false;
    }
    uint8_t riff[12];
    if (std::fread(riff, 1, sizeof(riff), file.get()) != sizeof(riff) || std::memcmp(riff, "RIFF", 4) != 0 ||
        std::memcmp(riff + 8, "WAVE", 4) != 0) {
        error = path + " is not a WAV file";
        return false;
    }
    bool haveFormat = false;
    int bits = 0;
    for (;;) {
        uint8_t chunk[8];
        if (std::fread(chunk, 1, sizeof(chunk), file.get()) != sizeof(chunk)) {
            error = path + " has no data chunk";
            return false;
        }
        const uint32_t size = Le32(chunk + 4);
        if (std::memcmp(chunk, "fmt ", 4) == 0) {
            std::vector<uint8_t> format(size);
            if (size < 16 || std::fread(format.data(), 1, size, file.get()) != size) {
                error = path + " has a short format chunk";
                return false;
            }
            const uint16_t tag = Le16(format.data());
            audio.channels = Le16(format.data() + 2);
            audio.sampleRate = static_cast<int>(Le32(format.data() + 4));
            bits = Le16(format.data() + 14);
            if ((tag != 1 && tag != 0xFFFE) || bits != 16 || audio.channels < 1) {
                error = path + " is not 16-bit PCM (convert it with: sox IN -b 16 -c 1 -r 8000 OUT.wav)";
                return false;
            }
            haveFormat = true;
            if (size % 2 != 0) {
                std::fseek(file.get(), 1, SEEK_CUR);
            }
        } else if (std::memcmp(chunk, "data", 4) == 0) {
            if (!haveFormat) {
                error = path + " has data before its format";
                return false;
            }
            std::vector<uint8_t> bytes(size);
            const size_t read = std::fread(bytes.data(), 1, size, file.get());
            audio.samples.resize(read / 2);
            for (size_t i = 0; i < audio.samples.size(); ++i) {
                audio.samples[i] = static_cast<int16_t>(Le16(bytes.data() + 2 * i));
            }
            return true;
        } else {
            std::fseek(file.get(), static_cast<long>(size + size % 2), SEEK_CUR);
        }
    }
}

bool WriteWav(const std::string& path, const std::vector<int16_t>& samples, int sampleRate) {
    FilePtr file(std::fopen(path.c_str(), "wb"));
    if (!file) {
        return false;
    }
    const uint32_t dataBytes = static_cast<uint32_t>(samples.size() * 2);
    uint8_t header[44];
    std::memcpy(header, "RIFF", 4);
    PutLe32(header + 4, 36 + dataBytes);
    std::memcpy(header + 8, "WAVEfmt ", 8);
    PutLe32(header + 16, 16);
    PutLe16(header + 20, 1);
    PutLe16(header + 22, 1);
    PutLe32(header + 24, static_cast<uint32_t>(sampleRate));
    PutLe32(header + 28, static_cast<uint32_t>(sampleRate) * 2);
    PutLe16(header + 32, 2);
    PutLe16(header + 34, 16);
    std::memcpy(header + 36, "data", 4);
    PutLe32(header + 40, dataBytes);
    std::vector<uint8_t> data(dataBytes);
    for (size_t i = 0; i < samples.size(); ++i) {
        PutLe16(data.data() + 2 * i, static_cast<uint16_t>(samples[i]));
    }
    return std::fwrite(header, 1, sizeof(header), file.get()) == sizeof(header) &&
           std::fwrite(data.data(), 1, data.size(), file.get()) == data.size();
}

double DominantFrequency(const std::vector<int16_t>& samples, int sampleRate) {
    const size_t count = std::min(samples.size(), static_cast<size_t>(sampleRate));
    if (count == 0 || sampleRate <= 0) {
        return 0.0;
    }
    double bestFrequency = 0.0;
    double bestPower = -1.0;
    // Goertzel power at each candidate frequency.
    for (int frequency = 10; frequency < sampleRate / 2; frequency += 10) {
        const double coefficient = 2.0 * std::cos(2.0 * M_PI * frequency / sampleRate);
        double s1 = 0.0;
        double s2 = 0.0;
        for (size_t i = 0; i < count; ++i) {
            const double s0 = samples[i] + coefficient * s1 - s2;
            s2 = s1;
            s1 = s0;
        }
        const double power = s1 * s1 + s2 * s2 - coefficient * s1 * s2;
        if (power > bestPower) {
            bestPower = power;
            bestFrequency = frequency;
        }
    }
    return bestFrequency;
}

}  // namespace BcastTool
