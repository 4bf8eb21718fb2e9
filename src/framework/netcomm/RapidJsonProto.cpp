#include "framework/netcomm/RapidJsonProto.h"

#include <rapidjson/document.h>
#include <rapidjson/memorystream.h>
#include <rapidjson/prettywriter.h>
#include <rapidjson/reader.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <algorithm>
#include <charconv>
#include <climits>
#include <cmath>
#include <cstring>
#include <limits>
#include <string_view>
#include <system_error>
#include <utility>

namespace NetworkCommunication {

namespace {

using rapidjson::SizeType;
using Value = rapidjson::Value;
using Document = rapidjson::Document;

// Iterative parsing keeps the C++ stack flat whatever the input. Numbers arrive as text and are converted
// here (see BoundedHandler::RawNumber). Parsing stops after the root value so that the rest of the text can
// be checked against its real length (the reader treats a NUL byte as end of input).
constexpr unsigned kParseFlags = rapidjson::kParseIterativeFlag | rapidjson::kParseStopWhenDoneFlag |
                                 rapidjson::kParseNumbersAsStringsFlag;

// Values and member names are stored with 32-bit lengths.
constexpr size_t kMaxStringLength = std::numeric_limits<SizeType>::max();

// Unused pool memory (replaced values are never freed by the pool) tolerated before a document is compacted.
constexpr size_t kCompactSlack = 256 * 1024;
// Estimated bytes written between two measurements of the pool.
constexpr size_t kMinCheckInterval = 16 * 1024;

// One path segment: a member name and, when the segment ends in "[i]", the 1-based element index (0 = none).
struct Segment {
    std::string_view name;
    SizeType index = 0;
};

// Splits a slash path into segments, skipping empty ones.
class PathCursor {
public:
    explicit PathCursor(std::string_view path) : path_(path) {}

    // 1: a segment was produced, 0: end of path, -1: malformed segment.
    int next(Segment& seg) {
        while (pos_ < path_.size() && path_[pos_] == '/') {
            ++pos_;
        }
        if (pos_ >= path_.size()) {
            return 0;
        }
        size_t end = path_.find('/', pos_);
        if (end == std::string_view::npos) {
            end = path_.size();
        }
        std::string_view raw = path_.substr(pos_, end - pos_);
        pos_ = end;
        return parse(raw, seg) ? 1 : -1;
    }

private:
    static bool parse(std::string_view raw, Segment& seg) {
        const size_t bracket = raw.find_first_of("[]");
        if (bracket == std::string_view::npos) {
            seg.name = raw;
            seg.index = 0;
            return raw.size() <= kMaxStringLength;
        }
        // Exactly "name[digits]" with a non-empty name; anything else is not a path.
        if (bracket == 0 || raw[bracket] != '[' || raw.back() != ']' || bracket + 2 >= raw.size() ||
            bracket > kMaxStringLength) {
            return false;
        }
        uint64_t index = 0;
        for (size_t i = bracket + 1; i + 1 < raw.size(); ++i) {
            const char c = raw[i];
            if (c < '0' || c > '9') {
                return false;
            }
            index = index * 10 + static_cast<unsigned>(c - '0');
            if (index > static_cast<uint64_t>(INT_MAX)) {
                return false;
            }
        }
        if (index == 0) {
            return false;
        }
        seg.name = raw.substr(0, bracket);
        seg.index = static_cast<SizeType>(index);
        return true;
    }

