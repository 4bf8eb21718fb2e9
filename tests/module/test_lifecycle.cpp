#include <gtest/gtest.h>

#include <QApplication>
#include <QWidget>

#include "BroadCastPlugin/BroadCastPluginManager.h"
#include "BroadCastPlugin/BroadcastNames.h"
#include "BroadCastPlugin/BroadcastUi.h"
#include "BroadCastPlugin/controller/BroadcastController/BroadcastController.h"
#include "BroadCastPlugin/controller/PublishAPI/PublishAPIManager.h"
#include "BroadCastPlugin/ui/BroadCastWgtManager.h"
#include "framework/base/FormatLog.h"
#include "framework/business/DownloadTask.h"
#include "framework/business/PluginCommManager.h"
#include "framework/clientframe/FrameworkManagerInterface.h"
#include "framework/media/videotool/VideoTool.h"
#include "framework/netcomm/NetlibWrapper.h"
#include "framework/webengine/CEFDataManager.h"
#include "support/QtWait.h"

using namespace BroadCastPlugin;
using BcastTest::Settle;
using BcastTest::WaitFor;
using Tal::Base::CLogCapture;

namespace {
CBroadCastPluginManager* Manager() {
    return CBroadCastPluginManager::Instance();
}
}  // namespace

// The tests of this file share the process-wide lifecycle, so they run as one ordered story.
TEST(Lifecycle, StagesStopAndUnloadInOrder) {
    CLogCapture log;

    // Before anything: Notify(2) has no controller to clean, and a stop with nothing started succeeds.
    Manager()->Notify(2);
    EXPECT_EQ(CBroadcastController::InstanceIfExists(), nullptr);
    EXPECT_FALSE(log.Contains("Start clean cache."));
    EXPECT_TRUE(log.Contains("CBroadCastPluginManager::Notify() nt=2", 3));
    CEFDataController::CEFDataMananger::InitCef();
    EXPECT_TRUE(Manager()->StopWorking());
    EXPECT_FALSE(CEFDataController::CEFDataMananger::IsCefInit()) << "the web engine is stopped even so";
    EXPECT_TRUE(log.Contains("Finish CBroadCastPluginManager StopWorking...", 3));

    // Stage 1 reads the network level from the client configuration and brings the voice environment up.
    TalClientFrameWork::CFrameworkManagerInterface::Instance()->SetClientConfig(
        R"({"SysConfig":{"NetOvertime":2}})");
    ASSERT_TRUE(Manager()->Init("zh_CN"));
    EXPECT_EQ(NetworkCommunication::NetlibWrapper::GetTimeoutFacotor(),
              NetworkCommunication::NetlibWrapper::kTimeoutLong);
    EXPECT_TRUE(ORVVideoTool::IsVoiceEnvirInit());
    EXPECT_TRUE(log.Contains("CBroadCastPluginManager init succ.", 3));

    // Stage 2, then UpdateFrame twice: one controller, one panel, one connection per signal.
    ASSERT_TRUE(Manager()->InitInMainThread());
    CBroadcastController* controller = CBroadcastController::InstanceIfExists();
    ASSERT_NE(controller, nullptr);
    EXPECT_TRUE(controller->IsInit());
    EXPECT_EQ(CEFDataController::CEFDataMananger::GetLanguage(), "zh_CN");
    CBroadCastWgtManager* ui = CBroadCastWgtManager::InstanceIfExists();
    ASSERT_NE(ui, nullptr);
    CBroadcastPanel* panel = ui->GetBroadcastPanel();
    ASSERT_NE(panel, nullptr);
    ASSERT_TRUE(Manager()->UpdateFrame(5));
    ASSERT_TRUE(Manager()->UpdateFrame(6));
    EXPECT_TRUE(log.Contains("CBroadCastPluginManager::UpdateFrame(const int state) state = 6", 3));
    EXPECT_EQ(CBroadcastController::InstanceIfExists(), controller);
    EXPECT_EQ(ui->GetBroadcastPanel(), panel);
    int panels = 0;
    for (QWidget* w : QApplication::allWidgets()) {
        panels += w->objectName() == "BroadcastPanel" ? 1 : 0;
    }
    EXPECT_EQ(panels, 1);

    // One emitted result reaches the panel once and a registered plugin once.
    std::vector<std::string> pluginMessages;
    auto* bus = BusinessCommon::CPluginCommManager::Instance();
    bus->RegisterMessageReceiver(
        "listener.c", [&](const std::string&, const std::string& m) { pluginMessages.push_back(m); });
    std::string response;
    ASSERT_TRUE(bus->CallMethod("/API/Broadcast/V0/RegisterMessageCallback",
                                R"({"IsRegister":true,"PluginID":"listener.c"})", response));
    const int before = panel->EventCount();
    emit controller->SignalDownloadResult(DownloadResourceFinish, ErrorCode());
    ASSERT_TRUE(WaitFor([&] { return panel->EventCount() > before; }));
    Settle(50);
    EXPECT_EQ(panel->EventCount(), before + 1) << "repeated stage 2 added no connection";
    ASSERT_EQ(pluginMessages.size(), 1u);
    EXPECT_EQ(pluginMessages[0], R"({"Method":3})");

    // Notify(2) now cleans the caches; other values never do.
    log.Clear();
    Manager()->Notify(1);
    Manager()->Notify(3);
    EXPECT_FALSE(log.Contains("Start clean cache."));
    Manager()->Notify(2);
    EXPECT_TRUE(log.Contains("Start clean cache.", 3));

    // Panel handle, pop requests and the tool-panel query.
    void* handle = reinterpret_cast<void*>(0x1);
    EXPECT_TRUE(Manager()->GetWndHandle(&handle));
    EXPECT_EQ(handle, static_cast<void*>(static_cast<QWidget*>(panel)));
    EXPECT_FALSE(Manager()->IsBoradCastToolUIShow());
    panel->show();
    EXPECT_TRUE(Manager()->IsBoradCastToolUIShow());
    panel->hide();
    Manager()->PopBroadcastPannel(CBroadCastPluginManager::ParsePopPannelJson("{}", nullptr));
    EXPECT_TRUE(Manager()->IsBoradCastToolUIShow()) << "the pop dialog counts";
    EXPECT_EQ(ui->GetLastPopParam().type, -1);

    // Stop: the API goes away, the loops stop, the web engine and panels stop.
    bus->UnRegisterMessageReceiver("listener.c");
    EXPECT_TRUE(Manager()->StopWorking());
    EXPECT_FALSE(bus->HasMethod("/API/Broadcast/V0/WorkState"));
    EXPECT_FALSE(controller->IsInit());
    EXPECT_FALSE(CEFDataController::CEFDataMananger::IsCefInit());
    EXPECT_FALSE(Manager()->IsBoradCastToolUIShow());

    // Unload: panels destroyed, voice environment released once; a second release is reported.
    EXPECT_TRUE(Manager()->Uninit());
    EXPECT_EQ(ui->GetBroadcastPanel(), nullptr);
    EXPECT_TRUE(log.Contains("Succ to Uninit CBroadCastPluginManager.", 3));
    EXPECT_FALSE(Manager()->Uninit());
    EXPECT_TRUE(log.Contains("Uninit orvvideotool failed.", 5));
    TalClientFrameWork::CFrameworkManagerInterface::Instance()->SetClientConfig("{}");
}

