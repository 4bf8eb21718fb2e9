#pragma once
// What the console's tabs share: the chosen targets, the site, the prompts and which broadcast runs. The
// module runs one broadcast (talk, file or text) at a time; listening and device broadcasts run beside it.

#include <QString>

#include <vector>

#include "BroadCastPlugin/ui/model/ConsoleSite.h"
#include "BroadCastPlugin/ui/model/SpeakerTreeModel.h"

namespace BroadCastPlugin {

enum class ConsoleActivity { None, Talk, File, Text };

class IConsoleContext {
public:
    virtual ~IConsoleContext() = default;
    /// Element ids of the chosen speakers.
    virtual std::vector<int32_t> Targets() const = 0;
    virtual CSpeakerTreeModel* Speakers() const = 0;
    virtual const ConsoleSiteData& Site() const = 0;
    virtual void Prompt(const char* level, const QString& text) = 0;
    virtual void Log(const QString& line) = 0;
    /// The tag this console's requests carry, so that only its own results are taken as answers.
    virtual void* RequestTag() = 0;
    virtual ConsoleActivity Activity() const = 0;
    virtual void SetActivity(ConsoleActivity activity) = 0;
    /// Asks the controller to stop the running broadcast.
    virtual bool StopBroadcast() = 0;
};

/// A tab of the console: told when the site, the targets or the running broadcast change.
class IConsoleTab {
public:
    virtual ~IConsoleTab() = default;
    virtual void RefreshControls() = 0;
    virtual void OnSiteChanged() {}
    virtual void OnBroadcastEvents(const std::vector<IPSpeakerNotifyParam>& /*events*/) {}
    /// The running broadcast ended (stopped by anyone).
    virtual void OnBroadcastStopped() {}
};

}  // namespace BroadCastPlugin
