#pragma once
// The operator's console: the speaker tree on the left, one tab per kind of broadcast on the right, the
// prompts and a log of what happened below. The broadcast panel and the pop-up dialog each hold one.

#include <QWidget>

#include <vector>

#include "BroadCastPlugin/ui/model/ConsoleSite.h"
#include "BroadCastPlugin/ui/panels/ConsoleContext.h"

class QLabel;
class QListWidget;
class QPushButton;
class QTabWidget;

namespace BroadCastPlugin {

class CPromptBar;
class CSpeakerPicker;
class CTalkTab;
class CFileTab;
class CTextTab;
class CListenTab;
class CDeviceTab;

class CBroadcastConsole : public QWidget, public IConsoleContext {
    Q_OBJECT

public:
    enum Tab { kTabTalk = 0, kTabFile, kTabText, kTabListen, kTabDevice };

    CBroadcastConsole(CConsoleSite* site, QWidget* parent = nullptr);
    ~CBroadcastConsole() override;

    // IConsoleContext
    std::vector<int32_t> Targets() const override;
    CSpeakerTreeModel* Speakers() const override { return model_; }
    const ConsoleSiteData& Site() const override;
    void Prompt(const char* level, const QString& text) override;
    void Log(const QString& line) override;
    void* RequestTag() override { return this; }
    ConsoleActivity Activity() const override { return activity_; }
    void SetActivity(ConsoleActivity activity) override;
    bool StopBroadcast() override;

    // The controller's results, as the UI manager hands them on.
    void OnResourceDownload(DownloadResourceState state, const ErrorCode& error);
    void OnBroadcastState(const std::vector<IPSpeakerNotifyParam>& events);
    void OnTTSState(const std::vector<TTSResponseError>& errors);
    void OnStopBroadcast(const ErrorCode& error, void* user);
    void OnListen(ResourceManager::ID id, const ErrorCode& error, void* user);
    void OnStopListen(const ErrorCode& error, void* user);
    void OnDownloadFile(ResourceManager::ID id, const ErrorCode& error, void* user);
    void OnSearchMediaFiles(const std::vector<MediaFile>& files, const ErrorCode& error);
    void OnStartDeviceBroadcast(const std::vector<ResourceManager::ID>& ids, const ErrorCode& error);
    void OnDeviceBroadcastState(const DeviceNotifyParam& param);

    /// Stops everything this console runs: the broadcast, the listen and the device talk.
    void StopAll();
    void ShowTab(Tab tab);
    /// Hides the speaker tree's partitions and speakers other than these (empty: all shown).
    void ShowOnly(const std::vector<int32_t>& ids);

    void AppendEvent(const QString& text);
    void SetStatus(const QString& text);
    int EventCount() const;
    QStringList Events() const;

    CSpeakerPicker* Picker() const { return picker_; }
    CPromptBar* PromptBar() const { return prompt_; }
    QTabWidget* Tabs() const { return tabs_; }
    CTalkTab* TalkTab() const { return talk_; }
    CFileTab* FileTab() const { return file_; }
    CTextTab* TextTab() const { return text_; }
    CListenTab* ListenTab() const { return listen_; }
    CDeviceTab* DeviceTab() const { return device_; }

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;
    /// Shown for the first time: the site is downloaded when it is not loaded yet.
    void showEvent(QShowEvent* event) override;

private:
    /// The status bar's text for a running activity.
    static QString ActivityText(ConsoleActivity activity);
    void OnSiteChanged();
    void RefreshAll();
    std::vector<IConsoleTab*> AllTabs() const;

    CConsoleSite* site_;
    CSpeakerTreeModel* model_;
    CSpeakerPicker* picker_;
    QTabWidget* tabs_;
    CTalkTab* talk_;
    CFileTab* file_;
    CTextTab* text_;
    CListenTab* listen_;
    CDeviceTab* device_;
    QPushButton* stopAll_;
    QLabel* status_;
    QLabel* user_;
    CPromptBar* prompt_;
    QListWidget* events_;
    ConsoleActivity activity_ = ConsoleActivity::None;
    bool stopRequested_ = false;
};

}  // namespace BroadCastPlugin
