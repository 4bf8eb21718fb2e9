#include "framework/business/OperatLogManager.h"

#include "framework/base/FormatLog.h"
#include "framework/base/Singleton.h"
#include "framework/netcomm/PlatformRequest.h"

namespace BusinessCommon {

namespace {
const char kPathOperationLog[] = "/DXAPI/Galewing/Platform/V1/OperationLog";
}

COperatLogManager* COperatLogManager::Instance() {
    return Tal::Base::CSingleton<COperatLogManager>::Instance();
}

// Request: {"OperationLogList":[{"LogType":265001,"OccurTime":1767225600,"ElementName":"Hall A,Lobby"}]}
// Data: {"Count":1}
bool COperatLogManager::AddOperationLog(const COperationLogStruct& log) {
    NetworkCommunication::CRapidJsonProto request;
    request.set_v("/OperationLogList[1]/LogType", log.GetVal_log_type());
    request.set_int64_v("/OperationLogList[1]/OccurTime", static_cast<int64_t>(log.GetVal_tmOccur()));
    request.set_v("/OperationLogList[1]/ElementName", log.GetVal_strElementName());
    NetworkCommunication::CRapidJsonProto answer;
    if (!NetworkCommunication::CallPlatform("POST", kPathOperationLog, request.get_str(0), answer)) {
        const Tal::Base::Error::ErrorCode error = Tal::Base::Error::GetLastError();
        TAL_LOG(5, "Business", "[%s]Operation log %d (%s) not written: %s[%s(%d)]", log.GetVal_log_type(),
                log.GetVal_strElementName().c_str(), NetworkCommunication::DescribeError(error).c_str());
        return false;
    }
    TAL_LOG(3, "Business", "[%s]Operation log %d written: %s[%s(%d)]", log.GetVal_log_type(),
            log.GetVal_strElementName().c_str());
    return true;
}

}  // namespace BusinessCommon
