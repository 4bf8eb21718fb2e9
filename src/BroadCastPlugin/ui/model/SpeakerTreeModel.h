#pragma once
// The site's speakers grouped by partition, with each speaker's live state and the operator's choice of
// targets. A speaker of several partitions appears under each; its choice and state are one.

#include <QAbstractItemModel>
#include <QString>

#include <map>
#include <set>
#include <vector>

#include "BroadCastPlugin/ui/model/SpeakerLiveState.h"

namespace BroadCastPlugin {

/// One speaker (a broadcast terminal) as the console lists it.
struct ConsoleSpeaker {
    int32_t id = -1;
    QString name;
    QString address;  ///< "ip:port" of its device, empty while unknown
    QString area;
    std::vector<int32_t> partitions;  ///< empty: outside every partition
    int32_t volume = -1;
    bool online = true;
};

struct ConsolePartition {
    int32_t id = -1;
    QString name;
};

class CSpeakerTreeModel : public QAbstractItemModel {
    Q_OBJECT

public:
    enum Column { kColumnName = 0, kColumnState, kColumnAddress, kColumnArea, kColumnCount };
    enum Role {
        kSpeakerIdRole = Qt::UserRole + 1,  ///< element id of a speaker row; -1 on partition rows
        kPartitionIdRole,                   ///< partition id of a partition row or of a speaker row's parent
        kStateRole,                         ///< SpeakerLiveState of a speaker row, as int
        kSearchTextRole,                    ///< name and address of a speaker row
    };
    /// Partition id of the group of speakers outside every partition.
    static constexpr int32_t kNoPartition = -1;

    explicit CSpeakerTreeModel(QObject* parent = nullptr);

    /// Replaces the site. The choice and the live state of speakers still present are kept.
    void SetSite(const std::vector<ConsolePartition>& partitions,
                 const std::vector<ConsoleSpeaker>& speakers);
    /// Applies the controller's events; returns the ids whose shown state changed.
    std::vector<int32_t> ApplyEvents(const std::vector<IPSpeakerNotifyParam>& events);
    /// Ends the shown broadcast states (see ResetSpeaker).
    void ResetStates(bool clearFailures);

    std::vector<int32_t> CheckedIds() const;
    void SetChecked(const std::vector<int32_t>& ids, bool checked);
    void ClearChecked();
    int SpeakerCount() const { return static_cast<int>(speakers_.size()); }
    /// Speakers shown in a state.
    int CountInState(SpeakerLiveState state) const;
    QString SpeakerName(int32_t id) const;
    SpeakerLiveState StateOf(int32_t id) const;
    bool HasSpeaker(int32_t id) const { return speakers_.count(id) != 0; }
    std::vector<ConsolePartition> Partitions() const { return partitions_; }
    std::vector<int32_t> SpeakersOfPartition(int32_t partitionId) const;

    QModelIndex index(int row, int column, const QModelIndex& parent = QModelIndex()) const override;
    QModelIndex parent(const QModelIndex& child) const override;
    int rowCount(const QModelIndex& parent = QModelIndex()) const override;
    int columnCount(const QModelIndex& parent = QModelIndex()) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
    bool setData(const QModelIndex& index, const QVariant& value, int role = Qt::EditRole) override;
    Qt::ItemFlags flags(const QModelIndex& index) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;

signals:
    void CheckedChanged(int count);
    void StatesChanged();

private:
    struct Speaker {
        ConsoleSpeaker entry;
        SpeakerLive live;
    };
    const Speaker* SpeakerAt(const QModelIndex& index) const;
    Qt::CheckState PartitionCheckState(int partitionRow) const;
    QVariant SpeakerData(const Speaker& speaker, int column, int role) const;
    QVariant PartitionData(int row, int column, int role) const;
    /// Emits dataChanged for every row that shows one of these speakers, and for their partitions.
    void SpeakersChanged(const std::set<int32_t>& ids);

    std::vector<ConsolePartition> partitions_;
    std::vector<std::vector<int32_t>> members_;  ///< speaker ids per partition row
    std::map<int32_t, Speaker> speakers_;
    std::set<int32_t> checked_;
};

}  // namespace BroadCastPlugin
