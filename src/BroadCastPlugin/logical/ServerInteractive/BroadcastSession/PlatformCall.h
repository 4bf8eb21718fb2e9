#pragma once
// One call to the platform's REST interface: the request, the synchronous exchange and the check of the
// answer's envelope, {"ResponseStatus":{"ErrorModule":0,"ErrorCode":0,"CascadingErrorInfo":"","Data":{..}}}.
// The endpoint writes its own log lines through the two hooks, so that each line carries the endpoint's name.

#include <functional>
#include <string>
#include <vector>

#include "BroadCastPlugin/common/BroadcastTypes.h"
#include "framework/netcomm/RapidJsonProto.h"

namespace BroadCastPlugin {

/// Module 20 code 2001 in `subSystem`: an answer the module cannot use.
ErrorCode BadServerResponse(int subSystem);

/// Parses `raw` into `answer` and returns its "ResponseStatus": module 20 code 2001 (server subsystem) when
/// it does not parse, else the server's module and code with its cascading text (sub code 0 on success).
ErrorCode CheckEnvelope(const std::string& raw, NetworkCommunication::CRapidJsonProto& answer);

/// Logs a long answer in pieces of 1024 characters, so that the logger does not cut it.
void LogInPieces(const std::string& text, bool terminals);

/// "<list>[i]/": the i-th (from 1) entry of a list in a JSON path.
std::string Item(const std::string& list, int oneBasedIndex);
/// The paths of all the entries of the list at `list` in `answer`, in order ("<list>[1]/", "<list>[2]/"...).
std::vector<std::string> Items(const NetworkCommunication::CRapidJsonProto& answer, const std::string& list);

class CPlatformCall {
public:
    using TransportLog = std::function<void(const ErrorCode& transport)>;
    using AnswerLog = std::function<void(const std::string& raw)>;

    /// A non-zero `pattern` is handed to the transport (2: a query).
    CPlatformCall(std::string method, std::string path, std::string body = std::string(), int pattern = 0);

    /// Sends the request and checks the answer. The outcome is the server's status on success (sub code 0),
    /// the transport's error (after `onTransportFailure` has logged it), module 20 code 2001 for an answer
    /// that does not parse, or the server's module and code with its cascading text. `onAnswer` sees every
    /// answer that arrived.
    ErrorCode Exchange(const TransportLog& onTransportFailure, const AnswerLog& onAnswer = nullptr);
    /// Exchange, leaving a failure as the thread's last error; true on success.
    bool Send(const TransportLog& onTransportFailure, const AnswerLog& onAnswer = nullptr);

    const std::string& Body() const { return body_; }
    const std::string& Path() const { return path_; }
    /// Whether the transport brought an answer back.
    bool Delivered() const { return delivered_; }
    bool Succeeded() const { return succeeded_; }
    const std::string& RawAnswer() const { return raw_; }
    /// The parsed answer, after a successful exchange.
    const NetworkCommunication::CRapidJsonProto& Answer() const { return answer_; }

private:
    std::string method_;
    std::string path_;
    std::string body_;
    int pattern_ = 0;
    bool delivered_ = false;
    bool succeeded_ = false;
    std::string raw_;
    NetworkCommunication::CRapidJsonProto answer_;
};

}  // namespace BroadCastPlugin
