#include "host/HostCommands.h"

#include <QApplication>
#include <QMainWindow>
#include <QWidget>

#include "framework/base/FormatLog.h"

namespace BcastHost {

namespace {

const char* Result(bool ok) {
    return ok ? "true" : "false";
}

// Lets queued deliveries from the module's worker threads reach their receivers between steps.
void Pump() {
    QCoreApplication::sendPostedEvents();
    QCoreApplication::processEvents(QEventLoop::AllEvents, 50);
}

}  // namespace

int RunLifecycle(const ClientConfig& config, const PluginEntryPoints& entry, std::ostream& out) {
    bool all = true;
    const bool init = entry.Init(config.language, nullptr);
    out << "Init(" << config.language << ") -> " << Result(init) << std::endl;
    all = all && init;

    const bool start = entry.Start();
    out << "Start() -> " << Result(start) << std::endl;
    all = all && start;
    Pump();

    const bool update = entry.UpdateFrame(1);
    out << "UpdateFrame(1) -> " << Result(update) << std::endl;
    all = all && update;
    Pump();

    entry.Notify(2);
    out << "Notify(2) -> done" << std::endl;
    Pump();

    const bool stop = entry.StopWorking();
    out << "StopWorking() -> " << Result(stop) << std::endl;
    all = all && stop;
    Pump();

    const bool uninit = entry.UnInit();
    out << "UnInit() -> " << Result(uninit) << std::endl;
    all = all && uninit;

    Tal::Base::FlushLog();
    out << "log: " << Tal::Base::GetLogFilePath() << std::endl;
    out << (all ? "lifecycle ok" : "lifecycle FAILED") << std::endl;
    return all ? 0 : 1;
}

int RunGui(const ClientConfig& config, const PluginEntryPoints& entry, std::ostream& out) {
    if (!entry.Init(config.language, nullptr) || !entry.Start()) {
        out << "the module failed to start; see " << Tal::Base::GetLogFilePath() << std::endl;
        entry.StopWorking();
        entry.UnInit();
        return 1;
    }
    void* handle = nullptr;
    QMainWindow window;
    window.setWindowTitle("bcast-host");
    if (entry.GetWndHandle(&handle, "c_menu_panel_tool_broadcast_1", nullptr) && handle != nullptr) {
        // The module hands its panel out as a widget; the host embeds it.
        window.setCentralWidget(static_cast<QWidget*>(handle));
    }
    window.resize(720, 480);
    window.show();
    const int code = QApplication::exec();
    // The panel belongs to the module, which destroys it at UnInit.
    if (window.centralWidget() != nullptr) {
        window.takeCentralWidget()->setParent(nullptr);
    }
    entry.StopWorking();
    entry.UnInit();
    return code;
}

}  // namespace BcastHost
