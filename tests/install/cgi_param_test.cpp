// The pairs of a request, from its body, its query or its referer.
#include <gtest/gtest.h>
#include <map>
#include <string>

#include "autocleanup/unique.h"
#include "install/cgi_param.h"
#include "tests/support/form_input.h"

namespace
{

using Values = std::map<std::string, std::string>;

Values values_of(const NLIBSZHASH *params)
{
    Values values;
    UniqueList keys(NLIBCSzListAlloc(0));
    const int count = NLIBCSzHashEnumKey(params, keys.address());
    for (int i = 0; i < count; i++) {
        const char *key = NLIBCSzListGet(keys.get(), i);
        values[key] = NLIBCSzHashGetValue(params, key);
    }
    return values;
}

TEST(CgiParam, Pairs)
{
    const struct {
        std::string text;
        Values plus_is_blank;
    } kRows[] = {
        {"", {}},
        {"a", {}},
        {"a=", {{"a", ""}}},
        {"=1", {{"", "1"}}},
        {"a=1&b=2&a=3", {{"a", "3"}, {"b", "2"}}},
        {"a=1=2", {{"a", "1=2"}}},
        {"a=1&b", {{"a", "1"}}},
        {"a&b=1&&c=2", {{"a&b", "1"}, {"&c", "2"}}},                     // "&" ends values alone
        {"a+%41=%41%4a%4A%2b+", {{"a+%41", "AJJ+ "}}},                   // names stay
        {"a=x%00y&b=1", {{"a", "x"}, {"b", "1"}}},                       // a NUL ends the value, not the text
        {"a=%41%42%zz9&b=%43", {{"a", "AB1%42%zz9"}, {"b", "C"}}},       // decoded, stale, raw
        {"a=+%4&b=%&c=%%41", {{"a", " %4"}, {"b", "%"}, {"c", "%%41"}}}, // cut escapes
    };
    for (const auto &row : kRows) {
        SCOPED_TRACE(row.text);
        for (const bool keep_plus : {false, true}) {
            const UniqueText exact(strdup(row.text.c_str())); // a sanitizer sees a byte too many
            UniqueHash params(NLIBCSzHashAlloc(0));
            cgi_pairs_load(exact.get(), keep_plus, params.address());
            Values expected = row.plus_is_blank;
            if (keep_plus && expected.contains("a+%41"))
                expected["a+%41"] = "AJJ++";
            if (keep_plus && expected.contains("c") && row.text.starts_with("a=+"))
                expected["a"] = "+%4";
            EXPECT_EQ(values_of(params.get()), expected);
        }
    }
}

TEST(CgiParam, Requests)
{
    const FormInput input;
    const struct {
        const char *what, *method, *length, *query, *referer;
        std::string body;
        int result;
        Values values;
    } kRows[] = {
        {"no method", nullptr, "5", "a=1", nullptr, "a=1+2", 0, {}},
        {"body", "POST", "5", "q=1", nullptr, "a=1+2", 1, {{"a", "1 2"}}},
        {"any case", "post", "5", nullptr, nullptr, "a=1+2", 1, {{"a", "1 2"}}},
        {"so much of it", "POST", "3", nullptr, nullptr, "a=1+2", 1, {{"a", "1"}}},
        {"nothing", "POST", "0", nullptr, "x?b=1", "a=1", 1, {}},
        {"no length", "POST", nullptr, "a=1", nullptr, "a=1", 0, {}},
        {"negative", "POST", "-1", nullptr, "x?a=1", "a=1", 0, {}},
        {"short", "POST", "9", "q=1", nullptr, "a=1", 0, {}},
        {"short, referer", "POST", "9", nullptr, "x=1", "a=123", 1, {{"x", "1"}}},
        {"its tail stays", "POST", "9", nullptr, "http://h/?a=1&b=2", "", 1, {{"a", "1"}, {"b", "2"}}},
        {"nothing behind", "POST", "1", nullptr, "a=1?", "", 1, {{"a", "1?"}}},
        {"longer than the room", "POST", "1", nullptr, "0123456789?a=1+2", "", 1, {{"a", "1 256789?a=1 2"}}},
        {"query", "GET", "5", "a=1+2", nullptr, "b=1", 1, {{"a", "1+2"}}},
        {"any case", "get", nullptr, "a=1+2", nullptr, "", 1, {{"a", "1+2"}}},
        {"head", "HEAD", nullptr, "a=1+2", nullptr, "", 1, {{"a", "1+2"}}},
        {"other", "PUT", nullptr, "a=1+2", nullptr, "", 1, {{"a", "1 2"}}},
        {"no query", "GET", nullptr, nullptr, "x?a=1", "", 0, {}},
    };
    const auto set = [](const char *name, const char *value) {
        value != nullptr ? setenv(name, value, 1) : unsetenv(name);
    };
    for (const auto &row : kRows) {
        SCOPED_TRACE(row.what);
        set("REQUEST_METHOD", row.method);
        set("CONTENT_LENGTH", row.length);
        set("QUERY_STRING", row.query);
        set("HTTP_REFERER", row.referer);
        FormInput::bytes(row.body);
        CgiRequest request = {};
        EXPECT_EQ(NorvCgiLoadCGIParam(&request), row.result);
        const UniqueHash params(request.params);
        ASSERT_TRUE(params) << "also when the request is refused";
        EXPECT_EQ(values_of(params.get()), row.values);
    }
}

TEST(CgiParam, Sizes)
{
    const FormInput input;
    setenv("REQUEST_METHOD", "GET", 1);
    setenv("QUERY_STRING", ("a=" + std::string(70000, 'x')).c_str(), 1);
    CgiRequest request = {.params = NLIBCSzHashAlloc(0)};
    ASSERT_GE(NLIBCSzHashSetValue(&request.params, "b", "1"), 0);
    EXPECT_EQ(NorvCgiLoadCGIParam(&request), 1);
    EXPECT_EQ(values_of(request.params), (Values{{"a", std::string(65532, 'x')}, {"b", "1"}})); // the hash given
    NLIBCSzHashFree(request.params);

    // Lengths at which five times as much is no int any more: without memory the request is refused, else too short.
    setenv("REQUEST_METHOD", "POST", 1);
    for (const char *length : {"429496728", "429496729", "2147483647"}) {
        FormInput::bytes("a=1");
        setenv("CONTENT_LENGTH", length, 1);
        request.params = nullptr;
        EXPECT_EQ(NorvCgiLoadCGIParam(&request), 0) << length;
        NLIBCSzHashFree(request.params);
    }
}

} // namespace
