#include <gtest/gtest.h>

#include <chrono>
#include <climits>
#include <cmath>
#include <cstdint>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "framework/netcomm/RapidJsonProto.h"

using NetworkCommunication::CRapidJsonProto;

namespace {

CRapidJsonProto parsed(const std::string& text) {
    CRapidJsonProto doc;
    EXPECT_TRUE(doc.set_str(text)) << text;
    return doc;
}

std::string nestedArrays(size_t depth) {
    return std::string(depth, '[') + std::string(depth, ']');
}

std::string nestedObjects(size_t depth) {
    std::string text;
    for (size_t i = 0; i < depth; ++i) {
        text += "{\"a\":";
    }
    text += "1";
    text += std::string(depth, '}');
    return text;
}

std::string repeat(const std::string& part, size_t count) {
    std::string out;
    out.reserve(part.size() * count);
    for (size_t i = 0; i < count; ++i) {
        out += part;
    }
    return out;
}

const char kEnvelope[] =
    R"({"ResponseStatus":{"ErrorCode":0,"ErrorModule":0,"Data":{"CommonUrlList":{"CommonUrl":[{"Url":"[sms:1]rtsp://h/p","ResourceList":[{"ID":5,"DevcieInfo":{"DeviceIP":"1.2.3.4"}}]}]}}}})";

}  // namespace

TEST(RapidJsonProto, DefaultDocumentIsEmptyObject) {
    CRapidJsonProto doc;
    EXPECT_EQ(doc.get_str(0), "{}");
    EXPECT_EQ(doc.get_str(1), "{}");
    EXPECT_TRUE(doc.is_empty());
    EXPECT_TRUE(doc.is_exist(""));
    EXPECT_TRUE(doc.is_exist("/"));
    EXPECT_FALSE(doc.is_exist("/a"));
    EXPECT_EQ(doc.get_cnt("/"), 0);
    EXPECT_EQ(doc.get_node_str("/"), "{}");
    EXPECT_EQ(doc.get_v("/a", "dflt"), "dflt");
    EXPECT_EQ(doc.get_v("/a"), "");
}

TEST(RapidJsonProto, LeadingSlashIsOptional) {
    CRapidJsonProto doc = parsed(R"({"Data":{"Mode":"live","Count":3}})");
    EXPECT_EQ(doc.get_v("/Data/Mode"), "live");
    EXPECT_EQ(doc.get_v("Data/Mode"), "live");
    EXPECT_EQ(doc.get_int_v("Data/Count", -1), 3);
    EXPECT_TRUE(doc.is_exist("Data"));

    EXPECT_TRUE(doc.set_v("Data/Other", "x"));
    EXPECT_EQ(doc.get_v("/Data/Other"), "x");
    EXPECT_TRUE(doc.set_v("/Data/Other", "y"));
    EXPECT_EQ(doc.get_v("Data/Other"), "y");
    EXPECT_EQ(doc.get_str(0), R"({"Data":{"Mode":"live","Count":3,"Other":"y"}})");
}

TEST(RapidJsonProto, EmptySegmentsAreIgnored) {
    CRapidJsonProto doc = parsed(R"({"ResponseStatus":{"Data":{"materialInfo":{"ID":7}}},"A":{"x":1}})");
    EXPECT_EQ(doc.get_int_v("/ResponseStatus/Data/materialInfo//ID", 0), 7);
    EXPECT_EQ(doc.get_int_v("//ResponseStatus///Data/materialInfo/ID/", 0), 7);
    EXPECT_EQ(doc.get_node_str("/A/"), R"({"x":1})");
    EXPECT_EQ(doc.get_node_str("///"), doc.get_str(0));

    EXPECT_TRUE(doc.set_v("//B//C//", 9));
    EXPECT_EQ(doc.get_int_v("/B/C", 0), 9);
    EXPECT_FALSE(
        doc.is_exist("/B/"
                     "/C/D"));
    EXPECT_FALSE(doc.set_v("//", 1)) << "only slashes is the root, which cannot hold a scalar";
}

TEST(RapidJsonProto, OneBasedIndicesRead) {
    CRapidJsonProto doc =
        parsed(R"({"List":[10,20,30],"A":[{"B":[{"C":"a1b1"}]},{"B":[{"C":"a2b1"},{"C":"a2b2"}]}]})");
    EXPECT_EQ(doc.get_int_v("/List[1]", 0), 10);
    EXPECT_EQ(doc.get_int_v("/List[3]", 0), 30);
    EXPECT_EQ(doc.get_int_v("/List[4]", -1), -1);
    EXPECT_EQ(doc.get_v("/A[2]/B[1]/C"), "a2b1");
    EXPECT_EQ(doc.get_v("/A[2]/B[2]/C"), "a2b2");
    EXPECT_EQ(doc.get_v("/A[1]/B[1]/C"), "a1b1");
    EXPECT_FALSE(doc.is_exist("/A[1]/B[2]"));
    EXPECT_EQ(doc.get_cnt("/A[2]/B"), 2);
    EXPECT_EQ(doc.get_node_str("/A[1]"), R"({"B":[{"C":"a1b1"}]})");
    EXPECT_FALSE(doc.is_exist("/A[1]/B/C")) << "an array has no named members";
    EXPECT_FALSE(doc.is_exist("/A/B[1]"));
    EXPECT_EQ(doc.get_v("/A[01]/B[001]/C"), "a1b1") << "leading zeros are still a number";
}

TEST(RapidJsonProto, ScalarArrayElementsReadAndWrite) {
    CRapidJsonProto doc = parsed(R"({"BroadcastTerminal":[{"PartitionIDList":{"PartitionID":[4,8,15]}}]})");
    const std::string path = "/BroadcastTerminal[1]/PartitionIDList/PartitionID[2]";
    EXPECT_EQ(doc.get_int_v(path, 0), 8);
    EXPECT_TRUE(doc.is_exist(path));
    EXPECT_TRUE(doc.set_v(path, 99));
    EXPECT_EQ(doc.get_int_v(path, 0), 99);
    EXPECT_TRUE(doc.set_v(path, "text"));
    EXPECT_EQ(doc.get_v(path), "text");
    EXPECT_EQ(doc.get_cnt("/BroadcastTerminal[1]/PartitionIDList/PartitionID"), 3);
    EXPECT_EQ(doc.get_str(0), R"({"BroadcastTerminal":[{"PartitionIDList":{"PartitionID":[4,"text",15]}}]})");
}

