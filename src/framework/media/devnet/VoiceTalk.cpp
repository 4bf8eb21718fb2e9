#include "framework/media/devnet/VoiceTalk.h"

#include <rapidjson/document.h>

#include <algorithm>
#include <cstring>

#include "framework/base/FormatLog.h"
#include "framework/media/devnet/DevNet.h"
#include "framework/media/devnet/DeviceAnswers.h"

namespace DevNet {

namespace {

constexpr const char* kLogModule = "DevNet";

size_t CollectAnswer(char* data, size_t size, size_t count, void* target) {
    static_cast<std::string*>(target)->append(data, size * count);
    return size * count;
}

}  // namespace

std::string ParseTalkId(const std::string& body) {
    rapidjson::Document document;
    document.Parse(body.c_str(), body.size());
    if (document.HasParseError() || !document.IsObject() || !document.HasMember("VoiceTalk") ||
        !document["VoiceTalk"].IsObject()) {
        return std::string();
    }
    const auto& talk = document["VoiceTalk"];
    if (!talk.HasMember("talkID") || !talk["talkID"].IsString()) {
        return std::string();
    }
    return talk["talkID"].GetString();
}

CVoiceTalk::CVoiceTalk(const DeviceEndpoint& endpoint, int32_t userId, int32_t channel)
    : endpoint_(endpoint), userId_(userId), channel_(channel) {}

CVoiceTalk::~CVoiceTalk() {
    Close();
}

uint32_t CVoiceTalk::Open() {
    easy_ = NewDeviceHandle(endpoint_);
    multi_.reset(curl_multi_init());
    if (!easy_ || !multi_) {
        return DEVNET_NETWORK_FAIL_CONNECT;
    }
    // The open request also answers the digest challenge; the upload then reuses the nonce on this handle,
    // so the audio body never has to be sent twice.
    const std::string body = "{\"channel\":" + std::to_string(channel_) + "}";
    HttpResult opened =
        PerformRequest(easy_.get(), "POST", endpoint_.Url("/DXAPI/VideoIntercom/voiceTalk/open?format=json"),
                       body, "application/json");
    if (!opened.Ok()) {
        uint32_t error = ErrorForResult(opened);
        if (opened.code == CURLE_OK && (opened.status == 403 || opened.status == 404)) {
            error = DEVNET_CHANNEL_ERROR;
        }
        TAL_LOG(5, kLogModule,
                "[%s]Device %s refused a voice talk on channel %d: curl %d, http %ld, %s[%s(%d)]",
                endpoint_.address.c_str(), channel_, static_cast<int>(opened.code), opened.status,
                opened.body.c_str());
        return error;
    }
    talkId_ = ParseTalkId(opened.body);
    if (talkId_.empty()) {
        TAL_LOG(5, kLogModule, "[%s]Device %s answered a voice talk without talk id: %s[%s(%d)]",
                endpoint_.address.c_str(), opened.body.c_str());
        return DEVNET_NETWORK_RECV_ERROR;
    }

    CURL* easy = easy_.get();
    curl_easy_setopt(easy, CURLOPT_URL,
                     endpoint_.Url("/DXAPI/VideoIntercom/voiceTalk/" + talkId_ + "/audio").c_str());
    curl_easy_setopt(easy, CURLOPT_CUSTOMREQUEST, nullptr);
    curl_easy_setopt(easy, CURLOPT_UPLOAD, 1L);
    curl_easy_setopt(easy, CURLOPT_INFILESIZE_LARGE, static_cast<curl_off_t>(-1));
    curl_easy_setopt(easy, CURLOPT_READFUNCTION, &CVoiceTalk::ReadAudio);
    curl_easy_setopt(easy, CURLOPT_READDATA, this);
    curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, &CollectAnswer);
    curl_easy_setopt(easy, CURLOPT_WRITEDATA, &uploadAnswer_);
    curl_easy_setopt(easy, CURLOPT_TIMEOUT_MS, 0L);  // a talk lasts as long as the broadcast
    worker_ = std::thread(&CVoiceTalk::UploadLoop, this);
    return DEVNET_NOERROR;
}

size_t CVoiceTalk::ReadAudio(char* buffer, size_t size, size_t count, void* self) {
    auto* talk = static_cast<CVoiceTalk*>(self);
    std::lock_guard<std::mutex> lock(talk->mutex_);
    if (!talk->pending_.empty()) {
        const size_t length = std::min(size * count, talk->pending_.size());
        std::memcpy(buffer, talk->pending_.data(), length);
        talk->pending_.erase(0, length);
        return length;
    }
    if (talk->finishing_) {
        return 0;  // end of the chunked body
    }
    talk->paused_ = true;
    return CURL_READFUNC_PAUSE;
}

