// The module's web pages as a browser reaches them: the real module (both start-up stages) logged in to the
// real platform serves its pages over HTTP on loopback and its objects over a QWebChannel on a WebSocket,
// both only under the access token. A raw HTTP client and a WebSocket client speaking the channel's JSON
// protocol play the browser.
#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QHostAddress>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTcpServer>
#include <QTcpSocket>
#include <QUrl>
#include <QWebSocket>

#include <memory>
#include <vector>

#include "BroadCastPlugin/BroadCastPluginManager.h"
#include "BroadCastPlugin/controller/BroadcastController/BroadcastController.h"
#include "BroadCastPlugin/controller/WebBroadcastController/WebRecordPage.h"
#include "PlatformProcess.h"
#include "RestClient.h"
#include "framework/base/FormatLog.h"
#include "framework/business/BusinessCommon.h"
#include "framework/business/PlatformLogin.h"
#include "framework/business/PluginCommManager.h"
#include "framework/netcomm/RapidJsonProto.h"
#include "framework/webengine/CEFDataManager.h"
#include "support/QtWait.h"

using BcastTest::Settle;
using BcastTest::WaitFor;
using CEFDataController::CEFDataMananger;

namespace {

// Message types of the QWebChannel protocol.
constexpr int kSignal = 1;
constexpr int kInit = 3;
constexpr int kInvokeMethod = 6;
constexpr int kConnectToSignal = 7;
constexpr int kResponse = 10;

struct HttpAnswer {
    int status = -1;
    QByteArray headers;
    QByteArray body;
    QByteArray Header(const QByteArray& name) const {
        for (const QByteArray& line : headers.split('\n')) {
            const int colon = line.indexOf(':');
            if (colon > 0 && line.left(colon).trimmed().toLower() == name.toLower()) {
                return line.mid(colon + 1).trimmed();
            }
        }
        return QByteArray();
    }
};

// One request exactly as written (no client-side normalisation of "..") on a fresh connection.
HttpAnswer Request(quint16 port, const QByteArray& target, const QByteArray& method = "GET") {
    HttpAnswer answer;
    QTcpSocket socket;
    socket.connectToHost(QHostAddress::LocalHost, port);
    if (!socket.waitForConnected(3000)) {
        return answer;
    }
    socket.write(method + " " + target + " HTTP/1.1\r\nHost: 127.0.0.1\r\nConnection: close\r\n" +
                 (method == "POST" ? "Content-Length: 0\r\n" : "") + "\r\n");
    QByteArray all;
    while (socket.waitForReadyRead(5000)) {
        all += socket.readAll();
    }
    all += socket.readAll();
    const int end = all.indexOf("\r\n\r\n");
    if (!all.startsWith("HTTP/1.1 ") || end < 0) {
        return answer;
    }
    answer.status = all.mid(9, 3).toInt();
    answer.headers = all.left(end);
    answer.body = all.mid(end + 4);
    return answer;
}

bool Refuses(quint16 port) {
    QTcpSocket socket;
    socket.connectToHost(QHostAddress::LocalHost, port);
    return !socket.waitForConnected(3000) && socket.error() == QAbstractSocket::ConnectionRefusedError;
}

QByteArray SourcePage(const QString& name) {
    QFile file(QString::fromStdString(PlatformTest::SourceDir()) + "/src/BroadCastPlugin/web/" + name);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// A page's end of the channel: a WebSocket client that speaks the QWebChannel JSON protocol.
class ChannelClient {
public:
    ChannelClient() {
        QObject::connect(&socket_, &QWebSocket::textMessageReceived, [this](const QString& text) {
            messages_.push_back(QJsonDocument::fromJson(text.toUtf8()).object());
        });
        QObject::connect(&socket_, &QWebSocket::disconnected, [this] { closed_ = true; });
    }
    /// Opens ws://127.0.0.1:<port><path>; true once the handshake is done.
    bool Open(quint16 port, const QString& path) {
        socket_.open(QUrl(QStringLiteral("ws://127.0.0.1:%1%2").arg(port).arg(path)));
        return WaitFor([this] { return socket_.state() == QAbstractSocket::ConnectedState || closed_; }) &&
               socket_.state() == QAbstractSocket::ConnectedState;
    }
    bool WaitClosed(int ms = 5000) {
        return WaitFor([this] { return closed_; }, ms);
    }
    int CloseCode() const { return socket_.closeCode(); }
    QString CloseReason() const { return socket_.closeReason(); }
    bool Closed() const { return closed_; }
    const std::vector<QJsonObject>& Messages() const { return messages_; }

    void Send(QJsonObject message) {
        socket_.sendTextMessage(QString::fromUtf8(QJsonDocument(message).toJson(QJsonDocument::Compact)));
    }
    /// Sends a message with a fresh id and waits for its response; an empty object when none came.
    QJsonObject Ask(QJsonObject message, int ms = 5000) {
        const int id = nextId_++;
        message["id"] = id;
        Send(message);
        QJsonObject found;
        WaitFor(
            [&] {
                for (const QJsonObject& m : messages_) {
                    if (m["type"].toInt() == kResponse && m["id"].toInt() == id) {
                        found = m;
                        return true;
                    }
                }
                return false;
            },
            ms);
        return found;
    }
    /// The init answer: every object's methods, signals and properties.
    QJsonObject Init() {
        objects_ = Ask(QJsonObject{{"type", kInit}})["data"].toObject();
        return objects_;
    }
    /// Index of a method or signal of an object, from the init answer.
    int IndexOf(const QString& object, const char* kind, const QString& name) const {
        for (const QJsonValue& entry : objects_[object].toObject()[kind].toArray()) {
            if (entry.toArray().at(0).toString() == name) {
                return entry.toArray().at(1).toInt();
            }
        }
        return -1;
    }
    QJsonValue Invoke(const QString& object, const QString& method, QJsonArray args, int ms = 5000) {
        return Ask(QJsonObject{{"type", kInvokeMethod},
                               {"object", object},
                               {"method", IndexOf(object, "methods", method)},
                               {"args", args}},
                   ms)["data"];
    }

private:
    QWebSocket socket_;
    std::vector<QJsonObject> messages_;
    QJsonObject objects_;
    bool closed_ = false;
    int nextId_ = 1;
};

BroadCastPlugin::CBroadCastPluginManager* Manager() {
    return BroadCastPlugin::CBroadCastPluginManager::Instance();
}

}  // namespace

class WebChannelTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        platform_ = new PlatformTest::CPlatformProcess();
        ASSERT_TRUE(platform_->Start()) << platform_->Error();
        dataDir_ = PlatformTest::MakeTempDir("webchannel-data");
        BusinessCommon::CFrameSystemConfigMgr::Instance()->SetClientDataPath(dataDir_);
        BusinessCommon::CFrameSystemConfigMgr::Instance()->SetVideoCaptureDataPath(dataDir_);
        BusinessCommon::PlatformLoginRequest login;
        login.address = "127.0.0.1";
        login.port = std::stoi(platform_->RestUrl().substr(platform_->RestUrl().rfind(':') + 1));
        login.user = PlatformTest::kUser;
        login.password = PlatformTest::kPassword;
        std::string error;
        ASSERT_TRUE(BusinessCommon::LoginToPlatform(login, error)) << error;
        ASSERT_TRUE(Manager()->Init("en_US"));
        ASSERT_TRUE(Manager()->InitInMainThread());
        ASSERT_TRUE(Manager()->InitInMainThread()) << "a repeated stage 2 is harmless";
        started_ = CEFDataMananger::IsCefInit();
    }
    static void TearDownTestSuite() {
        Manager()->StopWorking();
        Manager()->Uninit();
        BusinessCommon::LogoutFromPlatform();
        delete platform_;
        platform_ = nullptr;
        // Empty when the set-up failed before making it: QDir("") is the working directory.
        if (!dataDir_.empty()) {
            QDir(QString::fromStdString(dataDir_)).removeRecursively();
        }
    }
    void SetUp() override { ASSERT_TRUE(started_) << "the web engine did not start"; }

    static QByteArray Token() { return CEFDataMananger::Token().toLatin1(); }
    static HttpAnswer Get(const QByteArray& target, const QByteArray& method = "GET") {
        return Request(CEFDataMananger::HttpPort(), target, method);
    }

    static PlatformTest::CPlatformProcess* platform_;
    static std::string dataDir_;
    static bool started_;
};

