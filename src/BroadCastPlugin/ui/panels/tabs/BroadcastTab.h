#pragma once
// What the tabs that run one of the console's broadcasts (talk, file or text) share: the console's context,
// and the broadcast events, which reach a tab only while its own broadcast runs.

#include <QWidget>

#include <vector>

#include "BroadCastPlugin/ui/panels/ConsoleContext.h"

namespace BroadCastPlugin {

class CBroadcastTab : public QWidget, public IConsoleTab {
public:
    void OnBroadcastEvents(const std::vector<IPSpeakerNotifyParam>& events) final {
        if (context_->Activity() == activity_) {
            OnOwnBroadcastEvents(events);
        }
    }

protected:
    CBroadcastTab(IConsoleContext* context, ConsoleActivity activity, QWidget* parent)
        : QWidget(parent), context_(context), activity_(activity) {}

    /// Events of the broadcast this tab runs, while it runs.
    virtual void OnOwnBroadcastEvents(const std::vector<IPSpeakerNotifyParam>& events) = 0;

    IConsoleContext* const context_;

private:
    const ConsoleActivity activity_;
};

}  // namespace BroadCastPlugin
