// What kind of system a root folder holds.
#include <gtest/gtest.h>

#include "lib/system/system.h"
#include "tests/support/private_root.h"

namespace
{

TEST(SystemProbe, FileThenModelThenOwn)
{
    const struct {
        int (*probe)(const char *root, const char *model);
        const char *file, *text; // text NULL: no such file
        const char *model;
        int expected;
    } kRows[] = {
        {system_endian_get, "endian", "little", "ppc", 2},
        {system_endian_get, "endian", "middle\n", "powerpc8", 1},
        {system_endian_get, "endian", "middle\n", nullptr, -1},
        {system_endian_get, "endian", nullptr, "x86", 2},
        {system_bit_get, "bits", "32\n", "x86", 32},
        {system_bit_get, "bits", "3x\n", "88f5281", 32},
        {system_bit_get, "bits", nullptr, "x86", 64},
        {system_max_align_get, "pgsql_alignment", "8\n", "x86", 8},
        {system_max_align_get, "pgsql_alignment", nullptr, "88f5281", 4},
    };
    for (const auto &row : kRows) {
        SCOPED_TRACE(testing::Message() << row.file << " " << (row.text != nullptr ? row.text : "(none)"));
        const PrivateRoot root;
        if (row.text != nullptr)
            root.write(std::string("/r/.system_info/") + row.file, row.text);
        root.run([&] { EXPECT_EQ(row.probe("/r", row.model), row.expected); });
    }
    EXPECT_EQ(system_endian_get(nullptr, nullptr), 2);
    EXPECT_EQ(system_bit_get(nullptr, nullptr), 64);
}

TEST(SystemProbe, Platform)
{
    for (const auto &[unique, platform] : {std::pair("norv_avoton_1817", "avoton"),
                                           {"norv__1817", ""},
                                           {"norv_1234567_1", "1234567"},
                                           {"norv_12345678_1", "?"},
                                           {"norv_avoton", "?"}}) { // no room, no end
        const PrivateRoot root;
        root.write("/etc/conf", std::string("unique=") + unique + "\n");
        root.run([expected = platform] {
            char text[8] = "?";
            EXPECT_EQ(system_platform_get("/etc/conf", text, sizeof(text)), *expected != '?' ? 0 : -1);
            EXPECT_STREQ(text, expected);
        });
        const std::string refusal = "3 system_platform_get.cpp:# failed to parse platform from unique: [";
        EXPECT_EQ(root.log(), *platform != '?' ? "" : refusal + unique + "]\n");
    }
}

} // namespace