PlatformTest::CPlatformProcess* WebChannelTest::platform_ = nullptr;
std::string WebChannelTest::dataDir_;
bool WebChannelTest::started_ = false;

TEST_F(WebChannelTest, PagesAndTheChannelScriptAreServedOnlyUnderTheToken) {
    // The module found its pages in share/bcast/web beside the lib directory of the build tree.
    const QString expectedDir =
        QDir(qEnvironmentVariable("BCAST_BINARY_DIR") + "/share/bcast/web").canonicalPath();
    ASSERT_FALSE(expectedDir.isEmpty());
    EXPECT_EQ(QDir(CEFDataMananger::PageDirectory()).canonicalPath(), expectedDir);

    const QByteArray token = Token();
    EXPECT_GE(token.size(), 32) << "at least 128 bits as hex";
    EXPECT_NE(CEFDataMananger::HttpPort(), 0);
    EXPECT_NE(CEFDataMananger::WebSocketPort(), 0);
    EXPECT_EQ(CEFDataMananger::PageUrl("broadcast.html"),
              QStringLiteral("http://127.0.0.1:%1/%2/broadcast.html?ws=%3")
                  .arg(CEFDataMananger::HttpPort())
                  .arg(QString::fromLatin1(token))
                  .arg(CEFDataMananger::WebSocketPort()));

    const HttpAnswer page = Get("/" + token + "/broadcast.html");
    ASSERT_EQ(page.status, 200);
    EXPECT_EQ(page.body, SourcePage("broadcast.html"));
    EXPECT_TRUE(page.Header("Content-Type").startsWith("text/html"));
    EXPECT_EQ(page.Header("Referrer-Policy"), "no-referrer");
    const HttpAnswer record = Get("/" + token + "/record.html");
    EXPECT_EQ(record.status, 200);
    EXPECT_EQ(record.body, SourcePage("record.html"));
    const HttpAnswer css = Get("/" + token + "/pages.css");
    EXPECT_EQ(css.status, 200);
    EXPECT_TRUE(css.Header("Content-Type").startsWith("text/css"));
    const HttpAnswer js = Get("/" + token + "/channel.js");
    EXPECT_EQ(js.status, 200);
    EXPECT_TRUE(js.Header("Content-Type").startsWith("text/javascript"));

    // Qt's own channel script, from its resources.
    const HttpAnswer script = Get("/" + token + "/qwebchannel.js");
    ASSERT_EQ(script.status, 200);
    EXPECT_TRUE(script.body.contains("QWebChannel = function")) << script.body.left(200).constData();
    EXPECT_TRUE(script.Header("Content-Type").startsWith("text/javascript"));

    // Without the token, or with another one: 403 and a short text, whatever the file.
    QByteArray wrong = token;
    wrong[0] = wrong[0] == 'a' ? 'b' : 'a';
    for (const QByteArray& target :
         {QByteArray("/broadcast.html"), QByteArray("/"), QByteArray("/qwebchannel.js"),
          "/" + wrong + "/broadcast.html", "/" + token.left(token.size() - 1) + "/broadcast.html",
          "/" + token + "x/broadcast.html"}) {
        const HttpAnswer refused = Get(target);
        EXPECT_EQ(refused.status, 403) << target.constData();
        EXPECT_EQ(refused.body, "forbidden\n") << target.constData();
        EXPECT_TRUE(refused.Header("Content-Type").startsWith("text/plain"));
    }
    EXPECT_EQ(Get("/" + wrong + "/broadcast.html", "POST").status, 403);
    EXPECT_EQ(Get("/" + token + "/broadcast.html", "POST").status, 405);
    EXPECT_EQ(Get("/" + token + "/broadcast.html", "HEAD").status, 200);

    // Under the token: unknown files 404, ".." and absolute paths refused (also percent-encoded).
    EXPECT_EQ(Get("/" + token + "/missing.html").status, 404);
    EXPECT_EQ(Get("/" + token + "/").status, 404);
    EXPECT_EQ(Get("/" + token).status, 404);
    for (const QByteArray& target :
         {"/" + token + "/../web/broadcast.html", "/" + token + "/%2e%2e/web/broadcast.html",
          "/" + token + "/./broadcast.html", "/" + token + "//etc/passwd",
          "/" + token + "/..%2fweb%2fbroadcast.html", "/" + token + "/..\\broadcast.html"}) {
        const HttpAnswer refused = Get(target);
        EXPECT_EQ(refused.status, 403) << target.constData();
        EXPECT_EQ(refused.body, "forbidden\n") << target.constData();
    }
}

