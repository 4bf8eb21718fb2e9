#pragma once
// Texts for the user by (module, code), in English and Simplified Chinese.

#include <string>

#include "framework/base/ErrorCode.h"

namespace ErrorCodeTrans {

/// Selects the language of the texts: "zh_CN" (or any "zh" variant) for Chinese, anything else English.
bool InitLanguale(const std::string& language);
std::string GetLanguage();
/// The text for an error: empty for success; the known text of its module and code; otherwise a generic
/// text naming both numbers. A server error's cascading text is appended.
std::string GetErrorInfoByErrorCode(const Tal::Base::Error::ErrorCode& error);

}  // namespace ErrorCodeTrans
