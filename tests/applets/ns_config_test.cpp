// Where the first start of a system is told what to do, and what becomes of that when a step fails.
#include <cerrno>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "build_paths.h"
#include "tests/support/rows.h"

namespace
{

Change fails(const char *name, const char *args, int error)
{
    return call({.call = name, .args = args, .error = error});
}

class NsConfigBox : public Sandbox
{
  public:
    NsConfigBox()
    {
        host_file("/bin/ns_config_call", NS_CONFIG_CALL);
        host_program("/bin/mkdir");
        for (const char *path : {"/bin/sync", "/bin/mount", "/bin/umount", "/bin/cp"})
            program(path);
        directory("/volume");
        leaves({"/volume*", "/tmpRoot*"});
    }
    // The patch's volume is at /volume.
    Result prepare(const char *system_device, const std::string &form, const std::string &mount = "/volume")
    {
        return run({"/bin/ns_config_call", system_device, "/dev/md2", mount, form});
    }
};

constexpr char kMount[] = "run /bin/mount /dev/md0 /tmpRoot", kUnmount[] = "run /bin/umount -f /tmpRoot";

TEST(NsConfig, ScriptOfAForm)
{
    const std::string kTakePassword = "/usr/norv/sbin/norvuser --filesetpw\n/bin/rm -f /.ns_pwd\n";
    const std::string kNet = "/usr/norv/sbin/norvnet ", kDhcp = kNet + "--dhcp eth0\n";
    const struct {
        const char *form;
        std::string script, left = "", password = ""; // beside the script and the mark
    } kRows[] = {
        {"", kDhcp, "etc"},
        {"hostname=my nas&netconfig=dhcp&remove_ro_ssd_cache=true", kNet + "--set_hostname my nas\n" + kDhcp,
         ".remove_ro_ssd_cache etc"},
        {"password=a b&netconfig=none&remove_ro_ssd_cache=false", kTakePassword, ".ns_pwd",
         "account=\"admin\"\npassword=\"a b\"\n"},
        {"password=x&account=me&netconfig=pppoe&ppp_account=u&ppp_passwd=p",
         "/usr/norv/sbin/norvuser --add \"me\" $(/usr/bin/uuidgen) \"\" 1 \"\" administrators\n"
         "/usr/norv/bin/norvwebapi --exec api=NORV.Core.Group.Member method=add version=1 "
         "'group=\"administrators\"' 'name=\"me\"'\n" +
             kTakePassword + kNet + "--set_pppoe eth0 u p\n",
         ".ns_pwd", "account=\"me\"\npassword=\"x\"\n"},
        {"account=me&netconfig=manual&manual_ip=10.0.0.2&manual_mask=255.0.0.0&manual_gateway=10.0.0.1&"
         "manual_dns=10.0.0.3",
         kNet + "--manual eth0 10.0.0.2 255.0.0.0\n" + kNet + "--set_gateway 10.0.0.1\n" + kNet +
             "--set_dns 10.0.0.3\n"},
    };
    for (const auto &row : kRows) {
        SCOPED_TRACE(row.form);
        NsConfigBox box;
        const Result result = box.prepare("/dev/md2", row.form);
        EXPECT_EQ(result.out, "0");
        EXPECT_EQ(result.record.count("run /bin/mount*") + result.record.count("run /bin/umount*"), 0);
        EXPECT_EQ(box.read_file("/volume/.ns_configure.sh"), "#!/bin/sh\n" + row.script + "\n");
        EXPECT_EQ(text_of(box, "/volume/.ns_pwd"), row.password);
        EXPECT_TRUE(row.password.empty() || box.mode("/volume/.ns_pwd") == 0600U);
        std::vector<std::string> left = box.list("/volume");
        EXPECT_EQ(std::erase(left, ".ns_configure.sh") + std::erase(left, ".WEBINST_OK"), 2U);
        EXPECT_EQ(left, words(row.left));
    }
}

TEST(NsConfig, TheSystemHasAVolumeOfItsOwn)
{
    NsConfigBox box;
    box.file("/.privacy_confirmed", "");
    box.directory("/tmpRoot/var");
    const Result result = box.prepare("/dev/md0", "remove_ro_ssd_cache=true&password=x");
    EXPECT_EQ(result.out, "0");
    EXPECT_TRUE(
        result.record.in_order({"run /bin/mkdir -p /tmpRoot", "run /bin/sync", "run /bin/sync", "run /bin/sync", kMount,
                                "run /bin/cp -f /etc/dhcpc/dhcpcd-eth0.info /tmpRoot/etc/dhcpc", kUnmount}));
    for (const char *path :
         {".ns_configure.sh", ".ns_pwd", ".WEBINST_OK", "var/.PrivacyConfirmed", ".remove_ro_ssd_cache", "etc/dhcpc"})
        EXPECT_TRUE(box.exists(std::string("/tmpRoot/") + path)) << path;
    EXPECT_EQ(box.mode("/tmpRoot/.ns_configure.sh"), 0770U);
    EXPECT_EQ(box.mode("/tmpRoot/.WEBINST_OK"), 0644U);
    EXPECT_EQ(box.mode("/tmpRoot/etc/dhcpc"), 0755U);
    EXPECT_EQ(box.list("/volume"), std::vector<std::string>{});
}

// Whatever fails, neither script nor password stays, and no mount.
TEST(NsConfig, Faults)
{
    const char *const kTouch = "log err *Failed to touch on system volume";
    const struct {
        const char *what;
        Change change;
        const char *record;
        const char *result = "-1";
        bool is_mounted = true;
    } kRows[] = {
        {"no folder", fails("mkdir", "/tmpRoot *", EROFS), "log err *Fail to mkdir /tmpRoot[0x8100 volume.cpp:*", "-1",
         false},
        {"not mounted", program("/bin/mount", {.exit_status = 1}),
         "log err prepare_ns_config.cpp:* Mount /dev/md0 on /tmpRoot Fail", "-1", false},
        {"mark", directory("/tmpRoot/.WEBINST_OK"), kTouch},
        {"no var", file("/.privacy_confirmed"), kTouch},
        {"cache mark", directory("/tmpRoot/.remove_ro_ssd_cache"), kTouch},
        {"no file confirms", directory("/.privacy_confirmed"), kUnmount, "0"},
        {"script", fails("fopen", "*/.ns_configure.sh *", ENOSPC),
         "log err *Failed to open .ns_configure.sh (No space left on device)"},
        {"password", fails("fopen", "*/.ns_pwd *", EROFS),
         "log err *open /tmpRoot/.ns_pwd error [Read-only file system]"},
        {"mode", fails("chmod", "*/.ns_configure.sh 0770", EPERM), "chmod /tmpRoot/.ns_configure.sh 0770 = EPERM"},
        {"no lease", program("/bin/cp", {.exit_status = 1}), "run /bin/cp -f *",
         "0"}, // there is none on a static address
    };
    for (const auto &row : kRows) {
        SCOPED_TRACE(row.what);
        NsConfigBox box;
        row.change(box);
        const Result result = box.prepare("/dev/md0", "remove_ro_ssd_cache=true&password=x");
        EXPECT_EQ(result.out, row.result);
        EXPECT_TRUE(result.record.in_order({row.record}));
        EXPECT_EQ(result.record.count(kUnmount), row.is_mounted ? 1 : 0);
        for (const char *path : {"/tmpRoot/.ns_configure.sh", "/tmpRoot/.ns_pwd"})
            EXPECT_EQ(box.exists(path), std::string(row.result) == "0") << path;
    }
    NsConfigBox box;
    const Result result = box.prepare("/dev/md2", "", "/volume" + std::string(4090, '/'));
    EXPECT_EQ(result.out, "-1");
    EXPECT_TRUE(result.record.in_order({"log err *Truncated file path should not be touched; error out"}));
}

} // namespace