TEST(RapidJsonProto, AppendIsAllowedOnlyOnePastTheEnd) {
    CRapidJsonProto doc = parsed(R"({"L":[1,2]})");
    EXPECT_TRUE(doc.set_v("/L[3]", 3));
    EXPECT_EQ(doc.get_cnt("/L"), 3);
    EXPECT_EQ(doc.get_str(0), R"({"L":[1,2,3]})");

    const std::string before = doc.get_str(0);
    EXPECT_FALSE(doc.set_v("/L[5]", 5)) << "size + 2 would need padding";
    EXPECT_FALSE(doc.set_v("/L[2147483647]", 5));
    EXPECT_FALSE(doc.set_node_str("/L[5]", "{}"));
    EXPECT_EQ(doc.get_str(0), before);

    // Appending with more path after the index creates an object element.
    EXPECT_TRUE(doc.set_v("/L[4]/Name", "n"));
    EXPECT_EQ(doc.get_str(0), R"({"L":[1,2,3,{"Name":"n"}]})");

    // A missing array may only be started at [1]; a refused write creates none of the path.
    EXPECT_FALSE(doc.set_v("/New/Inner[2]/x", 1));
    EXPECT_FALSE(doc.is_exist("/New"));
    EXPECT_EQ(doc.get_str(0), R"({"L":[1,2,3,{"Name":"n"}]})");
    EXPECT_TRUE(doc.set_v("/New/Inner[1]/x", 1));
    EXPECT_TRUE(doc.set_v("/New/Inner[2]/x", 2));
    EXPECT_EQ(doc.get_node_str("/New"), R"({"Inner":[{"x":1},{"x":2}]})");

    // A refused write leaves a non-object root alone as well.
    CRapidJsonProto arr = parsed("[1,2]");
    EXPECT_FALSE(arr.set_v("/A[2]", 1));
    EXPECT_EQ(arr.get_str(0), "[1,2]");
}

TEST(RapidJsonProto, InvalidIndicesAreRejectedEverywhere) {
    const std::string text = R"({"a":[{"b":1},{"b":2}],"s":"v"})";
    CRapidJsonProto doc = parsed(text);
    const std::vector<std::string> bad = {
        "/a[0]",          "/a[-1]", "/a[abc]",     "/a[]",       "/a[99999999999999999999]",
        "/a[2147483648]", "/a[1]x", "/a[1",        "/a1]",       "/a]1[",
        "/a[1][1]",       "/[1]",   "/a[1]/b[0]",  "/a[ 1]",     "/a[+1]",
        "/a[1.0]",        "/a[1]]", "/a[[1]",      "/a[1]/b]/c", "/a[0x1]/b",
        "a[1]x/b",        "/s[",    "/a[2]/b[-0]",
    };
    for (const std::string& path : bad) {
        SCOPED_TRACE(path);
        EXPECT_FALSE(doc.is_exist(path));
        EXPECT_EQ(doc.get_v(path, "d"), "d");
        EXPECT_EQ(doc.get_int_v(path, -7), -7);
        EXPECT_EQ(doc.get_int64_v(path, -8), -8);
        EXPECT_EQ(doc.get_double_v(path, -9.5), -9.5);
        EXPECT_TRUE(doc.get_bool_v(path, true));
        EXPECT_EQ(doc.get_cnt(path), 0);
        EXPECT_EQ(doc.get_node_str(path), "");
        EXPECT_FALSE(doc.set_v(path, "x"));
        EXPECT_FALSE(doc.set_v(path, 1));
        EXPECT_FALSE(doc.set_int64_v(path, 1));
        EXPECT_FALSE(doc.set_double_v(path, 1.5));
        EXPECT_FALSE(doc.set_bool_v(path, true));
        EXPECT_FALSE(doc.set_node_str(path, "{}"));
    }
    EXPECT_EQ(doc.get_str(0), text);
    // The same bracket text is fine as a value.
    EXPECT_TRUE(doc.set_v("/s", "a[0]]["));
    EXPECT_EQ(doc.get_v("/s"), "a[0]][");
}

TEST(RapidJsonProto, MemberNamesMayHoldAnyTextButSlashAndBrackets) {
    CRapidJsonProto doc = parsed(R"({"with space":1,"qu\"ote":2,"名字":{"ключ":3},"a.b-c":4,"emoji😀":[5]})");
    EXPECT_EQ(doc.get_int_v("/with space", 0), 1);
    EXPECT_EQ(doc.get_int_v("/qu\"ote", 0), 2);
    EXPECT_EQ(doc.get_int_v("/名字/ключ", 0), 3);
    EXPECT_EQ(doc.get_int_v("/a.b-c", 0), 4);
    EXPECT_EQ(doc.get_int_v("/emoji😀[1]", 0), 5);

    EXPECT_TRUE(doc.set_v("/新 键/\"x\"", "v"));
    EXPECT_EQ(doc.get_v("/新 键/\"x\""), "v");
    EXPECT_EQ(doc.get_node_str("/新 键"), R"({"\"x\"":"v"})");
    const std::string withNul("/nul\0name", 9);
    EXPECT_TRUE(doc.set_v(withNul, 6));
    EXPECT_EQ(doc.get_int_v(withNul, 0), 6);
    EXPECT_FALSE(doc.is_exist("/nul")) << "a name is compared with its full length";
}

TEST(RapidJsonProto, ReadersReturnDefaultOnTypeMismatch) {
    CRapidJsonProto doc = parsed(
        R"({"str":"5","int":5,"dbl":5.0,"big":4294967296,"t":true,"one":1,"nul":null,"obj":{},"arr":[1]})");
    // Per node: what each reader gives with the defaults -1, -1, -1.5, false and "d" (1 is not a boolean).
    struct Row {
        const char* path;
        int asInt;
        int64_t asInt64;
        double asDouble;
        bool asBool;
        const char* asText;
    };
    for (const Row& r : std::vector<Row>{
             {"/str", -1, -1, -1.5, false, "5"},
             {"/int", 5, 5, 5.0, false, "d"},
             {"/dbl", -1, -1, 5.0, false, "d"},
             {"/big", -1, 4294967296LL, 4294967296.0, false, "d"},
             {"/t", -1, -1, -1.5, true, "d"},
             {"/one", 1, 1, 1.0, false, "d"},
             {"/nul", -1, -1, -1.5, false, "d"},
             {"/obj", -1, -1, -1.5, false, "d"},
             {"/arr", -1, -1, -1.5, false, "d"},
         }) {
        SCOPED_TRACE(r.path);
        EXPECT_EQ(doc.get_int_v(r.path, -1), r.asInt);
        EXPECT_EQ(doc.get_int64_v(r.path, -1), r.asInt64);
        EXPECT_EQ(doc.get_double_v(r.path, -1.5), r.asDouble);
        EXPECT_EQ(doc.get_bool_v(r.path, false), r.asBool);
        EXPECT_EQ(doc.get_v(r.path, "d"), r.asText);
    }
    EXPECT_TRUE(doc.get_bool_v("/one", true)) << "1 is not a boolean: the default comes back";
}

