#pragma once
// Every answer of the platform's REST interface is a "ResponseStatus" envelope:
// {"ResponseStatus":{"ErrorModule":0,"ErrorCode":0,"CascadingErrorInfo":"","Data":{...}}}

#include <string>

namespace Platform {

/// Module number of the errors the reference platform raises itself.
constexpr int kPlatformErrorModule = 30;

/// Codes of module kPlatformErrorModule.
enum PlatformErrorCode {
    kErrNotLoggedIn = 1,      ///< no session, unknown token or logged out (HTTP 401)
    kErrBadRequest = 2,       ///< malformed body or invalid values
    kErrNotFound = 3,         ///< an id or GUID the platform does not know
    kErrUnsupported = 4,      ///< a value the platform does not serve (source type, access type...)
    kErrBadCredentials = 5,   ///< wrong user name or password (HTTP 401)
    kErrInternal = 6,         ///< the platform could not complete the request
    kErrTerminalOffline = 7,  ///< the terminal is offline (TTS error list)
    kErrNoRoute = 8,          ///< no handler for this method and path (HTTP 404 or 405)
    kErrNoRight = 10,         ///< the session's user lacks the right for this broadcast
};

struct RestResponse {
    int status = 200;
    std::string body;
    std::string contentType = "application/json";
};

/// The envelope text with its data part (a serialised JSON value).
std::string EnvelopeText(int module, int code, const std::string& info, const std::string& dataJson);
/// A successful answer carrying `dataJson` as "Data".
RestResponse Ok(const std::string& dataJson = "{}");
/// An error answer; the platform's own errors travel with HTTP 200 unless stated, so that clients read the
/// envelope rather than treat the answer as a transport failure.
RestResponse Error(int module, int code, const std::string& info, int httpStatus = 200);
inline RestResponse PlatformError(int code, const std::string& info, int httpStatus = 200) {
    return Error(kPlatformErrorModule, code, info, httpStatus);
}

}  // namespace Platform
