// libFuzzer target: the JSON requests other plugins send to the module's named methods
// ("/API/Broadcast/V0/<name>"), read as the method handlers read them before they start any work. Each
// input runs through every request reader (each one looks at its own part of the text). Besides crashes and
// hangs, the target traps when a reader accepts a request that breaks what it promises to its handler.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "BroadCastPlugin/logical/ProtocalFactory/ProtocalFactory.h"
#include "FuzzSupport.h"

using namespace BroadCastPlugin;
using FuzzSupport::Check;

namespace {

const bool g_ready = (FuzzSupport::QuietLogs(), true);

std::string Join(const std::vector<int32_t>& ids) {
    std::string text;
    for (std::size_t i = 0; i < ids.size(); ++i) {
        text += (i == 0 ? "" : ",") + std::to_string(ids[i]);
    }
    return text;
}

// An accepted id list reads back the same from its canonical form.
void CheckIdList(const std::string& text) {
    std::vector<int32_t> ids{42};
    if (!CProtocalFactory::ParseElementIDs(text, ids)) {
        return;
    }
    Check(text.empty() == ids.empty());
    std::vector<int32_t> again;
    Check(CProtocalFactory::ParseElementIDs(Join(ids), again));
    Check(again == ids);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    (void)g_ready;
    const std::string json(reinterpret_cast<const char*>(data), size);

    CheckIdList(json);

    StartIPSpeakerRequest start;
    if (CProtocalFactory::ParseStartIPSpeakerJson(json, start)) {
        Check(start.mode == kRequestModeSpeak || start.mode == kRequestModeFile);
        Check(start.mode == kRequestModeFile || start.mediaFilePath.empty());
    }

    bool isRegister = false;
    std::string pluginID;
    if (CProtocalFactory::ParseRegisterMessageRequest(json, isRegister, pluginID)) {
        Check(!pluginID.empty());
    }

    RecordTaskParam record;
    CProtocalFactory::ParseUploadRecordFileJson(json, record);

    ListenRequest listen;
    CProtocalFactory::ParseListenRequest(json, listen);

    int32_t fileID = -5;
    if (!CProtocalFactory::ParseDownloadMediaFileRequest(json, fileID)) {
        Check(fileID == -5);  // a refused request leaves the id alone
    }

    TTSRequestParam tts;
    if (CProtocalFactory::ParseStartTTSJson(json, tts)) {
        Check(!tts.elementIDs.empty());
        Check(!tts.CustomContent.empty());
    }

    DeviceBroadcastRequest device;
    if (CProtocalFactory::ParseStartDeviceBroadcastJson(json, device)) {
        Check(!device.deviceIDs.empty());
    }
    return 0;
}
