#include "lib/conf.h"

#include <cstdio>
#include <gtest/gtest.h>
#include <unistd.h>

#include "lib/file.h"
#include "product.h"
#include "tests/support/private_root.h"

namespace
{

struct Conf : testing::Test {
    // What a call answers in a process of its own, since the answer stays.
    template <typename Call> int first_answer(const Call &call, const std::string &text) const
    {
        root.write(kDefaultsPath, text);
        return root.run([&call] { return static_cast<int>(call()); });
    }
    PrivateRoot root;
};

TEST_F(Conf, ProbeAnswers)
{
    static constexpr struct {
        const char *text;
        bool (*probe)();
        bool answer = true;
    } kCases[] = {
        {"support_multipath=yes\n", conf_support_multipath}, // the other keys are set in tests of roles
        {"supportraid=\"YES\"\n", conf_supportraid},
        {"supportraid=true\n", conf_supportraid, false}, // fits the five bytes
        {"supportraid=yes  x\n", conf_supportraid, false},
        {"supportuart2=YES\n", conf_supportuart2, false}, // these two tell the case
        {"ali_nos=Yes\n", conf_ali_nos, false},
        {"norvbios=kvmx64\n", NLIBCConfIsVirtualPlatform},
        {"norvbios=nextkvmx64\n", NLIBCConfIsVirtualPlatform},
        {"norvbios=kvmcloud\n", NLIBCConfIsVirtualPlatform},
        {"norvbios=KVMX64\n", NLIBCConfIsVirtualPlatform, false},
    };
    for (const auto &row : kCases)
        EXPECT_EQ(first_answer(row.probe, row.text), row.answer ? 1 : 0) << row.text;
    EXPECT_EQ(root.log(), "");
}

TEST_F(Conf, AnswersStay)
{
    root.run([] { EXPECT_FALSE(NLIBCConfIsYes(nullptr) || conf_supportraid() || NLIBCConfIsVirtualPlatform()); });
    root.write(kDefaultsPath, "supportraid=yes\nmax_sys_raid_disks=4\n");
    root.run([] {
        EXPECT_TRUE(conf_supportraid());
        EXPECT_FALSE(NLIBCConfIsHdSeries());
        EXPECT_EQ(NLIBCConfMaxSysRaidDisksGet(), 4);
        EXPECT_EQ(NLIBCConfMaxDisksGet(), 0); // not kept
        for (const auto &[key, value] : {std::pair("supportraid", "no"),
                                         {"unique", kProductHdSeriesUnique},
                                         {"max_sys_raid_disks", ""},
                                         {"maxdisks", "12"}})
            EXPECT_EQ(NLIBCFileSetKeyValue(kDefaultsPath, key, value, nullptr), 1);
        EXPECT_TRUE(conf_supportraid());
        EXPECT_TRUE(NLIBCConfIsHdSeries());
        EXPECT_EQ(NLIBCConfMaxSysRaidDisksGet(), 12);
        EXPECT_EQ(NLIBCFileSetKeyValue(kDefaultsPath, "maxdisks", "16", nullptr), 1);
        EXPECT_EQ(NLIBCConfMaxDisksGet(), 12);
    });
    EXPECT_EQ(root.log(),
              "3 conf_max_disks_get.cpp:# Failed to NLIBCFileGetKeyValue(/etc.defaults/norvinfo.conf,maxdisks)\n");
}

TEST_F(Conf, DualHeadIsRememberedInMarkers)
{
    static constexpr char kYes[] = "/tmp/.dualhead", kNo[] = "/tmp/.not.dualhead", kYesText[] = "support_dual_head=YES",
                          kNoText[] = "support_dual_head=no";
    EXPECT_EQ(first_answer(NLIBCConfSupportDualHead, kNoText), 0);
    EXPECT_EQ(root.read(kYes) + root.read(kNo), "(none)");
    EXPECT_EQ(first_answer(NLIBCConfSupportDualHead, kYesText), 0) << "from the marker";
    root.write(std::string(kYes) + "/any_kind_of_file", "");
    EXPECT_EQ(first_answer(NLIBCConfSupportDualHead, kNoText), 1) << "yes wins";

    const PrivateRoot fresh; // and no room for the marker
    fresh.write(kDefaultsPath, kYesText);
    EXPECT_EQ(fresh.run([] { return rmdir("/tmp") == 0 ? NLIBCConfSupportDualHead() : -1; }), 1);
    EXPECT_EQ(fresh.log(), "3 file_touch.cpp:# file exist: /tmp/.dualhead, errno=No such file or directory\n"
                           "3 conf_support_dual_head.cpp:# Failed to touch '/tmp/.dualhead'\n");
}

TEST_F(Conf, VmmVnosKeepsOnlyASuccessfulRead)
{
    static constexpr char kPath[] = "/proc/sys/kernel/norv_hw_version";
    root.write(kPath, " \n");
    root.run([] {
        EXPECT_EQ(NLIBCConfIsVmmVnos(), 0);
        EXPECT_EQ(rename(kPath, "/tmp/away"), 0);
        EXPECT_EQ(NLIBCConfIsVmmVnos(), 0);
        EXPECT_EQ(NLIBCFileSetKeyValue(kPath, "", "", "VirtualNOS %s%s rest\n"), 1);
        EXPECT_EQ(NLIBCConfIsVmmVnos(), 1);
        EXPECT_EQ(unlink(kPath), 0);
        EXPECT_EQ(NLIBCConfIsVmmVnos(), 1);
    });
    EXPECT_EQ(root.log(), "3 conf_is_vmm_vnos.cpp:# Failed to read file[/proc/sys/kernel/norv_hw_version].\n"
                          "3 conf_is_vmm_vnos.cpp:# Failed to open file[/proc/sys/kernel/norv_hw_version].\n");
}

TEST_F(Conf, InfoIsSetInTheWorkingCopy)
{
    root.write(kConfPath, "# copy\nhostname=\"old\"\n");
    root.run([] { EXPECT_EQ(NLIBCConfInfoSetKeyValue("hostname", "new"), 0); });
    EXPECT_EQ(root.read(kConfPath), "# copy\nhostname=\"new\"\n");
}

} // namespace
