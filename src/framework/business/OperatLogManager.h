#pragma once
// The platform's operation log: business actions of the logged-in user (broadcast start and stop, listen
// start and stop...) written as they happen.

#include <ctime>
#include <string>

namespace BusinessCommon {

/// One operation-log entry.
class COperationLogStruct {
public:
    /// Type number of the action (265001 broadcast start, 265002 broadcast stop, 203001 listen start, ...).
    void SetVal_log_type(int type) { logType_ = type; }
    int GetVal_log_type() const { return logType_; }
    /// When it happened, in seconds since the epoch.
    void SetVal_tmOccur(time_t seconds) { occur_ = seconds; }
    time_t GetVal_tmOccur() const { return occur_; }
    /// The resources it concerned, as the user sees them ("Hall A,Lobby").
    void SetVal_strElementName(const std::string& name) { elementName_ = name; }
    const std::string& GetVal_strElementName() const { return elementName_; }

private:
    int logType_ = 0;
    time_t occur_ = 0;
    std::string elementName_;
};

class COperatLogManager {
public:
    static COperatLogManager* Instance();

    /// Writes one entry to the platform's operation log (the platform records the session's user).
    /// Synchronous; false with the thread's last error set and a log line when the platform cannot be
    /// reached or refuses the entry.
    bool AddOperationLog(const COperationLogStruct& log);
};

}  // namespace BusinessCommon
