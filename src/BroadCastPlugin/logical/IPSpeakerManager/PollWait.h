#pragma once
// The speaker manager's waits: they poll the speaker states every 500 ms, with no time-out of their own
// (a stop ends them through the condition).

#include <functional>

namespace BroadCastPlugin {

constexpr int kPollIntervalMs = 500;

/// Returns once `waiting` is false, checking it every kPollIntervalMs.
void PollWhile(const std::function<bool()>& waiting);

}  // namespace BroadCastPlugin
