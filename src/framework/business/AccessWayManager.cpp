#include "framework/business/AccessWayManager.h"

#include "framework/base/FormatLog.h"
#include "framework/business/ServerSecret.h"
#include "framework/netcomm/PlatformRequest.h"

namespace AccessWayManager {

namespace {

using Tal::Base::Error::ErrorCode;

const char kPathAccessWay[] = "/DXAPI/Galewing/Platform/V1/DeviceAccessWay";

bool Fail(CCmsDeviceAccessPage& page, const CDeviceAccessRouteParam& route) {
    const ErrorCode error = Tal::Base::Error::GetLastError();
    page.SetValerror_code(error);
    TAL_LOG(5, "Business", "[%s]No access way for device %d (type %d): %s[%s(%d)]", route.GetValdevice_id_(),
            route.GetValdevice_type_(), NetworkCommunication::DescribeError(error).c_str());
    return false;
}

}  // namespace

// Request: {"SiteID":0,"DeviceID":501,"DeviceType":2}
// Data:
// {"ErrorCode":0,"DeviceID":501,"AccessType":0,"ProtocolType":"http","AccessPath":"","DeviceIP":"127.0.0.1",
//        "AccessKey":"<enc>","SecretKey":"<enc>","SecureEncryptType":1,"ObjectPort":18657}
bool QueryDeviceAccessWay(CCmsDeviceAccessPage& page, const CDeviceAccessRouteParam& route) {
    page = CCmsDeviceAccessPage();
    NetworkCommunication::CRapidJsonProto request;
    request.set_v("/SiteID", route.GetValid_site());
    request.set_v("/DeviceID", route.GetValdevice_id_());
    request.set_v("/DeviceType", route.GetValdevice_type_());
    NetworkCommunication::CRapidJsonProto answer;
    if (!NetworkCommunication::CallPlatform("POST", kPathAccessWay, request.get_str(0), answer)) {
        return Fail(page, route);
    }
    const std::string data = std::string(NetworkCommunication::kEnvelopeData) + "/";
    const int pageError = answer.get_int_v(data + "ErrorCode", 0);
    if (pageError != 0) {
        // The answer's own error code comes without a module: it is one the platform found itself.
        ErrorCode error(Tal::Base::Error::kSubSystemServer, NetworkCommunication::kPlatformModule, pageError);
        error.SetCasadingErrorInfo("the platform reports no access way");
        Tal::Base::Error::SetLastError(error);
        return Fail(page, route);
    }
    if (!answer.is_exist(data + "AccessType")) {
        ErrorCode error(Tal::Base::Error::kSubSystemServer, Tal::Base::Error::kModuleFramework,
                        Tal::Base::Error::kCodeBadServerAnswer);
        error.SetCasadingErrorInfo("no \"AccessType\" in the answer");
        Tal::Base::Error::SetLastError(error);
        return Fail(page, route);
    }
    const int scheme = answer.get_int_v(data + "SecureEncryptType", -1);
    std::string accessKey;
    std::string secretKey;
    if (!BusinessCommon::DecryptServerSecret(scheme, answer.get_v(data + "AccessKey", ""), accessKey,
                                             "access key") ||
        !BusinessCommon::DecryptServerSecret(scheme, answer.get_v(data + "SecretKey", ""), secretKey,
                                             "secret key")) {
        return Fail(page, route);
    }
    page.SetValaccess_type_(answer.get_int_v(data + "AccessType", -1));
    page.SetValprotocal_type(answer.get_v(data + "ProtocolType", ""));
    page.SetValaccess_path_(answer.get_v(data + "AccessPath", ""));
    page.SetValdevice_ip(answer.get_v(data + "DeviceIP", ""));
    page.SetValaccess_key(accessKey);
    page.SetValsecret_key(secretKey);
    page.SetValobject_port(answer.get_int_v(data + "ObjectPort", -1));
    TAL_LOG(3, "Business", "[%s]Access way of device %d: type %d, %s, ip %s, path %s, port %d.[%s(%d)]",
            route.GetValdevice_id_(), page.GetValaccess_type_(), page.GetValprotocal_type().c_str(),
            page.GetValdevice_ip().c_str(), page.GetValaccess_path_().c_str(), page.GetValobject_port());
    return true;
}

}  // namespace AccessWayManager
