#pragma once
// How the client reaches a device the platform routes to (a storage server): by its IP or by an access
// path, with which protocol, port and keys.

#include <string>

#include "framework/base/ErrorCode.h"

namespace AccessWayManager {

/// Which device to route to.
class CDeviceAccessRouteParam {
public:
    void SetValid_site(int site) { site_ = site; }
    int GetValid_site() const { return site_; }
    void SetValdevice_id_(int id) { deviceId_ = id; }
    int GetValdevice_id_() const { return deviceId_; }
    /// 2: storage server.
    void SetValdevice_type_(int type) { deviceType_ = type; }
    int GetValdevice_type_() const { return deviceType_; }

private:
    int site_ = 0;
    int deviceId_ = -1;
    int deviceType_ = 0;
};

/// How to reach it. The keys are decrypted.
class CCmsDeviceAccessPage {
public:
    /// Success, or why the query failed (the same error the query leaves as the thread's last error).
    const Tal::Base::Error::ErrorCode& GetValerror_code() const { return error_; }
    void SetValerror_code(const Tal::Base::Error::ErrorCode& error) { error_ = error; }
    /// 0 by the device IP, 1 by the access path; other values are the platform's.
    int GetValaccess_type_() const { return accessType_; }
    void SetValaccess_type_(int type) { accessType_ = type; }
    /// "http" or "https" (other texts are the platform's).
    const std::string& GetValprotocal_type() const { return protocol_; }
    void SetValprotocal_type(const std::string& protocol) { protocol_ = protocol; }
    const std::string& GetValaccess_path_() const { return accessPath_; }
    void SetValaccess_path_(const std::string& path) { accessPath_ = path; }
    const std::string& GetValdevice_ip() const { return deviceIp_; }
    void SetValdevice_ip(const std::string& ip) { deviceIp_ = ip; }
    const std::string& GetValaccess_key() const { return accessKey_; }
    void SetValaccess_key(const std::string& key) { accessKey_ = key; }
    const std::string& GetValsecret_key() const { return secretKey_; }
    void SetValsecret_key(const std::string& key) { secretKey_ = key; }
    int GetValobject_port() const { return objectPort_; }
    void SetValobject_port(int port) { objectPort_ = port; }

private:
    Tal::Base::Error::ErrorCode error_;
    int accessType_ = -1;
    std::string protocol_;
    std::string accessPath_;
    std::string deviceIp_;
    std::string accessKey_;
    std::string secretKey_;
    int objectPort_ = -1;
};

/// Asks the platform how to reach `route`'s device and fills `page` (keys decrypted by the answer's
/// "SecureEncryptType"). False when the platform cannot be asked, refuses, reports an error in the answer
/// ("ErrorCode" not 0) or sends keys that do not decrypt; the reason is in the page's error code and the
/// thread's last error, and a log line names the device.
bool QueryDeviceAccessWay(CCmsDeviceAccessPage& page, const CDeviceAccessRouteParam& route);

}  // namespace AccessWayManager
