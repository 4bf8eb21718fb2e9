#include "framework/business/BusinessCommon.h"

#include <chrono>
#include <thread>

#include "framework/base/Singleton.h"

namespace BusinessCommon {

namespace {
std::mutex g_languageMutex;
std::string g_language = "en_US";

std::string WithTrailingSlash(std::string path) {
    for (char& c : path) {
        if (c == '\\') {
            c = '/';
        }
    }
    if (!path.empty() && path.back() != '/') {
        path.push_back('/');
    }
    return path;
}
}  // namespace

bool InitBusinessCommon(void* /*reserved*/, const std::string& language) {
    if (!language.empty()) {
        SetLanguage(language);
    }
    CMessageLoopForNetworkComm::Instance()->Start();
    return true;
}

void UnInitBusinessCommon() {
    CMessageLoopForNetworkComm::Instance()->Stop();
}

std::string GetLanguage() {
    std::lock_guard<std::mutex> lock(g_languageMutex);
    return g_language;
}

void SetLanguage(const std::string& language) {
    std::lock_guard<std::mutex> lock(g_languageMutex);
    g_language = language;
}

void MSleep(int milliseconds) {
    if (milliseconds > 0) {
        std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
    }
}

CFrameSystemConfigMgr* CFrameSystemConfigMgr::Instance() {
    return Tal::Base::CSingleton<CFrameSystemConfigMgr>::Instance();
}

std::string CFrameSystemConfigMgr::GetClientDataPath() const {
    return Get(&CFrameSystemConfigMgr::clientDataPath_);
}

void CFrameSystemConfigMgr::SetClientDataPath(const std::string& path) {
    Set(&CFrameSystemConfigMgr::clientDataPath_, WithTrailingSlash(path));
}

std::string CFrameSystemConfigMgr::GetVideoCaptureDataPath() const {
    return Get(&CFrameSystemConfigMgr::captureDataPath_);
}

void CFrameSystemConfigMgr::SetVideoCaptureDataPath(const std::string& path) {
    Set(&CFrameSystemConfigMgr::captureDataPath_, WithTrailingSlash(path));
}

int CFrameSystemConfigMgr::GetNetOverTime() const {
    return Get(&CFrameSystemConfigMgr::netOverTime_);
}

void CFrameSystemConfigMgr::SetNetOverTime(int level) {
    Set(&CFrameSystemConfigMgr::netOverTime_, level);
}

CMessageLoopForNetworkComm* CMessageLoopForNetworkComm::Instance() {
    return Tal::Base::CSingleton<CMessageLoopForNetworkComm>::Instance();
}

bool CMessageLoopForNetworkComm::PostTask(std::shared_ptr<Tal::Base::CTask> task) {
    return loop_.PostTask(std::move(task));
}

int CMessageLoopForNetworkComm::GetAllTaskCount() const {
    return loop_.GetAllTaskCount();
}

bool CMessageLoopForNetworkComm::Start() {
    return loop_.IsRunning() || loop_.Start();
}

void CMessageLoopForNetworkComm::Stop() {
    loop_.Stop();
}

}  // namespace BusinessCommon
