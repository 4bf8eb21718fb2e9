#pragma once
// Lifecycle of the module: the two start-up stages, stop and unload, and the panel requests of the host.

#include <QObject>

#include <string>

#include "BroadCastPlugin/ui/PopPannelParam.h"

namespace BusinessCommon {
class CDownloadTaskBase;
}

namespace BroadCastPlugin {

class CBroadCastPluginManager : public QObject {
    Q_OBJECT

public:
    /// The process-wide manager, created on first use and moved to the application's main thread.
    static CBroadCastPluginManager* Instance();
    CBroadCastPluginManager();
    ~CBroadCastPluginManager() override;

    /// Stage 1: language, network time-out, business services, voice environment.
    bool Init(const std::string& language);
    /// Stage 2, on the main thread; repeatable.
    bool InitInMainThread();
    bool Uninit();
    bool StopWorking();
    bool UpdateFrame(int state);
    void Notify(int nt);
    bool NotifyPluginIsClosingAuxScreen(const std::string& menuId);

    bool GetWndHandle(void** handle);
    void PopBroadcastPannel(const PopPannelParam& param);
    /// Parses the pop-panel JSON of the host into a request.
    static PopPannelParam ParsePopPannelJson(const std::string& json, void* caller);
    static void ResumeDownloadTask(BusinessCommon::CDownloadTaskBase* task);
    bool IsBoradCastToolUIShow() const;
};

}  // namespace BroadCastPlugin
