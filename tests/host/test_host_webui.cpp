// `bcast-host webui` as a program: against the real platform it prints the two page addresses, serves them
// until SIGTERM, then stops the module and exits 0, leaving nothing listening.
#include <gtest/gtest.h>

#include <QHostAddress>
#include <QRegularExpression>
#include <QTcpSocket>
#include <QUrl>
#include <QUrlQuery>

#include <signal.h>

#include <fstream>
#include <string>

#include "PlatformProcess.h"
#include "RestClient.h"
#include "support/QtWait.h"
#include "support/TestProcess.h"

namespace {

int Status(const QUrl& url) {
    QTcpSocket socket;
    socket.connectToHost(QHostAddress::LocalHost, static_cast<quint16>(url.port()));
    if (!socket.waitForConnected(3000)) {
        return -1;
    }
    socket.write("GET " + url.path(QUrl::FullyEncoded).toLatin1() +
                 " HTTP/1.1\r\nHost: 127.0.0.1\r\nConnection: close\r\n\r\n");
    QByteArray all;
    while (socket.waitForReadyRead(5000)) {
        all += socket.readAll();
    }
    return all.startsWith("HTTP/1.1 ") ? all.mid(9, 3).toInt() : -1;
}

int CountLines(const std::string& text, const std::string& prefix) {
    int count = 0;
    std::size_t start = 0;
    while (start < text.size()) {
        const std::size_t end = text.find('\n', start);
        if (text.compare(start, prefix.size(), prefix) == 0) {
            ++count;
        }
        if (end == std::string::npos) {
            break;
        }
        start = end + 1;
    }
    return count;
}

}  // namespace

TEST(HostWebUi, PrintsBothPagesServesThemAndStopsCleanlyOnSigterm) {
    PlatformTest::CPlatformProcess platform;
    ASSERT_TRUE(platform.Start()) << platform.Error();
    BcastTest::CTempDir dir("host-webui");
    const std::string& rest = platform.RestUrl();
    std::ofstream(dir.File("client.json"))
        << R"({"Platform":{"Address":"127.0.0.1","Port":)" << rest.substr(rest.rfind(':') + 1)
        << R"(},"User":{"Name":")" << PlatformTest::kUser << R"(","Password":")" << PlatformTest::kPassword
        << R"("},"SysConfig":{"Language":"en_US","DataPath":")" << dir.File("data") << R"("}})";

    BcastTest::CBackgroundProcess host;
    const std::string output = dir.File("host.out");
    ASSERT_TRUE(host.Start({BcastTest::Program("bcast-host"), "webui", "--config", dir.File("client.json")},
                           {}, output));
    ASSERT_TRUE(BcastTest::WaitFor(
        [&] { return PlatformTest::ReadFile(output).find("record page: ") != std::string::npos; }, 30000))
        << PlatformTest::ReadFile(output);
    const std::string printed = PlatformTest::ReadFile(output);
    EXPECT_EQ(CountLines(printed, "page: "), 1) << printed;
    EXPECT_EQ(CountLines(printed, "record page: "), 1) << printed;
    const QRegularExpression address(
        R"((^|\n)page: (http://127\.0\.0\.1:\d+/([0-9a-f]{64})/broadcast\.html\?ws=\d+)\n)"
        R"(record page: (http://127\.0\.0\.1:\d+/([0-9a-f]{64})/record\.html\?ws=\d+)\n)");
    const QRegularExpressionMatch match = address.match(QString::fromStdString(printed));
    ASSERT_TRUE(match.hasMatch()) << printed;
    EXPECT_EQ(match.captured(3), match.captured(5)) << "one token for both pages";
    const QUrl page(match.captured(2));
    const QUrl record(match.captured(4));
    const quint16 wsPort = static_cast<quint16>(QUrlQuery(page).queryItemValue("ws").toUInt());
    EXPECT_EQ(Status(page), 200);
    EXPECT_EQ(Status(record), 200);
    QUrl other = page;
    other.setPath("/broadcast.html");
    EXPECT_EQ(Status(other), 403);

    ASSERT_EQ(::kill(host.Pid(), SIGTERM), 0);
    int code = -1;
    ASSERT_TRUE(host.Wait(20000, &code)) << PlatformTest::ReadFile(output);
    EXPECT_EQ(code, 0) << PlatformTest::ReadFile(output);
    QTcpSocket probe;
    probe.connectToHost(QHostAddress::LocalHost, static_cast<quint16>(page.port()));
    EXPECT_FALSE(probe.waitForConnected(2000)) << "the page server is gone";
    QTcpSocket wsProbe;
    wsProbe.connectToHost(QHostAddress::LocalHost, wsPort);
    EXPECT_FALSE(wsProbe.waitForConnected(2000)) << "the channel server is gone";
    EXPECT_EQ(platform.Stop(), 0);
}
