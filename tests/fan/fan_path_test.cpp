#include "fan/fan_path.h"

#include <gtest/gtest.h>

#include "external/hw_control.h"
#include "lib/report.h"
#include "tests/support/private_root.h"

namespace
{

TEST(FanPath, FindsTheControllerOrTellsWhyNot)
{
    static constexpr struct {
        const char *name_path, *name; // a file that is there; NULL for none
        int unit;
        const char *found; // NULL: fails
        int code;
    } kCases[] = {
        {"/tmp/ADTFanPath/name", "adt7490\n", 0, "/tmp/ADTFanPath/", 0},
        {"/tmp/ADTFanPath_Eunit_3/name", "adt7490x\n", 3, "/tmp/ADTFanPath_Eunit_3/", 0},
        {"/tmp/ADTFanPath/name", "adt7475\n", 0, nullptr, kErrNoneFoundBe},
        {"/tmp/ADTFanPath/name", "", 0, nullptr, kErrRead},
        {nullptr, nullptr, 0, nullptr, kErrNoDevice},
    };
    for (const auto &row : kCases) {
        SCOPED_TRACE(&row - kCases);
        PrivateRoot root;
        if (row.name_path != nullptr)
            root.write(row.name_path, row.name);
        root.run([&row] {
            char path[64] = "";
            EXPECT_EQ(fan_path_get(row.unit, path, sizeof(path)), row.found != nullptr ? 0 : -1);
            if (row.found != nullptr)
                EXPECT_STREQ(path, row.found);
            else
                EXPECT_EQ(NLIBCErrGet(), row.code);
        });
    }
}

TEST(BuzzerMask, RevisionKeyGoesBeforeThePlainOne)
{
    static constexpr struct {
        const char *revision; // NULL: no file
        const char *keys;
        unsigned long mask;
    } kCases[] = {
        {"r2\n", "buzzeroffen=0x1\nbuzzeroffen_r2=0x200\n", 0x200},
        {"r3\n", "buzzeroffen=0x1\nbuzzeroffen_r2=0x200\n", 1},
        {nullptr, "buzzeroffen=2ff\n", 0x2ff},
        {"", "buzzeroffen=8\n", 8},
    };
    for (const auto &row : kCases) {
        PrivateRoot root;
        root.write("/etc.defaults/norvinfo.conf", row.keys);
        if (row.revision != nullptr)
            root.write("/proc/sys/kernel/norv_hw_revision", row.revision);
        root.run([&row] { EXPECT_EQ(buzzer_mask_get(), row.mask) << row.keys; });
        const bool is_empty = row.revision != nullptr && row.revision[0] == '\0';
        EXPECT_EQ(root.log(), is_empty ? "3 hw_buzzer_mask.cpp:# file is empty, assuming the first revision.\n" : "");
    }
}

} // namespace