    std::string_view path_;
    size_t pos_ = 0;
};

template <typename V>
V* findMember(V& object, std::string_view name) {
    const Value key(rapidjson::StringRef(name.data(), name.size()));
    auto it = object.FindMember(key);
    return it == object.MemberEnd() ? nullptr : &it->value;
}

// Node at a path, or null when it is missing or the path is malformed.
const Value* findNode(const Value& root, std::string_view path) {
    PathCursor cursor(path);
    Segment seg;
    const Value* cur = &root;
    int r;
    while ((r = cursor.next(seg)) > 0) {
        if (!cur->IsObject()) {
            return nullptr;
        }
        const Value* child = findMember(*cur, seg.name);
        if (child == nullptr) {
            return nullptr;
        }
        if (seg.index != 0) {
            if (!child->IsArray() || seg.index > child->Size()) {
                return nullptr;
            }
            child = &(*child)[seg.index - 1];
        }
        cur = child;
    }
    return r == 0 ? cur : nullptr;
}

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

// For a decimal number whose conversion fell out of double's range: true when it is too large (rather than
// too small), judged by the decimal exponent of its first significant digit.
bool overflowsDouble(const char* p, const char* end) {
    if (p < end && *p == '-') {
        ++p;
    }
    bool found = false;
    int64_t lead = 0;
    for (; p < end && isDigit(*p); ++p) {
        if (found) {
            ++lead;
        } else if (*p != '0') {
            found = true;
        }
    }
    if (p < end && *p == '.') {
        int64_t position = 0;
        for (++p; p < end && isDigit(*p); ++p) {
            ++position;
            if (!found && *p != '0') {
                found = true;
                lead = -position;
            }
        }
    }
    int64_t exponent = 0;
    bool negative = false;
    if (p < end && (*p == 'e' || *p == 'E')) {
        ++p;
        if (p < end && (*p == '+' || *p == '-')) {
            negative = *p == '-';
            ++p;
        }
        for (; p < end && isDigit(*p); ++p) {
            exponent = std::min<int64_t>(exponent * 10 + (*p - '0'), 1000000000);
        }
    }
    return found && lead + (negative ? -exponent : exponent) > 0;
}

// Forwards parse events to a document, refusing nesting beyond kMaxDepth and numbers too large for a
// double (they could not be written back out as JSON).
class BoundedHandler {
public:
    explicit BoundedHandler(Document& doc) : doc_(doc) {}

    int maxDepth() const { return maxDepth_; }

    bool Null() { return doc_.Null(); }
    bool Bool(bool b) { return doc_.Bool(b); }
    bool Int(int i) { return doc_.Int(i); }
    bool Uint(unsigned u) { return doc_.Uint(u); }
    bool Int64(int64_t i) { return doc_.Int64(i); }
    bool Uint64(uint64_t u) { return doc_.Uint64(u); }
    bool Double(double d) { return std::isfinite(d) && doc_.Double(d); }
    // The reader has already checked the number's syntax. Integers are kept exactly when they fit 64 bits;
    // everything else becomes the correctly rounded double (std::from_chars, independent of the C locale).
    bool RawNumber(const char* str, SizeType length, bool /*copy*/) {
        const char* end = str + length;
        if (std::find_if(str, end, [](char c) { return c == '.' || c == 'e' || c == 'E'; }) == end) {
            if (*str == '-') {
                int64_t value = 0;
                const auto r = std::from_chars(str, end, value);
                if (r.ec == std::errc() && r.ptr == end) {
                    return doc_.Int64(value);
                }
            } else {
                uint64_t value = 0;
                const auto r = std::from_chars(str, end, value);
                if (r.ec == std::errc() && r.ptr == end) {
                    return doc_.Uint64(value);
                }
            }
        }
        double value = 0;
        const auto r = std::from_chars(str, end, value);
        if (r.ptr != end) {
            return false;
        }
        if (r.ec == std::errc::result_out_of_range) {
            if (overflowsDouble(str, end)) {
                return false;
            }
            value = *str == '-' ? -0.0 : 0.0;
        } else if (r.ec != std::errc()) {
            return false;
        }
        return Double(value);
    }
    bool String(const char* str, SizeType length, bool copy) { return doc_.String(str, length, copy); }
    bool Key(const char* str, SizeType length, bool copy) { return doc_.Key(str, length, copy); }
    bool StartObject() { return enter() && doc_.StartObject(); }
    bool EndObject(SizeType count) {
        --depth_;
        return doc_.EndObject(count);
    }
    bool StartArray() { return enter() && doc_.StartArray(); }
    bool EndArray(SizeType count) {
        --depth_;
        return doc_.EndArray(count);
    }

private:
    bool enter() {
        if (++depth_ > CRapidJsonProto::kMaxDepth) {
            return false;
        }
        maxDepth_ = std::max(maxDepth_, depth_);
        return true;
    }