void CVoiceTalk::UploadLoop() {
    // Chunked upload without a size; the empty "Expect" keeps curl from waiting for "100 Continue".
    SlistPtr headers;
    AppendHeader(headers, "Transfer-Encoding: chunked");
    AppendHeader(headers, "Content-Type: application/octet-stream");
    AppendHeader(headers, "Expect:");
    curl_easy_setopt(easy_.get(), CURLOPT_HTTPHEADER, headers.get());
    curl_multi_add_handle(multi_.get(), easy_.get());

    std::chrono::steady_clock::time_point finishDeadline{};
    bool finishTimedOut = false;
    int running = 1;
    while (running != 0) {
        bool resume = false;
        {
            std::lock_guard<std::mutex> lock(mutex_);
            if (finishing_ && finishDeadline == std::chrono::steady_clock::time_point{}) {
                finishDeadline = std::chrono::steady_clock::now() + kFinishTimeout;
            }
            resume = paused_ && (!pending_.empty() || finishing_);
            if (resume) {
                paused_ = false;
            }
        }
        if (finishDeadline != std::chrono::steady_clock::time_point{} &&
            std::chrono::steady_clock::now() > finishDeadline) {
            finishTimedOut = true;
            break;
        }
        // Outside the lock: resuming calls ReadAudio at once.
        if (resume) {
            curl_easy_pause(easy_.get(), CURLPAUSE_CONT);
        }
        if (curl_multi_perform(multi_.get(), &running) != CURLM_OK) {
            break;
        }
        if (running != 0) {
            curl_multi_poll(multi_.get(), nullptr, 0, 200, nullptr);
        }
    }

    CURLcode code = finishTimedOut ? CURLE_OPERATION_TIMEDOUT : CURLE_OK;
    int queued = 0;
    while (CURLMsg* message = curl_multi_info_read(multi_.get(), &queued)) {
        if (message->msg == CURLMSG_DONE) {
            code = message->data.result;
        }
    }
    long status = 0;
    curl_easy_getinfo(easy_.get(), CURLINFO_RESPONSE_CODE, &status);
    curl_multi_remove_handle(multi_.get(), easy_.get());
    curl_easy_setopt(easy_.get(), CURLOPT_HTTPHEADER, nullptr);

    HttpResult result;
    result.code = code;
    result.status = status;
    std::lock_guard<std::mutex> lock(mutex_);
    ended_ = true;
    uploadStatus_ = status;
    if (!result.Ok()) {
        error_ = ErrorForResult(result);
        if (error_ == DEVNET_NOERROR) {
            error_ = DEVNET_NETWORK_SEND_ERROR;
        }
        TAL_LOG(5, kLogModule, "[%s]Voice talk %s on %s ended: curl %d, http %ld[%s(%d)]", talkId_.c_str(),
                endpoint_.address.c_str(), static_cast<int>(code), status);
    }
}

uint32_t CVoiceTalk::Send(const char* data, uint32_t size) {
    if (data == nullptr || size == 0) {
        return DEVNET_PARAMETER_ERROR;
    }
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (ended_ || finishing_) {
            return error_ != DEVNET_NOERROR ? error_ : static_cast<uint32_t>(DEVNET_INVALID_HANDLE);
        }
        if (pending_.size() + size > kMaxPendingBytes) {
            return DEVNET_BUFFER_FULL;
        }
        pending_.append(data, size);
    }
    curl_multi_wakeup(multi_.get());
    return DEVNET_NOERROR;
}

uint32_t CVoiceTalk::Close() {
    if (!worker_.joinable()) {
        return DEVNET_NOERROR;
    }
    {
        std::lock_guard<std::mutex> lock(mutex_);
        finishing_ = true;
    }
    curl_multi_wakeup(multi_.get());
    worker_.join();

    uint32_t error = DEVNET_NOERROR;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        error = error_;
    }
    // Close the talk on the device even when the upload failed, so that the channel is free again.
    curl_easy_setopt(easy_.get(), CURLOPT_UPLOAD, 0L);
    curl_easy_setopt(easy_.get(), CURLOPT_READFUNCTION, nullptr);
    curl_easy_setopt(easy_.get(), CURLOPT_TIMEOUT_MS, kRequestTimeoutMs);
    HttpResult closed =
        PerformRequest(easy_.get(), "DELETE", endpoint_.Url("/DXAPI/VideoIntercom/voiceTalk/" + talkId_),
                       std::string(), nullptr);
    if (!closed.Ok() && error == DEVNET_NOERROR) {
        error = ErrorForResult(closed);
    }
    easy_.reset();
    return error;
}

}  // namespace DevNet
