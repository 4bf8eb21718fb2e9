#include "framework/errortext/ErrorCodeTrans.h"

#include <cstdio>
#include <mutex>

namespace ErrorCodeTrans {

namespace {

struct ErrorText {
    int module;
    int code;
    const char* english;
    const char* chinese;
};

// Module 1: the device network interface; 10: the client framework; 20: the broadcast module; 25 and 61:
// streaming client; 29: audio devices; 60: object storage client.
const ErrorText kTexts[] = {
    {1, 1, "The device refused the user name or password.", "设备拒绝了用户名或密码。"},
    {1, 2, "The device refused the request.", "设备拒绝了该请求。"},
    {1, 4, "The device does not have the channel or refused it.", "设备没有该通道或拒绝了该通道。"},
    {1, 5, "The device's channel is already talking.", "设备通道正在对讲中。"},
    {1, 7, "The device cannot be reached.", "无法连接设备。"},
    {1, 8, "The connection to the device broke while sending.", "向设备发送数据时连接中断。"},
    {1, 9, "The connection to the device broke, or the device answered badly.",
     "与设备的连接中断或设备应答异常。"},
    {1, 10, "The device did not answer in time.", "设备应答超时。"},
    {1, 23, "The device does not support the request.", "设备不支持该请求。"},
    {1, 50, "The device does not take the audio fast enough.", "设备接收音频过慢。"},
    {1, 52, "The device accepts no login now.", "设备当前不允许登录。"},
    {10, 1, "The operation is not available in this version of the client.", "当前客户端版本不支持该操作。"},
    {10, 2, "The request is invalid.", "请求参数无效。"},
    {10, 3, "The platform returned an empty or malformed response.", "平台返回的数据为空或格式错误。"},
    {10, 4, "The platform does not know the requested resources.", "平台上不存在所请求的资源。"},
    {10, 5, "A broadcast of this kind is already running.", "已有同类广播正在进行。"},
    {10, 6, "None of the devices could be reached.", "所有设备均无法连接。"},
    {10, 7, "The broadcast was stopped before it started.", "广播在启动完成前被停止。"},
    {20, 2001, "The platform returned an empty or malformed response.", "平台返回的数据为空或格式错误。"},
    {20, 2002, "The client is on the WAN, but the platform has not opened its WAN port.",
     "客户端位于外网，但平台未开放外网端口。"},
    {20, 3403, "The storage client could not start; the recording was not uploaded.",
     "存储客户端启动失败，录音未上传。"},
    {20, 3404, "The storage client could not start; the media file was not downloaded.",
     "存储客户端启动失败，媒体文件未下载。"},
    {25, 100860, "Sending audio to the streaming server failed.", "向流媒体服务器发送音频失败。"},
    {29, 5, "No sound card was found.", "未找到声卡。"},
    {29, 99, "The sound card could not be opened.", "无法打开声卡。"},
    {60, 1, "The storage configuration is incomplete (address, port, pool or keys).",
     "存储配置不完整（地址、端口、存储池或密钥）。"},
    {60, 2, "The storage client was not started.", "存储客户端未启动。"},
    {60, 3, "The local file cannot be read.", "无法读取本地文件。"},
    {60, 4, "The local file cannot be written.", "无法写入本地文件。"},
    {60, 5, "The storage cannot be reached.", "无法连接存储。"},
    {60, 6, "The storage's certificate was not accepted.", "存储证书校验失败。"},
    {60, 7, "The storage refused the access keys.", "存储拒绝了访问密钥。"},
    {60, 8, "The storage has no such pool or file.", "存储中不存在该存储池或文件。"},
    {60, 9, "The storage reported an error.", "存储返回错误。"},
    {60, 10, "The transfer with the storage broke off.", "与存储的传输中断。"},
    {60, 11, "The file's address on the storage is not valid.", "文件的存储地址无效。"},
    {60, 12, "The transfer was cancelled.", "传输已取消。"},
    {61, 0, "The streaming client failed.", "流媒体客户端出错。"},
};

std::mutex g_mutex;
bool g_chinese = false;
std::string g_language = "en_US";

}  // namespace

bool InitLanguale(const std::string& language) {
    std::lock_guard<std::mutex> lock(g_mutex);
    g_language = language;
    g_chinese = language.rfind("zh", 0) == 0;
    return true;
}

std::string GetLanguage() {
    std::lock_guard<std::mutex> lock(g_mutex);
    return g_language;
}

std::string GetErrorInfoByErrorCode(const Tal::Base::Error::ErrorCode& error) {
    if (error.IsSucceed()) {
        return std::string();
    }
    bool chinese;
    {
        std::lock_guard<std::mutex> lock(g_mutex);
        chinese = g_chinese;
    }
    const int module = error.GetMainErrorCode();
    const int code = error.GetSubErrorCode();
    std::string text;
    const ErrorText* moduleWide = nullptr;
    for (const auto& entry : kTexts) {
        if (entry.module == module && entry.code == code) {
            text = chinese ? entry.chinese : entry.english;
            break;
        }
        if (entry.module == module && entry.code == 0) {
            moduleWide = &entry;
        }
    }
    char numbers[96];
    if (text.empty()) {
        if (moduleWide != nullptr) {
            text = chinese ? moduleWide->chinese : moduleWide->english;
            std::snprintf(numbers, sizeof(numbers), chinese ? "（错误码 %d）" : " (code %d)", code);
        } else if (error.GetSubSystemErrorCode() == Tal::Base::Error::kSubSystemServer) {
            std::snprintf(numbers, sizeof(numbers),
                          chinese ? "平台返回错误（模块 %d，错误码 %d）。"
                                  : "The platform reported an error (module %d, code %d).",
                          module, code);
        } else {
            std::snprintf(
                numbers, sizeof(numbers),
                chinese ? "未知错误（模块 %d，错误码 %d）。" : "Unknown error (module %d, code %d).", module,
                code);
        }
        text += numbers;
    }
    if (!error.GetCasadingErrorInfo().empty()) {
        text += chinese ? "：" : ": ";
        text += error.GetCasadingErrorInfo();
    }
    return text;
}

}  // namespace ErrorCodeTrans
