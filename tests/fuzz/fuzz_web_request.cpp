// libFuzzer target: the requests of the module's web pages. Input fields are separated by 0x01:
//   page request (JSON) 0x01 platform answer 0x01 method name
// The page request goes through the web controller's request readers (CWebBroadcastController reads its
// start, download and listen requests with them before it hands them to the broadcast controller), through
// the recording page's listing (its criteria, then the platform's answer, which a transport in place of the
// network hands back for every call the listing makes) and, with the method name, through the site object's
// method filter. Besides crashes and hangs, the target traps when the listing answers anything but its
// answer object, asks the platform about criteria it refused, or the site object lets a method through
// that it does not allow.

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QString>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "BroadCastPlugin/controller/WebBroadcastController/WebPageBridge.h"
#include "BroadCastPlugin/controller/WebBroadcastController/WebRecordPage.h"
#include "BroadCastPlugin/logical/ProtocalFactory/ProtocalFactory.h"
#include "FuzzSupport.h"
#include "framework/netcomm/NetCommManager.h"

using namespace BroadCastPlugin;
using FuzzSupport::Check;
using NetworkCommunication::CClientRecvInfo;
using NetworkCommunication::CClientSendInfo;
using NetworkCommunication::CNetCommManager;

namespace {

std::string g_answer;
int g_requests = 0;

bool Setup() {
    FuzzSupport::QuietLogsAndLogin();
    NetworkCommunication::ServerSession session;
    session.host = "127.0.0.1";
    session.port = 1;
    CNetCommManager::Instance()->SetSession(session);
    CNetCommManager::Instance()->SetTransport(
        [](const std::string&, const CClientSendInfo&, CClientRecvInfo& recv) {
            ++g_requests;
            recv.SetVal_Receive_Data(g_answer);
            recv.SetVal_HttpStatus(200);
            recv.SetVal_Error_code(Tal::Base::Error::ErrorCode());
            return true;
        });
    return true;
}
const bool g_ready = Setup();

// The web controller's readers, as its StartIPSpeakerBroadcast, DownloadMediaFile and StartBroadcastListen
// use them.
void ReadControllerRequests(const std::string& json) {
    StartIPSpeakerRequest start;
    if (CProtocalFactory::ParseStartIPSpeakerJson(json, start)) {
        Check(start.mode == kRequestModeSpeak || start.mode == kRequestModeFile);
    }
    int32_t fileID = -1;
    CProtocalFactory::ParseDownloadMediaFileRequest(json, fileID);
    ListenRequest listen;
    CProtocalFactory::ParseListenRequest(json, listen);
}

void ListRecords(const std::string& criteria) {
    const QString text = QString::fromUtf8(criteria.data(), static_cast<int>(criteria.size()));
    QJsonParseError criteriaError;
    const QJsonDocument criteriaDoc = QJsonDocument::fromJson(text.toUtf8(), &criteriaError);
    const bool refused = !text.trimmed().isEmpty() &&
                         (criteriaError.error != QJsonParseError::NoError || !criteriaDoc.isObject());
    g_requests = 0;
    const QString answer = CWebRecordPage::ListRecordsNow(text);
    QJsonParseError error;
    const QJsonDocument doc = QJsonDocument::fromJson(answer.toUtf8(), &error);
    Check(error.error == QJsonParseError::NoError && doc.isObject());
    const QJsonObject root = doc.object();
    Check(root.value("Records").isArray());
    Check(root.value("ErrorInfo").isString());
    const bool failed = !root.value("ErrorInfo").toString().isEmpty();
    if (refused) {
        Check(failed && g_requests == 0);  // refused criteria never reach the platform
    } else {
        Check(g_requests >= 1);
    }
    if (failed) {
        Check(root.value("Records").toArray().isEmpty());
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    (void)g_ready;
    const std::vector<std::string> fields = FuzzSupport::SplitFields(data, size);
    const std::string& request = fields[0];
    g_answer = fields.size() > 1 ? fields[1] : std::string();

    ReadControllerRequests(request);
    ListRecords(request);

    if (fields.size() > 2) {
        const QString method = QString::fromUtf8(fields[2].data(), static_cast<int>(fields[2].size()));
        CWebSiteInfo site;
        const QString answer =
            site.Call(method, QString::fromUtf8(request.data(), static_cast<int>(request.size())));
        if (!CWebSiteInfo::IsAllowed(method)) {
            Check(answer == QStringLiteral("{\"Error\":\"not allowed\"}"));
        } else {
            Check(method == "Config" || method == "BroadcastTerminals" || method == "WorkState");
        }
    }
    return 0;
}
