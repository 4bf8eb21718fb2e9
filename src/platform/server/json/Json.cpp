#include "platform/server/json/Json.h"

#include <rapidjson/error/en.h>

#include <cerrno>
#include <cmath>
#include <cstdlib>

namespace Platform {
namespace Json {

bool Parse(const std::string& text, rapidjson::Document& doc, std::string& error) {
    if (text.find_first_not_of(" \t\r\n") == std::string::npos) {
        doc.SetObject();
        return true;
    }
    doc.Parse(text.data(), text.size());
    if (doc.HasParseError()) {
        error = std::string(rapidjson::GetParseError_En(doc.GetParseError())) + " at offset " +
                std::to_string(doc.GetErrorOffset());
        doc.SetObject();
        return false;
    }
    return true;
}

const rapidjson::Value* Find(const rapidjson::Value& root, const char* path) {
    const rapidjson::Value* node = &root;
    std::string rest = path != nullptr ? path : "";
    size_t start = 0;
    while (start <= rest.size()) {
        size_t slash = rest.find('/', start);
        std::string name = rest.substr(start, slash == std::string::npos ? std::string::npos : slash - start);
        if (!name.empty()) {
            if (!node->IsObject()) {
                return nullptr;
            }
            auto it = node->FindMember(
                rapidjson::Value(name.c_str(), static_cast<rapidjson::SizeType>(name.size())));
            if (it == node->MemberEnd()) {
                return nullptr;
            }
            node = &it->value;
        }
        if (slash == std::string::npos) {
            break;
        }
        start = slash + 1;
    }
    return node;
}

bool IsInt(const rapidjson::Value* value) {
    if (value == nullptr) {
        return false;
    }
    if (value->IsInt64() || value->IsUint64()) {
        return true;
    }
    if (value->IsDouble()) {
        // Whole numbers only, and only those an int64_t holds (2^63 itself does not).
        double d = value->GetDouble();
        return std::isfinite(d) && std::floor(d) == d && d >= -9223372036854775808.0 &&
               d < 9223372036854775808.0;
    }
    if (value->IsString()) {
        const char* s = value->GetString();
        if (*s == '\0') {
            return false;
        }
        char* end = nullptr;
        errno = 0;
        std::strtoll(s, &end, 10);
        return errno == 0 && end != nullptr && *end == '\0';
    }
    return false;
}

int64_t ToInt(const rapidjson::Value* value, int64_t defaultValue) {
    if (!IsInt(value)) {
        return defaultValue;
    }
    if (value->IsInt64()) {
        return value->GetInt64();
    }
    if (value->IsUint64()) {
        return static_cast<int64_t>(value->GetUint64());
    }
    if (value->IsDouble()) {
        return static_cast<int64_t>(value->GetDouble());
    }
    return std::strtoll(value->GetString(), nullptr, 10);
}

std::string ToString(const rapidjson::Value* value, const std::string& defaultValue) {
    if (value == nullptr || !value->IsString()) {
        return defaultValue;
    }
    return std::string(value->GetString(), value->GetStringLength());
}

bool ToBool(const rapidjson::Value* value, bool defaultValue) {
    if (value == nullptr) {
        return defaultValue;
    }
    if (value->IsBool()) {
        return value->GetBool();
    }
    if (value->IsInt64() && (value->GetInt64() == 0 || value->GetInt64() == 1)) {
        return value->GetInt64() == 1;
    }
    return defaultValue;
}

int64_t GetInt(const rapidjson::Value& root, const char* path, int64_t defaultValue) {
    return ToInt(Find(root, path), defaultValue);
}

std::string GetString(const rapidjson::Value& root, const char* path, const std::string& defaultValue) {
    return ToString(Find(root, path), defaultValue);
}

bool GetBool(const rapidjson::Value& root, const char* path, bool defaultValue) {
    return ToBool(Find(root, path), defaultValue);
}

void CWriter::Key(const char* key) {
    if (key != nullptr) {
        writer_.Key(key);
    }
}

CWriter& CWriter::BeginObject(const char* key) {
    Key(key);
    writer_.StartObject();
    return *this;
}

CWriter& CWriter::EndObject() {
    writer_.EndObject();
    return *this;
}

CWriter& CWriter::BeginArray(const char* key) {
    Key(key);
    writer_.StartArray();
    return *this;
}

CWriter& CWriter::EndArray() {
    writer_.EndArray();
    return *this;
}

CWriter& CWriter::Int(const char* key, int64_t value) {
    Key(key);
    writer_.Int64(value);
    return *this;
}

CWriter& CWriter::Double(const char* key, double value) {
    Key(key);
    writer_.Double(value);
    return *this;
}

CWriter& CWriter::String(const char* key, const std::string& value) {
    Key(key);
    writer_.String(value.data(), static_cast<rapidjson::SizeType>(value.size()));
    return *this;
}

CWriter& CWriter::Bool(const char* key, bool value) {
    Key(key);
    writer_.Bool(value);
    return *this;
}

CWriter& CWriter::Null(const char* key) {
    Key(key);
    writer_.Null();
    return *this;
}

CWriter& CWriter::Raw(const char* key, const std::string& json) {
    Key(key);
    writer_.RawValue(json.data(), json.size(), rapidjson::kObjectType);
    return *this;
}

CWriter& CWriter::IntArray(const char* key, const std::vector<int>& values) {
    BeginArray(key);
    for (int v : values) {
        writer_.Int(v);
    }
    return EndArray();
}

std::string Serialize(const rapidjson::Value& value) {
    rapidjson::StringBuffer buffer;
    rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
    value.Accept(writer);
    return std::string(buffer.GetString(), buffer.GetSize());
}

}  // namespace Json
}  // namespace Platform