    Document& doc_;
    int depth_ = 0;
    int maxDepth_ = 0;
};

bool isJsonSpace(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

// Parses a complete JSON text into `doc` (values allocated from doc's allocator). Returns the nesting depth
// of the parsed value, or -1 when the text is malformed, empty or nested deeper than kMaxDepth; `doc` is
// then left untouched.
int parseInto(Document& doc, std::string_view text) {
    // A leading UTF-8 byte order mark is tolerated.
    if (text.size() >= 3 && std::memcmp(text.data(), "\xEF\xBB\xBF", 3) == 0) {
        text.remove_prefix(3);
    }
    int depth = -1;
    auto generate = [&](Document& handlerDoc) {
        rapidjson::MemoryStream stream(text.data(), text.size());
        rapidjson::Reader reader;
        BoundedHandler handler(handlerDoc);
        if (reader.Parse<kParseFlags>(stream, handler).IsError()) {
            return false;
        }
        for (size_t pos = stream.Tell(); pos < text.size(); ++pos) {
            if (!isJsonSpace(text[pos])) {
                return false;
            }
        }
        depth = handler.maxDepth();
        return true;
    };
    doc.Populate(generate);
    return depth;
}

template <typename W>
std::string serialise(const Value& value) {
    rapidjson::StringBuffer buffer;
    W writer(buffer);
    // Only non-finite doubles make the writer fail, and the parser and setters never store those.
    if (!value.Accept(writer)) {
        return std::string();
    }
    return std::string(buffer.GetString(), buffer.GetSize());
}

std::string serialise(const Value& value, int pretty) {
    return pretty != 0 ? serialise<rapidjson::PrettyWriter<rapidjson::StringBuffer>>(value)
                       : serialise<rapidjson::Writer<rapidjson::StringBuffer>>(value);
}

// Root of a moved-from object, which reads as an empty document.
const Value& emptyObject() {
    static const Value empty(rapidjson::kObjectType);
    return empty;
}

// The document a setter writes to, made on its first write (also after a move).
template <class ImplPtr>
typename ImplPtr::element_type& Writable(ImplPtr& impl) {
    if (!impl) {
        impl = std::make_unique<typename ImplPtr::element_type>();
    }
    return *impl;
}

// A scalar at `path` of the object's document when it has the type `is` tests, else `fallback`.
template <class ImplPtr, class T>
T ReadScalar(const ImplPtr& impl, const std::string& path, T fallback, bool (Value::*is)() const,
             T (Value::*get)() const) {
    const Value* node = findNode(impl ? impl->doc : emptyObject(), path);
    return node != nullptr && (node->*is)() ? (node->*get)() : fallback;
}

}  // namespace

struct CRapidJsonProto::Impl {
    Document doc;
    // Pool capacity after the last parse or compaction.
    size_t baseline = 0;
    // Estimated bytes written since the pool was last measured.
    size_t pending = 0;

    Impl() {
        doc.SetObject();
        rebase();
    }

    Impl(const Impl& other) {
        doc.CopyFrom(other.doc, doc.GetAllocator());
        rebase();
    }

    Impl& operator=(const Impl&) = delete;

    void rebase() {
        baseline = doc.GetAllocator().Capacity();
        pending = 0;
    }

    // Installs `fresh` as the document; the old pool is released with `fresh`.
    void replace(Document& fresh) {
        doc.Swap(fresh);
        rebase();
    }

    void resetToEmpty() {
        Document fresh;
        fresh.SetObject();
        replace(fresh);
    }

    // The pool never reuses the memory of replaced values. Writers report roughly how much they allocated;
    // once that adds up, the pool is measured and, when mostly garbage, the tree is copied into a new pool.
    // Measuring walks the pool's chunks, so it is done at most every max(16 KiB, baseline / 4) bytes.
    void noteWrite(size_t bytes) {
        pending += bytes + 64;
        if (pending < std::max(kMinCheckInterval, baseline / 4)) {
            return;
        }
        pending = 0;
        if (doc.GetAllocator().Capacity() <= 2 * baseline + kCompactSlack) {
            return;
        }
        Document fresh;
        fresh.CopyFrom(doc, fresh.GetAllocator());
        replace(fresh);
    }

