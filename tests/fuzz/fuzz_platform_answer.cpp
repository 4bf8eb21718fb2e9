// libFuzzer target: the module's readers of the platform's answers to each REST call it makes. The first
// byte selects the call, the rest is the answer body the platform sends back; the calls run unchanged, with
// the network replaced by a transport that hands them that body. Besides crashes and hangs, the target traps
// when a refused answer leaves anything in the caller's results or an accepted one breaks what the reader
// promises.

#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "BroadCastPlugin/logical/ServerInteractive/BroadcastSession/BroadcastSession.h"
#include "FuzzSupport.h"
#include "framework/business/BusinessCommon.h"
#include "framework/business/StreamConfigManager.h"
#include "framework/netcomm/NetCommManager.h"
#include "framework/netcomm/PlatformRequest.h"

using namespace BroadCastPlugin;
using FuzzSupport::Check;
using NetworkCommunication::CClientRecvInfo;
using NetworkCommunication::CClientSendInfo;
using NetworkCommunication::CNetCommManager;

namespace {

// The answer of the current input and how the transport delivers it.
std::string g_answer;
bool g_transportFails = false;
int g_requests = 0;

bool Setup() {
    FuzzSupport::QuietLogsAndLogin();
    NetworkCommunication::ServerSession session;
    session.host = "127.0.0.1";
    session.port = 1;
    CNetCommManager::Instance()->SetSession(session);
    // Media files are given local paths below the capture directory, which is created on demand.
    BusinessCommon::CFrameSystemConfigMgr::Instance()->SetVideoCaptureDataPath(
        FuzzSupport::ScratchDir("fuzz_platform_answer") + "/");
    CNetCommManager::Instance()->SetTransport(
        [](const std::string& url, const CClientSendInfo& send, CClientRecvInfo& recv) {
            ++g_requests;
            Check(url.rfind("http://127.0.0.1:1/", 0) == 0);
            Check(!send.GetVal_Method().empty());
            recv.SetVal_Receive_Data(g_answer);
            if (g_transportFails) {
                // A refused request whose body the platform still filled.
                recv.SetVal_HttpStatus(401);
                recv.SetVal_Error_code(Tal::Base::Error::ErrorCode(Tal::Base::Error::kSubSystemClient,
                                                                   NetworkCommunication::kModuleHttp, 401));
                return false;
            }
            recv.SetVal_HttpStatus(200);
            recv.SetVal_Error_code(Tal::Base::Error::ErrorCode());
            return true;
        });
    return true;
}
const bool g_ready = Setup();

// Every call in this list; the first input byte picks one.
void RunCall(int call) {
    switch (call) {
        case 0: {
            std::vector<BroadcastPartition> partitions(1);
            const bool ok = CBroadcastSession::GetBroadcastPartitionList(partitions);
            Check(ok || partitions.size() == 1);
            break;
        }
        case 1: {
            std::vector<BroadcastTerminal> terminals(1);
            const bool ok = CBroadcastSession::GetAllBroadcastTerminalList(terminals);
            Check(ok || terminals.size() == 1);
            break;
        }
        case 2: {
            std::vector<MediaDirectory> directories(1);
            const bool ok = CBroadcastSession::GetMediaDirectorys(-1, directories);
            Check(ok || directories.size() == 1);
            for (std::size_t i = 1; i < directories.size(); ++i) {
                for (const MediaDirectory& child : directories[i].Children) {
                    Check(child.ParentID == directories[i].ID);  // only direct children are attached
                }
            }
            break;
        }
        case 3: {
            std::vector<MediaFile> files(1);
            const bool ok = CBroadcastSession::GetMediaFiles(7, "", files);
            Check(ok || files.size() == 1);
            break;
        }
        case 4: {
            MediaFile file;
            file.ID = 1234;
            if (!CBroadcastSession::GetMediaFileByID(1234, file)) {
                Check(file.ID == 1234);  // a refused answer leaves the file as it was
            }
            break;
        }
        case 5: {
            BroadcastBaseConfig config;
            CBroadcastSession::GetBaseConfig(config);
            break;
        }
        case 6: {
            LocalCloudStorageConfig config;
            CBroadcastSession::GetLocalCloudStorageConfig(config);
            break;
        }
        case 7:
            CBroadcastSession::GetFilePoolName(3);
            break;
        case 8: {
            BroadcastRecordInfo record;
            record.ElementIDs = {1001, 1002};
            record.FileName = "talk.wav";
            record.Format = "wav";
            CBroadcastSession::UploadBroadcastRecord(record);
            break;
        }
        case 9: {
            BroadcastRecordQuery query;
            query.ElementID = 1001;
            std::vector<BroadcastRecordEntry> records(1);
            int32_t total = -77;
            const bool ok = CBroadcastSession::GetBroadcastRecords(query, records, &total);
            if (!ok) {
                Check(records.size() == 1);  // a refused answer appends nothing
                Check(total == -77);
            }
            break;
        }
        case 10:
            CBroadcastSession::NotifyServerBroadcastStatus(1, "guid", {"1001", "1002"}, ErrorCode());
            break;
        case 11: {
            TTSRequestParam tts;
            tts.elementIDs = {1001, 1002, 1003};
            tts.CustomContent = "text";
            std::vector<TTSResponseError> errors;
            if (CBroadcastSession::StartBroadcastByTTS(tts, errors)) {
                Check(errors.size() < tts.elementIDs.size());  // started: some speaker did not fail
            }
            break;
        }
        case 12: {
            TTSLanguageInfo languages;
            CBroadcastSession::GetBroadCastTTSLanuage("en-US", languages);
            break;
        }
        case 13: {
            BroadcastUrlRequest request;
            request.ResourceIDs = "1001,1002";
            BroadcastUrlResult result;
            if (!CBroadcastSession::GetBroadcastUrl({request}, result)) {
                Check(result.Urls.empty());
            }
            break;
        }
        case 14:
            CBroadcastSession::StartPromptVoice({"guid-a", "guid-b"});
            CBroadcastSession::StopPromptVoice({"guid-a"});
            break;
        case 15: {
            NetworkCommunication::CRapidJsonProto answer;
            const bool ok = NetworkCommunication::CallPlatform("GET", "/DXAPI/x", "", answer);
            if (ok) {
                Check(answer.is_exist("/ResponseStatus"));
            }
            NetworkCommunication::DescribeError(Tal::Base::Error::GetLastError());
            break;
        }
        case 16: {
            auto* streams = BusinessCommon::CStreamConfigManager::Instance();
            streams->ClearStreamAccessTypes();  // asked, not taken from an earlier input's cache
            streams->GetStreamAccessTypeByIpspeakerID(101);
            break;
        }
        default: {
            auto* streams = BusinessCommon::CStreamConfigManager::Instance();
            streams->ClearStreamAccessTypes();
            const bool ok = streams->RefreshStreamAccessTypes();
            Check(ok == streams->IsCacheEnabled());  // a refused answer leaves the cache off
            streams->GetStreamAccessTypeByIpspeakerID(101);
            streams->ClearStreamAccessTypes();
            break;
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    (void)g_ready;
    if (size == 0) {
        return 0;
    }
    constexpr int kCalls = 18;
    g_answer.assign(reinterpret_cast<const char*>(data) + 1, size - 1);
    g_transportFails = data[0] >= 0xF0;
    g_requests = 0;
    RunCall(data[0] % kCalls);
    Check(g_requests >= 1);  // every call asks the platform
    return 0;
}
