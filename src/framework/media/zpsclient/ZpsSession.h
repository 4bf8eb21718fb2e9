#pragma once
// One voice-talk session with an RTSP server: rtspsrc (ONVIF backchannel) in a receiving pipeline, and for
// the backchannel a small sending pipeline (appsrc ! [parser] ! payloader ! appsink) whose RTP packets are
// pushed into rtspsrc.

#include <gst/app/gstappsink.h>
#include <gst/gst.h>
#include <gst/rtsp/gstrtspmessage.h>
#include <gst/sdp/gstsdpmessage.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>

#include "framework/media/zpsclient/GstHandles.h"
#include "framework/media/zpsclient/RtpAudioCodec.h"
#include "framework/media/zpsclient/ZPSClient.h"

namespace ZPSClient {

/// Start-up configuration of a talk.
struct TalkConfig {
    std::string url;
    std::string userAgent;
    std::string user;
    std::string password;
    std::string token;
    bool useTcp = true;
    int bufferBytes = 36864;
    int timeoutSeconds = 6;
    int keepAliveSeconds = 10;
};

class CZpsSession {
public:
    explicit CZpsSession(int handle);
    ~CZpsSession();
    CZpsSession(const CZpsSession&) = delete;
    CZpsSession& operator=(const CZpsSession&) = delete;

    /// Each returns ZPS_ERR_OK or an error code.
    int SetRtspTimeout(int seconds);
    int SetParams(const std::string& json);
    int SetDataCallback(ZPSClient_DataCallBack callback, void* user);
    int Start(const std::string& url, const std::string& userAgent, int bufferBytes, const std::string& user,
              const std::string& password);
    int Send(const unsigned char* data, int size);
    int GetAudioInfo(ZPSClient_AudioInfo* info);
    int Stop();

private:
    enum class Phase { Idle, Starting, Playing, Stopping };
    enum class Attempt { Ok, RetryWithoutBackchannel, Failed };

    Attempt RunAttempt(const TalkConfig& config, bool backchannel, int& error);
    bool BuildReceivePipeline(const TalkConfig& config, bool backchannel);
    bool BuildSendPipeline(const RtpAudioCodec& codec, GstCaps* rtpCaps, int clockRate, int channels);
    /// Drains the send pipeline (bounded), then stops and frees both pipelines and the bus thread.
    void Teardown();
    /// Clears what the previous attempt learnt about the server's streams.
    void ResetAttemptState();
    /// The bus thread: the receiving and sending pipelines' messages, and the keep-alive once playing.
    void BusLoop(BusPtr bus, std::chrono::seconds keepAliveInterval);
    /// Asks rtspsrc for a GET_PARAMETER without parameters: the session's keep-alive, sent through the
    /// request path so that it carries the token like every other request.
    void SendKeepAlive();
    void HandleMessage(GstMessage* message, bool fromSendPipeline);
    void Fail(int error);

    // rtspsrc signals and pad handling, on GStreamer threads.
    static void OnSdp(GstElement* src, GstSDPMessage* sdp, gpointer self);
    static gboolean OnSelectStream(GstElement* src, guint num, GstCaps* caps, gpointer self);
    static gboolean OnBeforeSend(GstElement* src, GstRTSPMessage* message, gpointer self);
    static void OnPadAdded(GstElement* src, GstPad* pad, gpointer self);
    static GstFlowReturn OnDownstreamSample(GstAppSink* sink, gpointer self);
    static GstFlowReturn OnBackchannelPacket(GstAppSink* sink, gpointer self);
    static void OnBackchannelEos(GstAppSink* sink, gpointer self);
    void LinkDownstream(GstPad* pad);
    /// Audio information of the downstream track from its SDP caps. Needs `mutex_`.
    void DescribeDownstream(const GstStructure* rtp);

    const int handle_;
    std::mutex operationMutex_;  ///< serialises Start and Stop; never taken by GStreamer threads

    mutable std::mutex mutex_;  ///< guards everything below
    std::condition_variable changed_;
    int timeoutSeconds_ = 6;
    std::string token_;
    bool useTcp_ = true;
    int keepAliveSeconds_ = 10;
    ZPSClient_DataCallBack callback_ = nullptr;
    void* callbackUser_ = nullptr;

    Phase phase_ = Phase::Idle;
    bool abort_ = false;  ///< Stop arrived during Start
    bool playCompleted_ = false;
    int error_ = ZPS_ERR_OK;  ///< first error of the current attempt or talk
    bool sendDrained_ = false;
    int bufferBytes_ = 36864;
    int backchannelStream_ = -1;
    CapsPtr backchannelCaps_;  ///< application/x-rtp caps of the backchannel
    bool hasDownstream_ = false;
    bool audioInfoKnown_ = false;
    ZPSClient_AudioInfo audioInfo_{};
    const RtpAudioCodec* sendCodec_ = nullptr;
    uint64_t sentBytes_ = 0;  ///< for time stamps of codecs without framing

    ElementPtr pipeline_;
    ElementPtr rtspsrc_;
    ElementPtr sendPipeline_;
    ElementPtr appsrc_;
    std::thread busThread_;
    std::atomic<bool> busStop_{false};
};

}  // namespace ZPSClient
