#include "framework/media/videotool/DeviceStateBoard.h"

#include <cstdlib>

#include "framework/netcomm/RapidJsonProto.h"

namespace TOOL {

CDeviceStateBoard::CDeviceStateBoard(Sink sink) : sink_(std::move(sink)) {}

void CDeviceStateBoard::SetGroup(const std::string& groupId) {
    std::lock_guard<std::mutex> lock(mutex_);
    groupId_ = groupId;
}

std::string CDeviceStateBoard::Group() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return groupId_;
}

bool CDeviceStateBoard::Advances(int from, int to) {
    if (from == to || from == kDeviceStopped) {
        return false;
    }
    switch (to) {
        case kDeviceConnecting:
            return from < 0;
        case kDevicePlaying:
            return from < 0 || from == kDeviceConnecting;
        case kDeviceFailed:
        case kDeviceStopped:
            return true;
        default:
            return false;
    }
}

std::string CDeviceStateBoard::StatusText(const std::string& groupId, int deviceId, int status,
                                          int resourceStatus, const std::string& errorInfo) {
    NetworkCommunication::CRapidJsonProto text;
    text.set_v("/NotifyType", 1);
    text.set_v("/GroupId", groupId);
    text.set_v("/IndexCode", std::to_string(deviceId));
    text.set_v("/ErrorInfo", errorInfo);
    text.set_v("/ResourceStatus", resourceStatus);
    text.set_v("/Status", status);
    return text.get_str(0);
}

void CDeviceStateBoard::Report(int deviceId, int status, int resourceStatus, const std::string& errorInfo) {
    Deliver(deviceId, status, StatusText(Group(), deviceId, status, resourceStatus, errorInfo));
}

void CDeviceStateBoard::ReportAllStopped() {
    std::vector<int> devices;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        for (const auto& state : states_) {
            if (state.second != kDeviceStopped) {
                devices.push_back(state.first);
            }
        }
    }
    for (int deviceId : devices) {
        Report(deviceId, kDeviceStopped, kDeviceIdle, "");
    }
}

DeviceStatusNotice DeviceStatusNotice::Read(const NetworkCommunication::CRapidJsonProto& document,
                                            const std::string& path) {
    DeviceStatusNotice notice;
    notice.isNotice = document.is_exist(path + "/NotifyType");
    if (!notice.isNotice) {
        return notice;
    }
    notice.notifyType = document.get_int_v(path + "/NotifyType", -1);
    notice.groupId = document.get_v(path + "/GroupId", "");
    notice.deviceId = std::atoi(document.get_v(path + "/IndexCode", "").c_str());
    notice.status = document.get_int_v(path + "/Status", -1);
    return notice;
}

bool CDeviceStateBoard::Offer(const std::string& text) {
    NetworkCommunication::CRapidJsonProto message;
    if (!message.set_str(text)) {
        return false;
    }
    return Offer(DeviceStatusNotice::Read(message, ""), text);
}

bool CDeviceStateBoard::Offer(const DeviceStatusNotice& notice, const std::string& text) {
    const std::string group = Group();
    if (group.empty() || !notice.isNotice || notice.groupId != group) {
        return false;
    }
    if (notice.notifyType != 1) {
        // Not a device status: the receiver decides what to do with it.
        std::lock_guard<std::mutex> delivery(deliveryMutex_);
        sink_(text);
        return true;
    }
    Deliver(notice.deviceId, notice.status, text);
    return true;
}

void CDeviceStateBoard::Deliver(int deviceId, int status, const std::string& text) {
    std::lock_guard<std::mutex> delivery(deliveryMutex_);
    {
        std::lock_guard<std::mutex> lock(mutex_);
        auto found = states_.find(deviceId);
        const int from = found != states_.end() ? found->second : -1;
        if (!Advances(from, status)) {
            return;
        }
        states_[deviceId] = status;
    }
    sink_(text);
}

}  // namespace TOOL
