#include "tests/support/web_install.h"

#include <unistd.h>

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
    box.file("/etc.defaults/VERSION", kFirmwareVersion);
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

void install_machine(Sandbox &box, const Firmware &firmware)
{
    install_machine(box);
    firmware.trust(box);
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
    const auto ask = [&] { return box.run({"lock_check.cgi"}, {.leaves = kLeaves}).out; };
    std::string answer = ask();
    for (int tries = 0; tries < 1000 && answer != kUnlocked; tries++, answer = ask())
        usleep(10000); // a process that has ended holds the lock for a moment longer
    EXPECT_EQ(answer, kUnlocked);
}
