#include "BroadCastPlugin/ui/panels/tabs/FileTab.h"

#include <QFileDialog>
#include <QFileInfo>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QTimer>
#include <QTreeWidget>
#include <QVBoxLayout>

#include <functional>
#include <map>

#include "BroadCastPlugin/BroadcastUi.h"
#include "BroadCastPlugin/controller/BroadcastController/BroadcastController.h"
#include "BroadCastPlugin/logical/MediaFileComm/BroadcastMediaFile.h"
#include "BroadCastPlugin/logical/VoiceProcess/VoiceEncode/AudioFileInspect.h"
#include "BroadCastPlugin/ui/widgets/WidgetKit.h"

namespace BroadCastPlugin {

namespace {
constexpr int kFileIdRole = Qt::UserRole + 1;

QString Seconds(int seconds) {
    return seconds < 0 ? QString()
                       : QStringLiteral("%1:%2").arg(seconds / 60).arg(seconds % 60, 2, 10, QLatin1Char('0'));
}
}  // namespace

CFileTab::CFileTab(IConsoleContext* context, QWidget* parent)
    : CBroadcastTab(context, ConsoleActivity::File, parent),
      search_(SearchField("MediaSearch", tr("Search the media library"), this)),
      searchButton_(Named("MediaSearchButton", new QPushButton(tr("Search"), this))),
      showAll_(Named("MediaShowAll", new QPushButton(tr("Show all"), this))),
      library_(Named("MediaLibrary", new QTreeWidget(this))),
      localButton_(Named("LocalFileButton", new QPushButton(tr("Local file..."), this))),
      source_(WrappingLabel("FileSource", this)),
      download_(Named("DownloadButton", new QPushButton(tr("Download"), this))),
      downloadProgress_(Named("DownloadProgress", new QProgressBar(this))),
      play_(Named("PlayFileButton", new QPushButton(tr("Play"), this))),
      stop_(Named("StopFileButton", new QPushButton(tr("Stop"), this))),
      progress_(Named("FileProgress", new QProgressBar(this))),
      state_(WrappingLabel("FileState", this)),
      ticker_(new QTimer(this)),
      downloadTicker_(new QTimer(this)) {
    setObjectName("FileTab");
    BuildLayout();
    ConnectControls();
    RefreshControls();
}

void CFileTab::BuildLayout() {
    library_->setHeaderLabels({tr("Name"), tr("Format"), tr("Duration"), tr("Size")});
    library_->header()->setStretchLastSection(false);
    library_->header()->setSectionResizeMode(0, QHeaderView::Stretch);
    for (int column = 1; column < 4; ++column) {
        library_->header()->setSectionResizeMode(column, QHeaderView::ResizeToContents);
    }
    library_->setAccessibleName(tr("Media library"));
    downloadProgress_->setRange(0, 0);
    downloadProgress_->setMaximumHeight(18);
    downloadProgress_->setTextVisible(false);
    downloadProgress_->hide();
    progress_->setRange(0, 1000);
    progress_->setValue(0);
    progress_->setTextVisible(false);

    auto* layout = new QVBoxLayout(this);
    AddRow(layout, QString(), {search_, searchButton_, showAll_}, search_);
    layout->addWidget(library_, 1);
    AddRow(layout, QString(), {localButton_, source_, download_}, source_);
    layout->addWidget(downloadProgress_);
    AddRow(layout, QString(), {play_, stop_, progress_}, progress_);
    layout->addWidget(state_);
}

void CFileTab::ConnectControls() {
    connect(searchButton_, &QPushButton::clicked, this, [this] {
        const QString text = search_->text().trimmed();
        if (text.isEmpty()) {
            FillLibrary(context_->Site().files, false);
            return;
        }
        if (!CBroadcastController::Instance()->AsyncSearchMediaFile(text.toStdString())) {
            context_->Prompt(kMessageLevelDanger, tr("The media library cannot be searched now."));
        }
    });
    connect(search_, &QLineEdit::returnPressed, searchButton_, &QPushButton::click);
    connect(showAll_, &QPushButton::clicked, this, [this] {
        search_->clear();
        FillLibrary(context_->Site().files, false);
    });
    connect(library_, &QTreeWidget::currentItemChanged, this, [this](QTreeWidgetItem* item) {
        if (item != nullptr && item->data(0, kFileIdRole).isValid()) {
            ChooseMediaFile(item->data(0, kFileIdRole).toInt());
        }
    });
    connect(localButton_, &QPushButton::clicked, this, [this] {
        const QString path = QFileDialog::getOpenFileName(this, tr("Choose an audio file"), QString(),
                                                          tr("Audio files (*.wav *.mp3)"));
        if (!path.isEmpty()) {
            ChooseLocalFile(path);
        }
    });
    connect(download_, &QPushButton::clicked, this, &CFileTab::Download);
    connect(play_, &QPushButton::clicked, this, &CFileTab::Play);
    connect(stop_, &QPushButton::clicked, this, [this] { context_->StopBroadcast(); });
    ticker_->setInterval(100);
    connect(ticker_, &QTimer::timeout, this, &CFileTab::OnTick);
    downloadTicker_->setInterval(100);
    connect(downloadTicker_, &QTimer::timeout, this, &CFileTab::OnDownloadTick);
}

void CFileTab::OnDownloadTick() {
    const MediaDownloadProgress progress = CMediaFileManager::Instance()->GetDownloadProgress();
    if (progress.fileID != downloading_ || progress.total == 0) {
        return;  // not started yet, or the size is not known: the bar stays busy
    }
    downloadProgress_->setRange(0, 1000);
    downloadProgress_->setTextVisible(true);
    downloadProgress_->setValue(
        static_cast<int>(std::min<uint64_t>(1000, progress.done * 1000 / progress.total)));
    downloadProgress_->setFormat(
        tr("%1 of %2 KB").arg(progress.done / 1024).arg((progress.total + 1023) / 1024));
}

void CFileTab::OnSiteChanged() {
    if (search_->text().trimmed().isEmpty()) {
        FillLibrary(context_->Site().files, false);
    }
    RefreshControls();
}

void CFileTab::FillLibrary(const std::vector<MediaFile>& files, bool searchResult) {
    library_->clear();
    std::map<int32_t, QTreeWidgetItem*> directoryItems;
    // The directories as one list (the cache may nest them), then placed parents first.
    std::vector<MediaDirectory> pending;
    std::function<void(const std::vector<MediaDirectory>&)> collect =
        [&](const std::vector<MediaDirectory>& list) {
            for (const MediaDirectory& directory : list) {
                pending.push_back(directory);
                collect(directory.Children);
            }
        };
    collect(context_->Site().directories);
    for (bool progress = true; progress && !searchResult;) {
        progress = false;
        for (const MediaDirectory& directory : pending) {
            if (directoryItems.count(directory.ID) != 0) {
                continue;
            }
            QTreeWidgetItem* parent = nullptr;
            if (directory.ParentID > 0) {
                auto found = directoryItems.find(directory.ParentID);
                if (found == directoryItems.end()) {
                    continue;
                }
                parent = found->second;
            }
            auto* item = parent != nullptr ? new QTreeWidgetItem(parent) : new QTreeWidgetItem(library_);
            item->setText(0, QString::fromStdString(directory.Name));
            item->setFlags(Qt::ItemIsEnabled);
            directoryItems[directory.ID] = item;
            progress = true;
        }
    }
    for (const MediaFile& file : files) {
        auto found = directoryItems.find(file.ParentID);
        auto* item = found != directoryItems.end() ? new QTreeWidgetItem(found->second)
                                                   : new QTreeWidgetItem(library_);
        item->setText(0, QString::fromStdString(file.Name));
        item->setText(1, QString::fromStdString(file.Format));
        item->setText(2, Seconds(file.Duration));
        item->setText(3, file.Size < 0 ? QString() : QStringLiteral("%1 KB").arg(file.Size));
        item->setData(0, kFileIdRole, file.ID);
        if (file.ID == mediaId_) {
            library_->setCurrentItem(item);
        }
    }
    library_->expandAll();
}

bool CFileTab::ChooseMediaFile(int32_t fileId) {
    MediaFile file;
    if (!CBroadcastController::Instance()->GetMediaFile(fileId, file)) {
        return false;
    }
    mediaId_ = fileId;
    mediaDurationMs_ = file.Duration >= 0 ? file.Duration * 1000 : -1;
    localPath_ = QFileInfo::exists(QString::fromStdString(file.LocalPath))
                     ? QString::fromStdString(file.LocalPath)
                     : QString();
    source_->setText(tr("Library: %1.%2%3")
                         .arg(QString::fromStdString(file.Name), QString::fromStdString(file.Format),
                              localPath_.isEmpty() ? tr(" (not downloaded)") : tr(" (downloaded)")));
    RefreshControls();
    return true;
}

void CFileTab::ChooseLocalFile(const QString& path) {
    mediaId_ = -1;
    localPath_ = path;
    const int wavMs = GetWavDuration(path.toStdString());
    mediaDurationMs_ = wavMs > 0 ? wavMs : -1;
    library_->setCurrentItem(nullptr);
    source_->setText(tr("Local file: %1").arg(QFileInfo(path).fileName()));
    RefreshControls();
}

void CFileTab::Download() {
    if (mediaId_ < 0 || downloading_ >= 0) {
        return;
    }
    if (!CBroadcastController::Instance()->AsyncDownloadFileToLocal(
            static_cast<ResourceManager::ID>(mediaId_), context_->RequestTag())) {
        context_->Prompt(kMessageLevelDanger, tr("The download could not be started."));
        return;
    }
    downloading_ = mediaId_;
    downloadProgress_->setRange(0, 0);
    downloadProgress_->setTextVisible(false);
    downloadProgress_->show();
    downloadTicker_->start();
    context_->Prompt(kMessageLevelInfo,
                     tr("Downloading %1 to the local audio cache...").arg(source_->text()));
    RefreshControls();
}

void CFileTab::OnDownloadResult(int32_t fileId, const ErrorCode& error, void* user) {
    if (user != context_->RequestTag() || fileId != downloading_) {
        return;
    }
    downloading_ = -1;
    downloadTicker_->stop();
    downloadProgress_->hide();
    const bool play = playAfterDownload_;
    playAfterDownload_ = false;
    if (!error.IsSucceed()) {
        context_->Prompt(kMessageLevelDanger, tr("The download failed: %1").arg(ErrorText(error)));
        RefreshControls();
        return;
    }
    ChooseMediaFile(fileId);
    context_->Prompt(kMessageLevelSuccess, tr("Downloaded to the local audio cache."));
    if (play && !localPath_.isEmpty()) {
        StartPlay(localPath_);
    }
    RefreshControls();
}

void CFileTab::OnSearchResult(const std::vector<MediaFile>& files, const ErrorCode& error) {
    if (!error.IsSucceed()) {
        context_->Prompt(kMessageLevelDanger, tr("The search failed: %1").arg(ErrorText(error)));
        return;
    }
    FillLibrary(files, true);
    context_->Prompt(kMessageLevelInfo, tr("%n files found.", nullptr, static_cast<int>(files.size())));
}

void CFileTab::Play() {
    if (context_->Targets().empty()) {
        context_->Prompt(kMessageLevelRemind, tr("Choose the speakers to play to first."));
        return;
    }
    if (!localPath_.isEmpty()) {
        StartPlay(localPath_);
    } else if (mediaId_ >= 0) {
        playAfterDownload_ = true;
        Download();
    }
}

void CFileTab::StartPlay(const QString& path) {
    if (context_->Activity() != ConsoleActivity::None || !context_->Site().rights.broadcast) {
        return;
    }
    const std::vector<int32_t> targets = context_->Targets();
    context_->Speakers()->ResetStates(true);
    IPSpeakBroadcastParam param;
    param.elementIDs = targets;
    if (!CBroadcastController::Instance()->AsyncStartPlayAudioFile(param, path.toStdString(),
                                                                   context_->RequestTag())) {
        context_->Prompt(kMessageLevelDanger, tr("The file could not be played."));
        return;
    }
    pendingResults_ = std::set<int32_t>(targets.begin(), targets.end());
    failures_ = 0;
    context_->SetActivity(ConsoleActivity::File);
    context_->Log(tr("file %1 to %n speakers", nullptr, static_cast<int>(targets.size()))
                      .arg(QFileInfo(path).fileName()));
    state_->setText(tr("Preparing the file..."));
    progress_->setValue(0);
    since_.invalidate();
    ticker_->start();
}

int CFileTab::DurationMs() const {
    return mediaDurationMs_;
}

void CFileTab::OnTick() {
    if (!since_.isValid()) {
        return;
    }
    const int duration = DurationMs();
    if (duration <= 0) {
        progress_->setRange(0, 0);
        return;
    }
    progress_->setRange(0, 1000);
    progress_->setTextVisible(true);
    progress_->setValue(static_cast<int>(std::min<qint64>(1000, since_.elapsed() * 1000 / duration)));
    progress_->setFormat(QStringLiteral("%1 / %2").arg(Seconds(static_cast<int>(since_.elapsed() / 1000)),
                                                       Seconds(duration / 1000)));
}

void CFileTab::OnOwnBroadcastEvents(const std::vector<IPSpeakerNotifyParam>& events) {
    for (const IPSpeakerNotifyParam& event : events) {
        if (event.type != kNotifyStage ||
            event.requestID != reinterpret_cast<int64_t>(context_->RequestTag())) {
            continue;
        }
        if (event.broadcastStatus == kStageEncodeRunning && !since_.isValid()) {
            since_.start();
            state_->setText(tr("Playing..."));
        } else if ((event.broadcastStatus == kStageFileDone || event.broadcastStatus == kStageFailed) &&
                   pendingResults_.erase(event.elementID) != 0) {
            failures_ += event.broadcastStatus == kStageFailed ? 1 : 0;
        }
    }
    if (pendingResults_.empty() && context_->Activity() == ConsoleActivity::File) {
        // Every speaker has its result: the file is through, so the broadcast ends.
        if (failures_ == 0) {
            context_->Prompt(kMessageLevelSuccess, tr("The file was played."));
        } else {
            context_->Prompt(kMessageLevelWarning,
                             tr("The file did not play on %1 of the speakers.").arg(failures_));
        }
        context_->StopBroadcast();
    }
}

void CFileTab::OnBroadcastStopped() {
    ticker_->stop();
    pendingResults_.clear();
    since_.invalidate();
    progress_->setRange(0, 1000);
    progress_->setValue(0);
    progress_->setTextVisible(false);
    state_->setText(QString());
    RefreshControls();
}

void CFileTab::RefreshControls() {
    const bool allowed = context_->Site().rights.broadcast;
    const bool playing = context_->Activity() == ConsoleActivity::File;
    const bool idle = context_->Activity() == ConsoleActivity::None;
    download_->setEnabled(mediaId_ >= 0 && localPath_.isEmpty() && downloading_ < 0);
    play_->setEnabled(allowed && idle && downloading_ < 0 && !context_->Targets().empty() &&
                      (!localPath_.isEmpty() || mediaId_ >= 0));
    stop_->setEnabled(playing);
    localButton_->setEnabled(idle);
    if (!allowed) {
        state_->setText(tr("Broadcasting is not allowed for your account."));
    }
}

}  // namespace BroadCastPlugin
