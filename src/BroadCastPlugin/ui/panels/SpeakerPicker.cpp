#include "BroadCastPlugin/ui/panels/SpeakerPicker.h"

#include <QComboBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTreeView>
#include <QVBoxLayout>

#include <set>

#include "BroadCastPlugin/ui/widgets/WidgetKit.h"

namespace BroadCastPlugin {

CSpeakerPicker::CSpeakerPicker(CSpeakerTreeModel* model, QWidget* parent)
    : QWidget(parent),
      model_(model),
      proxy_(new CSpeakerFilterProxy(this)),
      search_(SearchField("SpeakerSearch", tr("Search name or address"), this)),
      state_(Named("StateFilter", new QComboBox(this))),
      partition_(Named("PartitionFilter", new QComboBox(this))),
      tree_(Named("SpeakerTree", new QTreeView(this))),
      chooseShown_(Named("ChooseShown", new QPushButton(tr("Choose shown"), this))),
      clear_(Named("ClearChoice", new QPushButton(tr("Clear"), this))),
      chosen_(Named("ChosenCount", new QLabel(this))),
      summary_(Named("StateSummary", new QLabel(this))) {
    setObjectName("SpeakerPicker");
    proxy_->setSourceModel(model_);
    BuildLayout();
    ConnectControls();
    OnSiteChanged();
}

void CSpeakerPicker::BuildLayout() {
    state_->setAccessibleName(tr("State filter"));
    state_->addItem(tr("All states"), -1);
    for (SpeakerLiveState state :
         {SpeakerLiveState::Idle, SpeakerLiveState::Connecting, SpeakerLiveState::Playing,
          SpeakerLiveState::Failed, SpeakerLiveState::Offline}) {
        state_->addItem(StateText(state), static_cast<int>(state));
    }
    partition_->setAccessibleName(tr("Partition filter"));
    tree_->setModel(proxy_);
    tree_->setUniformRowHeights(true);
    tree_->setAllColumnsShowFocus(true);
    tree_->header()->setSectionResizeMode(CSpeakerTreeModel::kColumnName, QHeaderView::Stretch);
    tree_->header()->setStretchLastSection(false);
    tree_->setColumnWidth(CSpeakerTreeModel::kColumnState, 150);
    tree_->header()->setSectionResizeMode(CSpeakerTreeModel::kColumnAddress, QHeaderView::ResizeToContents);
    tree_->header()->setSectionResizeMode(CSpeakerTreeModel::kColumnArea, QHeaderView::ResizeToContents);
    tree_->setAccessibleName(tr("Speakers by partition"));

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(search_);
    QHBoxLayout* filters = AddRow(layout, QString(), {state_, partition_});
    filters->setStretch(0, 1);
    filters->setStretch(1, 1);
    layout->addWidget(tree_, 1);
    AddRow(layout, QString(), {chosen_, chooseShown_, clear_}, chosen_);
    layout->addWidget(summary_);
    setTabOrder(search_, state_);
    setTabOrder(state_, partition_);
    setTabOrder(partition_, tree_);
    setTabOrder(tree_, chooseShown_);
    setTabOrder(chooseShown_, clear_);
}

void CSpeakerPicker::ConnectControls() {
    connect(search_, &QLineEdit::textChanged, this, [this](const QString& text) {
        proxy_->SetText(text);
        tree_->expandAll();
        UpdateCounts();
    });
    connect(state_, qOverload<int>(&QComboBox::currentIndexChanged), this, [this] {
        const int value = state_->currentData().toInt();
        proxy_->SetState(value < 0 ? std::nullopt
                                   : std::optional<SpeakerLiveState>(static_cast<SpeakerLiveState>(value)));
        tree_->expandAll();
        UpdateCounts();
    });
    connect(partition_, qOverload<int>(&QComboBox::currentIndexChanged), this, [this] {
        const QVariant value = partition_->currentData();
        proxy_->SetPartition(value.isValid() ? std::optional<int32_t>(value.toInt()) : std::nullopt);
        tree_->expandAll();
        UpdateCounts();
    });
    connect(chooseShown_, &QPushButton::clicked, this, [this] {
        std::vector<int32_t> shown;
        for (int row = 0; row < proxy_->rowCount(); ++row) {
            const QModelIndex partition = proxy_->index(row, 0);
            for (int child = 0; child < proxy_->rowCount(partition); ++child) {
                shown.push_back(
                    proxy_->index(child, 0, partition).data(CSpeakerTreeModel::kSpeakerIdRole).toInt());
            }
        }
        model_->SetChecked(shown, true);
    });
    connect(clear_, &QPushButton::clicked, model_, &CSpeakerTreeModel::ClearChecked);
    connect(model_, &CSpeakerTreeModel::CheckedChanged, this, &CSpeakerPicker::UpdateCounts);
    connect(model_, &CSpeakerTreeModel::StatesChanged, this, &CSpeakerPicker::UpdateCounts);
    connect(model_, &QAbstractItemModel::modelReset, tree_, &QTreeView::expandAll);
}

void CSpeakerPicker::OnSiteChanged() {
    const QVariant current = partition_->currentData();
    QSignalBlocker block(partition_);
    partition_->clear();
    partition_->addItem(tr("All partitions"));
    for (const ConsolePartition& partition : model_->Partitions()) {
        partition_->addItem(partition.name, partition.id);
    }
    const int index = current.isValid() ? partition_->findData(current) : 0;
    partition_->setCurrentIndex(std::max(index, 0));
    if (index < 0) {
        proxy_->SetPartition(std::nullopt);
    }
    tree_->expandAll();
    UpdateCounts();
}

void CSpeakerPicker::UpdateCounts() {
    const int chosen = static_cast<int>(model_->CheckedIds().size());
    QString text = tr("%1 of %2 speakers chosen").arg(chosen).arg(model_->SpeakerCount());
    if (proxy_->IsFiltering()) {
        text += tr(" (%1 shown)").arg(proxy_->VisibleSpeakerCount());
    }
    chosen_->setText(text);
    QStringList states;
    for (SpeakerLiveState state : {SpeakerLiveState::Connecting, SpeakerLiveState::Playing,
                                   SpeakerLiveState::Failed, SpeakerLiveState::Offline}) {
        const int count = model_->CountInState(state);
        if (count > 0) {
            states << QStringLiteral("%1 %2").arg(count).arg(StateText(state).toLower());
        }
    }
    summary_->setText(states.isEmpty() ? tr("All speakers idle") : states.join(QStringLiteral(" \u00b7 ")));
}

}  // namespace BroadCastPlugin
