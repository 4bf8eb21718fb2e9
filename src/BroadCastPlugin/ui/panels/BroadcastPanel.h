#pragma once
// The broadcast panel: shows the controller's events as they arrive.

#include <QWidget>

class QLabel;
class QListWidget;

namespace BroadCastPlugin {

class CBroadcastPanel : public QWidget {
    Q_OBJECT

public:
    explicit CBroadcastPanel(QWidget* parent = nullptr);
    ~CBroadcastPanel() override;

    /// Appends one line to the event list.
    void AppendEvent(const QString& text);
    void SetStatus(const QString& text);
    int EventCount() const;
    QStringList Events() const;

private:
    QLabel* status_;
    QListWidget* events_;
};

/// The dialog opened by the pop-panel request, showing what was asked for.
class CBroadcastPopDialog : public QWidget {
    Q_OBJECT

public:
    explicit CBroadcastPopDialog(QWidget* parent = nullptr);
    ~CBroadcastPopDialog() override;
    void SetRequest(const QString& summary);
    QString Request() const;

private:
    QLabel* request_;
};

}  // namespace BroadCastPlugin
