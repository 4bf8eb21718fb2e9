#pragma once
// The module's exported C entry points: their names and signatures, shared by the module and its hosts.

#include <cstdint>
#include <string>

namespace BusinessCommon {
class CDownloadTaskBase;
}

#define BCAST_PLUGIN_EXPORT __attribute__((visibility("default")))

// X-macro of every export: X(name, return type, parameter list). Hosts resolve them by these names.
#define BCAST_PLUGIN_EXPORTS(X)                                                             \
    X(Init, bool, (const std::string& language, void* reserved))                            \
    X(Start, bool, ())                                                                      \
    X(UnInit, bool, ())                                                                     \
    X(StopWorking, bool, ())                                                                \
    X(GetWndHandle, bool, (void** handle, const std::string& menuId, void* reserved))       \
    X(WidgetOperate, bool, (void*, void*, void*))                                           \
    X(SystemConfigIsChanged, bool, (void*))                                                 \
    X(GeneralConfigChanged, void, (void*))                                                  \
    X(SaveSystemConfig, bool, (bool, void*, bool))                                          \
    X(StateRecoverNotify, bool, (int32_t))                                                  \
    X(UpdateFrame, bool, (int32_t state))                                                   \
    X(StopToSaveData, bool, (int32_t))                                                      \
    X(TitleButtonEvent, void, (void*, int32_t, void*))                                      \
    X(GetAuxiliaryScreenNum, void, (void*, void*))                                          \
    X(Notify, void, (int32_t nt))                                                           \
    X(SwitchMenu, void, (void*, int32_t))                                                   \
    X(LayoutChange, void, (void*))                                                          \
    X(OpenPopWindow, void, (const std::string& menuId, void* reserved))                     \
    X(NotifyPluginIsClosingAuxScreen, bool, (const std::string& menuId, int32_t))           \
    X(NotifyConsoleModifyState, void, (int32_t, int32_t))                                   \
    X(GetConsoleDataToSave, bool, (void*))                                                  \
    X(RecoverConsoleFromDataSaved, bool, (void*))                                           \
    X(CreatePlayIdByDragData, bool, (void*, int32_t, int32_t))                              \
    X(NotifyConsoleAssociatedMenuVisible, void, (int32_t, bool, void*))                     \
    X(NotifyConsoleRightWidgetVisible, void, (int32_t, bool))                               \
    X(GetLastErrorInfo, void, (void*))                                                      \
    X(PopBroadcastPannel, void, (const std::string& json, void* caller))                    \
    X(ResumeDownloadTask, void, (BusinessCommon::CDownloadTaskBase * task, void* reserved)) \
    X(IsBoradCastToolUIShow, bool, ())

/// Function pointer types, one per export: BcastPluginFn_Init, BcastPluginFn_Start, ...
#define BCAST_DECLARE_EXPORT_TYPE(name, ret, params) using BcastPluginFn_##name = ret(*) params;
BCAST_PLUGIN_EXPORTS(BCAST_DECLARE_EXPORT_TYPE)
#undef BCAST_DECLARE_EXPORT_TYPE

/// Number of exported entry points.
constexpr int kBcastPluginExportCount = 29;
