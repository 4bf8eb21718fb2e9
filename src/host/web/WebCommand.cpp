#include "host/web/WebCommand.h"

#include <QCoreApplication>
#include <QElapsedTimer>

#include <functional>
#include <iostream>
#include <map>
#include <mutex>

#include "BroadCastPlugin/controller/WebBroadcastController/WebBroadcastController.h"

using BroadCastPlugin::CWebBroadcastController;

namespace {

void Pump() {
    QCoreApplication::sendPostedEvents();
    QCoreApplication::processEvents(QEventLoop::AllEvents, 50);
}

}  // namespace

extern "C" int BcastHostRunWebMethod(const char* method, const char* request, double waitSeconds) {
    const std::string json = request != nullptr ? request : "{}";
    CWebBroadcastController web;
    web.Init();
    std::mutex mutex;
    int messages = 0;
    web.RegisterMessageCallback([&](std::string message, int target) {
        std::lock_guard<std::mutex> lock(mutex);
        std::cout << "web message [target " << target << "]: " << message << std::endl;
        ++messages;
    });
    const std::map<std::string, std::function<bool()>> methods = {
        {"StartIPSpeakerBroadcast", [&] { return web.StartIPSpeakerBroadcast(json); }},
        {"StopIPSpeakerBroadcast", [&] { return web.StopIPSpeakerBroadcast(); }},
        {"DownloadMediaFile", [&] { return web.DownloadMediaFile(json); }},
        {"StartBroadcastListen", [&] { return web.StartBroadcastListen(json); }},
        {"StopBroadcastListen", [&] { return web.StopBroadcastListen(); }},
        {"CleanCache", [&] {
             web.CleanCache();
             return true;
         }},
    };
    auto found = methods.find(method != nullptr ? method : "");
    if (found == methods.end()) {
        std::cout << "no such web method: " << (method != nullptr ? method : "") << std::endl;
        return 2;
    }
    const bool accepted = found->second();
    std::cout << "call: " << (accepted ? "accepted" : "refused") << std::endl;
    // These requests always answer with at least one message; the others may answer with none.
    const std::string name = found->first;
    const bool answers = accepted && (name == "StartIPSpeakerBroadcast" || name == "DownloadMediaFile" ||
                                      name == "StartBroadcastListen");
    const qint64 kAnswerLimitMs = 60000;

    // Results arrive as queued deliveries on this thread.
    QElapsedTimer timer;
    timer.start();
    int seen = -1;
    QElapsedTimer quiet;
    quiet.start();
    for (;;) {
        Pump();
        if (waitSeconds >= 0) {
            if (timer.elapsed() >= static_cast<qint64>(waitSeconds * 1000)) {
                break;
            }
            continue;
        }
        int now;
        {
            std::lock_guard<std::mutex> lock(mutex);
            now = messages;
        }
        if (now != seen) {
            seen = now;
            quiet.restart();
        } else if (quiet.elapsed() > 1500 && (!answers || now > 0 || timer.elapsed() > kAnswerLimitMs)) {
            break;
        }
    }
    web.Unit();
    return accepted ? 0 : 1;
}
