// A plugin function on the framework: reads a JSON value with the framework's document and formats an error.
#include <string>

#include "framework/base/ErrorCode.h"
#include "framework/netcomm/RapidJsonProto.h"

std::string ConsumerDescribe(const std::string& json) {
    NetworkCommunication::CRapidJsonProto doc;
    if (!doc.set_str(json)) {
        return "bad json";
    }
    const Tal::Base::Error::ErrorCode code(doc.get_int_v("/Module", 0), doc.get_int_v("/Code", 0));
    return doc.get_v("/Name", "?") + " " + code.ToString();
}
