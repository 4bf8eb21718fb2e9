#include "framework/business/UserCommonManager.h"

#include "framework/base/ErrorCode.h"
#include "framework/base/FormatLog.h"
#include "framework/base/Singleton.h"
#include "framework/business/secret/SecretCipher.h"

namespace BusinessCommon {

namespace {
bool NotLoggedIn() {
    Tal::Base::Error::SetLastError(Tal::Base::Error::ErrorCode(
        Tal::Base::Error::kSubSystemClient, Tal::Base::Error::kModuleFramework, kCodeSecretMalformed));
    TAL_LOG(5, "Business", "[%s]No session key: nobody is logged in.[%s(%d)]");
    return false;
}
}  // namespace

CUserCommonManager* CUserCommonManager::Instance() {
    return Tal::Base::CSingleton<CUserCommonManager>::Instance();
}

void CUserCommonManager::SetLoginInfo(const LoginInfo& info) {
    std::lock_guard<std::mutex> lock(mutex_);
    login_ = info;
    loggedIn_ = true;
}

void CUserCommonManager::ClearLoginInfo() {
    std::lock_guard<std::mutex> lock(mutex_);
    login_ = LoginInfo();
    loggedIn_ = false;
}

bool CUserCommonManager::IsLogin() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return loggedIn_;
}

LoginInfo CUserCommonManager::GetLogin() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return login_;
}

bool CUserCommonManager::GetLoginInfo(std::string& address, int& port, std::string& user) const {
    std::lock_guard<std::mutex> lock(mutex_);
    if (!loggedIn_) {
        return false;
    }
    address = login_.address;
    port = login_.port;
    user = login_.userName;
    return true;
}

BroadcastRights CUserCommonManager::GetBroadcastRights() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return login_.broadcastRights;
}

bool CUserCommonManager::GetClientDomain(std::string& domain) const {
    std::lock_guard<std::mutex> lock(mutex_);
    domain = domain_;
    return true;
}

void CUserCommonManager::SetClientDomain(const std::string& domain) {
    std::lock_guard<std::mutex> lock(mutex_);
    domain_ = domain;
}

int CUserCommonManager::GetClientType() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return clientType_;
}

void CUserCommonManager::SetClientType(int type) {
    std::lock_guard<std::mutex> lock(mutex_);
    clientType_ = type;
}

bool CUserCommonManager::Decryption(std::string& plain, const std::string& text, bool /*flag*/) const {
    const LoginInfo login = GetLogin();
    if (!IsLogin()) {
        return NotLoggedIn();
    }
    return CSecretCipher(login.sessionKey).Decrypt(text, plain);
}

bool CUserCommonManager::SensitiveInforDecryption(std::string& plain, const std::string& text,
                                                  bool /*flag*/) const {
    const LoginInfo login = GetLogin();
    if (!IsLogin()) {
        return NotLoggedIn();
    }
    return CSecretCipher(login.sessionKey).SensitiveDecrypt(text, plain);
}

}  // namespace BusinessCommon
