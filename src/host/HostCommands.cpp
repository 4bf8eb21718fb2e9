#include "host/HostCommands.h"

#include <QApplication>
#include <QDir>
#include <QMainWindow>
#include <QTabWidget>
#include <QTreeView>
#include <QWidget>

#include <QElapsedTimer>
#include <QEventLoop>
#include <QSocketNotifier>
#include <QThread>
#include <QTimer>

#include <atomic>
#include <functional>
#include <mutex>
#include <vector>

#include "framework/base/FormatLog.h"
#include "framework/base/LockedCopy.h"
#include "framework/base/StopSignalPipe.h"
#include "framework/business/PluginCommManager.h"
#include "framework/netcomm/RapidJsonProto.h"
#include "framework/webengine/CEFDataManager.h"

namespace BcastHost {

namespace {

const char* Result(bool ok) {
    return ok ? "true" : "false";
}

// Turns the event loop for one 50 ms slice: queued deliveries from the module's worker threads reach their
// receivers as they come, and the caller's checks between slices do not spin a core.
void Pump() {
    QEventLoop loop;
    QTimer::singleShot(50, &loop, &QEventLoop::quit);
    loop.exec();
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

namespace {

const char* const kHostPluginId = "bcast-host";
const std::string kApiPrefix = "/API/Broadcast/V0/";

// Prints the module's notifications to this host and remembers whether one reported a failure.
class NotificationPrinter {
public:
    explicit NotificationPrinter(std::ostream& out) : out_(out) {}
    void Receive(const std::string& message) {
        NetworkCommunication::CRapidJsonProto doc;
        doc.set_str(message);
        std::lock_guard<std::mutex> lock(mutex_);
        lastMethod_ = doc.get_int_v("/Method", -1);
        ++count_;
        if (quiet_) {
            return;
        }
        out_ << "notification: " << message << std::endl;
        if (lastMethod_ == 8) {
            PrintDeviceState(doc);
        }
        // "/Method" 4: the resource download failed; 5 with an error: a record upload failed; 6 with errors:
        // speakers that did not start a text-to-speech broadcast.
        // 7 with an error: a device broadcast that did not start.
        if (lastMethod_ == 4 || (lastMethod_ == 5 && doc.get_int_v("/Data/ErrorCode", 0) != 0) ||
            (lastMethod_ == 7 && doc.get_int_v("/Data/ErrorCode", 0) != 0) ||
            (lastMethod_ == 6 && doc.get_cnt("/Data/ErrorList") > 0)) {
            failed_ = true;
        }
    }
    /// While quiet, notifications are counted but neither printed nor judged.
    void SetQuiet(bool quiet) {
        std::lock_guard<std::mutex> lock(mutex_);
        quiet_ = quiet;
    }
    int LastMethod() { return Tal::Base::LockedCopy(mutex_, lastMethod_); }
    int Count() { return Tal::Base::LockedCopy(mutex_, count_); }
    bool Failed() { return Tal::Base::LockedCopy(mutex_, failed_); }

private:
    // "device 201: playing", with the reason of a failure.
    void PrintDeviceState(const NetworkCommunication::CRapidJsonProto& doc) {
        static const char* const kNames[] = {"connecting", "playing", "failed", "stopped"};
        const int status = doc.get_int_v("/Data/Status", -1);
        out_ << "device " << doc.get_int_v("/Data/ID", -1) << ": "
             << (status >= 0 && status <= 3 ? kNames[status] : "unknown");
        const std::string reason = doc.get_v("/Data/ErrorInfo", "");
        if (!reason.empty()) {
            out_ << " (" << reason << ")";
        }
        out_ << std::endl;
    }

    std::mutex mutex_;
    std::ostream& out_;
    int count_ = 0;
    int lastMethod_ = -1;
    bool quiet_ = false;
    bool failed_ = false;
};

int TaskCount(BusinessCommon::CPluginCommManager* bus) {
    std::string answer;
    bus->CallMethod(kApiPrefix + "WorkState", "{}", answer);
    NetworkCommunication::CRapidJsonProto doc;
    doc.set_str(answer);
    return doc.get_int_v("/Response/TaskRunState", 0);
}

// Turns the event loop until no task is queued or running and no notification came for half a second.
void WaitUntilSettled(BusinessCommon::CPluginCommManager* bus, NotificationPrinter& printer) {
    int seen = -1;
    QElapsedTimer quiet;
    quiet.start();
    while (quiet.elapsed() < 500) {
        Pump();
        const int count = printer.Count();
        if (count != seen || TaskCount(bus) > 0) {
            seen = count;
            quiet.restart();
        }
    }
}

}  // namespace

namespace {
// Runs both start-up stages of the module; on failure says where the log is and undoes them.
bool StartModule(const ClientConfig& config, const PluginEntryPoints& entry, std::ostream& out) {
    if (entry.Init(config.language, nullptr) && entry.Start()) {
        return true;
    }
    out << "the module failed to start; see " << Tal::Base::GetLogFilePath() << std::endl;
    entry.StopWorking();
    entry.UnInit();
    return false;
}
}  // namespace

int RunApi(const ClientConfig& config, const PluginEntryPoints& entry, const ApiOptions& options,
           std::ostream& out) {
    if (!StartModule(config, entry, out)) {
        return 1;
    }
    auto* bus = BusinessCommon::CPluginCommManager::Instance();
    NotificationPrinter printer(out);
    bus->RegisterMessageReceiver(kHostPluginId, [&printer](const std::string&, const std::string& message) {
        printer.Receive(message);
    });
    std::string answer;
    bus->CallMethod(kApiPrefix + "RegisterMessageCallback",
                    std::string("{\"IsRegister\":true,\"PluginID\":\"") + kHostPluginId + "\"}", answer);

    // Like a client at start-up, the host has the module download its resources first, so that
    // configuration and terminal queries answer with the platform's data.
    if (options.calls.empty() || options.calls.front().method != "DownloadResource") {
        printer.SetQuiet(true);
        bus->CallMethod(kApiPrefix + "DownloadResource", "{}", answer);
        WaitUntilSettled(bus, printer);
        out << (printer.LastMethod() == 3 ? "resources: downloaded" : "resources: download failed")
            << std::endl;
        printer.SetQuiet(false);
    }

    bool ok = !options.calls.empty();
    for (const ApiCall& call : options.calls) {
        const std::string method = kApiPrefix + call.method;
        if (!bus->HasMethod(method)) {
            out << "no such method: " << method << std::endl;
            ok = false;
            break;
        }
        const bool called = bus->CallMethod(method, call.request, answer);
        out << call.method << " response: " << answer << std::endl;
        ok = ok && called;
        // Notifications arrive as queued deliveries to the main thread: keep the event loop turning. --wait
        // is how long each call runs before the next; after the last of several, the host waits for the
        // work to settle.
        const bool lastOfSeveral = options.calls.size() > 1 && &call == &options.calls.back();
        if (options.waitSeconds >= 0 && !lastOfSeveral) {
            QElapsedTimer timer;
            timer.start();
            while (timer.elapsed() < static_cast<qint64>(options.waitSeconds * 1000)) {
                Pump();
            }
        } else {
            WaitUntilSettled(bus, printer);
        }
    }
    bus->CallMethod(kApiPrefix + "RegisterMessageCallback",
                    std::string("{\"IsRegister\":false,\"PluginID\":\"") + kHostPluginId + "\"}", answer);
    bus->UnRegisterMessageReceiver(kHostPluginId);
    entry.StopWorking();
    entry.UnInit();
    const bool succeeded = ok && !printer.Failed();
    out << (succeeded ? "api ok" : "api FAILED") << std::endl;
    return succeeded ? 0 : 1;
}

namespace {
// Waits, with the event loop turning, until `done` holds or `timeoutMs` passes.
bool PumpUntil(const std::function<bool()>& done, int timeoutMs) {
    QElapsedTimer timer;
    timer.start();
    while (!done() && timer.elapsed() < timeoutMs) {
        QApplication::processEvents(QEventLoop::AllEvents, 20);
        QThread::msleep(5);
    }
    return done();
}

// Renders each tab of the panel's console into DIR/console-<n>-<tab>.png, the first partition's speakers
// chosen so that the pictures show a choice.
int WriteScreenshots(QMainWindow& window, const std::string& dir, std::ostream& out) {
    auto* tree = window.findChild<QTreeView*>("SpeakerTree");
    auto* tabs = window.findChild<QTabWidget*>("ConsoleTabs");
    if (tree == nullptr || tabs == nullptr) {
        out << "bcast-host: the panel has no speaker tree or tabs to show" << std::endl;
        return 1;
    }
    if (!PumpUntil([tree] { return tree->model()->rowCount() > 0; }, 30000)) {
        out << "bcast-host: the site did not load within 30 s; see " << Tal::Base::GetLogFilePath()
            << std::endl;
        return 1;
    }
    PumpUntil([] { return false; }, 1500);  // the speakers' addresses follow the site
    const QModelIndex first = tree->model()->index(0, 0);
    tree->model()->setData(first, Qt::Checked, Qt::CheckStateRole);
    QDir().mkpath(QString::fromStdString(dir));
    for (int i = 0; i < tabs->count(); ++i) {
        tabs->setCurrentIndex(i);
        PumpUntil([] { return false; }, 300);
        // Named after the tab's widget, the same in every language.
        const QString name = tabs->widget(i)->objectName().remove(QStringLiteral("Tab")).toLower();
        const QString path =
            QString::fromStdString(dir) + QStringLiteral("/console-%1-%2.png").arg(i + 1).arg(name);
        if (!window.grab().save(path)) {
            out << "bcast-host: cannot write " << path.toStdString() << std::endl;
            return 1;
        }
        out << "screenshot: " << path.toStdString() << std::endl;
    }
    return 0;
}
}  // namespace

int RunGui(const ClientConfig& config, const PluginEntryPoints& entry, std::ostream& out,
           const std::string& screenshotDir) {
    if (!StartModule(config, entry, out)) {
        return 1;
    }
    void* handle = nullptr;
    QMainWindow window;
    window.setWindowTitle("bcast-host");
    if (entry.GetWndHandle(&handle, "c_menu_panel_tool_broadcast_1", nullptr) && handle != nullptr) {
        // The module hands its panel out as a widget; the host embeds it.
        window.setCentralWidget(static_cast<QWidget*>(handle));
    }
    window.resize(1280, 760);
    window.show();
    const int code =
        screenshotDir.empty() ? QApplication::exec() : WriteScreenshots(window, screenshotDir, out);
    // The panel belongs to the module, which destroys it at UnInit.
    if (window.centralWidget() != nullptr) {
        window.takeCentralWidget()->setParent(nullptr);
    }
    entry.StopWorking();
    entry.UnInit();
    return code;
}

namespace {

// SIGINT and SIGTERM end the event loop: the stop-signal pipe's descriptor is watched by a socket notifier.
class StopSignalWatcher {
public:
    StopSignalWatcher() {
        if (!pipe_.IsValid()) {
            return;
        }
        notifier_ = std::make_unique<QSocketNotifier>(pipe_.ReadFd(), QSocketNotifier::Read);
        QObject::connect(notifier_.get(), &QSocketNotifier::activated, [this] {
            pipe_.Drain([this](int signal) { signal_ = signal; });
            QCoreApplication::quit();
        });
    }
    bool IsValid() const { return notifier_ != nullptr; }
    int Signal() const { return signal_; }

private:
    Tal::Base::CStopSignalPipe pipe_;
    int signal_ = 0;
    /// Declared after the pipe: it stops watching the descriptor before the pipe closes it.
    std::unique_ptr<QSocketNotifier> notifier_;
};

}  // namespace

int RunWebUi(const ClientConfig& config, const PluginEntryPoints& entry, std::ostream& out) {
    StopSignalWatcher watcher;
    if (!watcher.IsValid()) {
        out << "bcast-host: cannot watch for SIGINT and SIGTERM" << std::endl;
        return 1;
    }
    if (!StartModule(config, entry, out)) {
        return 1;
    }
    // Like a client at start-up, the host has the module download the site first, so that the pages' queries
    // (speakers, configuration) answer with the platform's data.
    {
        auto* bus = BusinessCommon::CPluginCommManager::Instance();
        NotificationPrinter printer(out);
        printer.SetQuiet(true);
        bus->RegisterMessageReceiver(
            kHostPluginId,
            [&printer](const std::string&, const std::string& message) { printer.Receive(message); });
        std::string answer;
        bus->CallMethod(kApiPrefix + "RegisterMessageCallback",
                        std::string("{\"IsRegister\":true,\"PluginID\":\"") + kHostPluginId + "\"}", answer);
        bus->CallMethod(kApiPrefix + "DownloadResource", "{}", answer);
        WaitUntilSettled(bus, printer);
        out << (printer.LastMethod() == 3 ? "resources: downloaded" : "resources: download failed")
            << std::endl;
        bus->CallMethod(kApiPrefix + "RegisterMessageCallback",
                        std::string("{\"IsRegister\":false,\"PluginID\":\"") + kHostPluginId + "\"}", answer);
        bus->UnRegisterMessageReceiver(kHostPluginId);
    }
    using CEFDataController::CEFDataMananger;
    if (!CEFDataMananger::IsCefInit()) {
        out << "the module's web pages are not served; see " << Tal::Base::GetLogFilePath() << std::endl;
        entry.StopWorking();
        entry.UnInit();
        return 1;
    }
    out << "page: " << CEFDataMananger::PageUrl(QStringLiteral("broadcast.html")).toStdString() << "\n"
        << "record page: " << CEFDataMananger::PageUrl(QStringLiteral("record.html")).toStdString()
        << std::endl;
    QApplication::exec();
    out << "stopping on signal " << watcher.Signal() << std::endl;
    const bool stopped = entry.StopWorking();
    const bool unloaded = entry.UnInit();
    return stopped && unloaded ? 0 : 1;
}

}  // namespace BcastHost
