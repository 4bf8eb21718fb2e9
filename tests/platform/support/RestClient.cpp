#include "RestClient.h"

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

namespace PlatformTest {

namespace {

size_t Collect(char* data, size_t size, size_t count, void* user) {
    static_cast<std::string*>(user)->append(data, size * count);
    return size * count;
}

struct HeaderListDeleter {
    void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};

}  // namespace

const rapidjson::Value* RestReply::Node(const char* pointer) const {
    if (!jsonOk) {
        return nullptr;
    }
    return rapidjson::Pointer(pointer).Get(json);
}

int RestReply::Int(const char* pointer, int defaultValue) const {
    const rapidjson::Value* v = Node(pointer);
    return v != nullptr && v->IsInt() ? v->GetInt() : defaultValue;
}

std::string RestReply::Str(const char* pointer, const std::string& defaultValue) const {
    const rapidjson::Value* v = Node(pointer);
    return v != nullptr && v->IsString() ? std::string(v->GetString(), v->GetStringLength()) : defaultValue;
}

bool RestReply::Has(const char* pointer) const {
    return Node(pointer) != nullptr;
}

std::string RestReply::Describe() const {
    if (!transportOk) {
        return "transport error: " + transportError;
    }
    return "HTTP " + std::to_string(status) + ": " + body.substr(0, 2000);
}

CRestClient::CRestClient(std::string baseUrl) : baseUrl_(std::move(baseUrl)), curl_(curl_easy_init()) {}

CRestClient::~CRestClient() = default;

RestReply CRestClient::Send(const std::string& method, const std::string& path, const std::string& body,
                            const std::vector<std::string>& extraHeaders) {
    RestReply reply;
    CURL* curl = curl_.get();
    if (curl == nullptr) {
        reply.transportError = "curl_easy_init failed";
        return reply;
    }
    curl_easy_reset(curl);
    const std::string url = baseUrl_ + path;
    std::unique_ptr<curl_slist, HeaderListDeleter> headers;
    auto addHeader = [&headers](const std::string& h) {
        curl_slist* list = curl_slist_append(headers.get(), h.c_str());
        headers.release();
        headers.reset(list);
    };
    addHeader("Content-Type: application/json");
    addHeader("Expect:");
    if (!token_.empty()) {
        addHeader("Authorization: Bearer " + token_);
    }
    for (const std::string& h : extraHeaders) {
        addHeader(h);
    }
    curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
    curl_easy_setopt(curl, CURLOPT_CUSTOMREQUEST, method.c_str());
    if (!body.empty()) {
        curl_easy_setopt(curl, CURLOPT_POSTFIELDS, body.c_str());
        curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE, static_cast<long>(body.size()));
    } else if (method == "GET") {
        curl_easy_setopt(curl, CURLOPT_HTTPGET, 1L);
    }
    curl_easy_setopt(curl, CURLOPT_HTTPHEADER, headers.get());
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, Collect);
    curl_easy_setopt(curl, CURLOPT_WRITEDATA, &reply.body);
    curl_easy_setopt(curl, CURLOPT_TIMEOUT_MS, 30000L);
    curl_easy_setopt(curl, CURLOPT_CONNECTTIMEOUT_MS, 10000L);
    curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
    if (!caFile_.empty()) {
        curl_easy_setopt(curl, CURLOPT_CAINFO, caFile_.c_str());
    }
    CURLcode rc = curl_easy_perform(curl);
    if (rc != CURLE_OK) {
        reply.transportError = curl_easy_strerror(rc);
        return reply;
    }
    reply.transportOk = true;
    curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &reply.status);
    curl_easy_getinfo(curl, CURLINFO_NUM_CONNECTS, &reply.newConnections);
    reply.json.Parse(reply.body.data(), reply.body.size());
    reply.jsonOk = !reply.json.HasParseError();
    return reply;
}

bool CRestClient::Login(const std::string& user, const std::string& password, std::string& error,
                        RestReply* out) {
    rapidjson::StringBuffer buffer;
    rapidjson::Writer<rapidjson::StringBuffer> w(buffer);
    w.StartObject();
    w.Key("UserName");
    w.String(user.c_str());
    w.Key("Password");
    w.String(password.c_str());
    w.EndObject();
    token_.clear();
    RestReply reply = Send("POST", "/DXAPI/Galewing/Platform/V1/Session/Login", buffer.GetString());
    if (reply.status != 200 || reply.ErrorCode() != 0) {
        error = reply.Describe();
        if (out != nullptr) {
            *out = std::move(reply);
        }
        return false;
    }
    token_ = reply.Str("/ResponseStatus/Data/Token", "");
    if (out != nullptr) {
        *out = std::move(reply);
    }
    return !token_.empty();
}

}  // namespace PlatformTest
