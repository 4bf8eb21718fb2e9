// Incremental download of logical resources (broadcast elements) and the devices behind them from the
// platform into the element and device registries.

#include <string>
#include <vector>

#include "framework/base/FormatLog.h"
#include "framework/base/Singleton.h"
#include "framework/netcomm/PlatformRequest.h"
#include "framework/resource/DeviceEntry.h"
#include "framework/resource/ResourceManager.h"

namespace ResourceManager {

namespace {

using NetworkCommunication::CRapidJsonProto;
using Tal::Base::Error::ErrorCode;

const char kPathIncrementalDownload[] = "/DXAPI/Galewing/Platform/V1/Resource/IncrementalDownload";

std::string JoinIds(const std::vector<int>& ids) {
    std::string text;
    for (int id : ids) {
        text += (text.empty() ? "" : ",") + std::to_string(id);
    }
    return text;
}

std::string Item(const std::string& list, int oneBasedIndex) {
    return list + "[" + std::to_string(oneBasedIndex) + "]/";
}

bool Fail(const ErrorCode& error, const CDownloadLogicalResource& request, const char* why) {
    Tal::Base::Error::SetLastError(error);
    TAL_LOG(5, "ResourceManager", "[%s]Resource download failed, source type %d, ids [%s]: %s %s[%s(%d)]",
            request.GetVal_source_type(), JoinIds(request.GetVal_extra_ids()).c_str(), why,
            NetworkCommunication::DescribeError(error).c_str());
    return false;
}

// What one answer holds, read completely before anything is stored.
struct Download {
    std::vector<ElementInfo> elements;
    std::vector<DeviceInfo> devices;
    std::vector<int> notFound;
};

// Reads the answer; false (last error set) when a device password does not decrypt.
bool ReadAnswer(const CRapidJsonProto& answer, int requestedSourceType, Download& out) {
    const std::string data = std::string(NetworkCommunication::kEnvelopeData) + "/";
    const int scheme = answer.get_int_v(data + "SecureEncryptType", -1);
    const std::string elements = data + "ElementList";
    for (int i = 1, n = answer.get_cnt(elements); i <= n; ++i) {
        const std::string p = Item(elements, i);
        ElementInfo info;
        info.id = answer.get_int_v(p + "ID", -1);
        if (info.id < 0) {
            TAL_LOG(4, "ResourceManager", "[%s]Element entry %d has no id, skipped.[%s(%d)]", i);
            continue;
        }
        info.name = answer.get_v(p + "Name", "");
        info.sourceType = answer.get_int_v(p + "SourceType", requestedSourceType);
        info.channel = answer.get_int_v(p + "Channel", 1);
        info.deviceId = answer.get_int_v(p + "EncodeDeviceID", -1);
        out.elements.push_back(info);
    }
    const std::string devices = data + "DeviceList";
    for (int i = 1, n = answer.get_cnt(devices); i <= n; ++i) {
        const std::string p = Item(devices, i);
        DeviceInfo info;
        info.id = answer.get_int_v(p + "ID", -1);
        if (info.id < 0) {
            TAL_LOG(4, "ResourceManager", "[%s]Device entry %d has no id, skipped.[%s(%d)]", i);
            continue;
        }
        if (!ReadDeviceEntry(answer, p, scheme, info)) {
            TAL_LOG(5, "ResourceManager", "[%s]Password of device %d does not decrypt.[%s(%d)]", info.id);
            return false;
        }
        out.devices.push_back(info);
    }
    const std::string missing = data + "NotFoundIDList";
    for (int i = 1, n = answer.get_cnt(missing); i <= n; ++i) {
        out.notFound.push_back(answer.get_int_v(missing + "[" + std::to_string(i) + "]", -1));
    }
    return true;
}

// Stores the download. Devices keep their login state; their direct-login data follows the platform's.
void Store(const Download& download) {
    for (const DeviceInfo& info : download.devices) {
        std::shared_ptr<CDevice> device = CDeviceManager::Instance()->AddOrUpdateDevice(info);
        CLoginParam login = device->GetIPModeLoginParam();
        login.SetVal_strLoginAddress(info.ipAddress);
        login.SetVal_uLoginPort(static_cast<uint16_t>(info.port));
        login.SetVal_strUserName(info.userName);
        login.SetVal_strUserPwd(info.password);
        device->SetIPModeLoginParam(login);
    }
    for (const ElementInfo& info : download.elements) {
        CElementManager::Instance()->AddOrUpdateElement(info);
    }
    // The platform no longer knows these: a copy kept from earlier would be stale.
    for (int id : download.notFound) {
        CElementManager::Instance()->RemoveElement(id);
    }
}

}  // namespace

CDownloadResourceManager* CDownloadResourceManager::Instance() {
    return Tal::Base::CSingleton<CDownloadResourceManager>::Instance();
}

// Request: {"SourceType":1027,"ExtraIDs":[1001,1003],"ExtraRequestType":4,"PageIndex":0}
// Data: {"SourceType":1027,"SecureEncryptType":1,
//        "ElementList":[{"ID":1001,"Name":"Hall A","SourceType":1027,"Channel":1,"EncodeDeviceID":101}],
//        "DeviceList":[{"ID":101,"Name":"..","DeviceType":2020,"AccessProtocol":1,"IP":"127.0.0.1","Port":18661,
//                       "UserName":"admin","Password":"<encrypted>"}],"NotFoundIDList":[4242]}
bool CDownloadResourceManager::SynIncrementalDownloadLogicalResource(
    const CDownloadLogicalResource& request) {
    CRapidJsonProto body;
    body.set_v("/SourceType", request.GetVal_source_type());
    body.set_node_str("/ExtraIDs", "[]");
    int index = 1;
    for (int id : request.GetVal_extra_ids()) {
        body.set_v("/ExtraIDs[" + std::to_string(index++) + "]", id);
    }
    body.set_v("/ExtraRequestType", request.GetVal_extra_request_type());
    body.set_v("/PageIndex", request.GetVal_page_index());

    CRapidJsonProto answer;
    if (!NetworkCommunication::CallPlatform("POST", kPathIncrementalDownload, body.get_str(0), answer)) {
        return Fail(Tal::Base::Error::GetLastError(), request, "the platform cannot be asked:");
    }
    if (!answer.is_exist(std::string(NetworkCommunication::kEnvelopeData) + "/ElementList")) {
        ErrorCode error(Tal::Base::Error::kSubSystemServer, Tal::Base::Error::kModuleFramework,
                        Tal::Base::Error::kCodeBadServerAnswer);
        error.SetCasadingErrorInfo("no \"ElementList\" in the answer");
        return Fail(error, request, "the answer is incomplete:");
    }
    Download download;
    if (!ReadAnswer(answer, request.GetVal_source_type(), download)) {
        return Fail(Tal::Base::Error::GetLastError(), request, "a device secret is not readable:");
    }
    Store(download);

    if (!request.GetVal_extra_ids().empty() && download.elements.empty()) {
        ErrorCode error(Tal::Base::Error::kSubSystemServer, Tal::Base::Error::kModuleFramework,
                        Tal::Base::Error::kCodeResourceNotFound);
        error.SetCasadingErrorInfo("unknown ids: " + JoinIds(download.notFound.empty()
                                                                 ? request.GetVal_extra_ids()
                                                                 : download.notFound));
        return Fail(error, request, "the platform knows none of them:");
    }
    if (!download.notFound.empty()) {
        TAL_LOG(4, "ResourceManager",
                "[%s]The platform does not know the ids [%s]; the others were "
                "downloaded.[%s(%d)]",
                JoinIds(download.notFound).c_str());
    }
    TAL_LOG(3, "ResourceManager", "[%s]Downloaded %d elements and %d devices of source type %d.[%s(%d)]",
            static_cast<int>(download.elements.size()), static_cast<int>(download.devices.size()),
            request.GetVal_source_type());
    return true;
}

}  // namespace ResourceManager
