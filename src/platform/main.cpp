// bcast-platform: the reference platform server. Serves the REST interface and the push link of a site
// described by a fixture file until SIGINT or SIGTERM.

#include <QCoreApplication>

#include <cstdio>
#include <string>
#include <vector>

#include "framework/base/FormatLog.h"
#include "platform/SignalWatcher.h"
#include "platform/server/PlatformServer.h"

int main(int argc, char** argv) {
    std::vector<std::string> args(argv + 1, argv + argc);
    Platform::PlatformOptions options;
    std::string error;
    if (!Platform::ParseCommandLine(args, options, error)) {
        std::fprintf(stderr,
                     "bcast-platform: %s\nusage: bcast-platform [OPTIONS] (bcast-platform --help for the "
                     "options)\n",
                     error.c_str());
        return 2;
    }
    if (options.help) {
        std::fputs(Platform::UsageText().c_str(), stdout);
        return 0;
    }
    if (options.version) {
        std::fputs("bcast-platform " BCAST_VERSION "\n", stdout);
        return 0;
    }
    Tal::Base::LogConfig logConfig;
    logConfig.stderrLevel = options.logLevel;
    Tal::Base::InitLog(logConfig);

    QCoreApplication app(argc, argv);
    Platform::CPlatformServer server(options);
    if (!server.Start(error)) {
        std::fprintf(stderr, "bcast-platform: %s\n", error.c_str());
        Tal::Base::UninitLog();
        return 1;
    }
    Platform::CSignalWatcher signalWatcher([&app](int signal) {
        std::fprintf(stdout, "bcast-platform: signal %d, stopping\n", signal);
        std::fflush(stdout);
        app.quit();
    });
    if (!signalWatcher.IsValid()) {
        std::fprintf(stderr, "bcast-platform: cannot watch for signals\n");
        server.Stop();
        return 1;
    }
    std::fprintf(stdout, "bcast-platform: fixture %s\n", server.FixturePath().c_str());
    std::fprintf(stdout, "bcast-platform: REST listening on %s\n", server.RestUrl().c_str());
    std::fprintf(stdout, "bcast-platform: push listening on %s\n", server.PushUrl().c_str());
    const std::string streaming = server.StreamingUrl();
    if (!streaming.empty()) {
        std::fprintf(stdout, "bcast-platform: streaming server on %s\n", streaming.c_str());
    }
    for (const std::string& store : server.ObjectStoreLines()) {
        std::fprintf(stdout, "bcast-platform: object store %s\n", store.c_str());
    }
    const std::string media = server.MediaLine();
    if (!media.empty()) {
        std::fprintf(stdout, "bcast-platform: media library: %s\n", media.c_str());
    }
    std::fprintf(stdout, "bcast-platform: speakers record to %s\n", server.SpeakerDir().c_str());
    std::fflush(stdout);
    const int rc = app.exec();
    server.Stop();
    std::fprintf(stdout, "bcast-platform: stopped\n");
    std::fflush(stdout);
    Tal::Base::UninitLog();
    return rc;
}
