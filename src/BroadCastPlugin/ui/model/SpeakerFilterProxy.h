#pragma once
// Narrows the speaker tree by text (name or address), live state and partition. Ticking a partition
// through the filter chooses only the speakers the filter shows.

#include <QSortFilterProxyModel>

#include <optional>

#include "BroadCastPlugin/ui/model/SpeakerTreeModel.h"

namespace BroadCastPlugin {

class CSpeakerFilterProxy : public QSortFilterProxyModel {
    Q_OBJECT

public:
    explicit CSpeakerFilterProxy(QObject* parent = nullptr);

    void SetText(const QString& text);
    /// No value: every state.
    void SetState(std::optional<SpeakerLiveState> state);
    /// No value: every partition.
    void SetPartition(std::optional<int32_t> partitionId);
    /// Only these speakers (the pop-up dialog's targets); no value: all.
    void SetOnly(std::optional<std::vector<int32_t>> ids);
    bool IsFiltering() const;
    /// Speakers shown (once each).
    int VisibleSpeakerCount() const;

    bool setData(const QModelIndex& index, const QVariant& value, int role = Qt::EditRole) override;

protected:
    bool filterAcceptsRow(int sourceRow, const QModelIndex& sourceParent) const override;

private:
    bool SpeakerAccepted(const QModelIndex& sourceIndex) const;
    bool PartitionAccepted(int32_t partitionId) const;
    void Refilter();

    QString text_;
    std::optional<SpeakerLiveState> state_;
    std::optional<int32_t> partition_;
    std::optional<std::vector<int32_t>> only_;
};

}  // namespace BroadCastPlugin
