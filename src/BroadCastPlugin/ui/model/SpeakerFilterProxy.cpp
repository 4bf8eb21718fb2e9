#include "BroadCastPlugin/ui/model/SpeakerFilterProxy.h"

#include <algorithm>
#include <set>

namespace BroadCastPlugin {

CSpeakerFilterProxy::CSpeakerFilterProxy(QObject* parent) : QSortFilterProxyModel(parent) {
    // Live state changes must move speakers in and out of a state filter.
    setDynamicSortFilter(true);
}

void CSpeakerFilterProxy::SetText(const QString& text) {
    text_ = text.trimmed();
    Refilter();
}

void CSpeakerFilterProxy::SetState(std::optional<SpeakerLiveState> state) {
    state_ = state;
    Refilter();
}

void CSpeakerFilterProxy::SetPartition(std::optional<int32_t> partitionId) {
    partition_ = partitionId;
    Refilter();
}

void CSpeakerFilterProxy::SetOnly(std::optional<std::vector<int32_t>> ids) {
    only_ = std::move(ids);
    Refilter();
}

bool CSpeakerFilterProxy::IsFiltering() const {
    return !text_.isEmpty() || state_.has_value() || partition_.has_value() || only_.has_value();
}

void CSpeakerFilterProxy::Refilter() {
    invalidateFilter();
}

int CSpeakerFilterProxy::VisibleSpeakerCount() const {
    std::set<int32_t> ids;
    for (int row = 0; row < rowCount(); ++row) {
        const QModelIndex partition = index(row, 0);
        for (int child = 0; child < rowCount(partition); ++child) {
            ids.insert(index(child, 0, partition).data(CSpeakerTreeModel::kSpeakerIdRole).toInt());
        }
    }
    return static_cast<int>(ids.size());
}

bool CSpeakerFilterProxy::SpeakerAccepted(const QModelIndex& sourceIndex) const {
    if (only_) {
        const int32_t id = sourceIndex.data(CSpeakerTreeModel::kSpeakerIdRole).toInt();
        if (std::find(only_->begin(), only_->end(), id) == only_->end()) {
            return false;
        }
    }
    if (state_ && sourceIndex.data(CSpeakerTreeModel::kStateRole).toInt() != static_cast<int>(*state_)) {
        return false;
    }
    return text_.isEmpty() || sourceIndex.data(CSpeakerTreeModel::kSearchTextRole)
                                  .toString()
                                  .contains(text_, Qt::CaseInsensitive);
}

bool CSpeakerFilterProxy::PartitionAccepted(int32_t partitionId) const {
    return !partition_ || *partition_ == partitionId;
}

bool CSpeakerFilterProxy::filterAcceptsRow(int sourceRow, const QModelIndex& sourceParent) const {
    const QModelIndex source = sourceModel()->index(sourceRow, 0, sourceParent);
    if (sourceParent.isValid()) {
        return SpeakerAccepted(source);
    }
    if (!PartitionAccepted(source.data(CSpeakerTreeModel::kPartitionIdRole).toInt())) {
        return false;
    }
    // A partition stays while any of its speakers passes; without a speaker filter even an empty one does.
    const bool speakerFilter = !text_.isEmpty() || state_.has_value() || only_.has_value();
    if (!speakerFilter) {
        return true;
    }
    const int children = sourceModel()->rowCount(source);
    for (int child = 0; child < children; ++child) {
        if (SpeakerAccepted(sourceModel()->index(child, 0, source))) {
            return true;
        }
    }
    return false;
}

bool CSpeakerFilterProxy::setData(const QModelIndex& index, const QVariant& value, int role) {
    auto* model = qobject_cast<CSpeakerTreeModel*>(sourceModel());
    const bool partitionRow = index.isValid() && !index.parent().isValid();
    if (model == nullptr || role != Qt::CheckStateRole || !partitionRow || !IsFiltering()) {
        return QSortFilterProxyModel::setData(index, value, role);
    }
    // Through a filter a partition's box chooses (or drops) only what is shown under it.
    std::vector<int32_t> shown;
    for (int child = 0; child < rowCount(index); ++child) {
        shown.push_back(this->index(child, 0, index).data(CSpeakerTreeModel::kSpeakerIdRole).toInt());
    }
    model->SetChecked(shown, static_cast<Qt::CheckState>(value.toInt()) != Qt::Unchecked);
    return true;
}

}  // namespace BroadCastPlugin
