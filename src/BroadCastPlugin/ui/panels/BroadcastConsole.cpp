#include "BroadCastPlugin/ui/panels/BroadcastConsole.h"

#include <QApplication>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QSplitter>
#include <QTabWidget>
#include <QTime>
#include <QTreeView>
#include <QVBoxLayout>

#include "BroadCastPlugin/BroadcastUi.h"
#include "BroadCastPlugin/controller/BroadcastController/BroadcastController.h"
#include "BroadCastPlugin/ui/panels/SpeakerPicker.h"
#include "BroadCastPlugin/ui/panels/tabs/DeviceTab.h"
#include "BroadCastPlugin/ui/panels/tabs/FileTab.h"
#include "BroadCastPlugin/ui/panels/tabs/ListenTab.h"
#include "BroadCastPlugin/ui/panels/tabs/TalkTab.h"
#include "BroadCastPlugin/ui/panels/tabs/TextTab.h"
#include "BroadCastPlugin/ui/widgets/PromptBar.h"
#include "framework/business/UserCommonManager.h"

namespace BroadCastPlugin {

namespace {
// Lines kept in the event log.
constexpr int kMaxLogLines = 500;
}  // namespace

CBroadcastConsole::CBroadcastConsole(CConsoleSite* site, QWidget* parent)
    : QWidget(parent),
      site_(site),
      model_(new CSpeakerTreeModel(this)),
      picker_(new CSpeakerPicker(model_, this)),
      tabs_(new QTabWidget(this)),
      talk_(new CTalkTab(this, tabs_)),
      file_(new CFileTab(this, tabs_)),
      text_(new CTextTab(this, tabs_)),
      listen_(new CListenTab(this, tabs_)),
      device_(new CDeviceTab(this, tabs_)),
      stopAll_(new QPushButton(tr("Stop all"), this)),
      status_(new QLabel(tr("Idle"), this)),
      user_(new QLabel(this)),
      prompt_(new CPromptBar(this)),
      events_(new QListWidget(this)) {
    tabs_->setObjectName("ConsoleTabs");
    tabs_->addTab(talk_, tr("&Live talk"));
    tabs_->addTab(file_, tr("&Files"));
    tabs_->addTab(text_, tr("Te&xt"));
    tabs_->addTab(listen_, tr("Li&sten"));
    tabs_->addTab(device_, tr("&Devices"));
    stopAll_->setObjectName("StopAll");
    stopAll_->setToolTip(tr("Stop the broadcast, the listen and the device talk"));
    status_->setObjectName("ConsoleStatus");
    user_->setObjectName("ConsoleUser");
    events_->setObjectName("EventLog");
    events_->setMaximumHeight(110);
    events_->setAccessibleName(tr("Event log"));

    auto* header = new QHBoxLayout();
    header->addWidget(status_, 1);
    header->addWidget(user_);
    header->addWidget(stopAll_);

    auto* splitter = new QSplitter(Qt::Horizontal, this);
    splitter->addWidget(picker_);
    splitter->addWidget(tabs_);
    splitter->setStretchFactor(0, 3);
    splitter->setStretchFactor(1, 2);
    splitter->setChildrenCollapsible(false);

    auto* layout = new QVBoxLayout(this);
    layout->addLayout(header);
    layout->addWidget(prompt_);
    layout->addWidget(splitter, 1);
    layout->addWidget(events_);

    connect(site_, &CConsoleSite::Changed, this, &CBroadcastConsole::OnSiteChanged);
    connect(model_, &CSpeakerTreeModel::CheckedChanged, this, &CBroadcastConsole::RefreshAll);
    connect(stopAll_, &QPushButton::clicked, this, &CBroadcastConsole::StopAll);
    setTabOrder(picker_, tabs_);
    setTabOrder(tabs_, stopAll_);
    // Push-to-talk: the space bar while the talk tab is shown, wherever the focus is in this console.
    qApp->installEventFilter(this);
    OnSiteChanged();
}

CBroadcastConsole::~CBroadcastConsole() {
    qApp->removeEventFilter(this);
}

std::vector<int32_t> CBroadcastConsole::Targets() const {
    return model_->CheckedIds();
}

const ConsoleSiteData& CBroadcastConsole::Site() const {
    return site_->Data();
}

void CBroadcastConsole::Prompt(const char* level, const QString& text) {
    prompt_->Show(level, text);
    AppendEvent(text);
}

void CBroadcastConsole::Log(const QString& line) {
    AppendEvent(line);
}

void CBroadcastConsole::SetActivity(ConsoleActivity activity) {
    activity_ = activity;
    stopRequested_ = false;
    status_->setText(ActivityText(activity));
    RefreshAll();
}

QString CBroadcastConsole::ActivityText(ConsoleActivity activity) {
    switch (activity) {
        case ConsoleActivity::Talk:
            return tr("Live talk");
        case ConsoleActivity::File:
            return tr("Playing a file");
        case ConsoleActivity::Text:
            return tr("Speaking text");
        case ConsoleActivity::None:
            break;
    }
    return tr("Idle");
}

bool CBroadcastConsole::StopBroadcast() {
    if (stopRequested_) {
        return true;
    }
    if (!CBroadcastController::Instance()->AsyncStopBroadcast(this)) {
        Prompt(kMessageLevelDanger, tr("The broadcast could not be stopped."));
        return false;
    }
    stopRequested_ = activity_ != ConsoleActivity::None;
    status_->setText(tr("Stopping..."));
    return true;
}

void CBroadcastConsole::StopAll() {
    if (activity_ != ConsoleActivity::None) {
        StopBroadcast();
    }
    listen_->StopListen();
    device_->Stop();
}

void CBroadcastConsole::ShowTab(Tab tab) {
    tabs_->setCurrentIndex(static_cast<int>(tab));
}

void CBroadcastConsole::ShowOnly(const std::vector<int32_t>& ids) {
    picker_->Proxy()->SetOnly(ids.empty() ? std::nullopt : std::optional<std::vector<int32_t>>(ids));
    picker_->Tree()->expandAll();
}

std::vector<IConsoleTab*> CBroadcastConsole::AllTabs() const {
    return {talk_, file_, text_, listen_, device_};
}

void CBroadcastConsole::RefreshAll() {
    for (IConsoleTab* tab : AllTabs()) {
        tab->RefreshControls();
    }
}

void CBroadcastConsole::OnSiteChanged() {
    const ConsoleSiteData& data = site_->Data();
    model_->SetSite(data.partitions, data.speakers);
    picker_->OnSiteChanged();
    std::string address;
    int port = 0;
    std::string user;
    if (BusinessCommon::CUserCommonManager::Instance()->GetLoginInfo(address, port, user)) {
        user_->setText(QStringLiteral("%1 @ %2:%3")
                           .arg(QString::fromStdString(user), QString::fromStdString(address))
                           .arg(port));
    }
    for (IConsoleTab* tab : AllTabs()) {
        tab->OnSiteChanged();
    }
    tabs_->setTabToolTip(
        kTabTalk, data.rights.realBroadcast ? QString() : tr("Live talk is not allowed for your account."));
    tabs_->setTabToolTip(
        kTabDevice, data.rights.realBroadcast ? QString() : tr("Live talk is not allowed for your account."));
}

void CBroadcastConsole::OnResourceDownload(DownloadResourceState state, const ErrorCode& error) {
    if (state == DownloadResourceFailed) {
        Prompt(kMessageLevelDanger, tr("The site could not be loaded: %1").arg(ErrorText(error)));
    } else if (state == DownloadResourceFinish) {
        AppendEvent(tr("site loaded"));
    }
}

void CBroadcastConsole::OnBroadcastState(const std::vector<IPSpeakerNotifyParam>& events) {
    model_->ApplyEvents(events);
    for (IConsoleTab* tab : AllTabs()) {
        tab->OnBroadcastEvents(events);
    }
    for (const IPSpeakerNotifyParam& event : events) {
        if (event.type == kNotifyStage && event.broadcastStatus == kStageFailed && event.elementID >= 0 &&
            event.requestID == reinterpret_cast<int64_t>(RequestTag())) {
            AppendEvent(
                tr("%1 failed: %2").arg(model_->SpeakerName(event.elementID), ErrorText(event.error)));
        }
    }
}

void CBroadcastConsole::OnTTSState(const std::vector<TTSResponseError>& errors) {
    text_->OnTTSResult(errors);
}

void CBroadcastConsole::OnStopBroadcast(const ErrorCode& error, void* user) {
    // A stop from anyone (this console, another panel, a plugin or the web page) ends the broadcast here.
    const bool ours = user == RequestTag();
    if (ours && !error.IsSucceed()) {
        Prompt(kMessageLevelWarning, tr("The broadcast stopped with an error: %1").arg(ErrorText(error)));
    }
    const bool wasRunning = activity_ != ConsoleActivity::None;
    model_->ResetStates(false);
    activity_ = ConsoleActivity::None;
    for (IConsoleTab* tab : AllTabs()) {
        tab->OnBroadcastStopped();
    }
    SetActivity(ConsoleActivity::None);
    if (wasRunning) {
        AppendEvent(tr("broadcast stopped"));
    }
}

void CBroadcastConsole::OnListen(ResourceManager::ID id, const ErrorCode& error, void* user) {
    listen_->OnListenResult(static_cast<int32_t>(id), error, user);
}

void CBroadcastConsole::OnStopListen(const ErrorCode& error, void* user) {
    listen_->OnStopListenResult(error, user);
}

void CBroadcastConsole::OnDownloadFile(ResourceManager::ID id, const ErrorCode& error, void* user) {
    file_->OnDownloadResult(static_cast<int32_t>(id), error, user);
}

void CBroadcastConsole::OnSearchMediaFiles(const std::vector<MediaFile>& files, const ErrorCode& error) {
    file_->OnSearchResult(files, error);
}

void CBroadcastConsole::OnStartDeviceBroadcast(const std::vector<ResourceManager::ID>& ids,
                                               const ErrorCode& error) {
    device_->OnStartResult(ids, error);
}

void CBroadcastConsole::OnDeviceBroadcastState(const DeviceNotifyParam& param) {
    device_->OnDeviceState(param);
}

void CBroadcastConsole::AppendEvent(const QString& text) {
    events_->addItem(QTime::currentTime().toString(QStringLiteral("HH:mm:ss")) + QStringLiteral("  ") + text);
    while (events_->count() > kMaxLogLines) {
        delete events_->takeItem(0);
    }
    events_->scrollToBottom();
}

void CBroadcastConsole::SetStatus(const QString& text) {
    status_->setText(text);
}

int CBroadcastConsole::EventCount() const {
    return events_->count();
}

QStringList CBroadcastConsole::Events() const {
    QStringList all;
    for (int i = 0; i < events_->count(); ++i) {
        all << events_->item(i)->text();
    }
    return all;
}

bool CBroadcastConsole::eventFilter(QObject* watched, QEvent* event) {
    if (event->type() != QEvent::KeyPress && event->type() != QEvent::KeyRelease) {
        return QWidget::eventFilter(watched, event);
    }
    auto* key = static_cast<QKeyEvent*>(event);
    auto* widget = qobject_cast<QWidget*>(watched);
    const bool inThisConsole = widget != nullptr && (widget == this || isAncestorOf(widget));
    const bool typing =
        qobject_cast<QLineEdit*>(watched) != nullptr || qobject_cast<QPlainTextEdit*>(watched) != nullptr;
    if (key->key() != Qt::Key_Space || !inThisConsole || typing || tabs_->currentWidget() != talk_ ||
        !isVisible()) {
        return QWidget::eventFilter(watched, event);
    }
    if (key->isAutoRepeat()) {
        // A held key repeats; in push-to-talk the repeats must not click the focused button.
        return talk_->IsPushToTalk() || QWidget::eventFilter(watched, event);
    }
    return talk_->HandlePushToTalkKey(event->type() == QEvent::KeyPress) ||
           QWidget::eventFilter(watched, event);
}

void CBroadcastConsole::showEvent(QShowEvent* event) {
    QWidget::showEvent(event);
    site_->EnsureLoaded();
}

}  // namespace BroadCastPlugin
