// What the first start of an installed system is told.
#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <vector>

#include "autocleanup/unique.h"
#include "install/cgi_param.h"
#include "install/ns_config.h"
#include "tests/support/scratch_dir.h"

namespace
{

using Fields = std::vector<std::pair<const char *, const char *>>;

int prepare(const Fields &fields, const std::string &root)
{
    UniqueHash params(NLIBCSzHashAlloc(kCgiParamBytes));
    for (const auto &[name, value] : fields)
        EXPECT_GE(NLIBCSzHashSetValue(params.address(), name, value), 0);
    return PrepareNSConfig(params.get(), root.c_str());
}

mode_t mode_of(const std::string &path)
{
    struct stat status = {};
    EXPECT_EQ(stat(path.c_str(), &status), 0) << path;
    return status.st_mode & 07777;
}

TEST(NsConfig, ScriptOfAForm)
{
    const std::string kTakePassword = "/usr/norv/sbin/norvuser --filesetpw\n/bin/rm -f /.ns_pwd\n";
    const std::string kDhcp = "/usr/norv/sbin/norvnet --dhcp eth0\n";
    const struct {
        Fields fields;
        std::string script, password;
        bool has_lease, has_cache_mark;
    } kRows[] = {
        {{}, kDhcp, "(none)", true, false},
        {{{"hostname", "my nas"}, {"netconfig", "dhcp"}, {"remove_ro_ssd_cache", "true"}},
         "/usr/norv/sbin/norvnet --set_hostname my nas\n" + kDhcp,
         "(none)",
         true,
         true},
        {{{"password", "a b"}, {"netconfig", "none"}, {"remove_ro_ssd_cache", "false"}},
         kTakePassword,
         "account=\"admin\"\npassword=\"a b\"\n",
         false,
         false},
        {{{"password", "x"}, {"account", "me"}, {"netconfig", "pppoe"}, {"ppp_account", "u"}, {"ppp_passwd", "p"}},
         "/usr/norv/sbin/norvuser --add \"me\" $(/usr/bin/uuidgen) \"\" 1 \"\" administrators\n"
         "/usr/norv/bin/norvwebapi --exec api=NORV.Core.Group.Member method=add version=1 "
         "'group=\"administrators\"' 'name=\"me\"'\n" +
             kTakePassword + "/usr/norv/sbin/norvnet --set_pppoe eth0 u p\n",
         "account=\"me\"\npassword=\"x\"\n",
         false,
         false},
        {{{"account", "me"},
          {"netconfig", "manual"},
          {"manual_ip", "10.0.0.2"},
          {"manual_mask", "255.0.0.0"},
          {"manual_gateway", "10.0.0.1"},
          {"manual_dns", "10.0.0.3"}},
         "/usr/norv/sbin/norvnet --manual eth0 10.0.0.2 255.0.0.0\n"
         "/usr/norv/sbin/norvnet --set_gateway 10.0.0.1\n"
         "/usr/norv/sbin/norvnet --set_dns 10.0.0.3\n",
         "(none)",
         false,
         false},
        {{{"netconfig", "manual"}},
         "/usr/norv/sbin/norvnet --manual eth0  \n"
         "/usr/norv/sbin/norvnet --set_gateway \n"
         "/usr/norv/sbin/norvnet --set_dns \n",
         "(none)",
         false,
         false},
    };
    for (const auto &row : kRows) {
        SCOPED_TRACE(row.script);
        const ScratchDir volume;
        const mode_t mask = umask(022);
        EXPECT_EQ(prepare(row.fields, volume.path()), 0);
        EXPECT_EQ(umask(mask), 022U);
        EXPECT_EQ(volume.read(".ns_configure.sh"), "#!/bin/sh\n" + row.script + "\n");
        EXPECT_EQ(mode_of(volume.path(".ns_configure.sh")), 0770U);
        EXPECT_EQ(volume.read(".ns_pwd"), row.password);
        EXPECT_EQ(volume.read(".WEBINST_OK"), "");
        EXPECT_EQ(volume.read(".remove_ro_ssd_cache"), row.has_cache_mark ? "" : "(none)");
        EXPECT_EQ(access(volume.path("etc/dhcpc").c_str(), F_OK) == 0, row.has_lease);
        if (row.password != "(none)") {
            EXPECT_EQ(mode_of(volume.path(".ns_pwd")), 0600U);
        }
    }
}

// What cannot be written leaves no script and no password.
TEST(NsConfig, Faults)
{
    const Fields kFields = {{"password", "x"}};
    for (const char *path : {".WEBINST_OK", ".ns_configure.sh", ".ns_pwd"}) {
        SCOPED_TRACE(path);
        const ScratchDir volume;
        ASSERT_EQ(mkdir(volume.path(path).c_str(), 0755), 0);
        EXPECT_EQ(prepare(kFields, volume.path()), -1);
        EXPECT_FALSE(std::filesystem::is_regular_file(volume.path(".ns_configure.sh")));
        EXPECT_FALSE(std::filesystem::is_regular_file(volume.path(".ns_pwd")));
    }
    EXPECT_EQ(prepare(kFields, "/" + std::string(4095, 'x')), -1);
    if (access("/dev/full", W_OK) == 0)
        for (const char *path : {".ns_configure.sh", ".ns_pwd"}) {
            SCOPED_TRACE(path);
            const ScratchDir volume;
            ASSERT_EQ(symlink("/dev/full", volume.path(path).c_str()), 0);
            EXPECT_EQ(prepare(kFields, volume.path()), -1);
            EXPECT_EQ(volume.read(".ns_configure.sh"), "(none)");
        }
}

} // namespace
