// libFuzzer target for CRapidJsonProto.
//
// Input layout: fields separated by the byte 0x01 (never valid raw inside JSON text):
//   JSON text 0x01 path 0x01 path ... [up to kMaxPaths paths]
// The last field after the paths, when there are more than kMaxPaths + 1 fields, is a JSON text for
// set_node_str. Besides crashes, hangs and sanitizer reports, the target traps on broken invariants:
// serialised documents parse back to the same text, readers agree with is_exist, writers that succeed are
// readable and writers that fail change nothing.

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "FuzzSupport.h"
#include "framework/netcomm/RapidJsonProto.h"

using FuzzSupport::Check;
using NetworkCommunication::CRapidJsonProto;

namespace {

constexpr size_t kMaxPaths = 4;

// Serialising and parsing back must reproduce the compact text exactly, from both output styles.
void checkRoundTrip(const CRapidJsonProto& doc) {
    const std::string compact = doc.get_str(0);
    Check(!compact.empty());
    CRapidJsonProto back;
    Check(back.set_str(compact));
    Check(back.get_str(0) == compact);
    CRapidJsonProto fromPretty;
    Check(fromPretty.set_str(doc.get_str(1)));
    Check(fromPretty.get_str(0) == compact);
}

void exerciseReaders(const CRapidJsonProto& doc, const std::string& path) {
    const bool exists = doc.is_exist(path);
    const std::string node = doc.get_node_str(path, 0);
    Check(exists == !node.empty());
    Check(exists == !doc.get_node_str(path, 1).empty());
    Check(doc.get_cnt(path) >= 0);
    if (!exists) {
        Check(doc.get_cnt(path) == 0);
        Check(doc.get_v(path, "d") == "d");
        Check(doc.get_int_v(path, 11) == 11);
        Check(doc.get_int64_v(path, 12) == 12);
        Check(doc.get_double_v(path, 13.5) == 13.5);
        Check(doc.get_bool_v(path, true));
        return;
    }
    // A value found with two different defaults is really stored, and the wider readers agree on it.
    const int i = doc.get_int_v(path, 1);
    if (i == doc.get_int_v(path, 2)) {
        Check(doc.get_int64_v(path, 3) == i);
        Check(doc.get_double_v(path, 4.5) == static_cast<double>(i));
    }
    const int64_t i64 = doc.get_int64_v(path, 1);
    if (i64 == doc.get_int64_v(path, 2)) {
        Check(doc.get_double_v(path, 4.5) == static_cast<double>(i64));
    }
    const std::string s = doc.get_v(path, "a");
    if (s == doc.get_v(path, "b")) {
        Check(doc.get_int_v(path, 7) == 7);
        Check(!doc.get_bool_v(path, false));
    }
    const bool b = doc.get_bool_v(path, false);
    if (b == doc.get_bool_v(path, true)) {
        Check(doc.get_double_v(path, 4.5) == 4.5);
    }
}

// Runs one writer on a copy; success must make the value readable, failure must leave the document as is.
template <typename Write, typename Verify>
void exerciseWriter(CRapidJsonProto& doc, const std::string& path, Write write, Verify verify) {
    const std::string before = doc.get_str(0);
    if (write(doc, path)) {
        Check(doc.is_exist(path));
        verify(doc, path);
        checkRoundTrip(doc);
    } else {
        Check(doc.get_str(0) == before);
    }
}

void exerciseWriters(CRapidJsonProto& doc, const std::string& path, const std::string& nodeJson) {
    const int small = static_cast<int>(path.size() * 31 % 1000) - 500;
    const int64_t wide = static_cast<int64_t>(small) * 10000000000LL;
    const double real = small / 8.0;
    const std::string text = path.substr(0, 16);

    exerciseWriter(
        doc, path, [&](CRapidJsonProto& d, const std::string& p) { return d.set_v(p, text); },
        [&](CRapidJsonProto& d, const std::string& p) { Check(d.get_v(p, text + "x") == text); });
    exerciseWriter(
        doc, path, [&](CRapidJsonProto& d, const std::string& p) { return d.set_v(p, text.c_str()); },
        [&](CRapidJsonProto& d, const std::string& p) {
            Check(d.get_v(p, "x") == std::string(text.c_str()));
        });
    exerciseWriter(
        doc, path, [&](CRapidJsonProto& d, const std::string& p) { return d.set_v(p, small); },
        [&](CRapidJsonProto& d, const std::string& p) { Check(d.get_int_v(p, small + 1) == small); });
    exerciseWriter(
        doc, path, [&](CRapidJsonProto& d, const std::string& p) { return d.set_int64_v(p, wide); },
        [&](CRapidJsonProto& d, const std::string& p) { Check(d.get_int64_v(p, wide + 1) == wide); });
    exerciseWriter(
        doc, path, [&](CRapidJsonProto& d, const std::string& p) { return d.set_double_v(p, real); },
        [&](CRapidJsonProto& d, const std::string& p) { Check(d.get_double_v(p, real + 1) == real); });
    exerciseWriter(
        doc, path, [&](CRapidJsonProto& d, const std::string& p) { return d.set_bool_v(p, small & 1); },
        [&](CRapidJsonProto& d, const std::string& p) {
            Check(d.get_bool_v(p, !(small & 1)) == static_cast<bool>(small & 1));
        });

    // set_node_str stores exactly what a separate parse of the text yields.
    CRapidJsonProto expected;
    const bool valid = expected.set_str(nodeJson);
    const std::string before = doc.get_str(0);
    if (doc.set_node_str(path, nodeJson)) {
        Check(valid);
        Check(doc.get_node_str(path) == expected.get_str(0));
        checkRoundTrip(doc);
    } else {
        Check(doc.get_str(0) == before);
    }
    Check(doc.set_v(path, static_cast<const char*>(nullptr)) == false);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::vector<std::string> fields = FuzzSupport::SplitFields(data, size);
    const std::string& text = fields[0];
    std::vector<std::string> paths;
    for (size_t i = 1; i < fields.size() && paths.size() < kMaxPaths; ++i) {
        paths.push_back(fields[i]);
    }
    const std::string nodeJson =
        fields.size() > kMaxPaths + 1 ? fields.back() : std::string("{\"k\":[1,\"v\"]}");
    paths.push_back("/");

    CRapidJsonProto doc;
    if (doc.set_str(text)) {
        checkRoundTrip(doc);
    } else {
        Check(doc.get_str(0) == "{}");
        Check(doc.is_empty());
    }

    for (const std::string& path : paths) {
        exerciseReaders(doc, path);
    }

    CRapidJsonProto work(doc);
    Check(work.get_str(0) == doc.get_str(0));
    for (const std::string& path : paths) {
        exerciseWriters(work, path, nodeJson);
        for (const std::string& other : paths) {
            exerciseReaders(work, other);
        }
    }

    // Copies stay independent; a moved-from document reads as empty and remains usable.
    CRapidJsonProto copy;
    copy = work;
    Check(copy.get_str(1) == work.get_str(1));
    CRapidJsonProto moved(std::move(work));
    Check(moved.get_str(0) == copy.get_str(0));
    Check(work.get_str(0) == "{}");
    Check(work.is_empty());
    for (const std::string& path : paths) {
        exerciseReaders(work, path);
        work.set_v(path, 1);
    }
    work = std::move(moved);
    Check(work.get_str(0) == copy.get_str(0));
    Check(!doc.set_str(std::string()));
    Check(doc.get_str(0) == "{}");
    return 0;
}
