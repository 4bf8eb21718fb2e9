#pragma once
/*
 * Audio intercom library: sound cards, microphone capture encoded to a stream format, and decoding and
 * playback of a received stream, on PortAudio.
 *
 * Every call returns 1 on success and 0 on failure; AUDIOCOM_GetLastError then gives the reason, for the
 * handle the call was made on, or (handle -1) for the calling thread's last call without a valid handle.
 *
 * Capture: AUDIOCOM_CreateCaptureHandle -> AUDIOCOM_RegisterCaptureDataCallBackEx (raw PCM) and/or
 * AUDIOCOM_RegisterOutputDataCallBackEx (encoded frames) -> AUDIOCOM_StartCapture -> AUDIOCOM_StopCapture ->
 * AUDIOCOM_ReleaseCaptureHandle. Raw PCM is mono 16-bit little-endian at the output stream's sample rate
 * (16000 Hz when no output stream is registered). Encoded frames, one per callback:
 *   PCM   40 ms (rate / 25 samples)          G.711 A/µ  40 ms (320 bytes at 8000 Hz)
 *   G.722 40 ms (640 samples at 16000 Hz)    AAC-LC     1024 samples, ADTS framed
 *   MP3   1152 samples (576 below 32000 Hz: two frames per 1152 samples)
 *
 * Playback: AUDIOCOM_CreatePlayHandle -> AUDIOCOM_OpenStreamEx (how the stream is coded) ->
 * AUDIOCOM_RegisterDecodeDataCallBackEx (optional, decoded PCM) -> AUDIOCOM_StartPlay ->
 * AUDIOCOM_InputStreamData (received bytes, any piece size) -> AUDIOCOM_StopPlay ->
 * AUDIOCOM_ReleasePlayHandle. AUDIOCOM_SetPlayVolume may be called at any time between create and release.
 *
 * Callbacks run on the library's own threads. They must not stop or release their own handle.
 * The library initialises PortAudio for as long as it needs it (enumeration, each open handle) and
 * terminates it in pairs, so other users of PortAudio in the process are not disturbed.
 */

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define AUDIOCOM_API __attribute__((visibility("default")))

/* Codec numbers of AUDIOCOM_STREAM_PARAM.codec. */
#define AUDIOCOM_CODEC_PCM 0
#define AUDIOCOM_CODEC_G711A 1
#define AUDIOCOM_CODEC_G711U 2
#define AUDIOCOM_CODEC_G722 3
#define AUDIOCOM_CODEC_G726 4 /* known, not built in */
#define AUDIOCOM_CODEC_MP2 5  /* known, not built in */
#define AUDIOCOM_CODEC_AAC 6
#define AUDIOCOM_CODEC_MP3 10

/* Error codes of AUDIOCOM_GetLastError. */
#define AUDIOCOM_ERR_NONE 0
#define AUDIOCOM_ERR_PARAM 1             /* null pointer, bad index, bad stream parameters */
#define AUDIOCOM_ERR_HANDLE 2            /* not an open handle of this kind */
#define AUDIOCOM_ERR_ORDER 3             /* wrong state: start twice, start before the stream is opened... */
#define AUDIOCOM_ERR_CODEC_UNSUPPORTED 4 /* the codec number is not built in */
#define AUDIOCOM_ERR_NO_DEVICE 5         /* no sound card, or no device of that name */
#define AUDIOCOM_ERR_DEVICE 6            /* the sound card refused to open or start */
#define AUDIOCOM_ERR_CODEC 7             /* the codec refused the parameters or the data */
#define AUDIOCOM_ERR_AUDIO_SYSTEM 8      /* PortAudio could not be initialised */

/* Stream parameters (20 bytes). */
typedef struct {
    uint16_t channels;      /* 1 for capture; a decoded stream may have 2 */
    uint16_t bitsPerSample; /* 16 */
    uint32_t sampleRate;    /* Hz */
    uint32_t bitRate;       /* bit/s */
    uint32_t codec;         /* AUDIOCOM_CODEC_* */
    uint32_t reserved;
} AUDIOCOM_STREAM_PARAM;