TEST(RapidJsonProto, IntegerRangeEdges) {
    CRapidJsonProto doc = parsed(
        R"({"max":2147483647,"min":-2147483648,"over":2147483648,"under":-2147483649,)"
        R"("i64max":9223372036854775807,"i64min":-9223372036854775808,"u64":18446744073709551615,"u32":3000000000})");
    EXPECT_EQ(doc.get_int_v("/max", 0), INT_MAX);
    EXPECT_EQ(doc.get_int_v("/min", 0), INT_MIN);
    EXPECT_EQ(doc.get_int_v("/over", 0), 0);
    EXPECT_EQ(doc.get_int_v("/under", 0), 0);
    EXPECT_EQ(doc.get_int_v("/u32", 0), 0);
    EXPECT_EQ(doc.get_int64_v("/over", 0), 2147483648LL);
    EXPECT_EQ(doc.get_int64_v("/under", 0), -2147483649LL);
    EXPECT_EQ(doc.get_int64_v("/u32", 0), 3000000000LL);
    EXPECT_EQ(doc.get_int64_v("/i64max", 0), INT64_MAX);
    EXPECT_EQ(doc.get_int64_v("/i64min", 0), INT64_MIN);
    EXPECT_EQ(doc.get_int64_v("/u64", 0), 0) << "beyond int64";
    EXPECT_EQ(doc.get_int64_v("/max", 0), INT_MAX);
    EXPECT_DOUBLE_EQ(doc.get_double_v("/u64", 0), 18446744073709551615.0);
    EXPECT_DOUBLE_EQ(doc.get_double_v("/min", 0), -2147483648.0);

    CRapidJsonProto out;
    EXPECT_TRUE(out.set_v("/a", INT_MAX));
    EXPECT_TRUE(out.set_v("/b", INT_MIN));
    EXPECT_TRUE(out.set_int64_v("/c", static_cast<int64_t>(INT_MAX) + 1));
    EXPECT_TRUE(out.set_int64_v("/d", INT64_MIN));
    EXPECT_TRUE(out.set_int64_v("/e", 7));
    EXPECT_EQ(out.get_str(0),
              R"({"a":2147483647,"b":-2147483648,"c":2147483648,"d":-9223372036854775808,"e":7})");
    EXPECT_EQ(out.get_int_v("/c", -1), -1);
    EXPECT_EQ(out.get_int64_v("/c", -1), 2147483648LL);
    EXPECT_EQ(out.get_int_v("/e", -1), 7) << "a small int64 is also an int";
}

TEST(RapidJsonProto, DoubleReaderAcceptsEveryNumber) {
    CRapidJsonProto doc = parsed(R"({"i":3,"neg":-4,"d":2.5,"e":1e-3,"z":-0.0})");
    EXPECT_EQ(doc.get_double_v("/i", 0), 3.0);
    EXPECT_EQ(doc.get_double_v("/neg", 0), -4.0);
    EXPECT_EQ(doc.get_double_v("/d", 0), 2.5);
    EXPECT_EQ(doc.get_double_v("/e", 0), 0.001);
    EXPECT_TRUE(std::signbit(doc.get_double_v("/z", 1)));

    CRapidJsonProto out;
    EXPECT_TRUE(out.set_double_v("/pi", 3.141592653589793));
    EXPECT_TRUE(out.set_double_v("/third", 1.0 / 3.0));
    EXPECT_TRUE(out.set_double_v("/whole", 2.0));
    CRapidJsonProto back = parsed(out.get_str(0));
    EXPECT_EQ(back.get_double_v("/pi", 0), 3.141592653589793);
    EXPECT_EQ(back.get_double_v("/third", 0), 1.0 / 3.0) << "doubles survive a text round trip exactly";
    EXPECT_EQ(back.get_int_v("/whole", -1), -1) << "a written double stays a double";
    EXPECT_EQ(back.get_double_v("/whole", -1), 2.0);
}

TEST(RapidJsonProto, NumberTextConvertsExactly) {
    CRapidJsonProto doc =
        parsed(R"({"zeros":0.000000000000000000000000000000,"zexp":0e-30,"nzero":-0.0e-400,"under":1e-400,)"
               R"("nunder":-1e-400,"denorm":4.9e-324,"hard":2.2250738585072011e-308,"tenth":0.1,)"
               R"("bigint":123456789012345678901234567890,"u64over":18446744073709551616,)"
               R"("i64under":-9223372036854775809,"small":0.000000000000000000000000000000123e-5,"nint":-0,)"
               R"("exp":1E+2,"long":3.14159265358979323846264338327950288419716939937510})");
    EXPECT_EQ(doc.get_double_v("/zeros", 1), 0.0);
    EXPECT_EQ(doc.get_double_v("/zexp", 1), 0.0);
    EXPECT_EQ(doc.get_double_v("/nzero", 1), 0.0);
    EXPECT_TRUE(std::signbit(doc.get_double_v("/nzero", 1)));
    EXPECT_EQ(doc.get_double_v("/under", 1), 0.0) << "too small a value rounds to zero";
    EXPECT_TRUE(std::signbit(doc.get_double_v("/nunder", 1)));
    EXPECT_EQ(doc.get_double_v("/denorm", 0), std::numeric_limits<double>::denorm_min());
    EXPECT_EQ(doc.get_double_v("/hard", 0), 2.2250738585072011e-308);
    EXPECT_EQ(doc.get_double_v("/tenth", 0), 0.1);
    EXPECT_EQ(doc.get_double_v("/bigint", 0), 123456789012345678901234567890.0);
    EXPECT_EQ(doc.get_int64_v("/bigint", -1), -1) << "integers beyond 64 bits are doubles";
    EXPECT_EQ(doc.get_double_v("/u64over", 0), 18446744073709551616.0);
    EXPECT_EQ(doc.get_double_v("/i64under", 0), -9223372036854775809.0);
    EXPECT_EQ(doc.get_int64_v("/i64under", -1), -1);
    EXPECT_EQ(doc.get_double_v("/small", 0), 0.000000000000000000000000000000123e-5);
    EXPECT_EQ(doc.get_int_v("/nint", -1), 0);
    EXPECT_EQ(doc.get_double_v("/exp", 0), 100.0);
    EXPECT_EQ(doc.get_int_v("/exp", -1), -1) << "an exponent makes a double";
    EXPECT_EQ(doc.get_double_v("/long", 0), 3.141592653589793);
    EXPECT_EQ(parsed(doc.get_str(0)).get_str(0), doc.get_str(0));

    CRapidJsonProto bad;
    EXPECT_FALSE(bad.set_str("[1.7976931348623159e308]")) << "rounds to infinity";
    EXPECT_FALSE(bad.set_str("[-1e309]"));
    EXPECT_FALSE(bad.set_str("[0.0000000000000000000000000000001e340]"));
    EXPECT_TRUE(bad.set_str("[1.7976931348623157e308]"));
    EXPECT_EQ(bad.get_str(0), "[1.7976931348623157e308]");
}

