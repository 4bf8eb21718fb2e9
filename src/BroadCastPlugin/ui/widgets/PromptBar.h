#pragma once
// A strip for the console's prompts: one line in the colour of its message level that goes away by itself
// (danger and warning stay until closed or replaced). Routine events never open a modal box.

#include <QFrame>
#include <QString>

class QLabel;
class QTimer;
class QToolButton;

namespace BroadCastPlugin {

class CPromptBar : public QFrame {
    Q_OBJECT

public:
    explicit CPromptBar(QWidget* parent = nullptr);

    /// Shows `text` at `level`, one of the message levels ("brand", "neutral", "danger", "info", "remind",
    /// "success", "warning"); an unknown level shows as "info".
    void Show(const char* level, const QString& text);
    QString Level() const { return level_; }
    QString Text() const;

private:
    QLabel* text_;
    QToolButton* close_;
    QTimer* hideTimer_;
    QString level_;
};

}  // namespace BroadCastPlugin
