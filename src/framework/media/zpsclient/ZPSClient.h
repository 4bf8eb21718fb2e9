#pragma once
// Streaming client: voice talk with an RTSP streaming server in one session. The client's encoded audio goes
// up the ONVIF audio backchannel; audio the server sends down (a speaker's stream) reaches the data callback.
// One session serves talk-only, listen-only and two-way addresses: it opens whatever the server offers.
//
// Every function returns 0 on success and -1 on failure (CreateSession: a handle >= 0 or -1), leaving the
// reason for ZPSClient_GetLastError() on the calling thread. Sessions may be used from any thread.

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/// Error codes of ZPSClient_GetLastError().
enum ZPSClientError {
    ZPS_ERR_OK = 0,
    ZPS_ERR_INIT = 1,             ///< the media framework could not be initialised
    ZPS_ERR_INVALID_PARAM = 2,    ///< null or malformed argument (URL, JSON parameters, size)
    ZPS_ERR_INVALID_SESSION = 3,  ///< no session with this handle
    ZPS_ERR_STATE = 4,            ///< talk already started, or not started
    ZPS_ERR_CONNECT = 5,          ///< server unreachable or connection refused
    ZPS_ERR_AUTH = 6,             ///< the server refused the credentials or the token (401/403)
    ZPS_ERR_NOT_FOUND = 7,        ///< no such stream on the server (404)
    ZPS_ERR_TIMEOUT = 8,          ///< the server did not answer within the RTSP time-out
    ZPS_ERR_NO_BACKCHANNEL = 9,   ///< the stream has no backchannel: nothing can be sent
    ZPS_ERR_CODEC = 10,           ///< the stream's codec is not supported
    ZPS_ERR_STREAM = 11,          ///< the session failed (server gone, network error)
    ZPS_ERR_BUFFER_FULL = 12,     ///< more data queued than the send buffer holds; the frame was not queued
    ZPS_ERR_NO_AUDIO_INFO = 13,   ///< no downstream audio stream (yet)
    ZPS_ERR_INTERNAL = 14,        ///< the media framework failed to build the pipeline
};

/// Codec codes of ZPSClient_AudioInfo.
enum ZPSClientCodec {
    ZPS_CODEC_G711U = 0xC001,
    ZPS_CODEC_G711A = 0xC002,
    ZPS_CODEC_G722 = 0xC003,
    ZPS_CODEC_G726 = 0xC004,
    ZPS_CODEC_AAC = 0xC005,
    ZPS_CODEC_L16 = 0xC007,
    ZPS_CODEC_MP3 = 0xC013,
};

/// Audio of the downstream stream; exactly 32 bytes.
typedef struct ZPSClient_AudioInfo {
    uint32_t codec;       ///< ZPSClientCodec
    uint32_t sampleRate;  ///< Hz (the RTP clock rate; 0 when the server does not say)
    uint32_t channels;
    uint32_t bitsPerSample;  ///< of the decoded samples: 16, or 0 when unknown
    uint32_t bitRate;        ///< bit/s of the encoded stream, 0 when variable or unknown
    uint32_t reserved[3];
} ZPSClient_AudioInfo;

/// Data types passed to the data callback.
enum ZPSClientDataType {
    ZPS_DATA_AUDIO = 1,  ///< one depayloaded encoded audio frame (codec as in ZPSClient_GetAudioInfo)
};

/// Receives downstream audio on a streaming thread of the library. Return 0; the value is otherwise ignored.
typedef int (*ZPSClient_DataCallBack)(int session, void* user, int dataType, const unsigned char* data,
                                      unsigned int size);

/// Reference-counted start of the library (the media framework stays loaded for the process once started).
int ZPSClient_InitLib(void);
/// Releases one reference taken by ZPSClient_InitLib; without one it does nothing and returns -1.
int ZPSClient_FiniLib(void);

/// Creates an idle session. Starts the media framework when needed.
int ZPSClient_CreateSession(void);
/// Stops the session if needed and frees it; the data callback is not called after this returns.
int ZPSClient_DestroySession(int session);
/// RTSP time-out in seconds (1..300, default 6): bounds connecting, every request and the start of the talk.
int ZPSClient_SetRtspTimeout(int session, int seconds);
/// JSON object of session parameters, e.g. {"token":"abc"}. Keys: "token" (string, sent with every request in
/// the "X-Token" header), "transport" ("tcp", the default, or "udp"), "keepalive" (seconds between the
/// session's RTSP keep-alives, 1..300, default 10). Unknown keys are ignored.
int ZPSClient_SetSessionParams(int session, const char* params, int length);
int ZPSClient_SetDataCallBack(int session, ZPSClient_DataCallBack callback, void* user);
/// Opens the stream at `url` (rtsp://host:port/path) and returns once it plays, or fails within the RTSP
/// time-out. `clientName` is sent as User-Agent; `bufferSize` (bytes) bounds the audio queued for sending;
/// `user` and `password` answer the server's authentication challenge (ignored when the server asks for
/// none).
int ZPSClient_StartVoiceTalk(int session, const char* url, const char* clientName, int bufferSize,
                             const char* user, const char* password);
/// Queues one encoded frame for the backchannel, in the codec the server announced for it.
int ZPSClient_SendVoiceData(int session, const unsigned char* data, int size);
/// Audio parameters of the downstream stream.
int ZPSClient_GetAudioInfo(int session, ZPSClient_AudioInfo* info);
/// Sends out what is queued, tears the stream down and returns the session to idle.
int ZPSClient_Stop(int session);
/// Last error of the calling thread (ZPSClientError).
unsigned int ZPSClient_GetLastError(void);

#ifdef __cplusplus
}
#endif