TEST(RapidJsonProto, SetDoubleRefusesNonFiniteValues) {
    CRapidJsonProto doc;
    EXPECT_FALSE(doc.set_double_v("/a", std::numeric_limits<double>::quiet_NaN()));
    EXPECT_FALSE(doc.set_double_v("/a", std::numeric_limits<double>::infinity()));
    EXPECT_FALSE(doc.set_double_v("/a", -std::numeric_limits<double>::infinity()));
    EXPECT_EQ(doc.get_str(0), "{}");
    EXPECT_TRUE(doc.set_double_v("/a", std::numeric_limits<double>::max()));
    EXPECT_TRUE(doc.set_double_v("/b", std::numeric_limits<double>::denorm_min()));
    CRapidJsonProto back = parsed(doc.get_str(0));
    EXPECT_EQ(back.get_double_v("/a", 0), std::numeric_limits<double>::max());
    EXPECT_EQ(back.get_double_v("/b", 0), std::numeric_limits<double>::denorm_min());
}

TEST(RapidJsonProto, GetCntCountsArrayElementsOnly) {
    CRapidJsonProto doc = parsed(R"({"arr":[1,2,3],"empty":[],"obj":{"a":1,"b":2},"s":"abc","n":null})");
    for (const auto& [path, count] : std::vector<std::pair<const char*, int>>{
             {"/arr", 3}, {"/empty", 0}, {"/obj", 0}, {"/s", 0}, {"/n", 0}, {"/missing", 0}, {"/", 0}}) {
        EXPECT_EQ(doc.get_cnt(path), count) << path;
    }
    EXPECT_EQ(parsed("[[1,2],3,4,5]").get_cnt("/"), 4);
}

TEST(RapidJsonProto, IsExistSeesEveryNodeTypeIncludingNull) {
    CRapidJsonProto doc =
        parsed(R"({"n":null,"f":false,"z":0,"e":"","o":{},"a":[],"arr":[null],"deep":{"x":{"y":null}}})");
    for (const char* path : {"/n", "/f", "/z", "/e", "/o", "/a", "/arr[1]", "/deep/x/y"}) {
        EXPECT_TRUE(doc.is_exist(path)) << path;
    }
    EXPECT_FALSE(doc.is_exist("/arr[2]"));
    EXPECT_FALSE(doc.is_exist("/n/child"));
    EXPECT_FALSE(doc.is_exist("/deep/x/y/z"));
    EXPECT_FALSE(doc.is_exist("/N")) << "names are case sensitive";
    EXPECT_EQ(doc.get_node_str("/n"), "null");
}

TEST(RapidJsonProto, WritersCreateMissingObjects) {
    CRapidJsonProto doc;
    EXPECT_TRUE(doc.set_v("/a/b/c", "s"));
    EXPECT_TRUE(doc.set_v("/a/b/i", 1));
    EXPECT_TRUE(doc.set_int64_v("/a/x/i64", 1LL << 40));
    EXPECT_TRUE(doc.set_double_v("/a/x/d", 0.5));
    EXPECT_TRUE(doc.set_bool_v("/a/x/t", true));
    EXPECT_TRUE(doc.set_bool_v("/a/x/f", false));
    EXPECT_TRUE(doc.set_v("/a/e", std::string()));
    EXPECT_TRUE(doc.set_v("/a/p", static_cast<const char*>("ptr")));
    EXPECT_FALSE(doc.is_empty());
    EXPECT_EQ(
        doc.get_str(0),
        R"({"a":{"b":{"c":"s","i":1},"x":{"i64":1099511627776,"d":0.5,"t":true,"f":false},"e":"","p":"ptr"}})");
    EXPECT_EQ(doc.get_int64_v("/a/x/i64", 0), 1LL << 40);
    EXPECT_TRUE(doc.get_bool_v("/a/x/t", false));
    EXPECT_FALSE(doc.get_bool_v("/a/x/f", true));
    EXPECT_EQ(doc.get_v("/a/e", "d"), "");

    // Overwriting keeps the member's position and changes the type freely.
    EXPECT_TRUE(doc.set_v("/a/b/c", 5));
    EXPECT_EQ(doc.get_int_v("/a/b/c", 0), 5);
    EXPECT_EQ(doc.get_node_str("/a/b"), R"({"c":5,"i":1})");
}

TEST(RapidJsonProto, SetVRefusesNullCharPointer) {
    CRapidJsonProto doc = parsed(R"({"a":"keep"})");
    const char* none = nullptr;
    EXPECT_FALSE(doc.set_v("/a", none));
    EXPECT_FALSE(doc.set_v("/b", none));
    EXPECT_EQ(doc.get_str(0), R"({"a":"keep"})");
}

TEST(RapidJsonProto, WritersReplaceNodesOfTheWrongType) {
    CRapidJsonProto doc = parsed(R"({"s":"str","n":null,"arr":[1,"x",3],"obj":{"k":1},"num":4})");
    EXPECT_TRUE(doc.set_v("/s/inner", 1)) << "a string on the way becomes an object";
    EXPECT_TRUE(doc.set_v("/n/inner", 2));
    EXPECT_TRUE(doc.set_v("/arr/inner", 3)) << "so does an array without an index";
    EXPECT_TRUE(doc.set_v("/obj[1]", 4)) << "an indexed object becomes an array";
    EXPECT_TRUE(doc.set_v("/num[1]/x", 5));
    EXPECT_EQ(doc.get_str(0),
              R"({"s":{"inner":1},"n":{"inner":2},"arr":{"inner":3},"obj":[4],"num":[{"x":5}]})");

    CRapidJsonProto elems = parsed(R"({"L":[1,"two",[3]]})");
    EXPECT_TRUE(elems.set_v("/L[2]/name", "v")) << "an element on the way becomes an object";
    EXPECT_TRUE(elems.set_v("/L[3]/name", "w"));
    EXPECT_EQ(elems.get_str(0), R"({"L":[1,{"name":"v"},{"name":"w"}]})");

    CRapidJsonProto str = parsed(R"({"s":"x"})");
    EXPECT_FALSE(str.set_v("/s[2]", 1)) << "a replaced array starts empty, so only [1] is reachable";
    EXPECT_EQ(str.get_str(0), R"({"s":"x"})");
}

