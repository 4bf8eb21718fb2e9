#pragma once
// Small Qt helpers of the client's UI framework.

#include <QString>

#include <string>

#include "framework/base/Singleton.h"

namespace WUIControl {

/// Process-wide single instance of a QObject class (or any class), created on first use.
template <class T>
using CObjectSingleton = Tal::Base::CSingleton<T>;

/// Directory (with a trailing slash) of the binary that contains `addressInBinary`; the directory of the
/// executable when it is null or cannot be resolved.
QString GetTargetPath(const void* addressInBinary = nullptr);

inline QString StringToQString(const std::string& text) {
    return QString::fromStdString(text);
}
inline std::string QStringToString(const QString& text) {
    return text.toStdString();
}

}  // namespace WUIControl
