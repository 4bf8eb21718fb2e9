#include "framework/webengine/CEFDataManager.h"

#include "framework/base/FormatLog.h"
#include "framework/base/Singleton.h"

namespace CEFDataController {

CEFDataMananger* CEFDataMananger::Instance() {
    return Tal::Base::CSingleton<CEFDataMananger>::Instance();
}

void CEFDataMananger::SetLanguage(const QString& language) {
    CEFDataMananger* self = Instance();
    std::lock_guard<std::mutex> lock(self->mutex_);
    self->language_ = language;
}

QString CEFDataMananger::GetLanguage() {
    CEFDataMananger* self = Instance();
    std::lock_guard<std::mutex> lock(self->mutex_);
    return self->language_;
}

bool CEFDataMananger::InitCef() {
    CEFDataMananger* self = Instance();
    std::lock_guard<std::mutex> lock(self->mutex_);
    if (!self->initialised_) {
        self->initialised_ = true;
        ++self->startCount_;
        TAL_LOG(3, "WebEngine", "[%s]Web engine started, language: %s.[%s(%d)]",
                self->language_.toStdString().c_str());
    }
    return true;
}

void CEFDataMananger::UninitCef() {
    CEFDataMananger* self = Instance();
    std::lock_guard<std::mutex> lock(self->mutex_);
    if (self->initialised_) {
        self->initialised_ = false;
        TAL_LOG(3, "WebEngine", "[%s]Web engine stopped.[%s(%d)]");
    }
}

bool CEFDataMananger::IsCefInit() {
    CEFDataMananger* self = Instance();
    std::lock_guard<std::mutex> lock(self->mutex_);
    return self->initialised_;
}

int CEFDataMananger::StartCount() {
    CEFDataMananger* self = Instance();
    std::lock_guard<std::mutex> lock(self->mutex_);
    return self->startCount_;
}

}  // namespace CEFDataController
