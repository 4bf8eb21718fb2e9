#include "host/ClientConfig.h"

#include <rapidjson/document.h>

#include <cstdlib>
#include <fstream>
#include <sstream>

#include "framework/base/FileSystem.h"
#include "framework/base/FormatLog.h"
#include "framework/business/BusinessCommon.h"
#include "framework/clientframe/FrameworkManagerInterface.h"
#include "framework/netcomm/RapidJsonProto.h"

namespace BcastHost {

namespace {

std::string WithSlash(std::string path) {
    if (!path.empty() && path.back() != '/') {
        path.push_back('/');
    }
    return path;
}

std::string DefaultDataPath() {
    const char* xdg = std::getenv("XDG_DATA_HOME");
    if (xdg != nullptr && *xdg != '\0') {
        return WithSlash(xdg) + "bcast-host/";
    }
    const char* home = std::getenv("HOME");
    return WithSlash(home != nullptr && *home != '\0' ? home : "/tmp") + ".local/share/bcast-host/";
}

enum class KeyType { kString, kInteger, kBoolean };

struct KnownKey {
    const char* section;
    const char* name;
    KeyType type;
    bool required;
};

// Every key the host, the framework and the module read.
constexpr KnownKey kKnownKeys[] = {
    {"Platform", "Address", KeyType::kString, true},
    {"Platform", "Port", KeyType::kInteger, true},
    {"Platform", "Https", KeyType::kBoolean, false},
    {"Platform", "CaFile", KeyType::kString, false},
    {"User", "Name", KeyType::kString, false},
    {"User", "Password", KeyType::kString, false},
    {"SysConfig", "Language", KeyType::kString, false},
    {"SysConfig", "NetOvertime", KeyType::kInteger, false},
    {"SysConfig", "LogLevel", KeyType::kInteger, false},
    {"SysConfig", "StderrLogLevel", KeyType::kInteger, false},
    {"SysConfig", "DataPath", KeyType::kString, false},
    {"SysConfig", "CapturePath", KeyType::kString, false},
};

const KnownKey* FindKey(const std::string& section, const std::string& name) {
    for (const KnownKey& key : kKnownKeys) {
        if (section == key.section && (name.empty() || name == key.name)) {
            return &key;
        }
    }
    return nullptr;
}

// Unknown (mistyped) keys, values of the wrong type and missing required keys, named by their path.
bool CheckKeys(const std::string& text, std::string& error) {
    rapidjson::Document doc;
    doc.Parse(text.c_str(), text.size());
    if (doc.HasParseError() || !doc.IsObject()) {
        error = "is not a JSON object";
        return false;
    }
    for (const auto& section : doc.GetObject()) {
        const std::string sectionName = section.name.GetString();
        if (FindKey(sectionName, "") == nullptr) {
            error = "unknown key /" + sectionName;
            return false;
        }
        if (!section.value.IsObject()) {
            error = "/" + sectionName + " must be an object";
            return false;
        }
        for (const auto& member : section.value.GetObject()) {
            const std::string path = "/" + sectionName + "/" + member.name.GetString();
            const KnownKey* key = FindKey(sectionName, member.name.GetString());
            if (key == nullptr) {
                error = "unknown key " + path;
                return false;
            }
            const rapidjson::Value& v = member.value;
            const bool fits = key->type == KeyType::kString    ? v.IsString()
                              : key->type == KeyType::kInteger ? v.IsInt()
                                                               : v.IsBool();
            if (!fits) {
                error = path + (key->type == KeyType::kString    ? " must be a string"
                                : key->type == KeyType::kInteger ? " must be an integer"
                                                                 : " must be true or false");
                return false;
            }
        }
    }
    for (const KnownKey& key : kKnownKeys) {
        const auto section = doc.FindMember(key.section);
        if (key.required && (section == doc.MemberEnd() || !section->value.HasMember(key.name))) {
            error = std::string("missing key /") + key.section + "/" + key.name;
            return false;
        }
    }
    return true;
}

}  // namespace

bool LoadClientConfig(const std::string& path, ClientConfig& config, std::string& error) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        error = "cannot read client configuration " + path;
        return false;
    }
    std::stringstream content;
    content << in.rdbuf();
    NetworkCommunication::CRapidJsonProto doc;
    if (!doc.set_str(content.str()) || doc.get_str(0).front() != '{') {
        error = "client configuration " + path + " is not a JSON object";
        return false;
    }
    config.text = doc.get_str(0);
    std::string keyError;
    if (!CheckKeys(config.text, keyError)) {
        error = "client configuration " + path + ": " + keyError;
        return false;
    }
    config.platformAddress = doc.get_v("/Platform/Address", config.platformAddress);
    config.platformPort = doc.get_int_v("/Platform/Port", config.platformPort);
    config.https = doc.get_bool_v("/Platform/Https", config.https);
    config.caFile = doc.get_v("/Platform/CaFile", config.caFile);
    config.userName = doc.get_v("/User/Name", config.userName);
    config.password = doc.get_v("/User/Password", config.password);
    config.language = doc.get_v("/SysConfig/Language", config.language);
    config.netOvertime = doc.get_int_v("/SysConfig/NetOvertime", config.netOvertime);
    config.logLevel = doc.get_int_v("/SysConfig/LogLevel", config.logLevel);
    config.stderrLogLevel = doc.get_int_v("/SysConfig/StderrLogLevel", config.stderrLogLevel);
    config.dataPath = WithSlash(doc.get_v("/SysConfig/DataPath", ""));
    config.capturePath = WithSlash(doc.get_v("/SysConfig/CapturePath", ""));
    if (config.dataPath.empty()) {
        config.dataPath = DefaultDataPath();
    }
    if (config.capturePath.empty()) {
        config.capturePath = config.dataPath + "capture/";
    }
    if (config.platformPort < 0 || config.platformPort > 65535) {
        error = "client configuration " + path + ": /Platform/Port out of range";
        return false;
    }
    if (config.language.empty()) {
        error = "client configuration " + path + ": /SysConfig/Language is empty";
        return false;
    }
    return true;
}

bool ApplyClientConfig(const ClientConfig& config, std::string& error) {
    if (!Tal::Base::FileSystem::MakeFullDir(config.dataPath)) {
        error = "cannot create data directory " + config.dataPath;
        return false;
    }
    Tal::Base::LogConfig log;
    log.directory = config.dataPath + "log";
    log.fileName = "bcast-host.log";
    log.fileLevel = config.logLevel;
    log.stderrLevel = config.stderrLogLevel;
    if (!Tal::Base::InitLog(log)) {
        error = "cannot open the log file in " + log.directory;
        return false;
    }
    auto* system = BusinessCommon::CFrameSystemConfigMgr::Instance();
    system->SetClientDataPath(config.dataPath);
    system->SetVideoCaptureDataPath(config.capturePath);
    system->SetNetOverTime(config.netOvertime);
    if (!TalClientFrameWork::CFrameworkManagerInterface::Instance()->SetClientConfig(config.text)) {
        error = "the framework refused the client configuration";
        return false;
    }
    return true;
}

BusinessCommon::PlatformLoginRequest LoginRequestOf(const ClientConfig& config) {
    BusinessCommon::PlatformLoginRequest login;
    login.address = config.platformAddress;
    login.port = config.platformPort;
    login.https = config.https;
    login.caFile = config.caFile;
    login.user = config.userName;
    login.password = config.password;
    login.language = config.language;
    return login;
}

}  // namespace BcastHost