TEST_F(WebChannelTest, FilesOutsideThePageDirectoryStayOutOfReachAndTypesFollowTheName) {
    // Another page directory, with a link that escapes it and one that stays inside.
    const QString root = QString::fromStdString(PlatformTest::MakeTempDir("webchannel-pages"));
    const QString pages = root + "/pages";
    ASSERT_TRUE(QDir().mkpath(pages + "/sub"));
    auto write = [](const QString& path, const QByteArray& content) {
        QFile file(path);
        return file.open(QIODevice::WriteOnly) && file.write(content) == content.size();
    };
    ASSERT_TRUE(write(root + "/secret.txt", "secret"));
    ASSERT_TRUE(write(pages + "/sub/inner.json", "{\"inner\":1}"));
    const std::map<QString, QByteArray> types = {
        {"a.json", "application/json"}, {"b.svg", "image/svg+xml"}, {"c.wav", "audio/wav"},
        {"d.mp3", "audio/mpeg"},        {"e.png", "image/png"},     {"f.css", "text/css"},
        {"g.js", "text/javascript"},    {"h.html", "text/html"},    {"i.bin", "application/octet-stream"}};
    for (const auto& entry : types) {
        ASSERT_TRUE(write(pages + "/" + entry.first, "content of " + entry.first.toLatin1()));
    }
    ASSERT_TRUE(QFile::link(root + "/secret.txt", pages + "/escape.txt"));
    ASSERT_TRUE(QFile::link(root, pages + "/up"));
    ASSERT_TRUE(QFile::link(pages + "/sub/inner.json", pages + "/inside.json"));

    const QString original = CEFDataMananger::PageDirectory();
    CEFDataMananger::UninitCef();
    CEFDataMananger::SetPageDirectory(pages);
    ASSERT_TRUE(CEFDataMananger::InitCef());
    const QByteArray token = Token();

    for (const auto& entry : types) {
        const HttpAnswer answer = Get("/" + token + "/" + entry.first.toLatin1());
        EXPECT_EQ(answer.status, 200) << entry.first.toStdString();
        EXPECT_EQ(answer.body, "content of " + entry.first.toLatin1());
        EXPECT_TRUE(answer.Header("Content-Type").startsWith(entry.second))
            << answer.Header("Content-Type").constData();
    }
    EXPECT_EQ(Get("/" + token + "/sub/inner.json").body, "{\"inner\":1}");
    EXPECT_EQ(Get("/" + token + "/inside.json").body, "{\"inner\":1}")
        << "a link that stays inside is served";
    EXPECT_EQ(Get("/" + token + "/escape.txt").status, 403);
    EXPECT_EQ(Get("/" + token + "/up/secret.txt").status, 403);
    EXPECT_EQ(Get("/" + token + "/../secret.txt").status, 403);
    EXPECT_EQ(Get("/" + token + "/sub/../../secret.txt").status, 403);
    EXPECT_EQ(Get("/" + token + "/sub").status, 404) << "a directory is no file";
    for (const QByteArray& target : {"/" + token + "/escape.txt", "/" + token + "/up/secret.txt"}) {
        EXPECT_FALSE(Get(target).body.contains("secret"));
    }

    CEFDataMananger::UninitCef();
    CEFDataMananger::SetPageDirectory(original);
    ASSERT_TRUE(CEFDataMananger::InitCef());
    QDir(root).removeRecursively();
}

