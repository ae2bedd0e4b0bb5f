// The test programs' own main: before any test runs, a user who is not root gets root's rights over his own files, so
// that a test can look into what a role made without permissions. It takes a user namespace; where the kernel gives
// none, the tests that need one say so.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <string>
#include <unistd.h>

#include "autocleanup/unique.h"

static bool text_put(const char *path, const std::string &text)
{
    const UniqueFd fd(open(path, O_WRONLY | O_CLOEXEC));
    return fd && write(fd.get(), text.data(), text.size()) == static_cast<ssize_t>(text.size());
}

// He stays who he is.
static bool own_rights_take()
{
    const std::string uid = std::to_string(geteuid()), gid = std::to_string(getegid());
    return uid == "0" ||
           (unshare(CLONE_NEWUSER) == 0 && text_put("/proc/self/uid_map", uid + " " + uid + " 1") &&
            text_put("/proc/self/setgroups", "deny") && text_put("/proc/self/gid_map", gid + " " + gid + " 1"));
}

int main(int argc, char *argv[])
{
    static_cast<void>(own_rights_take());
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