TEST(RapidJsonProto, WritersTurnANonObjectRootIntoAnObject) {
    for (const char* text : {"[1,2]", "5", "null", "\"s\"", "true"}) {
        SCOPED_TRACE(text);
        CRapidJsonProto doc = parsed(text);
        EXPECT_EQ(doc.get_str(0), text);
        EXPECT_FALSE(doc.is_empty());
        EXPECT_FALSE(doc.is_exist("/a"));
        EXPECT_TRUE(doc.set_v("/a", 1));
        EXPECT_EQ(doc.get_str(0), R"({"a":1})");
    }
    CRapidJsonProto doc = parsed("[1,2]");
    EXPECT_EQ(doc.get_cnt(""), 2);
    EXPECT_EQ(doc.get_node_str("/"), "[1,2]");
    EXPECT_TRUE(doc.set_node_str("/x", "[3]"));
    EXPECT_EQ(doc.get_str(0), R"({"x":[3]})");
}

TEST(RapidJsonProto, RootPathWrites) {
    CRapidJsonProto doc = parsed(R"({"a":1})");
    for (const char* root : {"", "/", "//"}) {
        EXPECT_FALSE(doc.set_v(root, "x")) << root;
        EXPECT_FALSE(doc.set_v(root, 1)) << root;
        EXPECT_FALSE(doc.set_int64_v(root, 1)) << root;
        EXPECT_FALSE(doc.set_double_v(root, 1.0)) << root;
        EXPECT_FALSE(doc.set_bool_v(root, true)) << root;
    }
    EXPECT_EQ(doc.get_str(0), R"({"a":1})");

    EXPECT_TRUE(doc.set_node_str("/", R"({"b":[1,2]})"));
    EXPECT_EQ(doc.get_str(0), R"({"b":[1,2]})");
    EXPECT_TRUE(doc.set_node_str("", "[true]"));
    EXPECT_EQ(doc.get_str(0), "[true]");
    EXPECT_FALSE(doc.is_empty());
    EXPECT_TRUE(doc.set_node_str("/", "{}"));
    EXPECT_TRUE(doc.is_empty());
    EXPECT_FALSE(doc.set_node_str("/", "{bad"));
    EXPECT_EQ(doc.get_str(0), "{}");
    EXPECT_TRUE(doc.set_node_str("/", R"({"k":"v"})"));
    EXPECT_FALSE(doc.set_node_str("/", "[1,]"));
    EXPECT_EQ(doc.get_str(0), R"({"k":"v"})") << "a refused root replacement keeps the document";
}

TEST(RapidJsonProto, SetStrFailureLeavesAnEmptyObject) {
    const std::vector<std::string> bad = {
        "",
        "   \n\t ",
        "{",
        "}",
        "{\"a\":1",
        "{\"a\":1}}",
        "{\"a\":1} x",
        "{\"a\":1,}",
        "[1,]",
        "{'a':1}",
        "{a:1}",
        "// c\n{}",
        "{\"a\":NaN}",
        "{\"a\":Infinity}",
        "{\"a\":1e400}",
        "{\"a\":-1.8e308}",
        "{\"a\":01}",
        "{\"a\":.5}",
        "{\"a\":\"unterminated}",
        "{\"a\":\"bad \\x escape\"}",
        "{\"a\":\"\\ud800 lone\" ",
        "{\"a\":\"tab\there\"}",
        "{} {}",
        "[1] [2]",
        "\xEF\xBB",
    };
    for (const std::string& text : bad) {
        SCOPED_TRACE(text);
        CRapidJsonProto doc = parsed(R"({"old":1})");
        EXPECT_FALSE(doc.set_str(text));
        EXPECT_TRUE(doc.is_empty());
        EXPECT_EQ(doc.get_str(0), "{}");
        EXPECT_FALSE(doc.is_exist("/old"));
        EXPECT_TRUE(doc.set_v("/after", 1)) << "the document stays usable";
        EXPECT_EQ(doc.get_str(0), R"({"after":1})");
    }
}

TEST(RapidJsonProto, SetStrAcceptsAnyRootAndSurroundingWhitespace) {
    EXPECT_EQ(parsed("  {\"a\" : [ 1 , 2 ] }\r\n\t ").get_str(0), R"({"a":[1,2]})");
    EXPECT_EQ(parsed("[]").get_str(0), "[]");
    EXPECT_EQ(parsed("42").get_str(0), "42");
    EXPECT_EQ(parsed("-1.5").get_str(0), "-1.5");
    EXPECT_EQ(parsed("\"text\"").get_str(0), "\"text\"");
    EXPECT_EQ(parsed("null").get_str(0), "null");
    EXPECT_EQ(parsed("false").get_str(0), "false");
    EXPECT_EQ(parsed("\xEF\xBB\xBF{\"bom\":1}").get_int_v("/bom", 0), 1)
        << "a UTF-8 byte order mark is skipped";
    EXPECT_TRUE(parsed("{}").is_empty());
    EXPECT_FALSE(parsed("[]").is_empty()) << "only an object can be empty";
    EXPECT_EQ(parsed(R"({"a":1,"a":2})").get_int_v("/a", 0), 1) << "duplicate names resolve to the first";
}

TEST(RapidJsonProto, NestingDepthLimitIsEnforcedBeforeBuilding) {
    ASSERT_EQ(CRapidJsonProto::kMaxDepth, 256);
    CRapidJsonProto doc;
    EXPECT_TRUE(doc.set_str(nestedArrays(256)));
    EXPECT_EQ(doc.get_str(0), nestedArrays(256));
    EXPECT_FALSE(doc.set_str(nestedArrays(257)));
    EXPECT_EQ(doc.get_str(0), "{}");

    EXPECT_TRUE(doc.set_str(nestedObjects(256)));
    EXPECT_EQ(doc.get_int_v(repeat("/a", 256), 0), 1);
    EXPECT_EQ(doc.get_str(0), nestedObjects(256));
    CRapidJsonProto copy(doc);
    EXPECT_EQ(copy.get_str(0), nestedObjects(256));
    EXPECT_FALSE(doc.set_str(nestedObjects(257)));
    EXPECT_TRUE(doc.is_empty());

    // Depth counts open containers, not how many there are in total.
    EXPECT_TRUE(doc.set_str("[" + repeat(nestedArrays(255) + ",", 100) + "1]"));
    EXPECT_EQ(doc.get_cnt("/"), 101);
    // Brackets inside strings, including after escaped quotes, do not count.
    const std::string inString = "[\"" + std::string(1000, '[') + "\\\"" + std::string(1000, '{') + "\"]";
    EXPECT_TRUE(doc.set_str(inString));
    EXPECT_EQ(doc.get_str(0), inString);

    EXPECT_FALSE(doc.set_node_str("/x", nestedArrays(257)));
    EXPECT_TRUE(doc.set_node_str("/", nestedArrays(256)));
}

