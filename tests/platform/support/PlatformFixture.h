#pragma once
// Test fixture: a real platform process per test, a logged-in REST client, and the session key.

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "PlatformProcess.h"
#include "RestClient.h"
#include "framework/business/secret/SecretCipher.h"

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

/// A text encrypted for the session under scheme `type`, in plain; "<not decryptable>" when refused.
inline std::string Decrypt(const std::string& sessionKey, int type, const std::string& text) {
    BusinessCommon::CSecretCipher cipher(sessionKey);
    std::string plain;
    return cipher.DecryptByType(type, text, plain) ? plain : "<not decryptable>";
}

/// One expected value of an answer: a number, a text or a boolean at a pointer below a common prefix.
struct Field {
    Field(std::string k, int v) : key(std::move(k)), kind('i'), number(v) {}
    Field(std::string k, const char* v) : key(std::move(k)), kind('s'), text(v) {}
    Field(std::string k, bool v) : key(std::move(k)), kind('b'), flag(v) {}
    std::string key;
    char kind;
    int number = 0;
    std::string text;
    bool flag = false;
};

/// Checks each field at `prefix` + its key, naming the pointer of every mismatch.
inline void ExpectFields(const RestReply& reply, const std::string& prefix,
                         const std::vector<Field>& fields) {
    for (const Field& f : fields) {
        const std::string at = prefix + f.key;
        if (f.kind == 'i') {
            EXPECT_EQ(reply.Int(at.c_str()), f.number) << at;
        } else if (f.kind == 's') {
            EXPECT_EQ(reply.Str(at.c_str()), f.text) << at;
        } else {
            const rapidjson::Value* v = reply.Node(at.c_str());
            EXPECT_TRUE(v != nullptr && v->IsBool() && v->GetBool() == f.flag) << at << " is not " << f.flag;
        }
    }
}

/// Path prefixes.
inline std::string Plugin(const std::string& tail) {
    return "/DXAPI/Galewing/BroadcastPlugin/V1" + tail;
}
inline std::string PlatformV1(const std::string& tail) {
    return "/DXAPI/Galewing/Platform/V1" + tail;
}

}  // namespace PlatformTest
