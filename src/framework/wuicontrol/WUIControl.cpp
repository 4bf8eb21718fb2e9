#include "framework/wuicontrol/WUIControl.h"

#include <dlfcn.h>
#include <unistd.h>

#include <QFileInfo>

namespace WUIControl {

QString GetTargetPath(const void* addressInBinary) {
    QString file;
    Dl_info info{};
    if (addressInBinary != nullptr && dladdr(addressInBinary, &info) != 0 && info.dli_fname != nullptr) {
        file = QString::fromLocal8Bit(info.dli_fname);
    } else {
        char buffer[4096];
        ssize_t n = readlink("/proc/self/exe", buffer, sizeof(buffer) - 1);
        if (n > 0) {
            file = QString::fromLocal8Bit(buffer, static_cast<int>(n));
        }
    }
    if (file.isEmpty()) {
        return QString();
    }
    QString dir = QFileInfo(file).absolutePath();
    if (!dir.endsWith('/')) {
        dir += '/';
    }
    return dir;
}

}  // namespace WUIControl