/* A capture or playback device (220 bytes). */
typedef struct {
    char deviceName[128]; /* NUL-terminated; what AUDIOCOM_Create*Handle takes */
    char hostApiName[64];
    uint32_t index; /* position in its list */
    uint32_t maxInputChannels;
    uint32_t maxOutputChannels;
    uint32_t defaultSampleRate;
    uint32_t isDefault; /* 1 for the system's default device of that direction */
    uint32_t reserved[2];
} AUDIOCOM_SOUNDCARD_INFO;

/* Raw PCM, encoded frames or decoded PCM, depending on where it is registered. */
typedef void (*AUDIOCOM_DataCallBackEx)(int32_t handle, const uint8_t* data, uint32_t size, void* user);

AUDIOCOM_API int AUDIOCOM_GetLastError(int32_t handle);

/* Capture devices ("sound cards"). */
AUDIOCOM_API int AUDIOCOM_GetSoundCardNum(uint32_t* count);
AUDIOCOM_API int AUDIOCOM_GetOneSoundCardInfo(uint32_t index, AUDIOCOM_SOUNDCARD_INFO* info);
/* Playback devices. */
AUDIOCOM_API int AUDIOCOM_GetPlayDeviceNum(uint32_t* count);
AUDIOCOM_API int AUDIOCOM_GetOnePlayDeviceName(uint32_t index, AUDIOCOM_SOUNDCARD_INFO* info);

AUDIOCOM_API int AUDIOCOM_CreateCaptureHandle(int32_t* handle, const char* deviceName);
AUDIOCOM_API int AUDIOCOM_RegisterCaptureDataCallBackEx(int32_t handle, AUDIOCOM_DataCallBackEx callback,
                                                        void* user);
AUDIOCOM_API int AUDIOCOM_RegisterOutputDataCallBackEx(int32_t handle, const AUDIOCOM_STREAM_PARAM* param,
                                                       AUDIOCOM_DataCallBackEx callback, void* user);
AUDIOCOM_API int AUDIOCOM_StartCapture(int32_t handle);
AUDIOCOM_API int AUDIOCOM_StopCapture(int32_t handle);
AUDIOCOM_API int AUDIOCOM_ReleaseCaptureHandle(int32_t handle);

AUDIOCOM_API int AUDIOCOM_CreatePlayHandle(int32_t* handle, const char* deviceName);
AUDIOCOM_API int AUDIOCOM_OpenStreamEx(int32_t handle, const AUDIOCOM_STREAM_PARAM* param);
AUDIOCOM_API int AUDIOCOM_RegisterDecodeDataCallBackEx(int32_t handle, AUDIOCOM_DataCallBackEx callback,
                                                       void* user);
AUDIOCOM_API int AUDIOCOM_StartPlay(int32_t handle);
AUDIOCOM_API int AUDIOCOM_InputStreamData(int32_t handle, const uint8_t* data, uint32_t size);
AUDIOCOM_API int AUDIOCOM_StopPlay(int32_t handle);
/* Volume of what the handle plays, 0..100: a linear gain of volume / 100 (100, the default, plays the
 * decoded audio unchanged; 0 plays silence). Takes effect on the next block the sound card asks for, also
 * for audio already queued. The decode callback still receives the decoded PCM before the volume. A volume
 * above 100 fails with AUDIOCOM_ERR_PARAM. */
AUDIOCOM_API int AUDIOCOM_SetPlayVolume(int32_t handle, uint32_t volume);
AUDIOCOM_API int AUDIOCOM_GetPlayVolume(int32_t handle, uint32_t* volume);
AUDIOCOM_API int AUDIOCOM_ReleasePlayHandle(int32_t handle);

#ifdef __cplusplus
}
#endif