TEST_F(WebChannelTest, ThePageSeesBroadcastAndSiteAndSiteAnswersOnlyQueries) {
    const quint16 wsPort = CEFDataMananger::WebSocketPort();
    const QString token = CEFDataMananger::Token();

    // Wrong or missing token: the link is closed at once with 4403 "forbidden" and answers nothing.
    for (const QString& path : {QStringLiteral("/"), QStringLiteral("/broadcast"), "/" + token + "x",
                                "/" + token.left(token.size() - 1), "/" + token + "/", "/x/" + token}) {
        ChannelClient refused;
        if (refused.Open(wsPort, path)) {
            refused.Send(QJsonObject{{"type", kInit}, {"id", 1}});
        }
        ASSERT_TRUE(refused.WaitClosed()) << path.toStdString();
        EXPECT_EQ(refused.CloseCode(), 4403) << path.toStdString();
        EXPECT_EQ(refused.CloseReason(), "forbidden");
        EXPECT_TRUE(refused.Messages().empty());
    }

    ChannelClient page;
    ASSERT_TRUE(page.Open(wsPort, "/" + token));
    const QJsonObject objects = page.Init();
    ASSERT_TRUE(objects.contains("broadcast")) << QJsonDocument(objects).toJson().constData();
    ASSERT_TRUE(objects.contains("site"));
    ASSERT_TRUE(objects.contains("records"));
    EXPECT_EQ(objects.size(), 3);
    for (const char* method : {"StartIPSpeakerBroadcast", "StopIPSpeakerBroadcast", "DownloadMediaFile",
                               "StartBroadcastListen", "StopBroadcastListen", "CleanCache"}) {
        EXPECT_GE(page.IndexOf("broadcast", "methods", method), 0) << method;
    }
    EXPECT_GE(page.IndexOf("broadcast", "signals", "executeJsFunction"), 0);
    EXPECT_GE(page.IndexOf("site", "methods", "Call"), 0);

    // Queries answer as the module's own methods do.
    NetworkCommunication::CRapidJsonProto state;
    ASSERT_TRUE(state.set_str(page.Invoke("site", "Call", {"WorkState", "{}"}).toString().toStdString()));
    EXPECT_EQ(state.get_int_v("/Response/TaskRunState", -1), 0);
    NetworkCommunication::CRapidJsonProto config;
    ASSERT_TRUE(config.set_str(page.Invoke("site", "Call", {"Config", ""}).toString().toStdString()));
    EXPECT_TRUE(config.is_exist("/ConfigParam/PomptVoiceParam/Enable"));

    // Anything that acts is refused, and does not run.
    Tal::Base::CLogCapture log;
    for (const char* method :
         {"DownloadResource", "StartIPSpeakerBroadcast", "StopIPSpeakerBroadcast", "CleanCache",
          "RegisterMessageCallback", "UploadRecordFile", "StartTTSBroadcast", "StartDeviceBroadcast",
          "StopDeviceBroadcast", "NoSuchMethod", ""}) {
        EXPECT_EQ(page.Invoke("site", "Call", {method, "{}"}).toString(), "{\"Error\":\"not allowed\"}")
            << method;
    }
    EXPECT_FALSE(log.Contains("Start clean cache."));
    EXPECT_FALSE(log.Contains("Receive start download broadcast resource request."));

    // The site's speakers, once the module has downloaded them from the platform.
    std::string ignored;
    ASSERT_TRUE(BusinessCommon::CPluginCommManager::Instance()->CallMethod(
        "/API/Broadcast/V0/DownloadResource", "{}", ignored));
    int terminals = 0;
    EXPECT_TRUE(WaitFor(
        [&] {
            NetworkCommunication::CRapidJsonProto list;
            list.set_str(page.Invoke("site", "Call", {"BroadcastTerminals", "{}"}).toString().toStdString());
            terminals = list.get_cnt("/BroadcastTerminalList/BroadcastTerminal");
            return terminals > 0;
        },
        30000));
    EXPECT_GT(terminals, 0);

    // The page's controller: its messages arrive as the executeJsFunction signal. A media file of the
    // platform is downloaded and the page hears where it lies.
    page.Send(QJsonObject{{"type", kConnectToSignal},
                          {"object", "broadcast"},
                          {"signal", page.IndexOf("broadcast", "signals", "executeJsFunction")}});
    EXPECT_EQ(page.Invoke("broadcast", "DownloadMediaFile", {"not json"}).toBool(true), false);
    ASSERT_TRUE(page.Invoke("broadcast", "DownloadMediaFile", {R"({"Data":{"FileID":4}})"}).toBool());
    QJsonArray args;
    ASSERT_TRUE(WaitFor(
        [&] {
            for (const QJsonObject& m : page.Messages()) {
                if (m["type"].toInt() == kSignal && m["object"].toString() == "broadcast") {
                    args = m["args"].toArray();
                    return true;
                }
            }
            return false;
        },
        60000));
    ASSERT_EQ(args.size(), 2);
    EXPECT_EQ(args.at(1).toInt(), 0) << "for the web client";
    NetworkCommunication::CRapidJsonProto message;
    ASSERT_TRUE(message.set_str(args.at(0).toString().toStdString()));
    EXPECT_EQ(message.get_v("/Method", ""), "DownloadShoutFileFinished");
    EXPECT_EQ(message.get_int_v("/Data/FileID", -1), 4);
    EXPECT_EQ(message.get_v("/Data/ErrorInfo", "x"), "");
    EXPECT_TRUE(QFile::exists(QString::fromStdString(message.get_v("/Data/FilePath", ""))));

    // The recording page's listing answers with its signal, from the platform.
    page.Send(QJsonObject{{"type", kConnectToSignal},
                          {"object", "records"},
                          {"signal", page.IndexOf("records", "signals", "recordsListed")}});
    page.Invoke("records", "ListRecords", {"{}"});
    QJsonObject listed;
    ASSERT_TRUE(WaitFor(
        [&] {
            for (const QJsonObject& m : page.Messages()) {
                if (m["type"].toInt() == kSignal && m["object"].toString() == "records") {
                    listed = QJsonDocument::fromJson(m["args"].toArray().at(0).toString().toUtf8()).object();
                    return true;
                }
            }
            return false;
        },
        30000));
    EXPECT_TRUE(listed["Records"].isArray()) << QJsonDocument(listed).toJson().constData();
    EXPECT_EQ(listed["ErrorInfo"].toString(), "");

    // Two pages at once each have their own objects; a page that leaves takes its controller with it.
    {
        ChannelClient second;
        ASSERT_TRUE(second.Open(wsPort, "/" + token));
        EXPECT_TRUE(second.Init().contains("broadcast"));
        log.Clear();
    }
    EXPECT_TRUE(WaitFor([&] { return log.Contains("Succ Uninit CWebBroadcastController", 3); }));
    EXPECT_FALSE(page.Closed());
}

