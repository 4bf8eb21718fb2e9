#pragma once
// Test fixture: a real platform process per test, a logged-in REST client, and the session key.

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "PlatformProcess.h"
#include "RestClient.h"

namespace PlatformTest {

class PlatformFixture : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(platform_.Start(ExtraArgs())) << platform_.Error();
        client_ = std::make_unique<CRestClient>(platform_.RestUrl());
        std::string error;
        RestReply login;
        ASSERT_TRUE(client_->Login(kUser, kPassword, error, &login)) << error;
        sessionKey_ = login.Str("/ResponseStatus/Data/SessionKey");
        pushUrl_ = login.Str("/ResponseStatus/Data/PushUrl");
    }

    void TearDown() override {
        client_.reset();
        const int code = platform_.Stop();
        EXPECT_EQ(code, 0) << "the platform did not stop cleanly: " << platform_.Error() << "\n"
                           << platform_.Stderr().substr(0, 20000);
    }

    /// Arguments besides --listen for the platform of this test.
    virtual std::vector<std::string> ExtraArgs() const { return {"--fixture", DemoFixture()}; }

    RestReply Get(const std::string& path, const std::string& body = "") {
        return client_->Send("GET", path, body);
    }
    RestReply Post(const std::string& path, const std::string& body = "") {
        return client_->Send("POST", path, body);
    }
    RestReply Put(const std::string& path, const std::string& body = "") {
        return client_->Send("PUT", path, body);
    }
    /// The control interface (no session).
    RestReply Control(const std::string& method, const std::string& path, const std::string& body = "") {
        CRestClient control(platform_.RestUrl());
        return control.Send(method, "/_control" + path, body);
    }

    CPlatformProcess platform_;
    std::unique_ptr<CRestClient> client_;
    std::string sessionKey_;
    std::string pushUrl_;
};

/// Path prefixes.
inline std::string Plugin(const std::string& tail) {
    return "/DXAPI/Galewing/BroadcastPlugin/V1" + tail;
}
inline std::string PlatformV1(const std::string& tail) {
    return "/DXAPI/Galewing/Platform/V1" + tail;
}

}  // namespace PlatformTest
