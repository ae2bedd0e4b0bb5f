// What the first start of an installed system is told. What becomes of it when a step fails stands in the tests of the
// role and of what the system rewrites.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "autocleanup/unique.h"
#include "install/cgi_param.h"
#include "install/ns_config.h"
#include "tests/support/scratch_dir.h"

namespace
{

int prepare(std::string form, const std::string &root)
{
    UniqueHash params(NLIBCSzHashAlloc(kCgiParamBytes));
    cgi_pairs_load(form.data(), true, params.address());
    return PrepareNSConfig(params.get(), root.c_str());
}

// "0770 .ns_configure.sh " and so on: what there is of these, with the modes of files.
std::string left_in(const ScratchDir &volume)
{
    std::string text;
    for (const char *name : {".ns_configure.sh", ".ns_pwd", ".WEBINST_OK", ".remove_ro_ssd_cache", "etc/dhcpc"}) {
        struct stat status;
        if (stat(volume.path(name).c_str(), &status) != 0)
            continue;
        char mode[8];
        snprintf(mode, sizeof(mode), "%04o ", status.st_mode & 07777U);
        text += mode + std::string(name) + " ";
    }
    return text;
}

TEST(NsConfig, ScriptOfAForm)
{
    const std::string kTakePassword = "/usr/norv/sbin/norvuser --filesetpw\n/bin/rm -f /.ns_pwd\n";
    const std::string kNet = "/usr/norv/sbin/norvnet ", kDhcp = kNet + "--dhcp eth0\n";
    const std::string kScript = "0770 .ns_configure.sh ", kPassword = "0600 .ns_pwd ", kMark = "0644 .WEBINST_OK ",
                      kCache = "0644 .remove_ro_ssd_cache ", kLease = "0755 etc/dhcpc ";
    const struct {
        const char *form;
        std::string script, left, password = "(none)";
    } kRows[] = {
        {"", kDhcp, kScript + kMark + kLease},
        {"hostname=my nas&netconfig=dhcp&remove_ro_ssd_cache=true", kNet + "--set_hostname my nas\n" + kDhcp,
         kScript + kMark + kCache + kLease},
        {"password=a b&netconfig=none&remove_ro_ssd_cache=false", kTakePassword, kScript + kPassword + kMark,
         "account=\"admin\"\npassword=\"a b\"\n"},
        {"password=x&account=me&netconfig=pppoe&ppp_account=u&ppp_passwd=p",
         "/usr/norv/sbin/norvuser --add \"me\" $(/usr/bin/uuidgen) \"\" 1 \"\" administrators\n"
         "/usr/norv/bin/norvwebapi --exec api=NORV.Core.Group.Member method=add version=1 "
         "'group=\"administrators\"' 'name=\"me\"'\n" +
             kTakePassword + kNet + "--set_pppoe eth0 u p\n",
         kScript + kPassword + kMark, "account=\"me\"\npassword=\"x\"\n"},
        {"account=me&netconfig=manual&manual_ip=10.0.0.2&manual_mask=255.0.0.0&manual_gateway=10.0.0.1&"
         "manual_dns=10.0.0.3",
         kNet + "--manual eth0 10.0.0.2 255.0.0.0\n" + kNet + "--set_gateway 10.0.0.1\n" + kNet +
             "--set_dns 10.0.0.3\n",
         kScript + kMark},
        {"netconfig=manual", kNet + "--manual eth0  \n" + kNet + "--set_gateway \n" + kNet + "--set_dns \n",
         kScript + kMark},
    };
    for (const auto &row : kRows) {
        SCOPED_TRACE(row.form);
        const ScratchDir volume;
        const mode_t mask = umask(022);
        EXPECT_EQ(prepare(row.form, volume.path()), 0);
        EXPECT_EQ(umask(mask), 022U);
        EXPECT_EQ(volume.read(".ns_configure.sh"), "#!/bin/sh\n" + row.script + "\n");
        EXPECT_EQ(volume.read(".ns_pwd"), row.password);
        EXPECT_EQ(left_in(volume), row.left);
    }
    EXPECT_EQ(prepare("", "/" + std::string(4095, 'x')), -1);
}

} // namespace
