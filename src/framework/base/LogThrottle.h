#pragma once
// Keeps a line that repeats for every frame of a failing stream from flooding the log: of a run of
// occurrences, the 1st, 2nd, 4th, 8th, ... are logged, so a failure that lasts an hour writes about twenty
// lines instead of 180,000 and the log keeps the rest of the run.

#include <atomic>
#include <cstdint>

namespace Tal {
namespace Base {

class CLogThrottle {
public:
    /// Counts an occurrence; true when this one should be logged.
    bool Count() {
        const uint64_t n = ++count_;
        return (n & (n - 1)) == 0;
    }
    /// Occurrences since the last Reset.
    uint64_t Occurrences() const { return count_; }
    void Reset() { count_ = 0; }

private:
    std::atomic<uint64_t> count_{0};
};

}  // namespace Base
}  // namespace Tal
