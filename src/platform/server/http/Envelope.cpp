#include "platform/server/http/Envelope.h"

#include "platform/server/json/Json.h"

namespace Platform {

std::string EnvelopeText(int module, int code, const std::string& info, const std::string& dataJson) {
    Json::CWriter w;
    w.BeginObject().BeginObject("ResponseStatus");
    w.Int("ErrorModule", module).Int("ErrorCode", code).String("CascadingErrorInfo", info);
    w.Raw("Data", dataJson.empty() ? "{}" : dataJson);
    w.EndObject().EndObject();
    return w.Text();
}

RestResponse Ok(const std::string& dataJson) {
    RestResponse r;
    r.body = EnvelopeText(0, 0, "", dataJson);
    return r;
}

RestResponse Error(int module, int code, const std::string& info, int httpStatus) {
    RestResponse r;
    r.status = httpStatus;
    r.body = EnvelopeText(module, code, info, "{}");
    return r;
}

}  // namespace Platform
