#include "BroadCastPlugin/BroadCastPluginManager.h"

#include <QCoreApplication>
#include <QDir>
#include <QThread>
#include <QWidget>

#include <mutex>

#include "BroadCastPlugin/BroadcastLog.h"
#include "BroadCastPlugin/BroadcastNames.h"
#include "BroadCastPlugin/BroadcastUi.h"
#include "BroadCastPlugin/controller/BroadcastController/BroadcastController.h"
#include "BroadCastPlugin/controller/PublishAPI/PublishAPIManager.h"
#include "BroadCastPlugin/controller/WebBroadcastController/WebPageBridge.h"
#include "BroadCastPlugin/controller/WebBroadcastController/WebRecordPage.h"
#include "BroadCastPlugin/ui/BroadCastWgtManager.h"
#include "framework/business/BusinessCommon.h"
#include "framework/business/DownloadTask.h"
#include "framework/clientframe/FrameworkManagerInterface.h"
#include "framework/errortext/ErrorCodeTrans.h"
#include "framework/media/videotool/VideoTool.h"
#include "framework/netcomm/NetlibWrapper.h"
#include "framework/netcomm/RapidJsonProto.h"
#include "framework/webengine/CEFDataManager.h"
#include "framework/wuicontrol/WUIControl.h"

namespace BroadCastPlugin {

namespace {

std::vector<std::string> SplitAtCommas(const std::string& text) {
    std::vector<std::string> items;
    if (text.empty()) {
        return items;
    }
    std::size_t start = 0;
    for (;;) {
        std::size_t comma = text.find(',', start);
        items.push_back(text.substr(start, comma == std::string::npos ? std::string::npos : comma - start));
        if (comma == std::string::npos) {
            return items;
        }
        start = comma + 1;
    }
}

}  // namespace

CBroadCastPluginManager* CBroadCastPluginManager::Instance() {
    // Check the holder, lock, check again, create, publish. Never destroyed: it dies with the module.
    static std::atomic<CBroadCastPluginManager*> holder{nullptr};
    static std::mutex mutex;
    CBroadCastPluginManager* manager = holder.load(std::memory_order_acquire);
    if (manager == nullptr) {
        std::lock_guard<std::mutex> lock(mutex);
        manager = holder.load(std::memory_order_relaxed);
        if (manager == nullptr) {
            static CBroadCastPluginManager instance;
            manager = &instance;
            holder.store(manager, std::memory_order_release);
        }
    }
    return manager;
}

CBroadCastPluginManager::CBroadCastPluginManager() {
    if (QCoreApplication* app = QCoreApplication::instance()) {
        moveToThread(app->thread());
    }
}

CBroadCastPluginManager::~CBroadCastPluginManager() = default;

bool CBroadCastPluginManager::Init(const std::string& language) {
    BCAST_LOG(3, "[%s]Start to Init CBroadCastPluginManager.[%s(%d)]");
    ErrorCodeTrans::InitLanguale(language);

    std::string clientConfig;
    TalClientFrameWork::CFrameworkManagerInterface::Instance()->GetClientConfig(clientConfig, 2);
    NetworkCommunication::CRapidJsonProto config;
    config.set_str(clientConfig);
    NetworkCommunication::NetlibWrapper::SetTimeoutFacotor(
        static_cast<NetworkCommunication::NetlibWrapper::TimeoutFactor>(
            config.get_int_v("/SysConfig/NetOvertime", -1)));

    BusinessCommon::InitBusinessCommon(nullptr, language);

    NetworkCommunication::CRapidJsonProto voice;
    voice.set_bool_v("/GeneralInit", true);
    voice.set_bool_v("/CirroInit", true);
    const QString targetPath =
        WUIControl::GetTargetPath(reinterpret_cast<const void*>(&CBroadCastPluginManager::Instance));
    voice.set_v("/CirroLoadPath", targetPath.toUtf8().toStdString());
    if (!ORVVideoTool::InitVoiceEnvir(voice.get_str(0))) {
        BCAST_LOG(5, "[%s]Init orvvideotool failed.[%s(%d)]");
        return false;
    }
    BCAST_LOG(3, "[%s]CBroadCastPluginManager init succ.[%s(%d)]");
    return true;
}

bool CBroadCastPluginManager::InitInMainThread() {
    BCAST_LOG(3, "[%s]Start to init in main thread.[%s(%d)]");
    CEFDataController::CEFDataMananger::SetLanguage(
        WUIControl::StringToQString(BusinessCommon::GetLanguage()));
    // The pages lie in share/bcast/web beside the module's lib directory (the build tree), else in the
    // installed data directory relative to the module's private library directory, unless the host or
    // $BCAST_WEB_DIR names another place.
    if (CEFDataController::CEFDataMananger::PageDirectory().isEmpty()) {
        const QString fromEnvironment = qEnvironmentVariable("BCAST_WEB_DIR");
        const QString moduleDir =
            WUIControl::GetTargetPath(reinterpret_cast<const void*>(&CBroadCastPluginManager::Instance));
        QString pages = QDir::cleanPath(moduleDir + QStringLiteral("../share/bcast/web"));
#ifdef BCAST_WEB_DIR_FROM_MODULE
        const QString installed = QDir::cleanPath(moduleDir + QStringLiteral(BCAST_WEB_DIR_FROM_MODULE));
        if (!QDir(pages).exists() && QDir(installed).exists()) {
            pages = installed;
        }
#endif
        CEFDataController::CEFDataMananger::SetPageDirectory(!fromEnvironment.isEmpty() ? fromEnvironment
                                                                                        : pages);
    }
    CEFDataController::CEFDataMananger::SetPageObjectFactory(&CreateWebPageObjects);
    CEFDataController::CEFDataMananger::InitCef();

    if (!CBroadcastController::Instance()->Init()) {
        BCAST_LOG(5, "[%s]Init CBroadcastController failed.[%s(%d)]");
        return false;
    }
    CPublishAPIManager::Instance()->Init();
    CBroadCastWgtManager::Instance()->Init();
    BCAST_LOG(3, "[%s]Finish to init in main thread.[%s(%d)]");
    return true;
}

bool CBroadCastPluginManager::UpdateFrame(int state) {
    BCAST_LOG(3, "[%s]CBroadCastPluginManager::UpdateFrame(const int state) state = %d[%s(%d)]", state);
    InitInMainThread();
    CBroadCastWgtManager::Instance()->RefreshFrame();
    BCAST_LOG(3, "[%s]Update frame finish.[%s(%d)]");
    return true;
}

void CBroadCastPluginManager::Notify(int nt) {
    BCAST_LOG(3, "[%s]CBroadCastPluginManager::Notify() nt=%d[%s(%d)]", nt);
    if (nt == 2) {
        if (CBroadcastController* controller = CBroadcastController::InstanceIfExists()) {
            controller->CleanCache();
        }
    }
}

bool CBroadCastPluginManager::NotifyPluginIsClosingAuxScreen(const std::string& menuId) {
    BCAST_LOG(3, "[%s]CBroadCastPluginManager::NotifyPluginIsClosingAuxScreen()  menu_id = %s[%s(%d)]",
              menuId.c_str());
    if (menuId == c_menu_real_broadcast_record_2) {
        recordPageOnAuxScreen = false;
        CWebRecordPage::NotifyAuxScreenClosing();
    }
    return true;
}

bool CBroadCastPluginManager::StopWorking() {
    BCAST_LOG(3, "[%s]Start CBroadCastPluginManager StopWorking...[%s(%d)]");
    if (CPublishAPIManager* api = WUIControl::CObjectSingleton<CPublishAPIManager>::InstanceIfExists()) {
        api->Uninit();
    }
    if (CBroadcastController* controller = CBroadcastController::InstanceIfExists()) {
        controller->StopWorking();
        controller->Unit();
    }
    CEFDataController::CEFDataMananger::UninitCef();
    if (CBroadCastWgtManager* ui = CBroadCastWgtManager::InstanceIfExists()) {
        ui->StopWorking();
    }
    BCAST_LOG(3, "[%s]Finish CBroadCastPluginManager StopWorking...[%s(%d)]");
    return true;
}

bool CBroadCastPluginManager::Uninit() {
    BCAST_LOG(3, "[%s]Start to Uninit CBroadCastPluginManager.[%s(%d)]");
    if (CBroadCastWgtManager* ui = CBroadCastWgtManager::InstanceIfExists()) {
        ui->Uninit();
    }
    if (!ORVVideoTool::UnInitVoiceEnvir()) {
        BCAST_LOG(5, "[%s]Uninit orvvideotool failed.[%s(%d)]");
        return false;
    }
    BCAST_LOG(3, "[%s]Succ to Uninit CBroadCastPluginManager.[%s(%d)]");
    return true;
}

bool CBroadCastPluginManager::GetWndHandle(void** handle) {
    if (handle == nullptr) {
        return false;
    }
    *handle = CBroadCastWgtManager::Instance()->GetBroadcastPanelHandle();
    return true;
}

void CBroadCastPluginManager::PopBroadcastPannel(const PopPannelParam& param) {
    CBroadCastWgtManager::Instance()->PopBroadcastPanel(param);
}

PopPannelParam CBroadCastPluginManager::ParsePopPannelJson(const std::string& json, void* caller) {
    NetworkCommunication::CRapidJsonProto doc;
    doc.set_str(json);  // malformed text reads as an empty request
    PopPannelParam param;
    param.type = doc.get_int_v("/BroadCast/Type", -1);
    param.dataItems = SplitAtCommas(doc.get_v("/BroadCast/data", ""));
    param.resourceNames = SplitAtCommas(doc.get_v("/BroadCast/ResourceName", ""));
    param.volume = doc.get_int_v("/BroadCast/Volume", -1);
    param.caller = caller;
    param.styleGiven = !doc.get_v("/BroadCast/BroadCastStyle", "").empty();
    return param;
}

void CBroadCastPluginManager::ResumeDownloadTask(BusinessCommon::CDownloadTaskBase* task) {
    if (task == nullptr) {
        return;
    }
    BusinessCommon::CDownloadTaskParam param = task->GetDownloadTaskParam();
    param.showRemainingTime = false;
    param.showSpeed = false;
    param.showPercentage = false;
    param.resumeXml.clear();
    param.openType = 1;
    param.pluginId = kPluginId;
    param.restartAllowed = false;
    if (param.IsValid()) {
        task->SetDownloadTaskParam(param, 0);
    }
}

bool CBroadCastPluginManager::IsBoradCastToolUIShow() const {
    QWidget* tool = CBroadcastToolUI::Instance()->GetToolPanel();
    if (tool != nullptr && tool->isVisible()) {
        return true;
    }
    CBroadCastWgtManager* ui = CBroadCastWgtManager::InstanceIfExists();
    return ui != nullptr && ui->IsModalDialogVisible();
}

}  // namespace BroadCastPlugin
