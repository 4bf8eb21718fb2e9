#include "framework/media/objectclient/StoreError.h"

namespace CloudStorage {

namespace {

std::string Unescape(const std::string& text) {
    static const struct {
        const char* entity;
        char plain;
    } kEntities[] = {{"&lt;", '<'}, {"&gt;", '>'}, {"&quot;", '"'}, {"&apos;", '\''}, {"&amp;", '&'}};
    std::string plain;
    plain.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        bool replaced = false;
        if (text[i] == '&') {
            for (const auto& e : kEntities) {
                std::size_t length = std::char_traits<char>::length(e.entity);
                if (text.compare(i, length, e.entity) == 0) {
                    plain.push_back(e.plain);
                    i += length - 1;
                    replaced = true;
                    break;
                }
            }
        }
        if (!replaced) {
            plain.push_back(text[i]);
        }
    }
    return plain;
}

// The text of the first <tag>...</tag>; false when there is none.
bool ElementText(const std::string& xml, const std::string& tag, std::string& text) {
    const std::string open = "<" + tag + ">";
    const std::string close = "</" + tag + ">";
    std::size_t start = xml.find(open);
    if (start == std::string::npos) {
        return false;
    }
    start += open.size();
    std::size_t end = xml.find(close, start);
    if (end == std::string::npos) {
        return false;
    }
    text = Unescape(xml.substr(start, end - start));
    return true;
}

bool IsTlsFailure(CURLcode code) {
    switch (code) {
        case CURLE_SSL_CONNECT_ERROR:
        case CURLE_PEER_FAILED_VERIFICATION:
        case CURLE_SSL_CERTPROBLEM:
        case CURLE_SSL_CIPHER:
        case CURLE_SSL_CACERT_BADFILE:
        case CURLE_SSL_CRL_BADFILE:
        case CURLE_SSL_ISSUER_ERROR:
        case CURLE_SSL_PINNEDPUBKEYNOTMATCH:
        case CURLE_SSL_INVALIDCERTSTATUS:
        case CURLE_SSL_ENGINE_NOTFOUND:
        case CURLE_SSL_ENGINE_SETFAILED:
        case CURLE_SSL_ENGINE_INITFAILED:
        case CURLE_SSL_CLIENTCERT:
        case CURLE_USE_SSL_FAILED:
            return true;
        default:
            return false;
    }
}

ObjectClientError ErrorOfTransport(const SRequestOutcome& outcome, std::string& what) {
    if (outcome.cancelled) {
        what = "cancelled";
        return kObjectCancelled;
    }
    if (outcome.sinkFailed) {
        what = "cannot write the local file: " + outcome.localError;
        return kObjectLocalWrite;
    }
    if (outcome.sourceFailed) {
        what = "cannot read the local file: " + outcome.localError;
        return kObjectLocalRead;
    }
    if (IsTlsFailure(outcome.code)) {
        what = "TLS failed: " + outcome.curlError;
        return kObjectTls;
    }
    switch (outcome.code) {
        case CURLE_COULDNT_CONNECT:
        case CURLE_COULDNT_RESOLVE_HOST:
        case CURLE_COULDNT_RESOLVE_PROXY:
            what = "cannot connect: " + outcome.curlError;
            return kObjectConnect;
        case CURLE_OPERATION_TIMEDOUT:
            if (!outcome.connected) {
                what = "cannot connect: " + outcome.curlError;
                return kObjectConnect;
            }
            what = "stalled: " + outcome.curlError;
            return kObjectTransfer;
        case CURLE_URL_MALFORMAT:
        case CURLE_UNSUPPORTED_PROTOCOL:
            what = "bad address: " + outcome.curlError;
            return kObjectBadUrl;
        default:
            what = "transfer failed: " + outcome.curlError;
            return kObjectTransfer;
    }
}

ObjectClientError ErrorOfStatus(long status) {
    if (status == 401 || status == 403) {
        return kObjectAccessDenied;
    }
    if (status == 404) {
        return kObjectNotFound;
    }
    return kObjectServerError;
}

}  // namespace

bool ParseStoreError(const std::string& xml, std::string& code, std::string& message) {
    if (!ElementText(xml, "Code", code)) {
        return false;
    }
    if (!ElementText(xml, "Message", message)) {
        message.clear();
    }
    return true;
}

ObjectClientError ClassifyOutcome(const SRequestOutcome& outcome, const std::string& method,
                                  const std::string& url, std::string& message) {
    const std::string prefix = method + " " + url + ": ";
    if (outcome.code != CURLE_OK || outcome.cancelled || outcome.sinkFailed || outcome.sourceFailed) {
        std::string what;
        ObjectClientError error = ErrorOfTransport(outcome, what);
        message = prefix + what;
        return error;
    }
    if (outcome.status >= 200 && outcome.status < 300) {
        message.clear();
        return kObjectOk;
    }
    message = prefix + std::to_string(outcome.status);
    std::string code;
    std::string text;
    if (ParseStoreError(outcome.errorBody, code, text)) {
        message += " " + code + (text.empty() ? std::string() : ": " + text);
    } else {
        // A HEAD answer has no body to explain itself.
        message += outcome.reason.empty() ? std::string() : " " + outcome.reason;
        if (ErrorOfStatus(outcome.status) == kObjectAccessDenied) {
            message += " (the storage refuses the keys or the signature)";
        }
    }
    return ErrorOfStatus(outcome.status);
}

}  // namespace CloudStorage