TEST_F(WebChannelTest, AStopClosesBothPortsAndEndsThePagesAndAStartDrawsANewToken) {
    const quint16 httpPort = CEFDataMananger::HttpPort();
    const quint16 wsPort = CEFDataMananger::WebSocketPort();
    const QByteArray token = Token();
    const int starts = CEFDataMananger::StartCount();
    ChannelClient page;
    ASSERT_TRUE(page.Open(wsPort, "/" + QString::fromLatin1(token)));
    ASSERT_TRUE(page.Init().contains("site"));

    Tal::Base::CLogCapture log;
    CEFDataMananger::UninitCef();
    EXPECT_FALSE(CEFDataMananger::IsCefInit());
    EXPECT_TRUE(log.Contains("Web engine stopped.", 3));
    EXPECT_TRUE(log.Contains("Succ Uninit CWebBroadcastController", 3)) << "the page's objects are gone";
    EXPECT_TRUE(page.WaitClosed()) << "the page's link ends";
    EXPECT_TRUE(CEFDataMananger::Token().isEmpty());
    EXPECT_EQ(CEFDataMananger::HttpPort(), 0);
    EXPECT_EQ(CEFDataMananger::WebSocketPort(), 0);
    EXPECT_TRUE(CEFDataMananger::PageUrl("broadcast.html").isEmpty());
    EXPECT_TRUE(Refuses(httpPort));
    EXPECT_TRUE(Refuses(wsPort));
    CEFDataMananger::UninitCef();  // harmless

    ASSERT_TRUE(CEFDataMananger::InitCef());
    EXPECT_TRUE(CEFDataMananger::IsCefInit());
    EXPECT_EQ(CEFDataMananger::StartCount(), starts + 1);
    EXPECT_TRUE(log.Contains("Web engine started, language: en_US.", 3));
    const QByteArray fresh = Token();
    EXPECT_EQ(fresh.size(), token.size());
    EXPECT_NE(fresh, token);
    EXPECT_EQ(Get("/" + token + "/broadcast.html").status, 403) << "the old token is worthless";
    EXPECT_EQ(Get("/" + fresh + "/broadcast.html").status, 200);
    ChannelClient stale;
    if (stale.Open(CEFDataMananger::WebSocketPort(), "/" + QString::fromLatin1(token))) {
        ASSERT_TRUE(stale.WaitClosed());
    }
    EXPECT_EQ(stale.CloseCode(), 4403);
    ChannelClient again;
    ASSERT_TRUE(again.Open(CEFDataMananger::WebSocketPort(), "/" + QString::fromLatin1(fresh)));
    EXPECT_TRUE(again.Init().contains("broadcast"));

    // A port taken by someone else: the start fails and leaves nothing running.
    CEFDataMananger::UninitCef();
    QTcpServer taken;
    ASSERT_TRUE(taken.listen(QHostAddress::LocalHost, 0));
    CEFDataMananger::SetWebSocketPort(taken.serverPort());
    log.Clear();
    EXPECT_FALSE(CEFDataMananger::InitCef());
    EXPECT_FALSE(CEFDataMananger::IsCefInit());
    EXPECT_TRUE(log.Contains("Web engine cannot start", 5));
    EXPECT_EQ(CEFDataMananger::HttpPort(), 0);
    EXPECT_TRUE(CEFDataMananger::PageUrl("broadcast.html").isEmpty());
    CEFDataMananger::SetWebSocketPort(0);
    CEFDataMananger::SetHttpPort(taken.serverPort());
    EXPECT_FALSE(CEFDataMananger::InitCef());
    EXPECT_FALSE(CEFDataMananger::IsCefInit());
    CEFDataMananger::SetHttpPort(0);
    ASSERT_TRUE(CEFDataMananger::InitCef());
}