TEST(Lifecycle, StageOnePassesAMissingNetworkLevelOnUnchanged) {
    CLogCapture log;
    // Without a client configuration the network level reads -1 and is passed on unchanged.
    TalClientFrameWork::CFrameworkManagerInterface::Instance()->SetClientConfig("{}");
    ASSERT_TRUE(Manager()->Init("en_US"));
    EXPECT_EQ(static_cast<int>(NetworkCommunication::NetlibWrapper::GetTimeoutFacotor()), -1);
    EXPECT_TRUE(Manager()->Uninit());
}

TEST(Lifecycle, PopPanelJsonKeysAndMenuIds) {
    PopPannelParam empty = CBroadCastPluginManager::ParsePopPannelJson("{}", nullptr);
    EXPECT_EQ(empty.type, -1);
    EXPECT_TRUE(empty.dataItems.empty());
    EXPECT_TRUE(empty.resourceNames.empty());
    EXPECT_EQ(empty.volume, -1);
    EXPECT_FALSE(empty.styleGiven);

    int caller = 0;
    PopPannelParam full = CBroadCastPluginManager::ParsePopPannelJson(
        R"({"BroadCast":{"Type":2,"data":"11,12,,13","ResourceName":"Gate","Volume":70,"BroadCastStyle":"dark",)"
        R"("Data":"ignored"}})",
        &caller);
    EXPECT_EQ(full.type, 2);
    EXPECT_EQ(full.dataItems, (std::vector<std::string>{"11", "12", "", "13"}));
    EXPECT_EQ(full.resourceNames, (std::vector<std::string>{"Gate"}));
    EXPECT_EQ(full.volume, 70);
    EXPECT_EQ(full.caller, &caller);
    EXPECT_TRUE(full.styleGiven);

    PopPannelParam capitalData =
        CBroadCastPluginManager::ParsePopPannelJson(R"({"BroadCast":{"Data":"1"}})", nullptr);
    EXPECT_TRUE(capitalData.dataItems.empty()) << "the key is lower-case data";
    PopPannelParam malformed = CBroadCastPluginManager::ParsePopPannelJson("{not json", nullptr);
    EXPECT_EQ(malformed.type, -1);
    PopPannelParam wrongTypes =
        CBroadCastPluginManager::ParsePopPannelJson(R"({"BroadCast":{"Type":"2","Volume":true}})", nullptr);
    EXPECT_EQ(wrongTypes.type, -1);
    EXPECT_EQ(wrongTypes.volume, -1);

    recordPageOnAuxScreen = true;
    EXPECT_TRUE(Manager()->NotifyPluginIsClosingAuxScreen(c_menu_real_broadcast_record_1));
    EXPECT_TRUE(recordPageOnAuxScreen);
    EXPECT_TRUE(Manager()->NotifyPluginIsClosingAuxScreen("unknown"));
    EXPECT_TRUE(Manager()->NotifyPluginIsClosingAuxScreen(c_menu_real_broadcast_record_2));
    EXPECT_FALSE(recordPageOnAuxScreen);
}

