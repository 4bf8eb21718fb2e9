#include "BroadCastPlugin/ui/panels/BroadcastPanel.h"

#include <QLabel>
#include <QListWidget>
#include <QTime>
#include <QVBoxLayout>

namespace BroadCastPlugin {

CBroadcastPanel::CBroadcastPanel(QWidget* parent)
    : QWidget(parent), status_(new QLabel(this)), events_(new QListWidget(this)) {
    setObjectName("BroadcastPanel");
    setWindowTitle(tr("Broadcast"));
    auto* layout = new QVBoxLayout(this);
    status_->setText(tr("Idle"));
    layout->addWidget(status_);
    layout->addWidget(events_);
}

CBroadcastPanel::~CBroadcastPanel() = default;

void CBroadcastPanel::AppendEvent(const QString& text) {
    events_->addItem(QTime::currentTime().toString("HH:mm:ss.zzz") + "  " + text);
    events_->scrollToBottom();
}

void CBroadcastPanel::SetStatus(const QString& text) {
    status_->setText(text);
}

int CBroadcastPanel::EventCount() const {
    return events_->count();
}

QStringList CBroadcastPanel::Events() const {
    QStringList all;
    for (int i = 0; i < events_->count(); ++i) {
        all << events_->item(i)->text();
    }
    return all;
}

CBroadcastPopDialog::CBroadcastPopDialog(QWidget* parent) : QWidget(parent), request_(new QLabel(this)) {
    setObjectName("BroadcastPopDialog");
    setWindowTitle(tr("Broadcast"));
    setWindowModality(Qt::ApplicationModal);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(request_);
}

CBroadcastPopDialog::~CBroadcastPopDialog() = default;

void CBroadcastPopDialog::SetRequest(const QString& summary) {
    request_->setText(summary);
}

QString CBroadcastPopDialog::Request() const {
    return request_->text();
}

}  // namespace BroadCastPlugin
