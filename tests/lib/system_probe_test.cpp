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
        {system_endian_get, "endian", "big\n", nullptr, 1},
        {system_endian_get, "endian", "little", "ppc", 2},
        {system_endian_get, "endian", "middle\n", "powerpc8", 1},
        {system_endian_get, "endian", "middle\n", nullptr, -1},
        {system_endian_get, "endian", nullptr, "x86", 2},
        {system_endian_get, "endian", nullptr, "", 2},
        {system_bit_get, "bits", "32\n", "x86", 32},
        {system_bit_get, "bits", "3x\n", "88f5281", 32},
        {system_bit_get, "bits", nullptr, "x86", 64},
        {system_bit_get, "bits", nullptr, "", 64},
        {system_bit_get, "bits", nullptr, nullptr, -1},
        {system_max_align_get, "pgsql_alignment", "8\n", "x86", 8},
        {system_max_align_get, "pgsql_alignment", "\n", "88f6281", 8},
        {system_max_align_get, "pgsql_alignment", nullptr, "88f5281", 4},
        {system_max_align_get, "pgsql_alignment", nullptr, nullptr, -1},
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
    const struct {
        const char *conf, *platform; // NULL: none
        const char *log = "";
    } kRows[] = {
        {"unique=\"norv_avoton_1817\"\n", "avoton"},
        {"unique=norv__1817\n", ""},
        {"unique=norv_1234567_1\n", "1234567"},
        {"unique=norv_12345678_1\n", nullptr,
         "3 system_platform_get.cpp:# failed to parse platform from unique: [norv_12345678_1]\n"},
        {"unique=norv_avoton\n", nullptr,
         "3 system_platform_get.cpp:# failed to parse platform from unique: [norv_avoton]\n"},
    };
    for (const auto &row : kRows) {
        SCOPED_TRACE(row.conf);
        const PrivateRoot root;
        root.write("/etc/conf", row.conf);
        root.run([&] {
            char platform[8] = "?";
            EXPECT_EQ(system_platform_get("/etc/conf", platform, sizeof(platform)), row.platform != nullptr ? 0 : -1);
            EXPECT_STREQ(platform, row.platform != nullptr ? row.platform : "?");
        });
        EXPECT_EQ(root.log(), row.log);
    }
}

} // namespace
