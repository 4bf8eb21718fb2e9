#include "framework/business/DownloadTask.h"

namespace BusinessCommon {

CDownloadTaskParam CDownloadTaskBase::GetDownloadTaskParam() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return param_;
}

void CDownloadTaskBase::SetDownloadTaskParam(const CDownloadTaskParam& param, int /*flags*/) {
    std::lock_guard<std::mutex> lock(mutex_);
    param_ = param;
}

}  // namespace BusinessCommon
