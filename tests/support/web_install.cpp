#include "tests/support/web_install.h"

#include <unistd.h>

#include "build_paths.h"
#include "tests/platform/run_program.h"

// Of machine and patch.
static const std::string kVersion = "majorversion=6\nminorversion=2\nbuildnumber=25556\n";

// A child goes on when its request has been answered.
static const std::vector<std::string> kLeaves = {"/tmp/*",          "/tmpData*", "/tmpRoot*",   "/var/run/*",
                                                 "/proc/sys/*",     "process *", "semaphore *", "lock *",
                                                 "/.box/volumes/*", "mount *"};

std::string error_body(const char *sec, const char *key, int line)
{
    return kHeader + "{\"success\": false, \"data\": {}, \"errinfo\": {\"sec\": \"" + sec + "\",\"key\": \"" + key +
           "\",\"line\":" + std::to_string(line) + "}}";
}

std::string stage_body(const std::string &stage)
{
    return kHeader + "{\"success\": true, \"data\": {\"stage\": \"" + stage + "\"}}";
}

std::string success_body(const char *hostname)
{
    return kHeader + "{\"success\": true, \"data\": {\"stage\": \"Success\", \"hostname\": \"" + hostname + "\"}}";
}

void install_machine(Sandbox &box)
{
    box.file(kConf, kModel);
    box.file("/etc.defaults/VERSION", kVersion);
    box.file("/proc/partitions", "major minor  #blocks  name\n");
    box.directory("/sys/block/sda");
    box.device("/dev/md0", 4ULL << 30);
    box.program("/sbin/sfdisk", {{.exit_status = 1}});
    for (const char *program : {"/bin/mount", "/bin/umount", "/bin/sync", "/sbin/e2fsck", "/bin/cp",
                                "/usr/norv/sbin/installer.sh", "/usr/sbin/inetd", "/usr/sbin/pppoe-stop"})
        box.program(program, {{}});
    for (const char *program : {"/bin/mkdir", "/bin/rm", "/bin/mv"})
        box.host_program(program);
    box.program("/bin/tar", {{.exit_status = 1}}); // the patches here are of the new form
}

std::string patch_form(const std::string &patch, const std::string &field)
{
    return "--B\r\nContent-Disposition: form-data; name=\"hostname\"\r\n\r\nnas\r\n"
           "--B\r\nContent-Disposition: form-data; name=\"password\"\r\n\r\nx\r\n"
           "--B\r\nContent-Disposition: form-data; name=\"" +
           field + "\"; filename=\"a.pat\"\r\n\r\n" + patch + "\r\n--B--\r\n";
}

RunOptions cgi_request(const std::string &query, const std::string &body)
{
    return {.env = {"REQUEST_METHOD=POST", "QUERY_STRING=" + query, "CONTENT_LENGTH=" + std::to_string(body.size()),
                    "CONTENT_TYPE=multipart/form-data; boundary=B"},
            .input = body,
            .leaves = kLeaves};
}

void install_child_wait(const Sandbox &box)
{
    for (int i = 0; i < 6000 && !box.processes().empty(); i++)
        usleep(10000);
    EXPECT_TRUE(box.processes().empty());
}

void expect_unlocked(Sandbox &box)
{
    EXPECT_EQ(box.run({"lock_check.cgi"}, {.leaves = kLeaves}).out, kUnlocked);
}

std::string Firmware::patch(const std::string &updater, const std::string &version)
{
    scratch_.write("firmware/VERSION", version + "\nextractsize=1000\n" + kVersion);
    scratch_.write("firmware/hda1.tgz", std::string(300000, '\n'));
    scratch_.write("firmware/updater", "#!/bin/sh\n" + updater + "\n", 0755);
    const Finished made =
        run_program({NORV_BINARY_DIR "/tools/norv-patch/norv-patch", "make", scratch_.path("firmware"),
                     scratch_.path("a.pat"), "--keys", scratch_.path("keys")});
    EXPECT_EQ(made.status, 0) << made.out;
    return scratch_.read("a.pat");
}

void Firmware::appliance(Sandbox &box) const
{
    install_machine(box);
    const std::string library = "libnorvcodesign-ng-virtual-junior-wins.so.7";
    box.host_file("/usr/lib/" + library, NORV_BINARY_DIR "/platform/codesign/" + library);
    box.host_file("/usr/norv/etc/codesign/0.pem", scratch_.path("keys/0.pem"), 0644);
    box.host_file("/usr/bin/cksum", NORV_BINARY_DIR "/platform/programs/cksum");
}

void Firmware::boot_partition(Sandbox &box)
{
    static_cast<void>(patch());
    for (const std::string name : {"VERSION", "updater", "hda1.tgz", "checksum.norv"})
        box.host_file(box.volume("/dev/norvboot2") + "/" + name, scratch_.path("firmware/" + name));
    box.program("/usr/bin/xz", {{}});
}
