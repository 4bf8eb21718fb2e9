#include "framework/netcomm/PlatformRequest.h"

#include <curl/curl.h>

#include "framework/base/FormatLog.h"

namespace NetworkCommunication {

using Tal::Base::Error::ErrorCode;
using Tal::Base::Error::kSubSystemServer;

namespace {

// The envelope's error, when the text is an envelope that reports one.
bool EnvelopeError(const CRapidJsonProto& doc, ErrorCode& error) {
    if (!doc.is_exist("/ResponseStatus/ErrorCode")) {
        return false;
    }
    const int module = doc.get_int_v("/ResponseStatus/ErrorModule", 0);
    const int code = doc.get_int_v("/ResponseStatus/ErrorCode", 0);
    if (module == 0 && code == 0) {
        return false;
    }
    error = ErrorCode(kSubSystemServer, module, code);
    error.SetCasadingErrorInfo(doc.get_v("/ResponseStatus/CascadingErrorInfo", ""));
    return true;
}

bool Fail(const ErrorCode& error, const std::string& method, const std::string& path) {
    Tal::Base::Error::SetLastError(error);
    TAL_LOG(5, "NetComm", "[%s]%s %s failed: %s %s[%s(%d)]", method.c_str(), path.c_str(),
            error.ToString().c_str(), DescribeError(error).c_str());
    return false;
}

// Checks what came back from one request (see CallPlatform).
bool CheckAnswer(bool sent, const CClientRecvInfo& recv, const std::string& method, const std::string& path,
                 CRapidJsonProto& answer) {
    const std::string& text = recv.GetVal_Receive_Data();
    const bool parsed = !text.empty() && answer.set_str(text);
    ErrorCode error;
    if (parsed && EnvelopeError(answer, error)) {
        return Fail(error, method, path);
    }
    if (!sent) {
        return Fail(recv.GetVal_Error_code(), method, path);
    }
    if (!parsed || !answer.is_exist("/ResponseStatus")) {
        error = ErrorCode(kSubSystemServer, Tal::Base::Error::kModuleFramework,
                          Tal::Base::Error::kCodeBadServerAnswer);
        error.SetCasadingErrorInfo(text.empty() ? "empty answer" : "answer is not an envelope");
        return Fail(error, method, path);
    }
    return true;
}

CClientSendInfo Request(const std::string& method, const std::string& path, const std::string& body) {
    CClientSendInfo send;
    send.SetVal_Method(method);
    send.SetVal_URL(path);
    send.SetVal_send_data(body);
    return send;
}

}  // namespace

bool CallPlatform(const std::string& method, const std::string& path, const std::string& body,
                  CRapidJsonProto& answer, int timeoutMs) {
    CClientRecvInfo recv;
    const bool sent =
        CNetCommManager::Instance()->ClientSynSend(recv, Request(method, path, body), timeoutMs);
    return CheckAnswer(sent, recv, method, path, answer);
}

bool CallPlatformAt(const ServerSession& server, const std::string& method, const std::string& path,
                    const std::string& body, CRapidJsonProto& answer, int timeoutMs) {
    CClientRecvInfo recv;
    const bool sent =
        CNetCommManager::Instance()->SendToServer(server, Request(method, path, body), timeoutMs, recv);
    return CheckAnswer(sent, recv, method, path, answer);
}

std::string DescribeError(const ErrorCode& error) {
    const int module = error.GetMainErrorCode();
    const int code = error.GetSubErrorCode();
    std::string text;
    if (module == kModuleTransport) {
        if (code == CURLE_COULDNT_CONNECT) {
            text = "cannot connect";
        } else if (code == CURLE_OPERATION_TIMEDOUT) {
            text = "timed out";
        } else if (code == CURLE_COULDNT_RESOLVE_HOST) {
            text = "unknown host";
        } else if (code == CURLE_PEER_FAILED_VERIFICATION || code == CURLE_SSL_CACERT_BADFILE ||
                   code == CURLE_SSL_CONNECT_ERROR) {
            text = "TLS failure";
        } else {
            text = "transport failure";
        }
        text += " (libcurl " + std::to_string(code) + ": " + curl_easy_strerror(static_cast<CURLcode>(code)) +
                ")";
    } else if (module == kModuleHttp) {
        text = "HTTP " + std::to_string(code);
    } else if (module == Tal::Base::Error::kModuleFramework &&
               code == Tal::Base::Error::kCodeBadServerAnswer) {
        text = "malformed answer";
    } else {
        text = (error.GetSubSystemErrorCode() == kSubSystemServer ? "platform error " : "error ") +
               std::to_string(module) + "/" + std::to_string(code);
    }
    if (!error.GetCasadingErrorInfo().empty()) {
        text += ": " + error.GetCasadingErrorInfo();
    }
    return text;
}

}  // namespace NetworkCommunication
