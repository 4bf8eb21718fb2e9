#include "BroadCastPlugin/ui/model/SpeakerTreeModel.h"

#include <QColor>
#include <QIcon>
#include <QPainter>
#include <QPixmap>

#include <algorithm>

namespace BroadCastPlugin {

namespace {
// Partition rows have internal id 0; a speaker row holds its partition's row plus one.
constexpr quintptr kPartitionNode = 0;

QColor StateColor(SpeakerLiveState state) {
    switch (state) {
        case SpeakerLiveState::Idle:
            return QColor(0x9e, 0x9e, 0x9e);
        case SpeakerLiveState::Connecting:
            return QColor(0xf0, 0xa0, 0x20);
        case SpeakerLiveState::Playing:
            return QColor(0x2e, 0xa0, 0x43);
        case SpeakerLiveState::Failed:
            return QColor(0xd0, 0x30, 0x30);
        case SpeakerLiveState::Offline:
            return QColor(0x50, 0x50, 0x50);
    }
    return QColor(Qt::black);
}

QIcon StateIcon(SpeakerLiveState state) {
    static std::map<SpeakerLiveState, QIcon> icons;
    auto found = icons.find(state);
    if (found != icons.end()) {
        return found->second;
    }
    QPixmap pixmap(14, 14);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(StateColor(state));
    if (state == SpeakerLiveState::Offline) {
        painter.drawRect(3, 3, 8, 8);
    } else {
        painter.drawEllipse(1, 1, 12, 12);
    }
    painter.end();
    return icons.emplace(state, QIcon(pixmap)).first->second;
}
}  // namespace

CSpeakerTreeModel::CSpeakerTreeModel(QObject* parent) : QAbstractItemModel(parent) {}

void CSpeakerTreeModel::SetSite(const std::vector<ConsolePartition>& partitions,
                                const std::vector<ConsoleSpeaker>& speakers) {
    beginResetModel();
    std::map<int32_t, Speaker> next;
    for (const ConsoleSpeaker& entry : speakers) {
        Speaker speaker;
        speaker.entry = entry;
        auto previous = speakers_.find(entry.id);
        if (previous != speakers_.end()) {
            speaker.live = previous->second.live;
        }
        speaker.live.online = entry.online;
        next[entry.id] = speaker;
    }
    speakers_ = std::move(next);
    partitions_ = partitions;
    members_.assign(partitions_.size(), {});
    bool outside = false;
    for (const auto& item : speakers_) {
        const ConsoleSpeaker& entry = item.second.entry;
        bool placed = false;
        for (int32_t partitionId : entry.partitions) {
            for (std::size_t row = 0; row < partitions_.size(); ++row) {
                if (partitions_[row].id == partitionId && partitionId != kNoPartition) {
                    members_[row].push_back(entry.id);
                    placed = true;
                }
            }
        }
        outside = outside || !placed;
    }
    if (outside) {
        partitions_.push_back(ConsolePartition{kNoPartition, tr("Outside partitions")});
        members_.emplace_back();
        for (const auto& item : speakers_) {
            const ConsoleSpeaker& entry = item.second.entry;
            const bool placed = std::any_of(members_.begin(), members_.end() - 1, [&](const auto& list) {
                return std::find(list.begin(), list.end(), entry.id) != list.end();
            });
            if (!placed) {
                members_.back().push_back(entry.id);
            }
        }
    }
    for (auto it = checked_.begin(); it != checked_.end();) {
        it = speakers_.count(*it) != 0 ? std::next(it) : checked_.erase(it);
    }
    endResetModel();
    emit CheckedChanged(static_cast<int>(checked_.size()));
    emit StatesChanged();
}

std::vector<int32_t> CSpeakerTreeModel::ApplyEvents(const std::vector<IPSpeakerNotifyParam>& events) {
    std::set<int32_t> changed;
    for (const IPSpeakerNotifyParam& event : events) {
        auto found = speakers_.find(event.elementID);
        if (found == speakers_.end()) {
            continue;
        }
        if (ApplySpeakerEvent(event, found->second.live)) {
            changed.insert(event.elementID);
        }
    }
    if (!changed.empty()) {
        SpeakersChanged(changed);
        emit StatesChanged();
    }
    return {changed.begin(), changed.end()};
}

void CSpeakerTreeModel::ResetStates(bool clearFailures) {
    std::set<int32_t> changed;
    for (auto& item : speakers_) {
        if (ResetSpeaker(item.second.live, clearFailures)) {
            changed.insert(item.first);
        }
    }
    if (!changed.empty()) {
        SpeakersChanged(changed);
        emit StatesChanged();
    }
}

std::vector<int32_t> CSpeakerTreeModel::CheckedIds() const {
    return {checked_.begin(), checked_.end()};
}

void CSpeakerTreeModel::SetChecked(const std::vector<int32_t>& ids, bool checked) {
    std::set<int32_t> changed;
    for (int32_t id : ids) {
        if (speakers_.count(id) == 0) {
            continue;
        }
        const bool was = checked_.count(id) != 0;
        if (was != checked) {
            if (checked) {
                checked_.insert(id);
            } else {
                checked_.erase(id);
            }
            changed.insert(id);
        }
    }
    if (!changed.empty()) {
        SpeakersChanged(changed);
        emit CheckedChanged(static_cast<int>(checked_.size()));
    }
}

void CSpeakerTreeModel::ClearChecked() {
    SetChecked(CheckedIds(), false);
}

int CSpeakerTreeModel::CountInState(SpeakerLiveState state) const {
    return static_cast<int>(std::count_if(speakers_.begin(), speakers_.end(), [state](const auto& item) {
        return ShownState(item.second.live) == state;
    }));
}

QString CSpeakerTreeModel::SpeakerName(int32_t id) const {
    auto found = speakers_.find(id);
    return found == speakers_.end() ? QString::number(id) : found->second.entry.name;
}

SpeakerLiveState CSpeakerTreeModel::StateOf(int32_t id) const {
    auto found = speakers_.find(id);
    return found == speakers_.end() ? SpeakerLiveState::Idle : ShownState(found->second.live);
}

std::vector<int32_t> CSpeakerTreeModel::SpeakersOfPartition(int32_t partitionId) const {
    for (std::size_t row = 0; row < partitions_.size(); ++row) {
        if (partitions_[row].id == partitionId) {
            return members_[row];
        }
    }
    return {};
}

QModelIndex CSpeakerTreeModel::index(int row, int column, const QModelIndex& parent) const {
    if (row < 0 || column < 0 || column >= kColumnCount) {
        return {};
    }
    if (!parent.isValid()) {
        return row < static_cast<int>(partitions_.size()) ? createIndex(row, column, kPartitionNode)
                                                          : QModelIndex();
    }
    if (parent.internalId() != kPartitionNode) {
        return {};
    }
    const int partitionRow = parent.row();
    if (row >= static_cast<int>(members_[partitionRow].size())) {
        return {};
    }
    return createIndex(row, column, static_cast<quintptr>(partitionRow + 1));
}

QModelIndex CSpeakerTreeModel::parent(const QModelIndex& child) const {
    if (!child.isValid() || child.internalId() == kPartitionNode) {
        return {};
    }
    return createIndex(static_cast<int>(child.internalId() - 1), 0, kPartitionNode);
}

int CSpeakerTreeModel::rowCount(const QModelIndex& parent) const {
    if (!parent.isValid()) {
        return static_cast<int>(partitions_.size());
    }
    if (parent.internalId() == kPartitionNode && parent.column() == 0) {
        return static_cast<int>(members_[parent.row()].size());
    }
    return 0;
}

int CSpeakerTreeModel::columnCount(const QModelIndex& /*parent*/) const {
    return kColumnCount;
}

const CSpeakerTreeModel::Speaker* CSpeakerTreeModel::SpeakerAt(const QModelIndex& index) const {
    if (!index.isValid() || index.internalId() == kPartitionNode) {
        return nullptr;
    }
    const auto& list = members_[index.internalId() - 1];
    if (index.row() >= static_cast<int>(list.size())) {
        return nullptr;
    }
    auto found = speakers_.find(list[index.row()]);
    return found == speakers_.end() ? nullptr : &found->second;
}

Qt::CheckState CSpeakerTreeModel::PartitionCheckState(int partitionRow) const {
    const auto& list = members_[partitionRow];
    const auto chosen =
        std::count_if(list.begin(), list.end(), [this](int32_t id) { return checked_.count(id) != 0; });
    if (chosen == 0) {
        return Qt::Unchecked;
    }
    return chosen == static_cast<long>(list.size()) ? Qt::Checked : Qt::PartiallyChecked;
}

QVariant CSpeakerTreeModel::data(const QModelIndex& index, int role) const {
    if (!index.isValid()) {
        return {};
    }
    if (const Speaker* speaker = SpeakerAt(index)) {
        if (role == kPartitionIdRole) {
            return partitions_[index.internalId() - 1].id;
        }
        return SpeakerData(*speaker, index.column(), role);
    }
    return index.internalId() == kPartitionNode ? PartitionData(index.row(), index.column(), role)
                                                : QVariant();
}

QVariant CSpeakerTreeModel::SpeakerData(const Speaker& speaker, int column, int role) const {
    const SpeakerLiveState state = ShownState(speaker.live);
    switch (role) {
        case kSpeakerIdRole:
            return speaker.entry.id;
        case kStateRole:
            return static_cast<int>(state);
        case kSearchTextRole:
            return speaker.entry.name + QLatin1Char(' ') + speaker.entry.address;
        case Qt::CheckStateRole:
            if (column == kColumnName) {
                return checked_.count(speaker.entry.id) != 0 ? Qt::Checked : Qt::Unchecked;
            }
            return {};
        case Qt::DecorationRole:
            return column == kColumnName ? QVariant(StateIcon(state)) : QVariant();
        case Qt::ToolTipRole: {
            const QString error =
                state == SpeakerLiveState::Failed ? ErrorText(speaker.live.error) : QString();
            return error.isEmpty() ? QVariant() : QVariant(error);
        }
        case Qt::ForegroundRole:
            return column == kColumnState ? QVariant(StateColor(state).darker(130)) : QVariant();
        case Qt::DisplayRole:
            break;
        default:
            return {};
    }
    switch (column) {
        case kColumnName:
            return speaker.entry.name;
        case kColumnState: {
            QString text = StateText(state);
            if (speaker.live.promptTone && state == SpeakerLiveState::Connecting) {
                text = tr("Prompt tone");
            }
            const QString error =
                state == SpeakerLiveState::Failed ? ErrorText(speaker.live.error) : QString();
            return error.isEmpty() ? text : text + QStringLiteral(": ") + error;
        }
        case kColumnAddress:
            return speaker.entry.address;
        case kColumnArea:
            return speaker.entry.area;
        default:
            return {};
    }
}

QVariant CSpeakerTreeModel::PartitionData(int row, int column, int role) const {
    const ConsolePartition& partition = partitions_[row];
    switch (role) {
        case kSpeakerIdRole:
            return -1;
        case kPartitionIdRole:
            return partition.id;
        case Qt::CheckStateRole:
            return column == kColumnName ? QVariant(PartitionCheckState(row)) : QVariant();
        case Qt::DisplayRole:
            if (column == kColumnName) {
                return QStringLiteral("%1 (%2)").arg(partition.name).arg(members_[row].size());
            }
            if (column == kColumnState) {
                const auto& list = members_[row];
                const auto playing = std::count_if(list.begin(), list.end(), [this](int32_t id) {
                    return StateOf(id) == SpeakerLiveState::Playing;
                });
                return playing > 0 ? tr("%n playing", nullptr, static_cast<int>(playing)) : QString();
            }
            return {};
        default:
            return {};
    }
}

bool CSpeakerTreeModel::setData(const QModelIndex& index, const QVariant& value, int role) {
    if (role != Qt::CheckStateRole || !index.isValid() || index.column() != kColumnName) {
        return false;
    }
    const bool checked = static_cast<Qt::CheckState>(value.toInt()) != Qt::Unchecked;
    if (const Speaker* speaker = SpeakerAt(index)) {
        SetChecked({speaker->entry.id}, checked);
        return true;
    }
    if (index.internalId() == kPartitionNode) {
        SetChecked(members_[index.row()], checked);
        return true;
    }
    return false;
}

Qt::ItemFlags CSpeakerTreeModel::flags(const QModelIndex& index) const {
    if (!index.isValid()) {
        return Qt::NoItemFlags;
    }
    Qt::ItemFlags flags = Qt::ItemIsEnabled | Qt::ItemIsSelectable;
    if (index.column() == kColumnName) {
        flags |= Qt::ItemIsUserCheckable;
    }
    return flags;
}

QVariant CSpeakerTreeModel::headerData(int section, Qt::Orientation orientation, int role) const {
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole) {
        return {};
    }
    switch (section) {
        case kColumnName:
            return tr("Speaker");
        case kColumnState:
            return tr("State");
        case kColumnAddress:
            return tr("Address");
        case kColumnArea:
            return tr("Area");
        default:
            return {};
    }
}

void CSpeakerTreeModel::SpeakersChanged(const std::set<int32_t>& ids) {
    for (std::size_t row = 0; row < partitions_.size(); ++row) {
        const auto& list = members_[row];
        bool any = false;
        for (std::size_t child = 0; child < list.size(); ++child) {
            if (ids.count(list[child]) != 0) {
                const auto parentId = static_cast<quintptr>(row + 1);
                emit dataChanged(createIndex(static_cast<int>(child), 0, parentId),
                                 createIndex(static_cast<int>(child), kColumnCount - 1, parentId));
                any = true;
            }
        }
        if (any) {
            emit dataChanged(createIndex(static_cast<int>(row), 0, kPartitionNode),
                             createIndex(static_cast<int>(row), kColumnCount - 1, kPartitionNode));
        }
    }
}

}  // namespace BroadCastPlugin
