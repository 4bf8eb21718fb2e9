#pragma once
// Custom text spoken by the platform (text-to-speech) on the chosen speakers: the text, one of the
// platform's TTS languages, play and stop, and each speaker's result.

#include <QWidget>

#include <set>

#include "BroadCastPlugin/ui/panels/tabs/BroadcastTab.h"

class QComboBox;
class QLabel;
class QPlainTextEdit;
class QPushButton;
class QTreeWidget;

namespace BroadCastPlugin {

class CTextTab : public CBroadcastTab {
    Q_OBJECT

public:
    explicit CTextTab(IConsoleContext* context, QWidget* parent = nullptr);

    void RefreshControls() override;
    void OnSiteChanged() override;
    void OnBroadcastStopped() override;
    void OnTTSResult(const std::vector<TTSResponseError>& errors);

    /// Result text shown for a speaker, empty when it has none.
    QString ResultOf(int32_t elementId) const;

private:
    void OnOwnBroadcastEvents(const std::vector<IPSpeakerNotifyParam>& events) override;
    void Play();
    void SetResult(int32_t elementId, const QString& text);

    QPlainTextEdit* text_;
    QComboBox* language_;
    QPushButton* play_;
    QPushButton* stop_;
    QTreeWidget* results_;
    QLabel* state_;
    bool awaitingAnswer_ = false;
    std::set<int32_t> speaking_;  ///< speakers that have not finished yet
    std::set<int32_t> started_;   ///< speakers that were heard to start
};

}  // namespace BroadCastPlugin
