#include "external/hw_control.h"

#include <gtest/gtest.h>

#include "tests/support/outcome.h"
#include "tests/support/private_root.h"

namespace
{

// A negative length tells the ACM device alone, here a plain file: of status and alert it hears.
TEST(HwExternalControl, AcmDeviceHearsOrIsSpared)
{
    PrivateRoot root;
    root.write("/etc.defaults/norvinfo.conf", "support_acm=YES\n");
    const auto heard = [&root](int control, int type, int length = -1, const char *data = "", int result = 0) {
        root.write("/dev/ttyACM0", "");
        root.run([=] { EXPECT_EQ(NORVHWExternalControl(control, length, data, type), result) << type; });
        return root.read("/dev/ttyACM0");
    };
    std::string all;
    for (int control = 0x5200; control <= 0x5208; control++)
        all += heard(control, 5);
    EXPECT_EQ(all, "8:;79123");
    EXPECT_EQ(heard(0x4002, 5), "");
    EXPECT_EQ(heard(0x5200, 5, 1, nullptr, -1), "");
    for (const int type : {1, 8, 101, 104})
        EXPECT_EQ(heard(0x5200, type), "8") << type;
    EXPECT_EQ(root.log(), "");
    root.write("/tmp/hwexternalctl_dbg", "");
    for (const int type : {0, 9, 100, 105}) {
        EXPECT_EQ(heard(0x5200, type, -1, "", -1), "") << type;
        const std::string number = std::to_string(type);
        EXPECT_EQ(root.log(), "3 hw_external_control.cpp:# CheckControlType, type=" + number +
                                  "\n3 hw_external_control.cpp:# CheckControlType failed, type=" + number + "\n");
    }
}

TEST(HwPowerAction, OtherModesDoNothing)
{
    PrivateRoot root;
    root.run([] { EXPECT_EQ(outcome(NORVSysPowerAction, 2), (Outcome{0, kErrBadParameter})); });
    EXPECT_EQ(root.log(), "3 hw_power_action.cpp:# Unknown option (2)\n");
}

} // namespace
