#include "BroadCastPlugin/logical/ServerInteractive/BroadcastSession/PlatformCall.h"

#include <utility>

#include "BroadCastPlugin/BroadcastCodes.h"
#include "BroadCastPlugin/BroadcastLog.h"
#include "framework/netcomm/NetCommManager.h"

namespace BroadCastPlugin {

using NetworkCommunication::CClientRecvInfo;
using NetworkCommunication::CClientSendInfo;
using NetworkCommunication::CNetCommManager;
using Tal::Base::Error::kSubSystemServer;

ErrorCode BadServerResponse(int subSystem) {
    return ErrorCode(subSystem, kModuleBroadcast, kErrorBadServerResponse);
}

ErrorCode CheckEnvelope(const std::string& raw, NetworkCommunication::CRapidJsonProto& answer) {
    if (!answer.set_str(raw)) {
        return BadServerResponse(kSubSystemServer);
    }
    ErrorCode status(kSubSystemServer, answer.get_int_v("/ResponseStatus/ErrorModule", -1),
                     answer.get_int_v("/ResponseStatus/ErrorCode", -1));
    status.SetCasadingErrorInfo(answer.get_v("/ResponseStatus/CascadingErrorInfo", ""));
    return status;
}

void LogInPieces(const std::string& text, bool terminals) {
    std::size_t pos = 0;
    do {
        const std::string piece = text.substr(pos, 1024);
        if (terminals) {
            BCAST_LOG(3, "[%s]Get all broadcast: %s[%s(%d)]", piece.c_str());
        } else {
            BCAST_LOG(3, "[%s]%s[%s(%d)]", piece.c_str());
        }
        pos += 1024;
    } while (pos < text.size());
}

std::string Item(const std::string& list, int oneBasedIndex) {
    return list + "[" + std::to_string(oneBasedIndex) + "]/";
}

std::vector<std::string> Items(const NetworkCommunication::CRapidJsonProto& answer, const std::string& list) {
    std::vector<std::string> items;
    for (int i = 1, count = answer.get_cnt(list); i <= count; ++i) {
        items.push_back(Item(list, i));
    }
    return items;
}

CPlatformCall::CPlatformCall(std::string method, std::string path, std::string body, int pattern)
    : method_(std::move(method)), path_(std::move(path)), body_(std::move(body)), pattern_(pattern) {}

ErrorCode CPlatformCall::Exchange(const TransportLog& onTransportFailure, const AnswerLog& onAnswer) {
    delivered_ = false;
    succeeded_ = false;
    CClientSendInfo send;
    send.SetVal_Method(method_);
    send.SetVal_URL(path_);
    if (!body_.empty()) {
        send.SetVal_send_data(body_);
    }
    if (pattern_ != 0) {
        send.SetVal_Pattern(pattern_);
    }
    CClientRecvInfo recv;
    if (!CNetCommManager::Instance()->ClientSynSend(recv, send, 0)) {
        onTransportFailure(recv.GetVal_Error_code());
        return recv.GetVal_Error_code();
    }
    delivered_ = true;
    raw_ = recv.GetVal_Receive_Data();
    if (onAnswer) {
        onAnswer(raw_);
    }
    const ErrorCode status = CheckEnvelope(raw_, answer_);
    succeeded_ = status.GetSubErrorCode() == 0;
    return status;
}

bool CPlatformCall::Send(const TransportLog& onTransportFailure, const AnswerLog& onAnswer) {
    const ErrorCode outcome = Exchange(onTransportFailure, onAnswer);
    if (!succeeded_) {
        Tal::Base::Error::SetLastError(outcome);
    }
    return succeeded_;
}

}  // namespace BroadCastPlugin
