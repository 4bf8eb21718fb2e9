#include "framework/media/codec/Mp3Decoder.h"

#include <mpg123.h>

#include <mutex>

namespace Tal {
namespace MediaCodec {

namespace {
constexpr std::size_t kOutputBytes = 32768;

void InitLibraryOnce() {
    static std::once_flag once;
    std::call_once(once, [] { mpg123_init(); });
}
}  // namespace

void CMp3Decoder::Closer::operator()(mpg123_handle_struct* handle) const {
    mpg123_close(handle);
    mpg123_delete(handle);
}

int CMp3Decoder::Open(const AudioFormat& /*format*/) {
    InitLibraryOnce();
    handle_.reset();
    format_ = AudioFormat();
    format_.sampleRate = 0;
    format_.channels = 0;
    int error = MPG123_OK;
    std::unique_ptr<mpg123_handle_struct, Closer> handle(mpg123_new(nullptr, &error));
    if (!handle) {
        return error == MPG123_OUT_OF_MEM ? kCodecNoMemory : kCodecLibraryError;
    }
    // Quiet: broken input is reported through result codes, not printed on stderr.
    mpg123_param(handle.get(), MPG123_ADD_FLAGS, MPG123_QUIET, 0.0);
    // Every rate the stream may have, always 16-bit signed, channels as coded.
    const long* rates = nullptr;
    std::size_t rateCount = 0;
    mpg123_rates(&rates, &rateCount);
    if (mpg123_format_none(handle.get()) != MPG123_OK) {
        return kCodecLibraryError;
    }
    for (std::size_t i = 0; i < rateCount; ++i) {
        if (mpg123_format(handle.get(), rates[i], MPG123_MONO | MPG123_STEREO, MPG123_ENC_SIGNED_16) !=
            MPG123_OK) {
            return kCodecLibraryError;
        }
    }
    if (mpg123_open_feed(handle.get()) != MPG123_OK) {
        return kCodecLibraryError;
    }
    out_.assign(kOutputBytes, 0);
    handle_ = std::move(handle);
    return kCodecOk;
}

int CMp3Decoder::Decode(const uint8_t* data, std::size_t size, std::vector<int16_t>* pcm) {
    if (const int checked = DecodeCallResult(handle_ != nullptr, data, size, pcm); checked != kCodecOk) {
        return checked;
    }
    if (size > 0 && mpg123_feed(handle_.get(), data, size) != MPG123_OK) {
        return kCodecLibraryError;
    }
    for (;;) {
        std::size_t done = 0;
        int result = mpg123_read(handle_.get(), out_.data(), out_.size(), &done);
        if (result == MPG123_NEW_FORMAT) {
            long rate = 0;
            int channels = 0;
            int encoding = 0;
            mpg123_getformat(handle_.get(), &rate, &channels, &encoding);
            if (format_.sampleRate != 0 && (format_.sampleRate != rate || format_.channels != channels)) {
                return kCodecFormatChanged;
            }
            format_.sampleRate = static_cast<int>(rate);
            format_.channels = channels;
        }
        if (done > 0) {
            const auto* samples = reinterpret_cast<const int16_t*>(out_.data());
            pcm->insert(pcm->end(), samples, samples + done / sizeof(int16_t));
        }
        if (result == MPG123_NEED_MORE || result == MPG123_DONE) {
            return kCodecOk;
        }
        if (result != MPG123_OK && result != MPG123_NEW_FORMAT) {
            return kCodecLibraryError;
        }
    }
}

const char* CMp3Decoder::LibraryErrorText() const {
    return handle_ ? mpg123_strerror(handle_.get()) : "decoder not open";
}

}  // namespace MediaCodec
}  // namespace Tal
