#include "framework/media/zpsclient/ZPSClient.h"

#include <gst/gst.h>

#include <memory>
#include <mutex>
#include <string>

#include "framework/base/FormatLog.h"
#include "framework/base/HandleTable.h"
#include "framework/media/zpsclient/ZpsSession.h"

namespace {

using ZPSClient::CZpsSession;

thread_local unsigned int t_lastError = ZPS_ERR_OK;

/// Sessions by handle, numbered from 0. Calls take a reference and leave the table's lock before they
/// touch the network.
Tal::Base::CHandleTable<CZpsSession, int>& Sessions() {
    static Tal::Base::CHandleTable<CZpsSession, int> table;
    return table;
}

std::mutex g_libMutex;
int g_libReferences = 0;

int Result(int error) {
    t_lastError = static_cast<unsigned int>(error);
    return error == ZPS_ERR_OK ? 0 : -1;
}

bool EnsureGStreamer() {
    static std::once_flag once;
    static bool ready = false;
    std::call_once(once, [] {
        GError* error = nullptr;
        ready = gst_init_check(nullptr, nullptr, &error);
        if (!ready) {
            TAL_LOG(5, "ZPSClient", "[%s]GStreamer does not start: %s[%s(%d)]",
                    error != nullptr ? error->message : "unknown");
            g_clear_error(&error);
        }
    });
    return ready;
}

template <typename Operation>
int WithSession(int handle, Operation operation) {
    auto session = Sessions().Find(handle);
    if (!session) {
        return Result(ZPS_ERR_INVALID_SESSION);
    }
    return Result(operation(*session));
}

}  // namespace

extern "C" {

int ZPSClient_InitLib(void) {
    if (!EnsureGStreamer()) {
        return Result(ZPS_ERR_INIT);
    }
    std::lock_guard<std::mutex> lock(g_libMutex);
    ++g_libReferences;
    return Result(ZPS_ERR_OK);
}

int ZPSClient_FiniLib(void) {
    std::lock_guard<std::mutex> lock(g_libMutex);
    if (g_libReferences == 0) {
        return Result(ZPS_ERR_STATE);
    }
    // GStreamer stays initialised: gst_deinit() is final for the process.
    --g_libReferences;
    return Result(ZPS_ERR_OK);
}

int ZPSClient_CreateSession(void) {
    if (!EnsureGStreamer()) {
        Result(ZPS_ERR_INIT);
        return -1;
    }
    int handle = -1;
    Sessions().Create([](int number) { return std::make_shared<CZpsSession>(number); }, handle);
    Result(ZPS_ERR_OK);
    return handle;
}

int ZPSClient_DestroySession(int session) {
    auto removed = Sessions().Remove(session);
    if (!removed) {
        return Result(ZPS_ERR_INVALID_SESSION);
    }
    removed->Stop();
    return Result(ZPS_ERR_OK);
}

int ZPSClient_SetRtspTimeout(int session, int seconds) {
    return WithSession(session, [&](CZpsSession& s) { return s.SetRtspTimeout(seconds); });
}

int ZPSClient_SetSessionParams(int session, const char* params, int length) {
    if (params == nullptr || length < 0) {
        return Result(ZPS_ERR_INVALID_PARAM);
    }
    const std::string text(params, static_cast<size_t>(length));
    return WithSession(session, [&](CZpsSession& s) { return s.SetParams(text); });
}

int ZPSClient_SetDataCallBack(int session, ZPSClient_DataCallBack callback, void* user) {
    return WithSession(session, [&](CZpsSession& s) { return s.SetDataCallback(callback, user); });
}

int ZPSClient_StartVoiceTalk(int session, const char* url, const char* clientName, int bufferSize,
                             const char* user, const char* password) {
    if (url == nullptr) {
        return Result(ZPS_ERR_INVALID_PARAM);
    }
    return WithSession(session, [&](CZpsSession& s) {
        return s.Start(url, clientName != nullptr ? clientName : "", bufferSize, user != nullptr ? user : "",
                       password != nullptr ? password : "");
    });
}

int ZPSClient_SendVoiceData(int session, const unsigned char* data, int size) {
    return WithSession(session, [&](CZpsSession& s) { return s.Send(data, size); });
}

int ZPSClient_GetAudioInfo(int session, ZPSClient_AudioInfo* info) {
    return WithSession(session, [&](CZpsSession& s) { return s.GetAudioInfo(info); });
}

int ZPSClient_Stop(int session) {
    return WithSession(session, [&](CZpsSession& s) { return s.Stop(); });
}

unsigned int ZPSClient_GetLastError(void) {
    return t_lastError;
}

}  // extern "C"

static_assert(sizeof(ZPSClient_AudioInfo) == 32, "the audio information block is 32 bytes");
