#pragma once
// UI side of the module: owns the site data and the panels, receives the controller's results on the main
// thread and hands them to each console.

#include <QObject>
#include <QPointer>

#include <memory>
#include <string>
#include <vector>

#include "BroadCastPlugin/common/BroadcastTypes.h"
#include "BroadCastPlugin/controller/BroadcastController/BroadcastMetaTypes.h"
#include "BroadCastPlugin/ui/PopPannelParam.h"
#include "BroadCastPlugin/ui/panels/BroadcastPanel.h"

class QTranslator;
class QWidget;

namespace BroadCastPlugin {

class CConsoleSite;

class CBroadCastWgtManager : public QObject {
    Q_OBJECT

public:
    static CBroadCastWgtManager* Instance();
    static CBroadCastWgtManager* InstanceIfExists();
    CBroadCastWgtManager();
    ~CBroadCastWgtManager() override;

    /// Installs the translation of the client's language, creates the panels that are still missing and
    /// connects the controller's results (unique connections, so repeating it adds none).
    bool Init();
    /// Disconnects the controller's results and destroys the panels.
    void Uninit();
    /// Hides the panels and stops what they run.
    void StopWorking();
    void RefreshFrame();

    /// The broadcast panel's window handle (the panel widget), creating the panel when missing.
    void* GetBroadcastPanelHandle();
    /// Opens the broadcast dialog for a request.
    void PopBroadcastPanel(const PopPannelParam& param);
    bool IsModalDialogVisible() const;

    CBroadcastPanel* GetBroadcastPanel() const { return panel_; }
    CBroadcastPopDialog* GetPopDialog() const { return popDialog_; }
    CConsoleSite* GetSite() const { return site_; }
    /// The last pop-panel request.
    PopPannelParam GetLastPopParam() const { return lastPop_; }

private slots:
    void OnSignalUpdateVersion(std::string data);
    void OnSignalDownloadResult(BroadCastPlugin::DownloadResourceState state,
                                Tal::Base::Error::ErrorCode error);
    void OnSignalBroadcastState(std::vector<BroadCastPlugin::IPSpeakerNotifyParam> params);
    void OnSignalTTSBroadcastState(std::vector<BroadCastPlugin::TTSResponseError> errors);
    void OnSignalStopBroadcast(std::string text, Tal::Base::Error::ErrorCode error, void* user);
    void OnSignalListenBroadcast(ResourceManager::ID id, Tal::Base::Error::ErrorCode error, void* user);
    void OnSignalStopListenBroadcast(Tal::Base::Error::ErrorCode error, void* user);
    void OnSignalDownloadFileToLocal(ResourceManager::ID id, Tal::Base::Error::ErrorCode error, void* user);
    void OnSignalSearchMediaFiles(std::vector<BroadCastPlugin::MediaFile> files,
                                  Tal::Base::Error::ErrorCode error);
    void OnSignalStartDeviceBroadcast(std::vector<ResourceManager::ID> ids,
                                      Tal::Base::Error::ErrorCode error);
    void OnSignalDeviceBroadcastState(BroadCastPlugin::DeviceNotifyParam param);

private:
    void EnsureWidgets();
    void InstallTranslation();
    /// The consoles that exist now.
    std::vector<CBroadcastConsole*> Consoles() const;

    QPointer<CConsoleSite> site_;
    QPointer<CBroadcastPanel> panel_;
    QPointer<CBroadcastPopDialog> popDialog_;
    std::unique_ptr<QTranslator> translator_;
    PopPannelParam lastPop_;
};

/// Holds the broadcast tool panel that other UI parts look at.
class CBroadcastToolUI {
public:
    static CBroadcastToolUI* Instance();
    void SetToolPanel(QWidget* panel) { toolPanel_ = panel; }
    QWidget* GetToolPanel() const { return toolPanel_; }

private:
    QPointer<QWidget> toolPanel_;
};

}  // namespace BroadCastPlugin
