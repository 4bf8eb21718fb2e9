#pragma once
// Video tool library: the voice environment (audio back end), the device broadcast manager and the
// voice-talk address request.

#include <string>

namespace ORVVideoComm {

/// Answer of a voice-talk address request: where to listen and how to authenticate.
class CVoiceTalkRequestObserverParam {
public:
    const std::string& GetVal_strUrl() const { return url_; }
    void SetVal_strUrl(const std::string& url) { url_ = url; }
    const std::string& GetVal_str_username() const { return userName_; }
    void SetVal_str_username(const std::string& userName) { userName_ = userName; }
    const std::string& GetVal_strPassword() const { return password_; }
    void SetVal_strPassword(const std::string& password) { password_ = password; }
    const std::string& GetVal_str_token() const { return token_; }
    void SetVal_str_token(const std::string& token) { token_ = token; }

private:
    std::string url_;
    std::string userName_;
    std::string password_;
    std::string token_;
};

}  // namespace ORVVideoComm

namespace ORVVideoTool {

/// Brings the audio back end up. `configJson` must be a JSON object with "/GeneralInit" true; the other
/// keys ("/CirroInit", "/CirroLoadPath") are recorded. Repeated calls count; each needs an UnInit.
/// False (with the thread's last error set) on malformed configuration or when the back end fails.
bool InitVoiceEnvir(const std::string& configJson);
/// Releases one InitVoiceEnvir; false when there is nothing to release or the back end fails.
bool UnInitVoiceEnvir();
/// Whether the audio back end is up, and the load path given at start-up.
bool IsVoiceEnvirInit();
std::string GetVoiceEnvirLoadPath();

/// Asks the platform for the address at which a device's audio can be heard.
/// Arguments: the answer, the device id, its device type, the channel (0 for the device), whether to
/// listen (true) rather than talk, and the audio encode type.
bool RequestVoiceTalkUrl(ORVVideoComm::CVoiceTalkRequestObserverParam& answer, int deviceId, int deviceType,
                         int channel, bool listen, int encodeType);

}  // namespace ORVVideoTool

namespace TOOL {

/// A broadcast request to devices that are not IP speakers.
struct CRequestBroadcast {
    std::string device_ids;  ///< device ids joined with commas
    std::string file_path;
    int i_record = 0;
    std::string group_id;
    int type = 0;
};

struct DeviceStatusNotice;

/// Receives each device broadcast status message (a JSON text) with the context given at registration.
using BroadcastResoluteCallback = void (*)(const std::string& message, void* context);

/// Broadcasts to non-speaker devices and reports their status through one callback.
class CBroadcastBusinessManager {
public:
    static bool InitManager();
    static bool UninitManager();
    static bool IsInit();
    static void SetBroadcastResoluteCallback(BroadcastResoluteCallback callback, void* context);
    /// Offers a server push text; status messages of device broadcasts (objects with "NotifyType") are
    /// passed to the callback. Returns whether the text was passed on.
    static bool PushBroadcastState(const std::string& text);
    /// The same for a push whose status fields were already read from its parsed document.
    static bool PushBroadcastState(const DeviceStatusNotice& notice, const std::string& text);
    static bool StartBroadcast(const CRequestBroadcast& request);
    /// Ends the running device broadcast; true when none runs.
    static bool StopBroadcast();
};

}  // namespace TOOL
