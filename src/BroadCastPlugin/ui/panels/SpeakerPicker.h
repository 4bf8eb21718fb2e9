#pragma once
// Choosing the targets: the speaker tree with its filters (text on name and address, state, partition),
// the number chosen and a summary of the speakers' states.

#include <QWidget>

#include "BroadCastPlugin/ui/model/SpeakerFilterProxy.h"
#include "BroadCastPlugin/ui/model/SpeakerTreeModel.h"

class QComboBox;
class QLabel;
class QLineEdit;
class QPushButton;
class QTreeView;

namespace BroadCastPlugin {

class CSpeakerPicker : public QWidget {
    Q_OBJECT

public:
    explicit CSpeakerPicker(CSpeakerTreeModel* model, QWidget* parent = nullptr);

    CSpeakerFilterProxy* Proxy() const { return proxy_; }
    QTreeView* Tree() const { return tree_; }
    /// Fills the partition filter from the model.
    void OnSiteChanged();

private:
    void BuildLayout();
    void ConnectControls();
    void UpdateCounts();

    CSpeakerTreeModel* model_;
    CSpeakerFilterProxy* proxy_;
    QLineEdit* search_;
    QComboBox* state_;
    QComboBox* partition_;
    QTreeView* tree_;
    QPushButton* chooseShown_;
    QPushButton* clear_;
    QLabel* chosen_;
    QLabel* summary_;
};

}  // namespace BroadCastPlugin
