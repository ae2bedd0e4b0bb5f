// The pairs of a request, from its body, its query or its referer. Their text is held against a model in
// tests/fuzz/cgi_pairs_fuzz.cpp.
#include <gtest/gtest.h>
#include <map>

#include "install/cgi_param.h"
#include "tests/support/containers.h"
#include "tests/support/form_input.h"

namespace
{

using Values = std::map<std::string, std::string>;

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
        {"so much of it", "POST", "3", nullptr, nullptr, "a=1+2", 1, {{"a", "1"}}},
        {"nothing", "POST", "0", nullptr, "x?b=1", "a=1", 1, {}},
        {"negative", "POST", "-1", nullptr, "x?a=1", "a=1", 0, {}},
        {"short", "POST", "9", "q=1", nullptr, "a=1", 0, {}},
        {"its tail stays", "POST", "9", nullptr, "http://h/?a=1&b=2", "", 1, {{"a", "1"}, {"b", "2"}}},
        {"longer than the room", "POST", "1", nullptr, "0123456789?a=1+2", "", 1, {{"a", "1 256789?a=1 2"}}},
        {"any case", "get", nullptr, "a=1+2", nullptr, "", 1, {{"a", "1+2"}}},
        {"head", "HEAD", nullptr, "a=1+2", nullptr, "", 1, {{"a", "1+2"}}},
        {"other", "PUT", nullptr, "a=1+2", nullptr, "", 1, {{"a", "1 2"}}},
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
        EXPECT_EQ(pairs_of(params.get()), row.values);
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
    EXPECT_EQ(pairs_of(request.params), (Values{{"a", std::string(65532, 'x')}, {"b", "1"}})); // the hash given
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
