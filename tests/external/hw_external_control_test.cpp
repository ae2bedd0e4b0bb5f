#include "external/hw_control.h"

#include <gtest/gtest.h>

#include "tests/support/outcome.h"
#include "tests/support/private_root.h"

namespace
{

// A negative length tells the ACM device alone, here a plain file: of status and alert it hears. The last
// rows are refused before anything is sent.
TEST(HwExternalControl, AcmDeviceHearsOrIsSpared)
{
    static constexpr struct {
        int control, length;
        const char *data;
        int type;
        const char *bytes;
        int result = 0;
    } kCases[] = {
        {0x5200, -1, "", 5, "8"},         {0x5201, -1, "", 5, ":"},      {0x5202, -1, "", 5, ";"},
        {0x5203, -1, "", 5, "7"},         {0x5204, -1, "", 5, "9"},      {0x5205, -1, "", 5, "1"},
        {0x5206, -1, "", 5, "2"},         {0x5207, -1, "", 5, "3"},      {0x5208, -1, "", 5, ""},
        {0x51ff, -1, "", 5, ""},          {0x4002, -1, "", 5, ""},       {0x5301, -1, "", 5, ""},
        {0x5200, -1, "", 1, "8"},         {0x5200, -1, "", 8, "8"},      {0x5200, -1, "", 101, "8"},
        {0x5200, -1, "", 104, "8"},       {0x5200, -1, "", 0, "", -1},   {0x5200, -1, "", 9, "", -1},
        {0x5200, -1, "", 100, "", -1},    {0x5200, -1, "", 105, "", -1}, {0x5200, 1, nullptr, 5, "", -1},
        {0x5200, -1, nullptr, 5, "", -1},
    };
    PrivateRoot root;
    root.write("/etc.defaults/norvinfo.conf", "support_acm=YES\n");
    for (const auto &row : kCases) {
        SCOPED_TRACE(&row - kCases);
        root.write("/dev/ttyACM0", "");
        root.run([&row] { EXPECT_EQ(NORVHWExternalControl(row.control, row.length, row.data, row.type), row.result); });
        EXPECT_EQ(root.read("/dev/ttyACM0"), row.bytes);
        const std::string refusal = "3 hw_external_control.cpp:# CheckControlType failed, type=";
        EXPECT_EQ(root.log(), row.result != 0 && row.data != nullptr ? refusal + std::to_string(row.type) + "\n" : "");
    }
    root.write("/tmp/hwexternalctl_dbg", "");
    root.run([] { return NORVHWExternalControl(0x4002, -1, "", 9); });
    EXPECT_EQ(root.log(), "3 hw_external_control.cpp:# CheckControlType, type=9\n"
                          "3 hw_external_control.cpp:# CheckControlType failed, type=9\n");
}

TEST(HwPowerAction, OtherModesDoNothing)
{
    PrivateRoot root;
    root.run([] {
        for (const int mode : {2, 3})
            EXPECT_EQ(outcome(NORVSysPowerAction, mode), (Outcome{0, kErrBadParameter}));
    });
    EXPECT_EQ(root.log(), "3 hw_power_action.cpp:# Unknown option (2)\n3 hw_power_action.cpp:# Unknown option (3)\n");
}

} // namespace
