#include "framework/resource/ResourceManager.h"

#include "framework/base/FormatLog.h"
#include "framework/base/Singleton.h"
#include "framework/media/devnet/DevNet.h"

namespace ResourceManager {

using Tal::Base::Error::ErrorCode;

namespace {
/// Module number of errors of the device network interface.
constexpr int kModuleDeviceNetwork = 1;
}  // namespace

CDevice::CDevice(const DeviceInfo& info) : info_(info) {
    loginParam_.SetVal_strLoginAddress(info.ipAddress);
    loginParam_.SetVal_uLoginPort(static_cast<uint16_t>(info.port));
    loginParam_.SetVal_strUserName(info.userName);
    loginParam_.SetVal_strUserPwd(info.password);
}

CDevice::~CDevice() = default;

int CDevice::GetID() const {
    return Field(&DeviceInfo::id);
}

std::string CDevice::GetName() const {
    return Field(&DeviceInfo::name);
}

int CDevice::GetDeviceType() const {
    return Field(&DeviceInfo::deviceType);
}

int CDevice::GetAccessProtocol() const {
    return Field(&DeviceInfo::accessProtocol);
}

std::string CDevice::GetIPAddress() const {
    return Field(&DeviceInfo::ipAddress);
}

uint16_t CDevice::GetPort() const {
    return static_cast<uint16_t>(Field(&DeviceInfo::port));
}

DeviceInfo CDevice::GetInfo() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return info_;
}

void CDevice::Update(const DeviceInfo& info) {
    std::lock_guard<std::mutex> lock(mutex_);
    info_ = info;
}

void CDevice::SetIPModeLoginParam(const CLoginParam& param) {
    int staleLogin = -1;
    int id = -1;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        id = info_.id;
        if (userId_ >= 0 && loginParam_ != param) {
            staleLogin = userId_;
            userId_ = -1;
        }
        loginParam_ = param;
    }
    // A login made with other parameters may reach another device, or none: the next use logs in again.
    if (staleLogin >= 0) {
        TAL_LOG(3, "ResourceManager", "[%s]Device %d login parameters changed, logging out.[%s(%d)]", id);
        DEVNET_Logout(staleLogin);
    }
}

CLoginParam CDevice::GetIPModeLoginParam() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return loginParam_;
}

bool CDevice::IsLogin() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return userId_ >= 0;
}

int CDevice::Login(ErrorCode& error) {
    CLoginParam param;
    int id = -1;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (userId_ >= 0) {
            error = ErrorCode();
            return userId_;
        }
        param = loginParam_;
        id = info_.id;
    }
    // The login talks to the device: no lock is held meanwhile.
    DEVNET_DEVICEINFO deviceInfo{};
    const int32_t userId =
        DEVNET_Login(param.GetVal_strLoginAddress().c_str(), param.GetVal_uLoginPort(),
                     param.GetVal_strUserName().c_str(), param.GetVal_strUserPwd().c_str(), &deviceInfo);
    if (userId < 0) {
        error = ErrorCode(Tal::Base::Error::kSubSystemClient, kModuleDeviceNetwork,
                          static_cast<int>(DEVNET_GetLastError()));
        TAL_LOG(5, "ResourceManager",
                "[%s]Device login failed, device id: %d, address: %s:%u, error: %d.[%s(%d)]", id,
                param.GetVal_strLoginAddress().c_str(), static_cast<unsigned>(param.GetVal_uLoginPort()),
                error.GetSubErrorCode());
        return -1;
    }
    int duplicate = -1;
    int result = userId;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (userId_ >= 0) {
            // Another thread logged in meanwhile: keep its login.
            duplicate = userId;
            result = userId_;
        } else {
            userId_ = userId;
        }
    }
    if (duplicate >= 0) {
        DEVNET_Logout(duplicate);
    }
    error = ErrorCode();
    return result;
}

void CDevice::Logout() {
    int userId = -1;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        userId = userId_;
        userId_ = -1;
    }
    if (userId >= 0) {
        DEVNET_Logout(userId);
    }
}

int CDevice::GetUserID() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return userId_;
}

CDeviceManager* CDeviceManager::Instance() {
    return Tal::Base::CSingleton<CDeviceManager>::Instance();
}

std::shared_ptr<CDevice> CDeviceManager::FindDeviceByID(int id) const {
    return devices_.Find(id);
}

std::shared_ptr<CDevice> CDeviceManager::AddOrUpdateDevice(const DeviceInfo& info) {
    bool made = false;
    std::shared_ptr<CDevice> device = devices_.FindOrInsert(info.id, [&info, &made] {
        made = true;
        return std::make_shared<CDevice>(info);
    });
    if (!made) {
        device->Update(info);
    }
    return device;
}

void CDeviceManager::RemoveDevice(int id) {
    devices_.Remove(id);
}

std::vector<std::shared_ptr<CDevice>> CDeviceManager::GetAllDevices() const {
    return devices_.All();
}

void CDeviceManager::Clear() {
    devices_.Clear();
}

CElementManager* CElementManager::Instance() {
    return Tal::Base::CSingleton<CElementManager>::Instance();
}

std::shared_ptr<CElement> CElementManager::FindOtherElementByID(int id) const {
    return elements_.Find(id);
}

void CElementManager::AddOrUpdateElement(const ElementInfo& info) {
    elements_.Insert(info.id, std::make_shared<CElement>(info));
}

void CElementManager::RemoveElement(int id) {
    elements_.Remove(id);
}

std::vector<std::shared_ptr<CElement>> CElementManager::GetAllElements() const {
    return elements_.All();
}

void CElementManager::Clear() {
    elements_.Clear();
}

}  // namespace ResourceManager
