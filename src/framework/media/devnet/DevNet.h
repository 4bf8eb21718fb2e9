#pragma once
// Device network interface: log in to a device over HTTP (digest authentication), pass configuration requests
// to it and stream broadcast audio to one of its voice channels. The wire protocol is in
// docs/device-protocol.md.
//
// BOOL-style functions return non-zero on success and 0 on failure; DEVNET_Login and DEVNET_StartVoiceTalk
// return an id >= 0 or -1. The reason of a failure is DEVNET_GetLastError() on the calling thread.

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/// Error codes of DEVNET_GetLastError().
enum DevNetError {
    DEVNET_NOERROR = 0,
    DEVNET_PASSWORD_ERROR = 1,         ///< the device refused the user name or password (401)
    DEVNET_NOENOUGHPRI = 2,            ///< the device refused the request (403)
    DEVNET_CHANNEL_ERROR = 4,          ///< the device refused the channel or does not have it
    DEVNET_DEVICE_BUSY = 5,            ///< the channel is already talking (409)
    DEVNET_NETWORK_FAIL_CONNECT = 7,   ///< no connection to the device
    DEVNET_NETWORK_SEND_ERROR = 8,     ///< the connection broke while sending
    DEVNET_NETWORK_RECV_ERROR = 9,     ///< the connection broke while receiving, or the answer is malformed
    DEVNET_NETWORK_RECV_TIMEOUT = 10,  ///< the device did not answer in time
    DEVNET_PARAMETER_ERROR = 17,       ///< null or malformed argument
    DEVNET_NOSUPPORT = 23,             ///< the device does not support the request (404, 405, 501)
    DEVNET_INVALID_USERID = 47,        ///< no login with this user id
    DEVNET_INVALID_HANDLE = 48,        ///< no voice talk with this handle
    DEVNET_DEVICE_ERROR = 49,          ///< the device answered with another error status
    DEVNET_BUFFER_FULL = 50,       ///< more audio queued than the talk buffer holds; the data was not queued
    DEVNET_BUFFER_TOO_SMALL = 51,  ///< the answer does not fit the output buffer (it is truncated)
    DEVNET_LOGIN_REFUSED = 52,     ///< the device accepts no login now (403 on login)
};

/// What the device reports at login.
typedef struct DEVNET_DEVICEINFO {
    char serialNumber[48];
    char deviceName[64];
    char model[32];
    char firmwareVersion[32];
    int32_t channelCount;
    int32_t voiceChannelCount;
    int32_t reserved[8];
} DEVNET_DEVICEINFO;

/// A request passed through to the device: "METHOD /path?query" and an optional body.
typedef struct DEVNET_STDCONFIG_INPUT {
    const char* requestUrl;
    const char* inBuffer;
    uint32_t inBufferSize;
} DEVNET_STDCONFIG_INPUT;

/// The device's answer: the body (NUL-terminated when it fits), its full length and the HTTP status.
typedef struct DEVNET_STDCONFIG_OUTPUT {
    char* outBuffer;
    uint32_t outBufferSize;
    uint32_t returnedSize;
    int32_t httpStatus;
} DEVNET_STDCONFIG_OUTPUT;

/// Configuration command: real-time broadcast audio format of a channel.
#define DEVNET_SET_BROADCAST_REALTIME_CFG 1059

/// Layout of configuration 1059: the encode type (1 G.711 µ-law, 15 MP3) in its first byte.
typedef struct DEVNET_BROADCAST_REALTIME_CFG {
    uint8_t encodeType;
    uint8_t reserved[31];
} DEVNET_BROADCAST_REALTIME_CFG;

/// Audio from the device during a voice talk (not offered by our devices: pass null).
typedef void (*DEVNET_VoiceDataCallBack)(int32_t voiceHandle, const char* data, uint32_t size,
                                         uint8_t dataType, void* user);

/// Logs in; returns the user id or -1. `deviceInfo` may be null.
int32_t DEVNET_Login(const char* address, uint16_t port, const char* userName, const char* password,
                     DEVNET_DEVICEINFO* deviceInfo);
/// Ends the login and every voice talk still open on it.
int32_t DEVNET_Logout(int32_t userId);
int32_t DEVNET_StdConfig(int32_t userId, const DEVNET_STDCONFIG_INPUT* input,
                         DEVNET_STDCONFIG_OUTPUT* output);
int32_t DEVNET_SetDeviceConfig(int32_t userId, uint32_t command, int32_t channel, const void* config,
                               uint32_t configSize);
/// Opens a voice talk on a channel of the device; returns the handle or -1.
int32_t DEVNET_StartVoiceTalk(int32_t userId, int32_t channel, DEVNET_VoiceDataCallBack callback, void* user);
/// Queues audio for the device (encoded as configured). Non-zero on success.
int32_t DEVNET_SendVoiceData(int32_t voiceHandle, const char* data, uint32_t size);
/// Sends what is queued, ends the talk on the device and frees the handle.
int32_t DEVNET_StopVoiceTalk(int32_t voiceHandle);
uint32_t DEVNET_GetLastError(void);

#ifdef __cplusplus
}
#endif
