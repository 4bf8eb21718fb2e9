#pragma once
// Secrets the platform sends (device passwords, access keys) come encrypted under the session key; the
// "SecureEncryptType" beside them names the scheme.

#include <string>

namespace BusinessCommon {

/// Decrypts `text` by the scheme `secureEncryptType` names: 1 the newer one
/// (CUserCommonManager::SensitiveInforDecryption), 0 and -1 the older one (Decryption). An empty text is an
/// empty secret. False, with the thread's last error set and a log line naming `what`, for another scheme
/// or a text that does not decrypt under the session key.
bool DecryptServerSecret(int secureEncryptType, const std::string& text, std::string& plain,
                         const char* what);

}  // namespace BusinessCommon