TEST(Lifecycle, ResumeDownloadTaskRearmsOnlyValidTasks) {
    BusinessCommon::CDownloadTaskBase task;
    BusinessCommon::CDownloadTaskParam param;
    param.taskName = "bell";
    param.savePath = "/data/Audio/bell.mp3";
    param.resumeXml = "<x/>";
    param.pluginId = "other.c";
    task.SetDownloadTaskParam(param, 0);
    CBroadCastPluginManager::ResumeDownloadTask(&task);
    auto rearmed = task.GetDownloadTaskParam();
    EXPECT_EQ(rearmed.pluginId, "broadcast.c");
    EXPECT_EQ(rearmed.openType, 1);
    EXPECT_TRUE(rearmed.resumeXml.empty());
    EXPECT_FALSE(rearmed.showRemainingTime || rearmed.showSpeed || rearmed.showPercentage ||
                 rearmed.restartAllowed);
    EXPECT_EQ(rearmed.taskName, "bell");

    BusinessCommon::CDownloadTaskBase invalid;  // no save path: left as it is
    CBroadCastPluginManager::ResumeDownloadTask(&invalid);
    EXPECT_TRUE(invalid.GetDownloadTaskParam().pluginId.empty());
    CBroadCastPluginManager::ResumeDownloadTask(nullptr);
}
