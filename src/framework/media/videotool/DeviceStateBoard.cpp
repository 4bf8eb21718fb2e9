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

bool CDeviceStateBoard::Offer(const std::string& text) {
    NetworkCommunication::CRapidJsonProto message;
    if (!message.set_str(text)) {
        return false;
    }
    const std::string group = Group();
    if (group.empty() || !message.is_exist("/NotifyType") || message.get_v("/GroupId", "") != group) {
        return false;
    }
    if (message.get_int_v("/NotifyType", -1) != 1) {
        // Not a device status: the receiver decides what to do with it.
        std::lock_guard<std::mutex> delivery(deliveryMutex_);
        sink_(text);
        return true;
    }
    const int deviceId = std::atoi(message.get_v("/IndexCode", "").c_str());
    Deliver(deviceId, message.get_int_v("/Status", -1), text);
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