TEST(RapidJsonProto, MillionDeepNestingIsRefusedQuickly) {
    const size_t depth = 1000000;
    const std::vector<std::string> texts = {
        std::string(depth, '['),
        nestedArrays(depth),
        repeat("{\"a\":", depth),
        repeat("[{\"k\":", depth / 2),
    };
    CRapidJsonProto doc;
    for (const std::string& text : texts) {
        const auto start = std::chrono::steady_clock::now();
        EXPECT_FALSE(doc.set_str(text));
        EXPECT_FALSE(doc.set_node_str("/a", text));
        const auto elapsed = std::chrono::steady_clock::now() - start;
        EXPECT_LT(std::chrono::duration_cast<std::chrono::milliseconds>(elapsed).count(), 2000);
        EXPECT_EQ(doc.get_str(0), "{}");
    }
}

TEST(RapidJsonProto, WriterPathsAreBoundedByTheDepthLimit) {
    CRapidJsonProto doc;
    EXPECT_TRUE(doc.set_v(repeat("/a", 256), 1));
    EXPECT_EQ(doc.get_int_v(repeat("/a", 256), 0), 1);
    EXPECT_FALSE(doc.set_v(repeat("/b", 257), 1));
    EXPECT_FALSE(doc.is_exist("/b"));
    EXPECT_EQ(doc.get_str(0), nestedObjects(256)) << "what writers build can always be parsed back";
    EXPECT_TRUE(CRapidJsonProto(doc).set_str(doc.get_str(1)));

    // An indexed segment nests twice: the array, then its element.
    CRapidJsonProto arrays;
    EXPECT_TRUE(arrays.set_v(repeat("/l[1]", 128), 1));
    EXPECT_FALSE(arrays.set_v(repeat("/l[1]", 128) + "/x", 1));
    EXPECT_EQ(arrays.get_int_v(repeat("/l[1]", 128), 0), 1);

    // A JSON value placed at a path adds its own depth.
    CRapidJsonProto node;
    EXPECT_TRUE(node.set_node_str(repeat("/a", 254), "[[1]]"));
    EXPECT_FALSE(node.set_node_str(repeat("/b", 255), "[[1]]"));
    EXPECT_FALSE(node.is_exist("/b"));
    EXPECT_TRUE(node.set_node_str(repeat("/b", 255), "[1]"));
    EXPECT_TRUE(CRapidJsonProto().set_str(node.get_str(0)));

    // Readers just walk the path, however long.
    EXPECT_FALSE(doc.is_exist(repeat("/a", 100000)));
}

TEST(RapidJsonProto, NulBytesInTextAreNotTreatedAsTheEnd) {
    CRapidJsonProto doc;
    EXPECT_FALSE(doc.set_str(std::string("{\"a\":1}\0garbage", 15)));
    EXPECT_FALSE(doc.set_str(std::string("{\"a\":1}\0", 8)));
    EXPECT_FALSE(doc.set_str(std::string("{\"a\":\"x\0y\"}", 11)));
    EXPECT_FALSE(doc.set_str(std::string("\0{}", 3)));
    EXPECT_FALSE(doc.set_str(std::string("[1,\0 2]", 7)));
    EXPECT_FALSE(doc.set_node_str("/a", std::string("1\0", 2)));
    EXPECT_TRUE(doc.is_empty());

    // An escaped NUL is a valid character of a string.
    EXPECT_TRUE(doc.set_str(R"({"a":"x\u0000y","k\u0000":1})"));
    EXPECT_EQ(doc.get_v("/a"), std::string("x\0y", 3));
    EXPECT_EQ(doc.get_int_v(std::string("/k\0", 3), 0), 1);
    EXPECT_EQ(doc.get_str(0), R"({"a":"x\u0000y","k\u0000":1})");
    EXPECT_TRUE(doc.set_v("/b", std::string("1\0002", 3)));
    EXPECT_EQ(doc.get_v("/b"), std::string("1\0002", 3));
    EXPECT_EQ(doc.get_node_str("/b"), R"("1\u00002")");
}

TEST(RapidJsonProto, Utf8PassesThroughUnescaped) {
    const std::string text = R"({"名称":"广播终端","emoji":"😀 ok","mix":"é ü ß ж"})";
    CRapidJsonProto doc = parsed(text);
    EXPECT_EQ(doc.get_str(0), text);
    EXPECT_EQ(doc.get_v("/名称"), "广播终端");
    EXPECT_EQ(doc.get_str(1).find("\\u"), std::string::npos);

    CRapidJsonProto escaped = parsed(R"({"a":"\u5e7f\u64ad","b":"\ud83d\ude00"})");
    EXPECT_EQ(escaped.get_v("/a"), "广播");
    EXPECT_EQ(escaped.get_v("/b"), "😀");
    EXPECT_EQ(escaped.get_str(0), R"({"a":"广播","b":"😀"})");

    CRapidJsonProto built;
    EXPECT_TRUE(built.set_v("/区域/名字", "北京"));
    EXPECT_EQ(built.get_str(0), R"({"区域":{"名字":"北京"}})");
}

TEST(RapidJsonProto, EscapedCharactersSurviveARoundTrip) {
    const std::string nasty = std::string("quote\" backslash\\ slash/ nl\n cr\r tab\t bell\x07 del\x7f end");
    CRapidJsonProto doc;
    EXPECT_TRUE(doc.set_v("/s", nasty));
    EXPECT_TRUE(doc.set_v("/k\"\\", "key"));
    const std::string text = doc.get_str(0);
    EXPECT_EQ(text.find('\n'), std::string::npos) << "control characters are escaped";
    CRapidJsonProto back = parsed(text);
    EXPECT_EQ(back.get_v("/s"), nasty);
    EXPECT_EQ(back.get_v("/k\"\\"), "key");
    EXPECT_EQ(back.get_str(0), text);
}

