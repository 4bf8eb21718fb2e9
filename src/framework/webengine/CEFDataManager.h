#pragma once
// Web engine data manager: language of the module's web pages and the start and stop of the page server.

#include <QString>

#include <mutex>

namespace CEFDataController {

class CEFDataMananger {
public:
    static CEFDataMananger* Instance();

    static void SetLanguage(const QString& language);
    static QString GetLanguage();
    /// Starts the web engine side; repeated calls are harmless. Returns whether it is up.
    static bool InitCef();
    /// Stops it; harmless when it is not up.
    static void UninitCef();
    static bool IsCefInit();
    /// How many times InitCef found the engine down and brought it up (for diagnostics).
    static int StartCount();

private:
    std::mutex mutex_;
    QString language_;
    bool initialised_ = false;
    int startCount_ = 0;
};

}  // namespace CEFDataController
