#pragma once
// The broadcast panel that the host embeds (the tool panel) and the pop-up broadcast dialog opened for
// other parts of the client with a request already filled in. Both are a console over the same site.

#include <QDialog>
#include <QWidget>

#include "BroadCastPlugin/ui/PopPannelParam.h"
#include "BroadCastPlugin/ui/panels/BroadcastConsole.h"

class QLabel;

namespace BroadCastPlugin {

class CBroadcastPanel : public QWidget {
    Q_OBJECT

public:
    explicit CBroadcastPanel(CConsoleSite* site, QWidget* parent = nullptr);
    ~CBroadcastPanel() override;

    CBroadcastConsole* Console() const { return console_; }
    void AppendEvent(const QString& text) { console_->AppendEvent(text); }
    void SetStatus(const QString& text) { console_->SetStatus(text); }
    int EventCount() const { return console_->EventCount(); }
    QStringList Events() const { return console_->Events(); }

private:
    CBroadcastConsole* console_;
};

/// Kinds of broadcast a pop-up request may ask for ("/BroadCast/Type").
enum PopBroadcastType {
    kPopTalk = 0,    ///< live talk to the speakers in "data"
    kPopFile = 1,    ///< a media file (the first id of "data" that is not a speaker) to the speakers
    kPopText = 2,    ///< custom text to the speakers
    kPopListen = 3,  ///< listening to the first speaker of "data"
    kPopDevice = 4,  ///< live talk to the devices in "data"
};

class CBroadcastPopDialog : public QDialog {
    Q_OBJECT

public:
    explicit CBroadcastPopDialog(CConsoleSite* site, QWidget* parent = nullptr);
    ~CBroadcastPopDialog() override;

    /// Fills the dialog from a request: the tab of its type, its items as the chosen speakers (or devices),
    /// its names for items the site does not know, and its volume as the listening volume. With a style given only the requested
    /// speakers are listed.
    void ApplyRequest(const PopPannelParam& param);
    /// One line describing the request, as the dialog shows it.
    QString Request() const;
    CBroadcastConsole* Console() const { return console_; }

protected:
    void closeEvent(QCloseEvent* event) override;

private:
    QLabel* request_;
    CBroadcastConsole* console_;
};

}  // namespace BroadCastPlugin