    // Checks that a write to `path` can succeed, without touching the document: the path is well formed,
    // every index is at most one past its array's current end, and the slot's nesting depth (returned in
    // `slotDepth`; 0 for the root) stays within kMaxDepth.
    bool planWrite(std::string_view path, int& slotDepth) const {
        PathCursor cursor(path);
        Segment seg;
        slotDepth = 0;
        // Null once the walk leaves the existing tree: from there on every node is created fresh.
        const Value* cur = doc.IsObject() ? &doc : nullptr;
        int r;
        while ((r = cursor.next(seg)) > 0) {
            slotDepth += seg.index != 0 ? 2 : 1;
            if (slotDepth > kMaxDepth) {
                return false;
            }
            const Value* child = cur != nullptr && cur->IsObject() ? findMember(*cur, seg.name) : nullptr;
            if (seg.index != 0) {
                const uint64_t size = child != nullptr && child->IsArray() ? child->Size() : 0;
                if (seg.index > size + 1) {
                    return false;
                }
                child = seg.index <= size ? &(*child)[seg.index - 1] : nullptr;
            }
            cur = child;
        }
        return r == 0;
    }

    // Creates the nodes along a path accepted by planWrite and returns the slot it names (a new slot holds
    // null). Non-object nodes on the way are replaced by objects, non-array indexed members by arrays.
    Value& makeSlot(std::string_view path) {
        auto& alloc = doc.GetAllocator();
        if (!doc.IsObject()) {
            doc.SetObject();
        }
        PathCursor cursor(path);
        Segment seg;
        Value* cur = &doc;
        bool more = cursor.next(seg) > 0;
        while (more) {
            const Segment here = seg;
            more = cursor.next(seg) > 0;
            Value* child = findMember(*cur, here.name);
            if (child == nullptr) {
                Value key(here.name.data(), static_cast<SizeType>(here.name.size()), alloc);
                Value node(here.index != 0 ? rapidjson::kArrayType
                                           : (more ? rapidjson::kObjectType : rapidjson::kNullType));
                cur->AddMember(key, node, alloc);
                child = &(cur->MemberEnd() - 1)->value;
            }
            if (here.index != 0) {
                if (!child->IsArray()) {
                    child->SetArray();
                }
                if (here.index > child->Size()) {
                    Value element(more ? rapidjson::kObjectType : rapidjson::kNullType);
                    child->PushBack(element, alloc);
                }
                child = &(*child)[here.index - 1];
            }
            if (more && !child->IsObject()) {
                child->SetObject();
            }
            cur = child;
        }
        return *cur;
    }

    // Stores a scalar built by `make` (given the allocator) at a non-root path.
    template <typename Make>
    bool writeScalar(std::string_view path, size_t bytes, Make make) {
        int slotDepth = 0;
        if (!planWrite(path, slotDepth) || slotDepth == 0) {
            return false;
        }
        Value value = make(doc.GetAllocator());
        makeSlot(path) = value;
        noteWrite(path.size() + bytes);
        return true;
    }

    bool writeString(std::string_view path, std::string_view text) {
        if (text.size() > kMaxStringLength) {
            return false;
        }
        return writeScalar(path, text.size(), [text](Document::AllocatorType& alloc) {
            return Value(text.data(), static_cast<SizeType>(text.size()), alloc);
        });
    }

