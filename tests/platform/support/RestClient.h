#pragma once
// A libcurl client for the platform's REST interface, the way the client framework talks to it: JSON
// bodies on any method (GET included), the session in "Authorization: Bearer", one kept-alive connection.

#include <curl/curl.h>
#include <rapidjson/document.h>
#include <rapidjson/pointer.h>

#include <memory>
#include <string>
#include <vector>

namespace PlatformTest {

struct RestReply {
    bool transportOk = false;
    std::string transportError;
    long status = 0;
    std::string body;
    long newConnections = 0;  ///< connections curl had to open for this request
    rapidjson::Document json;
    bool jsonOk = false;

    /// Envelope readers (RapidJSON pointers, e.g. "/ResponseStatus/Data/Token"); defaults when absent.
    int Int(const char* pointer, int defaultValue = -999) const;
    std::string Str(const char* pointer, const std::string& defaultValue = "<absent>") const;
    bool Has(const char* pointer) const;
    const rapidjson::Value* Node(const char* pointer) const;
    int ErrorModule() const { return Int("/ResponseStatus/ErrorModule"); }
    int ErrorCode() const { return Int("/ResponseStatus/ErrorCode"); }
    /// A text for failure messages.
    std::string Describe() const;
};

class CRestClient {
public:
    explicit CRestClient(std::string baseUrl);
    ~CRestClient();
    CRestClient(const CRestClient&) = delete;
    CRestClient& operator=(const CRestClient&) = delete;

    void SetToken(const std::string& token) { token_ = token; }
    const std::string& Token() const { return token_; }
    /// Trust this CA file for https.
    void SetCaFile(const std::string& path) { caFile_ = path; }

    /// Sends one request; `body` empty sends none.
    RestReply Send(const std::string& method, const std::string& path, const std::string& body = "",
                   const std::vector<std::string>& extraHeaders = {});
    /// Logs in and keeps the token; false with the reply's description in `error`.
    bool Login(const std::string& user, const std::string& password, std::string& error,
               RestReply* reply = nullptr);

private:
    struct CurlDeleter {
        void operator()(CURL* curl) const { curl_easy_cleanup(curl); }
    };
    std::string baseUrl_;
    std::string token_;
    std::string caFile_;
    std::unique_ptr<CURL, CurlDeleter> curl_;
};

/// The demo user.
constexpr char kUser[] = "operator";
constexpr char kPassword[] = "Operator#2026";

}  // namespace PlatformTest
