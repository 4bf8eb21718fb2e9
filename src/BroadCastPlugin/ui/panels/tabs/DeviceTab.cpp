#include "BroadCastPlugin/ui/panels/tabs/DeviceTab.h"

#include <QCoreApplication>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QRegularExpressionValidator>
#include <QTreeWidget>
#include <QVBoxLayout>

#include <set>

#include "BroadCastPlugin/BroadcastUi.h"
#include "BroadCastPlugin/controller/BroadcastController/BroadcastController.h"
#include "BroadCastPlugin/ui/widgets/WidgetKit.h"

namespace BroadCastPlugin {

namespace {
constexpr int kDeviceRole = Qt::UserRole + 1;
// Live talk from the microphone (the only device broadcast type the console starts).
constexpr int kDeviceTalk = 0;

// The device states of DeviceNotifyParam::status.
QString DeviceStateText(int status) {
    switch (status) {
        case 0:
            return QCoreApplication::translate("BroadCastPlugin::CDeviceTab", "Connecting");
        case 1:
            return QCoreApplication::translate("BroadCastPlugin::CDeviceTab", "Playing");
        case 2:
            return QCoreApplication::translate("BroadCastPlugin::CDeviceTab", "Failed");
        case 3:
            return QCoreApplication::translate("BroadCastPlugin::CDeviceTab", "Stopped");
        default:
            return QString();
    }
}
}  // namespace

CDeviceTab::CDeviceTab(IConsoleContext* context, QWidget* parent)
    : QWidget(parent),
      context_(context),
      devices_(Named("DeviceList", new QTreeWidget(this))),
      extra_(Named("DeviceExtraIds", new QLineEdit(this))),
      start_(Named("DeviceStartButton", new QPushButton(tr("Talk to devices"), this))),
      stop_(Named("DeviceStopButton", new QPushButton(tr("Stop"), this))),
      state_(WrappingLabel("DeviceState", this)) {
    setObjectName("DeviceTab");
    devices_->setHeaderLabels({tr("Device"), tr("Address"), tr("State")});
    devices_->setRootIsDecorated(false);
    devices_->header()->setSectionResizeMode(0, QHeaderView::ResizeToContents);
    devices_->header()->setSectionResizeMode(1, QHeaderView::ResizeToContents);
    devices_->header()->setSectionResizeMode(2, QHeaderView::Stretch);
    extra_->setPlaceholderText(tr("More device ids, such as 202,203"));
    extra_->setValidator(
        new QRegularExpressionValidator(QRegularExpression(QStringLiteral("[0-9, ]*")), extra_));

    auto* layout = new QVBoxLayout(this);
    layout->addWidget(devices_, 1);
    layout->addWidget(extra_);
    AddRow(layout, QString(), {start_, stop_})->addStretch(1);
    layout->addWidget(state_);

    connect(start_, &QPushButton::clicked, this, &CDeviceTab::Start);
    connect(stop_, &QPushButton::clicked, this, &CDeviceTab::Stop);
    connect(devices_, &QTreeWidget::itemChanged, this, &CDeviceTab::RefreshControls);
    connect(extra_, &QLineEdit::textChanged, this, &CDeviceTab::RefreshControls);
    RefreshControls();
}

void CDeviceTab::OnSiteChanged() {
    std::set<int32_t> chosen;
    for (ResourceManager::ID id : ChosenDevices()) {
        chosen.insert(static_cast<int32_t>(id));
    }
    QSignalBlocker block(devices_);
    devices_->clear();
    for (const ConsoleDevice& device : context_->Site().devices) {
        auto* item = new QTreeWidgetItem(devices_, {device.name, device.address, QString()});
        item->setData(0, kDeviceRole, device.id);
        item->setFlags(Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemIsUserCheckable);
        item->setCheckState(0, chosen.count(device.id) != 0 ? Qt::Checked : Qt::Unchecked);
    }
    RefreshControls();
}

std::vector<ResourceManager::ID> CDeviceTab::ChosenDevices() const {
    std::set<ResourceManager::ID> ids;
    for (int row = 0; row < devices_->topLevelItemCount(); ++row) {
        const QTreeWidgetItem* item = devices_->topLevelItem(row);
        if (item->checkState(0) == Qt::Checked) {
            ids.insert(static_cast<ResourceManager::ID>(item->data(0, kDeviceRole).toInt()));
        }
    }
    for (const QString& part : extra_->text().split(QLatin1Char(','), Qt::SkipEmptyParts)) {
        bool ok = false;
        const uint id = part.trimmed().toUInt(&ok);
        if (ok && id > 0) {
            ids.insert(id);
        }
    }
    return {ids.begin(), ids.end()};
}

void CDeviceTab::ChooseDevices(const std::vector<int32_t>& ids) {
    QStringList unlisted;
    for (int32_t id : ids) {
        if (QTreeWidgetItem* item = FindItem(devices_, kDeviceRole, id)) {
            item->setCheckState(0, Qt::Checked);
        } else {
            unlisted << QString::number(id);
        }
    }
    extra_->setText(unlisted.join(QLatin1Char(',')));
}

QString CDeviceTab::StateTextOf(int32_t id) const {
    const QTreeWidgetItem* item = FindItem(devices_, kDeviceRole, id);
    return item != nullptr ? item->text(2) : QString();
}

void CDeviceTab::SetDeviceText(int32_t id, const QString& text) {
    if (QTreeWidgetItem* item = FindItem(devices_, kDeviceRole, id)) {
        item->setText(2, text);
        return;
    }
    // A device typed in by id gets a row of its own for its state.
    auto* item = new QTreeWidgetItem(devices_, {tr("Device %1").arg(id), QString(), text});
    item->setData(0, kDeviceRole, id);
}

void CDeviceTab::Start() {
    const std::vector<ResourceManager::ID> ids = ChosenDevices();
    if (ids.empty() || running_) {
        return;
    }
    if (!CBroadcastController::Instance()->AsyncStartDeviceBroadcast(ids, kDeviceTalk)) {
        context_->Prompt(kMessageLevelDanger, tr("The device broadcast could not be started."));
        return;
    }
    running_ = true;
    state_->setText(tr("Starting the talk to %n devices...", nullptr, static_cast<int>(ids.size())));
    context_->Log(tr("device talk to %n devices", nullptr, static_cast<int>(ids.size())));
    RefreshControls();
}

CDeviceTab::~CDeviceTab() {
    pool_.waitForDone();
}

bool CDeviceTab::Stop() {
    if (!running_ || stopping_) {
        return false;
    }
    stopping_ = true;
    RefreshControls();
    pool_.start([this] {
        CBroadcastController::Instance()->SyncStopDeviceBroadcast();
        QMetaObject::invokeMethod(
            this,
            [this] {
                running_ = false;
                stopping_ = false;
                state_->setText(tr("Device talk stopped."));
                RefreshControls();
            },
            Qt::QueuedConnection);
    });
    return true;
}

void CDeviceTab::OnStartResult(const std::vector<ResourceManager::ID>& ids, const ErrorCode& error) {
    if (!running_) {
        return;
    }
    if (error.IsSucceed()) {
        state_->setText(tr("Talking to %n devices.", nullptr, static_cast<int>(ids.size())));
        context_->Prompt(kMessageLevelSuccess, tr("Speak now: the devices are listening."));
    } else {
        running_ = false;
        state_->setText(tr("The device talk failed: %1").arg(ErrorText(error)));
        context_->Prompt(kMessageLevelDanger, tr("The device talk failed: %1").arg(ErrorText(error)));
    }
    RefreshControls();
}

void CDeviceTab::OnDeviceState(const DeviceNotifyParam& param) {
    QString text = DeviceStateText(param.status);
    if (!param.errorInfo.empty()) {
        text += QStringLiteral(": ") + QString::fromStdString(param.errorInfo);
    }
    SetDeviceText(static_cast<int32_t>(param.resourceId), text);
}

void CDeviceTab::RefreshControls() {
    const bool allowed = context_->Site().rights.realBroadcast;
    start_->setEnabled(allowed && !running_ && !ChosenDevices().empty());
    stop_->setEnabled(running_ && !stopping_);
    if (!allowed) {
        state_->setText(tr("Live talk is not allowed for your account."));
    }
}

}  // namespace BroadCastPlugin