TEST(RapidJsonProto, CompactRoundTripIsCanonical) {
    const std::string loose = R"(
      {
        "b" : [ 1 , -2 , 3.5 , true , false , null , "x\"y" , 12345678901234 ] ,
        "a" : { } ,
        "c" : [ ] ,
        "d" : "\u00e9\n\/" ,
        "e" : 1e2 ,
        "f" : { "z" : { "y" : [ [ ] , { } ] } }
      }
    )";
    const std::string canonical =
        R"({"b":[1,-2,3.5,true,false,null,"x\"y",12345678901234],"a":{},"c":[],"d":"é\n/","e":100.0,)"
        R"("f":{"z":{"y":[[],{}]}}})";
    CRapidJsonProto doc = parsed(loose);
    EXPECT_EQ(doc.get_str(0), canonical);
    EXPECT_EQ(parsed(canonical).get_str(0), canonical) << "canonical text is a fixed point";

    const std::string pretty = doc.get_str(1);
    EXPECT_NE(pretty, canonical);
    EXPECT_NE(pretty.find("\n    \"b\": ["), std::string::npos) << pretty;
    EXPECT_EQ(parsed(pretty).get_str(0), canonical);
    EXPECT_EQ(doc.get_str(2), pretty) << "any non-zero value means indented";
}

TEST(RapidJsonProto, GetNodeStrSerialisesTheNodeAtAPath) {
    CRapidJsonProto doc = parsed(R"({"a":{"b":[1,{"c":"d"}],"n":null,"s":"x"}})");
    EXPECT_EQ(doc.get_node_str("/a/b"), R"([1,{"c":"d"}])");
    EXPECT_EQ(doc.get_node_str("/a/b[2]"), R"({"c":"d"})");
    EXPECT_EQ(doc.get_node_str("/a/b[1]"), "1");
    EXPECT_EQ(doc.get_node_str("/a/s"), "\"x\"");
    EXPECT_EQ(doc.get_node_str("/a/n"), "null");
    EXPECT_EQ(doc.get_node_str("/a/missing"), "");
    EXPECT_EQ(doc.get_node_str("/a/b[3]"), "");
    EXPECT_EQ(doc.get_node_str(""), doc.get_str(0));
    EXPECT_EQ(doc.get_node_str("/a/b[2]", 1), "{\n    \"c\": \"d\"\n}");
    EXPECT_EQ(parsed(doc.get_node_str("/a", 1)).get_str(0), doc.get_node_str("/a"));
}

TEST(RapidJsonProto, SetNodeStrPlacesParsedJson) {
    CRapidJsonProto doc = parsed(R"({"keep":1,"a":{"old":true}})");
    EXPECT_TRUE(doc.set_node_str("/a", R"({"new":[1,2]})"));
    EXPECT_TRUE(doc.set_node_str("/x/y/z", " [ {\"k\" : \"v\"} ] "));
    EXPECT_TRUE(doc.set_node_str("/x/list[1]", "3"));
    EXPECT_TRUE(doc.set_node_str("/x/list[2]", "\"four\""));
    EXPECT_TRUE(doc.set_node_str("/x/list[1]", "null"));
    EXPECT_EQ(doc.get_str(0),
              R"({"keep":1,"a":{"new":[1,2]},"x":{"y":{"z":[{"k":"v"}]},"list":[null,"four"]}})");
    EXPECT_EQ(doc.get_v("/x/y/z[1]/k"), "v");
    EXPECT_EQ(doc.get_cnt("/a/new"), 2);

    const std::string before = doc.get_str(0);
    for (const char* bad : {"", "{", "[1,]", "{\"a\":1} 2", "nul", "1 2"}) {
        EXPECT_FALSE(doc.set_node_str("/a", bad)) << bad;
        EXPECT_FALSE(doc.set_node_str("/fresh/path", bad)) << bad;
    }
    EXPECT_EQ(doc.get_str(0), before) << "a refused value changes nothing, nor creates the path";

    // A subtree read out and written elsewhere is an independent copy.
    EXPECT_TRUE(doc.set_node_str("/copy", doc.get_node_str("/x")));
    EXPECT_TRUE(doc.set_v("/x/y/z[1]/k", "changed"));
    EXPECT_EQ(doc.get_v("/copy/y/z[1]/k"), "v");
}

TEST(RapidJsonProto, CopiesAreDeepAndIndependent) {
    CRapidJsonProto original = parsed(R"({"a":{"b":[1,2]},"s":"text"})");
    CRapidJsonProto copy(original);
    EXPECT_EQ(copy.get_str(0), original.get_str(0));
    EXPECT_TRUE(copy.set_v("/a/b[1]", 100));
    EXPECT_TRUE(copy.set_v("/s", "changed"));
    EXPECT_EQ(original.get_int_v("/a/b[1]", 0), 1);
    EXPECT_EQ(original.get_v("/s"), "text");

    CRapidJsonProto assigned;
    assigned = original;
    EXPECT_TRUE(original.set_str(R"({"other":true})"));
    EXPECT_EQ(assigned.get_str(0), R"({"a":{"b":[1,2]},"s":"text"})");
    EXPECT_EQ(copy.get_int_v("/a/b[1]", 0), 100);

    CRapidJsonProto& self = assigned;
    assigned = self;
    EXPECT_EQ(assigned.get_str(0), R"({"a":{"b":[1,2]},"s":"text"})");

    const CRapidJsonProto scalarRoot = parsed("\"only\"");
    CRapidJsonProto scalarCopy(scalarRoot);
    EXPECT_EQ(scalarCopy.get_str(0), "\"only\"");
}

TEST(RapidJsonProto, MovedFromObjectIsAnUsableEmptyDocument) {
    CRapidJsonProto source = parsed(R"({"a":1})");
    CRapidJsonProto target(std::move(source));
    EXPECT_EQ(target.get_int_v("/a", 0), 1);
    // NOLINTNEXTLINE(bugprone-use-after-move): the moved-from state is what is being checked
    EXPECT_EQ(source.get_str(0), "{}");
    EXPECT_TRUE(source.is_empty());
    EXPECT_TRUE(source.is_exist("/"));
    EXPECT_EQ(source.get_int_v("/a", -1), -1);
    EXPECT_EQ(source.get_node_str("/"), "{}");
    EXPECT_TRUE(source.set_v("/b", 2));
    EXPECT_EQ(source.get_str(0), R"({"b":2})");

    CRapidJsonProto other = parsed(R"({"c":3})");
    other = std::move(target);
    EXPECT_EQ(other.get_str(0), R"({"a":1})");
    EXPECT_EQ(target.get_str(0), "{}");   // NOLINT(bugprone-use-after-move)
    CRapidJsonProto copyOfEmpty(target);  // NOLINT(bugprone-use-after-move)
    EXPECT_EQ(copyOfEmpty.get_str(1), "{}");
    EXPECT_TRUE(target.set_str("[1]"));
    EXPECT_EQ(target.get_str(0), "[1]");

    CRapidJsonProto movedAgain;
    movedAgain = std::move(other);
    other = movedAgain;  // assigning into a moved-from object
    EXPECT_EQ(other.get_str(0), R"({"a":1})");
    CRapidJsonProto fresh;
    EXPECT_TRUE(fresh.set_node_str("/n", "{}"));
    CRapidJsonProto sink(std::move(fresh));
    EXPECT_TRUE(fresh.set_node_str("/m", "[2]"));  // NOLINT(bugprone-use-after-move)
    EXPECT_EQ(fresh.get_str(0), R"({"m":[2]})");
}

