#include "BroadCastPlugin/ui/panels/BroadcastPanel.h"

#include <QCloseEvent>
#include <QLabel>
#include <QVBoxLayout>

#include <algorithm>
#include <set>

#include "BroadCastPlugin/BroadcastUi.h"
#include "BroadCastPlugin/ui/panels/tabs/DeviceTab.h"
#include "BroadCastPlugin/ui/panels/tabs/FileTab.h"
#include "BroadCastPlugin/ui/panels/tabs/ListenTab.h"

namespace BroadCastPlugin {

CBroadcastPanel::CBroadcastPanel(CConsoleSite* site, QWidget* parent)
    : QWidget(parent), console_(new CBroadcastConsole(site, this)) {
    setObjectName("BroadcastPanel");
    setWindowTitle(tr("Broadcast"));
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(console_);
}

CBroadcastPanel::~CBroadcastPanel() = default;

CBroadcastPopDialog::CBroadcastPopDialog(CConsoleSite* site, QWidget* parent)
    : QDialog(parent), request_(new QLabel(this)), console_(new CBroadcastConsole(site, this)) {
    setObjectName("BroadcastPopDialog");
    setWindowTitle(tr("Broadcast"));
    setWindowModality(Qt::ApplicationModal);
    request_->setObjectName("PopRequest");
    request_->setWordWrap(true);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(request_);
    layout->addWidget(console_, 1);
    resize(960, 620);
}

CBroadcastPopDialog::~CBroadcastPopDialog() = default;

void CBroadcastPopDialog::ApplyRequest(const PopPannelParam& param) {
    std::vector<int32_t> ids;
    for (const std::string& item : param.dataItems) {
        bool ok = false;
        const int id = QString::fromStdString(item).trimmed().toInt(&ok);
        if (ok) {
            ids.push_back(id);
        }
    }
    CSpeakerTreeModel* speakers = console_->Speakers();
    std::vector<int32_t> known;
    QStringList unknown;
    for (std::size_t i = 0; i < ids.size(); ++i) {
        if (speakers->HasSpeaker(ids[i])) {
            known.push_back(ids[i]);
        } else {
            unknown << (i < param.resourceNames.size() && !param.resourceNames[i].empty()
                            ? QString::fromStdString(param.resourceNames[i])
                            : QString::number(ids[i]));
        }
    }
    speakers->ClearChecked();
    console_->ShowOnly({});
    QStringList names;
    for (int32_t id : known) {
        names << speakers->SpeakerName(id);
    }
    QString summary;
    switch (param.type) {
        case kPopFile:
            console_->ShowTab(CBroadcastConsole::kTabFile);
            summary = tr("Play a file");
            break;
        case kPopText:
            console_->ShowTab(CBroadcastConsole::kTabText);
            summary = tr("Speak a text");
            break;
        case kPopListen:
            console_->ShowTab(CBroadcastConsole::kTabListen);
            summary = tr("Listen");
            if (!known.empty()) {
                console_->ListenTab()->ChooseSpeaker(known.front());
            }
            break;
        case kPopDevice:
            console_->ShowTab(CBroadcastConsole::kTabDevice);
            summary = tr("Talk to devices");
            console_->DeviceTab()->ChooseDevices(ids);
            names.clear();
            for (std::size_t i = 0; i < ids.size(); ++i) {
                names << (i < param.resourceNames.size() && !param.resourceNames[i].empty()
                              ? QString::fromStdString(param.resourceNames[i])
                              : QString::number(ids[i]));
            }
            unknown.clear();
            known.clear();
            break;
        default:
            console_->ShowTab(CBroadcastConsole::kTabTalk);
            summary = tr("Live talk");
            break;
    }
    speakers->SetChecked(known, true);
    if (param.styleGiven && !known.empty()) {
        console_->ShowOnly(known);
    }
    QString text = names.isEmpty() ? summary : tr("%1 to %2").arg(summary, names.join(QStringLiteral(", ")));
    if (param.volume >= 0) {
        // The one volume the console controls: what the operator hears while listening.
        console_->ListenTab()->SetVolume(std::min(param.volume, 100));
        text += tr(", volume %1").arg(param.volume);
    }
    request_->setText(text);
    if (!unknown.isEmpty()) {
        console_->Prompt(kMessageLevelRemind,
                         tr("Not on this site: %1").arg(unknown.join(QStringLiteral(", "))));
    }
}

QString CBroadcastPopDialog::Request() const {
    return request_->text();
}

void CBroadcastPopDialog::closeEvent(QCloseEvent* event) {
    // Closing the dialog ends what it started: nothing keeps playing from a window that is gone.
    console_->StopAll();
    event->accept();
}

}  // namespace BroadCastPlugin
