#include "lib/conf.h"

#include <cstdio>
#include <gtest/gtest.h>
#include <unistd.h>

#include "lib/file.h"
#include "lib/report.h"
#include "product.h"
#include "tests/support/private_root.h"

namespace
{

class Conf : public testing::Test
{
  protected:
    PrivateRoot root;
};

struct ProbeCase {
    const char *text;
    bool (*probe)();
    bool answer;
};

// Each in a process of its own, since the answer stays.
TEST_F(Conf, ProbeAnswers)
{
    static constexpr ProbeCase kCases[] = {
        {"support_install_only_dev=yes\n", conf_support_install_only_dev, true},
        {"support_led_behavior_v2=yes\n", conf_support_led_behavior_v2, true},
        {"supportsas=yes\n", conf_supportsas, true},
        {"blockm2sata=yes\n", conf_blockm2sata, true},
        {"support_m2_all_devices=yes\n", conf_support_m2_all_devices, true},
        {"support_multipath=yes\n", conf_support_multipath, true},
        {"supportnvme=yes\n", conf_supportnvme, true},
        {"support_oob_ctl=yes\n", conf_support_oob_ctl, true},
        {"supportraid=yes\n", conf_supportraid, true},
        {"support_disk_intf_check=yes\n", conf_support_disk_intf_check, true},
        {"supportuart2=yes\n", conf_supportuart2, true},
        {"ali_nos=yes\n", conf_ali_nos, true},
        {"supportraid=\"YES\"\n", conf_supportraid, true},
        {"supportraid=true\n", conf_supportraid, false}, // fits the five bytes
        {"supportraid=yes  x\n", conf_supportraid, false},
        {"supportraid=no\n", conf_supportraid, false},
        {"supportraids=yes\n", conf_supportraid, false},
        {"supportuart2=YES\n", conf_supportuart2, false}, // these two tell the case
        {"ali_nos=Yes\n", conf_ali_nos, false},
        {"norvbios=kvmx64\n", NLIBCConfIsVirtualPlatform, true},
        {"norvbios=\"nextkvmx64\"\n", NLIBCConfIsVirtualPlatform, true},
        {"norvbios=kvmcloud\n", NLIBCConfIsVirtualPlatform, true},
        {"norvbios=KVMX64\n", NLIBCConfIsVirtualPlatform, false},
        {"norvbios=kvm\n", NLIBCConfIsVirtualPlatform, false},
        {"norvbios=a_value_of_16_by\n", NLIBCConfIsVirtualPlatform, false},
    };
    for (const ProbeCase &row : kCases) {
        root.write(kDefaultsPath, row.text);
        EXPECT_EQ(root.run([&row] { return row.probe() ? 1 : 0; }), row.answer ? 1 : 0) << row.text;
    }
    EXPECT_EQ(root.log(), "");
}

TEST_F(Conf, AnswersStay)
{
    root.write(kDefaultsPath, "supportraid=yes\nmax_sys_raid_disks=4\n");
    EXPECT_EQ(root.run([] {
        static constexpr char kPath[] = "/etc.defaults/norvinfo.conf";
        EXPECT_TRUE(conf_supportraid());
        EXPECT_FALSE(conf_supportsas());
        EXPECT_FALSE(NLIBCConfIsHdSeries());
        EXPECT_EQ(NLIBCConfMaxSysRaidDisksGet(), 4);
        EXPECT_EQ(NLIBCConfMaxDisksGet(), 0); // not kept
        EXPECT_EQ(NLIBCFileSetKeyValue(kPath, "supportraid", "no", nullptr), 1);
        EXPECT_EQ(NLIBCFileSetKeyValue(kPath, "supportsas", "yes", nullptr), 1);
        EXPECT_EQ(NLIBCFileSetKeyValue(kPath, "unique", kProductHdSeriesUnique, nullptr), 1);
        EXPECT_EQ(NLIBCFileSetKeyValue(kPath, "max_sys_raid_disks", "", nullptr), 1);
        EXPECT_EQ(NLIBCFileSetKeyValue(kPath, "maxdisks", "12", nullptr), 1);
        EXPECT_TRUE(conf_supportraid());
        EXPECT_FALSE(conf_supportsas());
        EXPECT_TRUE(NLIBCConfIsHdSeries());
        EXPECT_EQ(NLIBCConfMaxSysRaidDisksGet(), 12);
        EXPECT_EQ(NLIBCFileSetKeyValue(kPath, "maxdisks", "16", nullptr), 1);
        EXPECT_EQ(NLIBCConfMaxDisksGet(), 12);
        return 0;
    }),
              0);
    EXPECT_EQ(root.log(),
              "3 conf_max_disks_get.cpp:# Failed to NLIBCFileGetKeyValue(/etc.defaults/norvinfo.conf,maxdisks)\n");
}

// 63 digits fit.
TEST_F(Conf, LongDiskCounts)
{
    const std::string zeros(61, '0');
    root.write(kDefaultsPath, "max_sys_raid_disks=" + zeros + "04\nmaxdisks=" + zeros + "12\n");
    EXPECT_EQ(root.run([] { return NLIBCConfMaxSysRaidDisksGet() * 16 + NLIBCConfMaxDisksGet(); }), 4 * 16 + 12);
    root.write(kDefaultsPath, "max_sys_raid_disks=" + zeros + "004\nmaxdisks=" + zeros + "12\n");
    EXPECT_EQ(root.run([] { return NLIBCConfMaxSysRaidDisksGet(); }), 12);
    EXPECT_EQ(root.log(), "");
    root.write(kDefaultsPath, "maxdisks=" + zeros + "012\n");
    EXPECT_EQ(root.run([] { return NLIBCConfMaxDisksGet(); }), 0);
}

TEST_F(Conf, NoDescription)
{
    EXPECT_EQ(root.run([] {
        EXPECT_FALSE(NLIBCConfIsYes(nullptr));
        EXPECT_FALSE(NLIBCConfIsYes("supportraid"));
        EXPECT_FALSE(NLIBCConfIsHdSeries());
        EXPECT_FALSE(NLIBCConfIsVirtualPlatform());
        EXPECT_FALSE(conf_ali_nos());
        EXPECT_EQ(NLIBCFileCheckKeyValue(kDefaultsPath, "supportraid", "yes", 1), 0);
        EXPECT_EQ(NLIBCFileTouch(nullptr), -1);
        return NLIBCConfMaxSysRaidDisksGet();
    }),
              0);
    const std::string log = root.log();
    EXPECT_TRUE(log.starts_with("7 file_check_key_value.cpp:# NLIBCFileGetKeyValue(/etc.defaults/norvinfo.conf) failed "
                                "[0x0900 file_get_key_value.cpp:"))
        << log;
    EXPECT_NE(log.find("]\n3 file_touch.cpp:# Bad parameters\n3 conf_max_disks_get.cpp:#"), log.npos) << log;
}

TEST_F(Conf, DualHeadIsRememberedInMarkers)
{
    static constexpr char kYes[] = "/tmp/.dualhead";
    static constexpr char kNo[] = "/tmp/.not.dualhead";
    static constexpr struct {
        const char *text;
        int answer;
        const char *made;
    } kCases[] = {
        {"support_dual_head=YES\n", 1, kYes},
        {"support_dual_head=no\n", 0, kNo},
        {"other=yes\n", 0, kNo},
    };
    for (const auto &row : kCases) {
        const PrivateRoot fresh;
        fresh.write(kDefaultsPath, row.text);
        EXPECT_EQ(fresh.run([] { return NLIBCConfSupportDualHead(); }), row.answer) << row.text;
        EXPECT_EQ(fresh.read(kYes), row.made == kYes ? "" : "(none)") << row.text;
        EXPECT_EQ(fresh.read(kNo), row.made == kNo ? "" : "(none)") << row.text;
        fresh.write(kDefaultsPath, row.answer == 1 ? "support_dual_head=no\n" : "support_dual_head=yes\n");
        EXPECT_EQ(fresh.run([] { return NLIBCConfSupportDualHead(); }), row.answer) << "from the marker";
    }
    root.write(std::string(kYes) + "/any_kind_of_file", "");
    root.write(kNo, "");
    EXPECT_EQ(root.run([] { return NLIBCConfSupportDualHead(); }), 1) << "yes wins";
}

TEST_F(Conf, DualHeadWithoutRoomForTheMarker)
{
    root.write(kDefaultsPath, "support_dual_head=yes\n");
    EXPECT_EQ(root.run([] {
        rmdir("/tmp");
        return NLIBCConfSupportDualHead();
    }),
              1);
    EXPECT_EQ(root.log(), "3 file_touch.cpp:# file exist: /tmp/.dualhead, errno=No such file or directory\n"
                          "3 conf_support_dual_head.cpp:# Failed to touch '/tmp/.dualhead'\n");
}

TEST_F(Conf, VmmVnosKeepsOnlyASuccessfulRead)
{
    static constexpr char kPath[] = "/proc/sys/kernel/norv_hw_version";
    root.write(kPath, " \n");
    EXPECT_EQ(root.run([] {
        EXPECT_EQ(NLIBCConfIsVmmVnos(), 0);
        EXPECT_EQ(rename(kPath, "/tmp/away"), 0);
        EXPECT_EQ(NLIBCConfIsVmmVnos(), 0);
        EXPECT_EQ(NLIBCFileSetKeyValue(kPath, "", "", "VirtualNOS %s%s rest\n"), 1);
        EXPECT_EQ(NLIBCConfIsVmmVnos(), 1);
        EXPECT_EQ(unlink(kPath), 0);
        return NLIBCConfIsVmmVnos();
    }),
              1);
    EXPECT_EQ(root.log(), "3 conf_is_vmm_vnos.cpp:# Failed to read file[/proc/sys/kernel/norv_hw_version].\n"
                          "3 conf_is_vmm_vnos.cpp:# Failed to open file[/proc/sys/kernel/norv_hw_version].\n");
    root.write(kPath, "VirtualNOS-j\n");
    EXPECT_EQ(root.run([] { return NLIBCConfIsVmmVnos(); }), 0);
}

TEST_F(Conf, InfoIsSetInTheWorkingCopy)
{
    root.write(kConfPath, "# copy\nhostname=\"old\"\n");
    EXPECT_EQ(root.run([] {
        EXPECT_EQ(NLIBCConfInfoSetKeyValue("hostname", "new"), 0);
        EXPECT_EQ(NLIBCConfInfoSetKeyValue("added", ""), 0);
        EXPECT_EQ(NLIBCConfInfoSetKeyValue(nullptr, "x"), -1);
        EXPECT_EQ(NLIBCErrGet(), kErrBadParameter);
        return NLIBCConfInfoSetKeyValue("x", nullptr);
    }),
              -1);
    EXPECT_EQ(root.read(kConfPath), "# copy\nhostname=\"new\"\nadded=\"\"\n");
}

} // namespace
