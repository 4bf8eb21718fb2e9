#pragma once
// Small helpers over RapidJSON for the platform: lenient readers with defaults and a compact writer.

#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <cstdint>
#include <string>
#include <vector>

namespace Platform {
namespace Json {

/// Parses a text; an empty or blank text gives an empty object. False on malformed text, with the
/// parser's message and offset in `error`.
bool Parse(const std::string& text, rapidjson::Document& doc, std::string& error);

/// The member at a slash path ("A/B/C") below `root`, or nullptr when any step is missing or no object.
const rapidjson::Value* Find(const rapidjson::Value& root, const char* path);

/// Readers of one node; `value` may be nullptr. Integers also accept integral doubles within the range of
/// int64_t and decimal texts; booleans also accept the integers 0 and 1.
int64_t ToInt(const rapidjson::Value* value, int64_t defaultValue);
std::string ToString(const rapidjson::Value* value, const std::string& defaultValue = std::string());
bool ToBool(const rapidjson::Value* value, bool defaultValue);
/// True when the node holds something `ToInt` can read.
bool IsInt(const rapidjson::Value* value);

int64_t GetInt(const rapidjson::Value& root, const char* path, int64_t defaultValue);
std::string GetString(const rapidjson::Value& root, const char* path, const std::string& defaultValue = "");
bool GetBool(const rapidjson::Value& root, const char* path, bool defaultValue);

/// Compact JSON writer. Inside objects every value takes a key; inside arrays keys are nullptr.
class CWriter {
public:
    CWriter() : writer_(buffer_) {}

    CWriter& BeginObject(const char* key = nullptr);
    CWriter& EndObject();
    CWriter& BeginArray(const char* key = nullptr);
    CWriter& EndArray();
    CWriter& Int(const char* key, int64_t value);
    CWriter& Double(const char* key, double value);
    CWriter& String(const char* key, const std::string& value);
    CWriter& Bool(const char* key, bool value);
    CWriter& Null(const char* key);
    /// Inserts an already serialised JSON value.
    CWriter& Raw(const char* key, const std::string& json);
    CWriter& IntArray(const char* key, const std::vector<int>& values);

    /// The text written so far (complete once every object and array is closed).
    std::string Text() const { return std::string(buffer_.GetString(), buffer_.GetSize()); }

private:
    void Key(const char* key);

    rapidjson::StringBuffer buffer_;
    rapidjson::Writer<rapidjson::StringBuffer> writer_;
};

/// Serialises a node compactly.
std::string Serialize(const rapidjson::Value& value);

}  // namespace Json
}  // namespace Platform