    bool writeJson(std::string_view path, std::string_view json) {
        int slotDepth = 0;
        if (!planWrite(path, slotDepth)) {
            return false;
        }
        if (slotDepth == 0) {
            Document fresh;
            if (parseInto(fresh, json) < 0) {
                return false;
            }
            replace(fresh);
            return true;
        }
        bool placed = false;
        {
            // Parsed straight into this document's pool, so placing it is a move rather than a copy.
            Document parsed(&doc.GetAllocator());
            const int depth = parseInto(parsed, json);
            if (depth >= 0 && slotDepth + depth <= kMaxDepth) {
                makeSlot(path) = static_cast<Value&>(parsed);
                placed = true;
            }
        }
        // Counted once the parsed value is placed or gone: a reorganisation frees the pool it was parsed
        // into. A failed parse may still have left garbage there.
        noteWrite(path.size() + json.size());
        return placed;
    }
};

CRapidJsonProto::CRapidJsonProto() : impl_(std::make_unique<Impl>()) {}

CRapidJsonProto::~CRapidJsonProto() = default;

CRapidJsonProto::CRapidJsonProto(const CRapidJsonProto& other)
    : impl_(other.impl_ ? std::make_unique<Impl>(*other.impl_) : nullptr) {}

CRapidJsonProto& CRapidJsonProto::operator=(const CRapidJsonProto& other) {
    if (this != &other) {
        CRapidJsonProto copy(other);
        impl_.swap(copy.impl_);
    }
    return *this;
}

// A moved-from object has no Impl: readers then see an empty object and writers create a fresh one.
CRapidJsonProto::CRapidJsonProto(CRapidJsonProto&&) noexcept = default;
CRapidJsonProto& CRapidJsonProto::operator=(CRapidJsonProto&&) noexcept = default;

bool CRapidJsonProto::set_str(const std::string& text) {
    Writable(impl_);
    Document fresh;
    if (parseInto(fresh, text) < 0) {
        impl_->resetToEmpty();
        return false;
    }
    impl_->replace(fresh);
    return true;
}

std::string CRapidJsonProto::get_str(int pretty) const {
    return serialise(impl_ ? impl_->doc : emptyObject(), pretty);
}

std::string CRapidJsonProto::get_node_str(const std::string& path, int pretty) const {
    const Value* node = findNode(impl_ ? impl_->doc : emptyObject(), path);
    return node != nullptr ? serialise(*node, pretty) : std::string();
}

bool CRapidJsonProto::set_node_str(const std::string& path, const std::string& json) {
    return Writable(impl_).writeJson(path, json);
}

bool CRapidJsonProto::set_v(const std::string& path, const std::string& value) {
    return Writable(impl_).writeString(path, value);
}

bool CRapidJsonProto::set_v(const std::string& path, const char* value) {
    if (value == nullptr) {
        return false;
    }
    return Writable(impl_).writeString(path, value);
}

bool CRapidJsonProto::set_v(const std::string& path, int value) {
    return Writable(impl_).writeScalar(path, 0, [value](Document::AllocatorType&) { return Value(value); });
}

bool CRapidJsonProto::set_int64_v(const std::string& path, int64_t value) {
    return Writable(impl_).writeScalar(path, 0, [value](Document::AllocatorType&) { return Value(value); });
}

bool CRapidJsonProto::set_double_v(const std::string& path, double value) {
    // JSON has no representation for NaN or infinities.
    if (!std::isfinite(value)) {
        return false;
    }
    return Writable(impl_).writeScalar(path, 0, [value](Document::AllocatorType&) { return Value(value); });
}

bool CRapidJsonProto::set_bool_v(const std::string& path, bool value) {
    return Writable(impl_).writeScalar(path, 0, [value](Document::AllocatorType&) { return Value(value); });
}

std::string CRapidJsonProto::get_v(const std::string& path, const std::string& defaultValue) const {
    const Value* node = findNode(impl_ ? impl_->doc : emptyObject(), path);
    if (node == nullptr || !node->IsString()) {
        return defaultValue;
    }
    return std::string(node->GetString(), node->GetStringLength());
}

int CRapidJsonProto::get_int_v(const std::string& path, int defaultValue) const {
    return ReadScalar(impl_, path, defaultValue, &Value::IsInt, &Value::GetInt);
}

int64_t CRapidJsonProto::get_int64_v(const std::string& path, int64_t defaultValue) const {
    return ReadScalar(impl_, path, defaultValue, &Value::IsInt64, &Value::GetInt64);
}

double CRapidJsonProto::get_double_v(const std::string& path, double defaultValue) const {
    return ReadScalar(impl_, path, defaultValue, &Value::IsNumber, &Value::GetDouble);
}

bool CRapidJsonProto::get_bool_v(const std::string& path, bool defaultValue) const {
    return ReadScalar(impl_, path, defaultValue, &Value::IsBool, &Value::GetBool);
}

int CRapidJsonProto::get_cnt(const std::string& path) const {
    const Value* node = findNode(impl_ ? impl_->doc : emptyObject(), path);
    if (node == nullptr || !node->IsArray()) {
        return 0;
    }
    return static_cast<int>(std::min<SizeType>(node->Size(), INT_MAX));
}

bool CRapidJsonProto::is_exist(const std::string& path) const {
    return findNode(impl_ ? impl_->doc : emptyObject(), path) != nullptr;
}

bool CRapidJsonProto::is_empty() const {
    const Value& root = impl_ ? impl_->doc : emptyObject();
    return root.IsObject() && root.ObjectEmpty();
}

}  // namespace NetworkCommunication
