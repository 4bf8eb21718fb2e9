#include "BroadCastPlugin/ui/panels/tabs/TextTab.h"

#include <QComboBox>
#include <QHeaderView>
#include <QLabel>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QTreeWidget>
#include <QVBoxLayout>

#include "BroadCastPlugin/BroadcastUi.h"
#include "BroadCastPlugin/controller/BroadcastController/BroadcastController.h"
#include "BroadCastPlugin/ui/widgets/WidgetKit.h"

namespace BroadCastPlugin {

namespace {
constexpr int kElementRole = Qt::UserRole + 1;
// Longest text accepted, so that one request stays reasonable for the platform's speech synthesis.
constexpr int kMaxTextLength = 1000;
}  // namespace

CTextTab::CTextTab(IConsoleContext* context, QWidget* parent)
    : CBroadcastTab(context, ConsoleActivity::Text, parent),
      text_(Named("TtsText", new QPlainTextEdit(this))),
      language_(Named("TtsLanguage", new QComboBox(this))),
      play_(Named("TtsPlayButton", new QPushButton(tr("Speak"), this))),
      stop_(Named("TtsStopButton", new QPushButton(tr("Stop"), this))),
      results_(Named("TtsResults", new QTreeWidget(this))),
      state_(WrappingLabel("TtsState", this)) {
    setObjectName("TextTab");
    text_->setPlaceholderText(tr("Text the speakers say"));
    text_->setTabChangesFocus(true);
    text_->setAccessibleName(tr("Text to speak"));
    language_->setAccessibleName(tr("Language"));
    results_->setHeaderLabels({tr("Speaker"), tr("Result")});
    results_->setRootIsDecorated(false);
    results_->header()->setSectionResizeMode(1, QHeaderView::Stretch);

    auto* layout = new QVBoxLayout(this);
    layout->addWidget(text_, 1);
    AddRow(layout, tr("Language"), {language_, play_, stop_}, language_);
    layout->addWidget(results_, 1);
    layout->addWidget(state_);

    connect(play_, &QPushButton::clicked, this, &CTextTab::Play);
    connect(stop_, &QPushButton::clicked, this, [this] { context_->StopBroadcast(); });
    connect(text_, &QPlainTextEdit::textChanged, this, &CTextTab::RefreshControls);
    RefreshControls();
}

void CTextTab::OnSiteChanged() {
    const TTSLanguageInfo& languages = context_->Site().languages;
    const QString current = language_->currentData().toString();
    language_->clear();
    for (const auto& language : languages.Languages) {
        language_->addItem(QString::fromStdString(language.second), QString::fromStdString(language.first));
    }
    // Keep the operator's choice; otherwise the platform's language for this login.
    int index = language_->findData(current);
    if (index < 0) {
        index = language_->findData(QString::fromStdString(languages.DisplayLanguageKey));
    }
    language_->setCurrentIndex(std::max(index, 0));
    RefreshControls();
}

void CTextTab::Play() {
    const QString text = text_->toPlainText().trimmed();
    const std::vector<int32_t> targets = context_->Targets();
    if (text.isEmpty() || targets.empty() || context_->Activity() != ConsoleActivity::None) {
        return;
    }
    if (text.size() > kMaxTextLength) {
        context_->Prompt(kMessageLevelWarning,
                         tr("The text is too long (at most %1 characters).").arg(kMaxTextLength));
        return;
    }
    TTSRequestParam request;
    request.elementIDs = targets;
    request.CustomContent = text.toStdString();
    request.Language = language_->currentData().toString().toStdString();
    request.PlayType = true;
    context_->Speakers()->ResetStates(true);
    if (!CBroadcastController::Instance()->AsyncTTSPlay(request)) {
        context_->Prompt(kMessageLevelDanger, tr("The text could not be sent."));
        return;
    }
    results_->clear();
    for (int32_t id : targets) {
        auto* item = new QTreeWidgetItem(results_, {context_->Speakers()->SpeakerName(id), tr("Sent")});
        item->setData(0, kElementRole, id);
    }
    speaking_ = std::set<int32_t>(targets.begin(), targets.end());
    started_.clear();
    awaitingAnswer_ = true;
    context_->SetActivity(ConsoleActivity::Text);
    context_->Log(tr("text to %n speakers", nullptr, static_cast<int>(targets.size())));
    state_->setText(tr("Sending the text to the platform..."));
}

void CTextTab::SetResult(int32_t elementId, const QString& text) {
    if (QTreeWidgetItem* item = FindItem(results_, kElementRole, elementId)) {
        item->setText(1, text);
    }
}

QString CTextTab::ResultOf(int32_t elementId) const {
    const QTreeWidgetItem* item = FindItem(results_, kElementRole, elementId);
    return item != nullptr ? item->text(1) : QString();
}

void CTextTab::OnTTSResult(const std::vector<TTSResponseError>& errors) {
    if (!awaitingAnswer_) {
        return;  // another console's request
    }
    awaitingAnswer_ = false;
    for (const TTSResponseError& error : errors) {
        SetResult(error.ElementID, tr("Not played: %1").arg(ErrorText(error.Error)));
        speaking_.erase(error.ElementID);
    }
    if (speaking_.empty()) {
        context_->Prompt(kMessageLevelDanger, tr("No speaker can say the text."));
        context_->StopBroadcast();
        return;
    }
    state_->setText(
        tr("The platform speaks the text on %n speakers.", nullptr, static_cast<int>(speaking_.size())));
    if (!errors.empty()) {
        context_->Prompt(kMessageLevelWarning,
                         tr("%n speakers cannot say the text.", nullptr, static_cast<int>(errors.size())));
    }
}

void CTextTab::OnOwnBroadcastEvents(const std::vector<IPSpeakerNotifyParam>& events) {
    for (const IPSpeakerNotifyParam& event : events) {
        if (event.type != kNotifySpeakerStatus || speaking_.count(event.elementID) == 0) {
            continue;
        }
        if (event.speakerStatus == kPushPlaying) {
            started_.insert(event.elementID);
            SetResult(event.elementID, tr("Speaking"));
        } else if (event.speakerStatus == kPushStopped || event.speakerStatus == kPushFailed) {
            const bool failed = event.speakerStatus == kPushFailed;
            SetResult(event.elementID,
                      failed ? tr("Failed: %1").arg(ErrorText(event.error)) : tr("Finished"));
            speaking_.erase(event.elementID);
        }
    }
    if (speaking_.empty() && !awaitingAnswer_) {
        context_->Prompt(kMessageLevelSuccess, tr("The text was spoken."));
        context_->StopBroadcast();
    }
}

void CTextTab::OnBroadcastStopped() {
    for (int32_t id : speaking_) {
        SetResult(id, started_.count(id) != 0 ? tr("Stopped") : tr("Not started"));
    }
    speaking_.clear();
    awaitingAnswer_ = false;
    state_->setText(QString());
    RefreshControls();
}

void CTextTab::RefreshControls() {
    const bool allowed = context_->Site().rights.broadcast;
    const bool idle = context_->Activity() == ConsoleActivity::None;
    play_->setEnabled(allowed && idle && !context_->Targets().empty() &&
                      !text_->toPlainText().trimmed().isEmpty() && language_->count() > 0);
    stop_->setEnabled(context_->Activity() == ConsoleActivity::Text);
    if (!allowed) {
        state_->setText(tr("Broadcasting is not allowed for your account."));
    }
}

}  // namespace BroadCastPlugin
