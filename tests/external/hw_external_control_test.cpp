#include "external/hw_control.h"

#include <cstdio>
#include <gtest/gtest.h>

#include "lib/report.h"
#include "tests/support/private_root.h"

namespace
{

// A negative length tells the ACM device alone, here a plain file.
TEST(HwExternalControl, AcmDeviceHearsOfStatusAndAlert)
{
    struct Case {
        int control;
        const char *bytes;
    };
    static constexpr Case kCases[] = {
        {0x5200, "8"}, {0x5201, ":"}, {0x5202, ";"}, {0x5203, "7"}, {0x5204, "9"}, {0x5205, "1"},
        {0x5206, "2"}, {0x5207, "3"}, {0x5208, ""},  {0x51ff, ""},  {0x4002, ""},  {0x5301, ""},
    };
    if (!PrivateRoot::allowed())
        GTEST_SKIP() << "the kernel refuses a private root";
    for (const Case &row : kCases) {
        SCOPED_TRACE(row.control);
        PrivateRoot root;
        root.write("/etc.defaults/norvinfo.conf", "support_acm=YES\n");
        root.write("/dev/ttyACM0", "");
        root.run([&row] {
            EXPECT_EQ(NORVHWExternalControl(row.control, -1, "", 5), 0);
            return 0;
        });
        EXPECT_EQ(root.read("/dev/ttyACM0"), row.bytes);
    }
}

TEST(HwExternalControl, RefusesBeforeAnythingIsSent)
{
    struct Case {
        int length;
        const char *data;
        int type, result;
        const char *log;
    };
    static constexpr char kBadType[] = "3 hw_external_control.cpp:# CheckControlType failed, type=%d\n";
    static constexpr Case kCases[] = {
        {-1, "", 0, -1, kBadType}, {-1, "", 9, -1, kBadType}, {-1, "", 100, -1, kBadType}, {-1, "", 105, -1, kBadType},
        {1, nullptr, 5, -1, ""},   {-1, nullptr, 5, -1, ""},  {-1, "", 1, 0, ""},          {-1, "", 8, 0, ""},
        {-1, "", 101, 0, ""},      {-1, "", 104, 0, ""},
    };
    if (!PrivateRoot::allowed())
        GTEST_SKIP() << "the kernel refuses a private root";
    PrivateRoot root;
    root.write("/etc.defaults/norvinfo.conf", "support_acm=yes\n");
    for (const Case &row : kCases) {
        SCOPED_TRACE(&row - kCases);
        root.write("/dev/ttyACM0", "");
        root.run([&row] {
            EXPECT_EQ(NORVHWExternalControl(0x5200, row.length, row.data, row.type), row.result);
            return 0;
        });
        EXPECT_EQ(root.read("/dev/ttyACM0"), row.result == 0 ? "8" : "");
        char log[128];
        snprintf(log, sizeof(log), row.log, row.type);
        EXPECT_EQ(root.log(), log);
    }
    root.write("/tmp/hwexternalctl_dbg", "");
    root.run([] { return NORVHWExternalControl(0x4002, -1, "", 9); });
    EXPECT_EQ(root.log(), "3 hw_external_control.cpp:# CheckControlType, type=9\n"
                          "3 hw_external_control.cpp:# CheckControlType failed, type=9\n");
}

TEST(HwPowerAction, OtherModesDoNothing)
{
    if (!PrivateRoot::allowed())
        GTEST_SKIP() << "the kernel refuses a private root";
    PrivateRoot root;
    root.run([] {
        for (const int mode : {2, 3}) {
            NLIBCErrSet(kErrNone, "", 0);
            EXPECT_EQ(NORVSysPowerAction(mode), 0);
            EXPECT_EQ(NLIBCErrGet(), kErrBadParameter);
        }
        return 0;
    });
    EXPECT_EQ(root.log(), "3 hw_power_action.cpp:# Unknown option (2)\n3 hw_power_action.cpp:# Unknown option (3)\n");
}

} // namespace
