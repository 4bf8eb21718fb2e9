#include <memory>
#include <mutex>

#include "framework/base/ErrorCode.h"
#include "framework/base/FormatLog.h"
#include "framework/media/videotool/DeviceBroadcastSession.h"
#include "framework/media/videotool/VideoTool.h"
#include "framework/netcomm/RapidJsonProto.h"

namespace TOOL {

namespace {

using Tal::Base::Error::ErrorCode;

struct BroadcastBusiness {
    std::mutex mutex;  ///< guards the fields below; never held while a session works
    bool initialised = false;
    BroadcastResoluteCallback callback = nullptr;
    void* context = nullptr;
    std::shared_ptr<CDeviceBroadcastSession> session;
};

BroadcastBusiness& Business() {
    static BroadcastBusiness state;
    return state;
}

// Hands a status text to the registered callback, if any, outside the manager's lock.
void DeliverStatus(const std::string& text) {
    BroadcastResoluteCallback callback;
    void* context;
    {
        BroadcastBusiness& state = Business();
        std::lock_guard<std::mutex> lock(state.mutex);
        if (!state.initialised || state.callback == nullptr) {
            return;
        }
        callback = state.callback;
        context = state.context;
    }
    callback(text, context);
}

std::shared_ptr<CDeviceBroadcastSession> TakeSession() {
    BroadcastBusiness& state = Business();
    std::lock_guard<std::mutex> lock(state.mutex);
    return std::move(state.session);
}

}  // namespace

bool CBroadcastBusinessManager::InitManager() {
    BroadcastBusiness& state = Business();
    std::lock_guard<std::mutex> lock(state.mutex);
    state.initialised = true;
    return true;
}

bool CBroadcastBusinessManager::UninitManager() {
    if (auto session = TakeSession()) {
        session->Stop(true);
    }
    BroadcastBusiness& state = Business();
    std::lock_guard<std::mutex> lock(state.mutex);
    state.initialised = false;
    state.callback = nullptr;
    state.context = nullptr;
    return true;
}

bool CBroadcastBusinessManager::IsInit() {
    BroadcastBusiness& state = Business();
    std::lock_guard<std::mutex> lock(state.mutex);
    return state.initialised;
}

void CBroadcastBusinessManager::SetBroadcastResoluteCallback(BroadcastResoluteCallback callback,
                                                             void* context) {
    BroadcastBusiness& state = Business();
    std::lock_guard<std::mutex> lock(state.mutex);
    state.callback = callback;
    state.context = context;
}

bool CBroadcastBusinessManager::PushBroadcastState(const std::string& text) {
    NetworkCommunication::CRapidJsonProto message;
    if (!message.set_str(text)) {
        return false;
    }
    return PushBroadcastState(DeviceStatusNotice::Read(message, ""), text);
}

bool CBroadcastBusinessManager::PushBroadcastState(const DeviceStatusNotice& notice,
                                                   const std::string& text) {
    std::shared_ptr<CDeviceBroadcastSession> session;
    {
        BroadcastBusiness& state = Business();
        std::lock_guard<std::mutex> lock(state.mutex);
        if (!state.initialised || state.callback == nullptr) {
            return false;
        }
        session = state.session;
    }
    // Only the pushes of the running broadcast's group concern this client.
    return session && session->Offer(notice, text);
}

bool CBroadcastBusinessManager::StartBroadcast(const CRequestBroadcast& request) {
    auto session = std::make_shared<CDeviceBroadcastSession>(request, &DeliverStatus);
    {
        BroadcastBusiness& state = Business();
        std::lock_guard<std::mutex> lock(state.mutex);
        if (!state.initialised) {
            Tal::Base::Error::SetLastError(ErrorCode(Tal::Base::Error::kSubSystemClient,
                                                     Tal::Base::Error::kModuleFramework,
                                                     Tal::Base::Error::kCodeNotAvailable));
            TAL_LOG(5, "VideoTool", "[%s]The device broadcast manager is not initialised.[%s(%d)]");
            return false;
        }
        if (state.session) {
            Tal::Base::Error::SetLastError(ErrorCode(Tal::Base::Error::kSubSystemClient,
                                                     Tal::Base::Error::kModuleFramework,
                                                     Tal::Base::Error::kCodeBusy));
            TAL_LOG(5, "VideoTool", "[%s]A device broadcast already runs; devices %s refused.[%s(%d)]",
                    request.device_ids.c_str());
            return false;
        }
        state.session = session;
    }
    TAL_LOG(3, "VideoTool", "[%s]Start device broadcast to %s, type %d.[%s(%d)]", request.device_ids.c_str(),
            request.type);
    if (session->Start()) {
        return true;
    }
    const ErrorCode error = Tal::Base::Error::GetLastError();
    bool ours = false;
    {
        BroadcastBusiness& state = Business();
        std::lock_guard<std::mutex> lock(state.mutex);
        ours = state.session == session;
        if (ours) {
            state.session.reset();
        }
    }
    // A stop that came during the start ends the session itself and reports the devices stopped. Otherwise
    // the devices that failed were reported so, and those that were opened end without a stopped report.
    if (ours) {
        session->Stop(false);
    }
    Tal::Base::Error::SetLastError(error);
    return false;
}

bool CBroadcastBusinessManager::StopBroadcast() {
    if (auto session = TakeSession()) {
        session->Stop(true);
    }
    return true;
}

}  // namespace TOOL
