#include "framework/business/StreamConfigManager.h"

#include <string>

#include "framework/base/FormatLog.h"
#include "framework/base/Singleton.h"
#include "framework/netcomm/PlatformRequest.h"

namespace BusinessCommon {

namespace {

using NetworkCommunication::CRapidJsonProto;
using NetworkCommunication::kEnvelopeData;
using Tal::Base::Error::ErrorCode;

const std::string kPathAccessType = "/DXAPI/Galewing/Platform/V1/StreamConfig/IPSpeakerAccessType/";
const std::string kPathAccessTypes = "/DXAPI/Galewing/Platform/V1/StreamConfig/IPSpeakerAccessTypes";

ErrorCode BadAnswer(const std::string& what) {
    ErrorCode error(Tal::Base::Error::kSubSystemServer, Tal::Base::Error::kModuleFramework,
                    Tal::Base::Error::kCodeBadServerAnswer);
    error.SetCasadingErrorInfo(what);
    return error;
}

}  // namespace

CStreamConfigManager* CStreamConfigManager::Instance() {
    return Tal::Base::CSingleton<CStreamConfigManager>::Instance();
}

// Data: {"DeviceID":101,"StreamAccessType":2}
int CStreamConfigManager::GetStreamAccessTypeByIpspeakerID(int deviceId) {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (cacheEnabled_) {
            auto it = accessTypes_.find(deviceId);
            if (it != accessTypes_.end()) {
                return it->second;
            }
        }
    }
    CRapidJsonProto answer;
    if (!NetworkCommunication::CallPlatform("GET", kPathAccessType + std::to_string(deviceId), "", answer)) {
        TAL_LOG(5, "Business",
                "[%s]Stream access type of device %d unknown (%s); using the system default "
                "(4).[%s(%d)]",
                deviceId, NetworkCommunication::DescribeError(Tal::Base::Error::GetLastError()).c_str());
        return kStreamAccessSystemDefault;
    }
    const std::string data = kEnvelopeData;
    const int type = answer.get_int_v(data + "/StreamAccessType", -1);
    if (type < 0) {
        Tal::Base::Error::SetLastError(BadAnswer("no \"StreamAccessType\" in the answer"));
        TAL_LOG(5, "Business",
                "[%s]The platform's answer for device %d has no stream access type; using the "
                "system default (4).[%s(%d)]",
                deviceId);
        return kStreamAccessSystemDefault;
    }
    std::lock_guard<std::mutex> lock(mutex_);
    if (cacheEnabled_) {
        accessTypes_[deviceId] = type;
    }
    return type;
}

// Data: {"AccessTypeList":[{"DeviceID":101,"StreamAccessType":2}]}
bool CStreamConfigManager::RefreshStreamAccessTypes() {
    CRapidJsonProto answer;
    if (!NetworkCommunication::CallPlatform("GET", kPathAccessTypes, "", answer)) {
        TAL_LOG(5, "Business", "[%s]Stream access types not refreshed: %s[%s(%d)]",
                NetworkCommunication::DescribeError(Tal::Base::Error::GetLastError()).c_str());
        return false;
    }
    const std::string list = std::string(kEnvelopeData) + "/AccessTypeList";
    if (!answer.is_exist(list)) {
        Tal::Base::Error::SetLastError(BadAnswer("no \"AccessTypeList\" in the answer"));
        TAL_LOG(5, "Business", "[%s]Stream access types not refreshed: the answer has no list.[%s(%d)]");
        return false;
    }
    std::map<int, int> types;
    const int count = answer.get_cnt(list);
    for (int i = 1; i <= count; ++i) {
        const std::string item = list + "[" + std::to_string(i) + "]/";
        const int id = answer.get_int_v(item + "DeviceID", -1);
        const int type = answer.get_int_v(item + "StreamAccessType", -1);
        if (id < 0 || type < 0) {
            TAL_LOG(4, "Business", "[%s]Stream access type entry %d is incomplete, skipped.[%s(%d)]", i);
            continue;
        }
        types[id] = type;
    }
    std::lock_guard<std::mutex> lock(mutex_);
    accessTypes_.swap(types);
    cacheEnabled_ = true;
    TAL_LOG(3, "Business", "[%s]Stream access types of %d devices cached.[%s(%d)]",
            static_cast<int>(accessTypes_.size()));
    return true;
}

void CStreamConfigManager::ClearStreamAccessTypes() {
    std::lock_guard<std::mutex> lock(mutex_);
    accessTypes_.clear();
    cacheEnabled_ = false;
}

bool CStreamConfigManager::IsCacheEnabled() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return cacheEnabled_;
}

}  // namespace BusinessCommon