TEST_F(WebChannelTest, TheRecordPageOnTheAuxiliaryScreenHearsTheClientCloseIt) {
    BroadCastPlugin::CWebRecordPage page;
    int closing = 0;
    QObject::connect(&page, &BroadCastPlugin::CWebRecordPage::auxScreenClosing, [&closing] { ++closing; });
    page.SetRecordPageOnAuxScreen(true);
    EXPECT_TRUE(page.IsRecordPageOnAuxScreen());
    // Another menu's screen closing concerns neither the flag nor the page.
    EXPECT_TRUE(Manager()->NotifyPluginIsClosingAuxScreen("c_menu_real_broadcast_record_1"));
    EXPECT_TRUE(page.IsRecordPageOnAuxScreen());
    EXPECT_EQ(closing, 0);
    EXPECT_TRUE(Manager()->NotifyPluginIsClosingAuxScreen("c_menu_real_broadcast_record_2"));
    EXPECT_FALSE(page.IsRecordPageOnAuxScreen());
    EXPECT_EQ(closing, 1);
    // Bad criteria are answered, not dropped: the page always hears back.
    const QString answer = BroadCastPlugin::CWebRecordPage::ListRecordsNow("[1,2]");
    EXPECT_TRUE(answer.contains("not a JSON object")) << answer.toStdString();
}
