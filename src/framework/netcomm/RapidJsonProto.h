#pragma once
// JSON document addressed by slash paths: "/Data/Mode", array elements by 1-based index after the array's
// name ("/List/Item[2]/ID"). Writers create missing nodes; readers fall back to the caller's default when
// the node is missing or holds another type.

#include <cstdint>
#include <memory>
#include <string>

namespace NetworkCommunication {

class CRapidJsonProto {
public:
    /// Deepest nesting accepted by set_str; deeper texts are refused rather than risk the stack.
    static constexpr int kMaxDepth = 256;
    /// Writers may append at most one element past an array's end ("[size + 1]").
    CRapidJsonProto();
    ~CRapidJsonProto();
    CRapidJsonProto(const CRapidJsonProto& other);
    CRapidJsonProto& operator=(const CRapidJsonProto& other);
    CRapidJsonProto(CRapidJsonProto&&) noexcept;
    CRapidJsonProto& operator=(CRapidJsonProto&&) noexcept;

    /// Parses a text into the document. False on malformed or too deeply nested text; the document is then
    /// an empty object.
    bool set_str(const std::string& text);
    /// Serialises the whole document: 0 compact, any other value indented.
    std::string get_str(int pretty = 0) const;
    /// Serialises the node at a path; empty when the node is missing.
    std::string get_node_str(const std::string& path, int pretty = 0) const;
    /// Replaces (creating as needed) the node at a path by a parsed JSON text. False on malformed text.
    bool set_node_str(const std::string& path, const std::string& json);

    bool set_v(const std::string& path, const std::string& value);
    bool set_v(const std::string& path, const char* value);
    bool set_v(const std::string& path, int value);
    bool set_int64_v(const std::string& path, int64_t value);
    bool set_double_v(const std::string& path, double value);
    bool set_bool_v(const std::string& path, bool value);

    std::string get_v(const std::string& path, const std::string& defaultValue = std::string()) const;
    int get_int_v(const std::string& path, int defaultValue) const;
    int64_t get_int64_v(const std::string& path, int64_t defaultValue) const;
    double get_double_v(const std::string& path, double defaultValue) const;
    bool get_bool_v(const std::string& path, bool defaultValue) const;
    /// Number of elements of the array at a path; 0 when absent or not an array.
    int get_cnt(const std::string& path) const;
    /// True when a node (of any type) exists at the path.
    bool is_exist(const std::string& path) const;
    /// True when the document root is an object with no members.
    bool is_empty() const;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace NetworkCommunication
