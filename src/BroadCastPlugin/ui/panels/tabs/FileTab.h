#pragma once
// Playing a file to the chosen speakers: the platform's media library (directories and files, searched by
// the platform) or a local WAV or MP3 file; a library file is downloaded to the local audio cache first,
// with a download prompt; the play shows its progress through the file and ends by itself.

#include <QElapsedTimer>
#include <QWidget>

#include <set>

#include "BroadCastPlugin/ui/panels/tabs/BroadcastTab.h"

class QLabel;
class QLineEdit;
class QProgressBar;
class QPushButton;
class QTimer;
class QTreeWidget;
class QTreeWidgetItem;

namespace BroadCastPlugin {

class CFileTab : public CBroadcastTab {
    Q_OBJECT

public:
    explicit CFileTab(IConsoleContext* context, QWidget* parent = nullptr);

    void RefreshControls() override;
    void OnSiteChanged() override;
    void OnBroadcastStopped() override;
    void OnDownloadResult(int32_t fileId, const ErrorCode& error, void* user);
    void OnSearchResult(const std::vector<MediaFile>& files, const ErrorCode& error);

    /// Chooses a library file (as clicking it does); false when it is not listed.
    bool ChooseMediaFile(int32_t fileId);
    /// Chooses a local file (as the file dialog does).
    void ChooseLocalFile(const QString& path);

private:
    void OnOwnBroadcastEvents(const std::vector<IPSpeakerNotifyParam>& events) override;
    void BuildLayout();
    void ConnectControls();
    void FillLibrary(const std::vector<MediaFile>& files, bool searchResult);
    void Download();
    void Play();
    void StartPlay(const QString& path);
    void OnTick();
    /// Shows the download's progress while it runs.
    void OnDownloadTick();
    int DurationMs() const;

    QLineEdit* search_;
    QPushButton* searchButton_;
    QPushButton* showAll_;
    QTreeWidget* library_;
    QPushButton* localButton_;
    QLabel* source_;
    QPushButton* download_;
    QProgressBar* downloadProgress_;
    QPushButton* play_;
    QPushButton* stop_;
    QProgressBar* progress_;
    QLabel* state_;
    QTimer* ticker_;
    QTimer* downloadTicker_;
    QElapsedTimer since_;

    int32_t mediaId_ = -1;      ///< chosen library file, -1 for none
    QString localPath_;         ///< the file that plays: a local file or the library file's cached copy
    int mediaDurationMs_ = -1;  ///< from the library record
    int32_t downloading_ = -1;  ///< library file being downloaded
    bool playAfterDownload_ = false;
    std::set<int32_t> pendingResults_;  ///< speakers whose end of play is awaited
    int failures_ = 0;
};

}  // namespace BroadCastPlugin
