#include "framework/business/ServerSecret.h"

#include "framework/base/ErrorCode.h"
#include "framework/base/FormatLog.h"
#include "framework/business/UserCommonManager.h"

namespace BusinessCommon {

bool DecryptServerSecret(int secureEncryptType, const std::string& text, std::string& plain,
                         const char* what) {
    plain.clear();
    if (text.empty()) {
        return true;
    }
    bool ok = false;
    if (secureEncryptType == 1) {
        ok = CUserCommonManager::Instance()->SensitiveInforDecryption(plain, text, true);
    } else if (secureEncryptType == 0 || secureEncryptType == -1) {
        ok = CUserCommonManager::Instance()->Decryption(plain, text, true);
    } else {
        Tal::Base::Error::ErrorCode error(Tal::Base::Error::kSubSystemServer,
                                          Tal::Base::Error::kModuleFramework,
                                          Tal::Base::Error::kCodeBadServerAnswer);
        error.SetCasadingErrorInfo("unknown SecureEncryptType " + std::to_string(secureEncryptType));
        Tal::Base::Error::SetLastError(error);
        TAL_LOG(5, "Business", "[%s]Cannot decrypt the %s: unknown SecureEncryptType %d.[%s(%d)]", what,
                secureEncryptType);
        return false;
    }
    if (!ok) {
        plain.clear();
        TAL_LOG(5, "Business",
                "[%s]Cannot decrypt the %s (SecureEncryptType %d) under the session key.[%s(%d)]", what,
                secureEncryptType);
    }
    return ok;
}

}  // namespace BusinessCommon