TEST(RapidJsonProto, ServerEnvelopeReadsWithOneBasedPaths) {
    CRapidJsonProto doc = parsed(kEnvelope);
    EXPECT_EQ(doc.get_int_v("/ResponseStatus/ErrorCode", -1), 0);
    EXPECT_EQ(doc.get_int_v("/ResponseStatus/ErrorModule", -1), 0);
    const std::string urls = "/ResponseStatus/Data/CommonUrlList/CommonUrl";
    EXPECT_EQ(doc.get_cnt(urls), 1);
    EXPECT_EQ(doc.get_v(urls + "[1]/Url"), "[sms:1]rtsp://h/p");
    EXPECT_EQ(doc.get_cnt(urls + "[1]/ResourceList"), 1);
    EXPECT_EQ(doc.get_int_v(urls + "[1]/ResourceList[1]/ID", -1), 5);
    EXPECT_EQ(doc.get_v(urls + "[1]/ResourceList[1]/DevcieInfo/DeviceIP"), "1.2.3.4");
    EXPECT_FALSE(doc.is_exist(urls + "[2]"));
    EXPECT_FALSE(doc.is_exist(urls + "[1]/ResourceList[2]"));
    EXPECT_EQ(doc.get_v(urls + "[0]/Url", "none"), "none");
    EXPECT_EQ(doc.get_str(0), kEnvelope);
}

TEST(RapidJsonProto, ServerEnvelopeBuiltWithWriters) {
    CRapidJsonProto doc;
    const std::string url = "/ResponseStatus/Data/CommonUrlList/CommonUrl[1]";
    EXPECT_TRUE(doc.set_v("/ResponseStatus/ErrorCode", 0));
    EXPECT_TRUE(doc.set_v("/ResponseStatus/ErrorModule", 0));
    EXPECT_TRUE(doc.set_v(url + "/Url", "[sms:1]rtsp://h/p"));
    EXPECT_TRUE(doc.set_v(url + "/ResourceList[1]/ID", 5));
    EXPECT_TRUE(doc.set_v(url + "/ResourceList[1]/DevcieInfo/DeviceIP", std::string("1.2.3.4")));
    EXPECT_EQ(doc.get_str(0), kEnvelope);

    // Many entries appended one index at a time.
    for (int i = 1; i <= 50; ++i) {
        const std::string item = url + "/ResourceList[" + std::to_string(i) + "]";
        EXPECT_TRUE(doc.set_v(item + "/ID", i));
        EXPECT_TRUE(doc.set_v(item + "/DevcieInfo/DeviceIP", "10.0.0." + std::to_string(i)));
    }
    EXPECT_EQ(doc.get_cnt(url + "/ResourceList"), 50);
    CRapidJsonProto peer = parsed(doc.get_str(0));
    EXPECT_EQ(peer.get_int_v(url + "/ResourceList[37]/ID", 0), 37);
    EXPECT_EQ(peer.get_v(url + "/ResourceList[50]/DevcieInfo/DeviceIP"), "10.0.0.50");
    EXPECT_EQ(peer.get_str(0), doc.get_str(0));
}

TEST(RapidJsonProto, PlacedJsonSurvivesTheReorganisationItsWriteTriggers) {
    // Only placed JSON is written, so each reorganisation of the document's pool happens inside such a
    // write, while the parsed value still lives in the old pool; it is read back at once.
    CRapidJsonProto doc;
    for (int i = 0; i < 5000; ++i) {
        const std::string text(100, static_cast<char>('a' + i % 26));
        ASSERT_TRUE(
            doc.set_node_str("/list", R"([{"k":")" + text + R"("},{"k":)" + std::to_string(i) + "}]"));
        ASSERT_EQ(doc.get_v("/list[1]/k"), text) << "write " << i;
        ASSERT_EQ(doc.get_int_v("/list[2]/k", -1), i) << "write " << i;
    }
}

TEST(RapidJsonProto, ManyOverwritesKeepTheContentIntact) {
    // Replaced values are not reused by the document's pool; a long series of overwrites must keep every
    // value correct across the document's internal reorganisation.
    CRapidJsonProto doc = parsed(R"({"fixed":{"a":[1,2,3],"t":"\u0000z"},"order":1})");
    for (int i = 0; i < 20000; ++i) {
        ASSERT_TRUE(doc.set_v("/big", std::string(1000, static_cast<char>('a' + i % 26))));
        ASSERT_TRUE(doc.set_v("/counter", i));
        ASSERT_TRUE(doc.set_node_str(
            "/node", "{\"i\":" + std::to_string(i) + ",\"pad\":\"" + std::string(200, 'p') + "\"}"));
        if (i % 100 == 0) {
            ASSERT_TRUE(doc.set_v("/list[" + std::to_string(i / 100 + 1) + "]", i));
        }
    }
    EXPECT_EQ(doc.get_v("/big"), std::string(1000, static_cast<char>('a' + 19999 % 26)));
    EXPECT_EQ(doc.get_int_v("/counter", 0), 19999);
    EXPECT_EQ(doc.get_int_v("/node/i", 0), 19999);
    EXPECT_EQ(doc.get_cnt("/list"), 200);
    EXPECT_EQ(doc.get_int_v("/list[200]", 0), 19900);
    EXPECT_EQ(doc.get_v("/fixed/t"), std::string("\0z", 2));
    EXPECT_EQ(doc.get_node_str("/fixed"), R"({"a":[1,2,3],"t":"\u0000z"})");
    const std::string text = doc.get_str(0);
    EXPECT_EQ(text.rfind(R"({"fixed":{"a":[1,2,3],"t":"\u0000z"},"order":1,"big":")", 0), 0u);
    EXPECT_EQ(parsed(text).get_str(0), text);
}
