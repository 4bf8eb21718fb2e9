// The exported C entry points: each forwards to the lifecycle manager or answers on its own.

#include "BroadCastPlugin/BroadCastPluginExports.h"
#include "BroadCastPlugin/BroadCastPluginManager.h"
#include "BroadCastPlugin/BroadcastNames.h"

#include <type_traits>

using BroadCastPlugin::CBroadCastPluginManager;

extern "C" {

BCAST_PLUGIN_EXPORT bool Init(const std::string& language, void* /*reserved*/) {
    return CBroadCastPluginManager::Instance()->Init(language);
}

BCAST_PLUGIN_EXPORT bool Start() {
    return CBroadCastPluginManager::Instance()->InitInMainThread();
}

BCAST_PLUGIN_EXPORT bool UnInit() {
    return CBroadCastPluginManager::Instance()->Uninit();
}

BCAST_PLUGIN_EXPORT bool StopWorking() {
    return CBroadCastPluginManager::Instance()->StopWorking();
}

BCAST_PLUGIN_EXPORT bool GetWndHandle(void** handle, const std::string& menuId, void* /*reserved*/) {
    if (menuId != BroadCastPlugin::c_menu_panel_tool_broadcast_1) {
        return false;
    }
    return CBroadCastPluginManager::Instance()->GetWndHandle(handle);
}

BCAST_PLUGIN_EXPORT bool WidgetOperate(void*, void*, void*) {
    return false;
}

BCAST_PLUGIN_EXPORT bool SystemConfigIsChanged(void*) {
    return false;
}

BCAST_PLUGIN_EXPORT void GeneralConfigChanged(void*) {}

BCAST_PLUGIN_EXPORT bool SaveSystemConfig(bool, void*, bool) {
    return true;
}

BCAST_PLUGIN_EXPORT bool StateRecoverNotify(int32_t) {
    return true;
}

BCAST_PLUGIN_EXPORT bool UpdateFrame(int32_t state) {
    return CBroadCastPluginManager::Instance()->UpdateFrame(state);
}

BCAST_PLUGIN_EXPORT bool StopToSaveData(int32_t) {
    return true;
}

BCAST_PLUGIN_EXPORT void TitleButtonEvent(void*, int32_t, void*) {}

BCAST_PLUGIN_EXPORT void GetAuxiliaryScreenNum(void*, void*) {}

BCAST_PLUGIN_EXPORT void Notify(int32_t nt) {
    CBroadCastPluginManager::Instance()->Notify(nt);
}

BCAST_PLUGIN_EXPORT void SwitchMenu(void*, int32_t) {}

BCAST_PLUGIN_EXPORT void LayoutChange(void*) {}

BCAST_PLUGIN_EXPORT void OpenPopWindow(const std::string& menuId, void* /*reserved*/) {
    if (menuId == BroadCastPlugin::c_menu_panel_tool_broadcast_1) {
        CBroadCastPluginManager::Instance()->PopBroadcastPannel(BroadCastPlugin::PopPannelParam());
    }
}

BCAST_PLUGIN_EXPORT bool NotifyPluginIsClosingAuxScreen(const std::string& menuId, int32_t) {
    return CBroadCastPluginManager::Instance()->NotifyPluginIsClosingAuxScreen(menuId);
}

BCAST_PLUGIN_EXPORT void NotifyConsoleModifyState(int32_t, int32_t) {}

BCAST_PLUGIN_EXPORT bool GetConsoleDataToSave(void*) {
    return true;
}

BCAST_PLUGIN_EXPORT bool RecoverConsoleFromDataSaved(void*) {
    return true;
}

BCAST_PLUGIN_EXPORT bool CreatePlayIdByDragData(void*, int32_t, int32_t) {
    return true;
}

BCAST_PLUGIN_EXPORT void NotifyConsoleAssociatedMenuVisible(int32_t, bool, void*) {}

BCAST_PLUGIN_EXPORT void NotifyConsoleRightWidgetVisible(int32_t, bool) {}

BCAST_PLUGIN_EXPORT void GetLastErrorInfo(void*) {}

BCAST_PLUGIN_EXPORT void PopBroadcastPannel(const std::string& json, void* caller) {
    CBroadCastPluginManager* manager = CBroadCastPluginManager::Instance();
    manager->PopBroadcastPannel(CBroadCastPluginManager::ParsePopPannelJson(json, caller));
}

BCAST_PLUGIN_EXPORT void ResumeDownloadTask(BusinessCommon::CDownloadTaskBase* task, void* /*reserved*/) {
    CBroadCastPluginManager::ResumeDownloadTask(task);
}

BCAST_PLUGIN_EXPORT bool IsBoradCastToolUIShow() {
    return CBroadCastPluginManager::Instance()->IsBoradCastToolUIShow();
}

}  // extern "C"

// Every export above must match the shared signature table exactly.
#define BCAST_CHECK_EXPORT(name, ret, params) \
    static_assert(std::is_same<decltype(&name), ret(*) params>::value, #name);
BCAST_PLUGIN_EXPORTS(BCAST_CHECK_EXPORT)
#undef BCAST_CHECK_EXPORT
