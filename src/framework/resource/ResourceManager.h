#pragma once
// Element and device registry of the client: broadcast elements (source type 1027) and the devices behind
// them, with the login data the device transports use.

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "framework/base/ErrorCode.h"
#include "framework/base/HandleTable.h"
#include "framework/base/NonCopyable.h"

namespace ResourceManager {

/// Unsigned 32-bit id of a resource (speaker, device, file).
using ID = uint32_t;

/// Source type of broadcast elements (IP speaker channels).
constexpr int kSourceTypeBroadcastElement = 1027;

/// How to log in to a device directly by address.
class CLoginParam {
public:
    void SetVal_enumLoginMode(int mode) { loginMode_ = mode; }
    int GetVal_enumLoginMode() const { return loginMode_; }
    void SetVal_strLoginAddress(const std::string& address) { address_ = address; }
    const std::string& GetVal_strLoginAddress() const { return address_; }
    void SetVal_uLoginPort(uint16_t port) { port_ = port; }
    uint16_t GetVal_uLoginPort() const { return port_; }
    void SetVal_strUserName(const std::string& user) { user_ = user; }
    const std::string& GetVal_strUserName() const { return user_; }
    void SetVal_strUserPwd(const std::string& password) { password_ = password; }
    const std::string& GetVal_strUserPwd() const { return password_; }
    void SetVal_strLoginServerID(const std::string& id) { loginServerId_ = id; }
    const std::string& GetVal_strLoginServerID() const { return loginServerId_; }

    bool operator==(const CLoginParam& other) const {
        return loginMode_ == other.loginMode_ && address_ == other.address_ && port_ == other.port_ &&
               user_ == other.user_ && password_ == other.password_ && loginServerId_ == other.loginServerId_;
    }
    bool operator!=(const CLoginParam& other) const { return !(*this == other); }

private:
    int loginMode_ = 0;
    std::string address_;
    uint16_t port_ = 0;
    std::string user_;
    std::string password_;
    std::string loginServerId_;
};

/// What the registry knows of a device.
struct DeviceInfo {
    int id = -1;
    std::string name;
    int deviceType = 0;      ///< 2020 IP speaker, 2001 encoder, 2 storage server, ...
    int accessProtocol = 0;  ///< 1 device network interface, 23 RTP over UDP
    std::string ipAddress;
    int port = 0;
    std::string userName;
    std::string password;
};

/// A device of the registry. Thread-safe.
class CDevice : private Tal::Base::CNonCopyable {
public:
    explicit CDevice(const DeviceInfo& info);
    ~CDevice();

    int GetID() const;
    std::string GetName() const;
    int GetDeviceType() const;
    int GetAccessProtocol() const;
    std::string GetIPAddress() const;
    uint16_t GetPort() const;
    DeviceInfo GetInfo() const;
    /// Replaces the registry data (name, type, address...) keeping the login state.
    void Update(const DeviceInfo& info);

    /// Login data for a direct login by address; replaces address, port and credentials. A login made with
    /// other data ends, so the next Login reaches the device as it is now.
    void SetIPModeLoginParam(const CLoginParam& param);
    CLoginParam GetIPModeLoginParam() const;

    bool IsLogin() const;
    /// Logs in through the device network interface. Returns the user id, or -1 with `error` set.
    int Login(Tal::Base::Error::ErrorCode& error);
    void Logout();
    /// User id of the current login, -1 when not logged in.
    int GetUserID() const;

private:
    /// One field of the device's information, read under the lock.
    template <class T>
    T Field(T DeviceInfo::*field) const {
        std::lock_guard<std::mutex> lock(mutex_);
        return info_.*field;
    }

    mutable std::mutex mutex_;
    DeviceInfo info_;
    CLoginParam loginParam_;
    int userId_ = -1;
};

class CDeviceManager {
public:
    static CDeviceManager* Instance();
    /// The device, or an empty pointer when the id is unknown.
    std::shared_ptr<CDevice> FindDeviceByID(int id) const;
    /// Adds a device or refreshes the one with the same id.
    std::shared_ptr<CDevice> AddOrUpdateDevice(const DeviceInfo& info);
    void RemoveDevice(int id);
    std::vector<std::shared_ptr<CDevice>> GetAllDevices() const;
    void Clear();

private:
    Tal::Base::CHandleTable<CDevice, int> devices_;  ///< by device id
};

/// Which encoding device a broadcast element belongs to.
class CEncodeDeviceAttribute {
public:
    explicit CEncodeDeviceAttribute(int deviceId = -1) : deviceId_(deviceId) {}
    int GetDeviceID() const { return deviceId_; }

private:
    int deviceId_;
};

struct ElementInfo {
    int id = -1;
    std::string name;
    int sourceType = kSourceTypeBroadcastElement;
    int deviceId = -1;  ///< encoding device behind the element
    int channel = 1;    ///< channel number on that device
};

/// A logical resource (for example a broadcast element, one speaker channel).
class CElement {
public:
    explicit CElement(const ElementInfo& info) : info_(info), attribute_(info.deviceId) {}
    int GetID() const { return info_.id; }
    const std::string& GetName() const { return info_.name; }
    int GetSourceType() const { return info_.sourceType; }
    int GetChannel() const { return info_.channel; }
    const CEncodeDeviceAttribute& GetEncodeDeviceAttribute() const { return attribute_; }
    const ElementInfo& GetInfo() const { return info_; }

private:
    ElementInfo info_;
    CEncodeDeviceAttribute attribute_;
};

class CElementManager {
public:
    static CElementManager* Instance();
    /// The element of a source type other than video channels, or empty when unknown.
    std::shared_ptr<CElement> FindOtherElementByID(int id) const;
    void AddOrUpdateElement(const ElementInfo& info);
    void RemoveElement(int id);
    std::vector<std::shared_ptr<CElement>> GetAllElements() const;
    void Clear();

private:
    Tal::Base::CHandleTable<CElement, int> elements_;  ///< by element id
};

/// A request to fetch logical resources (and their devices) from the platform.
class CDownloadLogicalResource {
public:
    void SetVal_source_type(int type) { sourceType_ = type; }
    int GetVal_source_type() const { return sourceType_; }
    void SetVal_extra_ids(const std::vector<int>& ids) { extraIds_ = ids; }
    const std::vector<int>& GetVal_extra_ids() const { return extraIds_; }
    void SetVal_extra_request_type(int type) { extraRequestType_ = type; }
    int GetVal_extra_request_type() const { return extraRequestType_; }
    /// Page index of the request; 0 asks for everything at once.
    void SetVal_page_index(int index) { pageIndex_ = index; }
    int GetVal_page_index() const { return pageIndex_; }

private:
    int sourceType_ = 0;
    std::vector<int> extraIds_;
    int extraRequestType_ = 0;
    int pageIndex_ = 0;
};

class CDownloadResourceManager {
public:
    static CDownloadResourceManager* Instance();
    /// Fetches the requested resources from the platform into the registries. False with the thread's
    /// last error set when the platform cannot be asked or answers with an error.
    bool SynIncrementalDownloadLogicalResource(const CDownloadLogicalResource& request);
};

}  // namespace ResourceManager
