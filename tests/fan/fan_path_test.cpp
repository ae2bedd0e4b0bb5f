#include "fan/fan_path.h"

#include <gtest/gtest.h>

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

} // namespace
