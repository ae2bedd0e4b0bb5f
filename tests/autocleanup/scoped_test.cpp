// Owners that give back at scope exit, whatever the way out.
#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include "autocleanup/scoped_dir.h"
#include "autocleanup/scoped_lock.h"
#include "autocleanup/scoped_mount.h"
#include "lib/report.h"
#include "tests/support/in_child.h"
#include "tests/support/private_mounts.h"
#include "tests/support/process_state.h"
#include "tests/support/scratch_dir.h"
#include "tests/support/watched_calls.h"

namespace
{

class Scoped : public TidyTest
{
  protected:
    [[nodiscard]] bool lock_is_free() const
    {
        const int fd = open(lock_.c_str(), O_RDWR | O_CLOEXEC);
        const bool free = flock(fd, LOCK_EX | LOCK_NB) == 0;
        close(fd);
        return free;
    }

    ScratchDir temp_;
    std::string lock_ = temp_.path("lock"), dir_ = temp_.path("dir");
};

// "<priority> <source>:<line> <text>" without the line
std::string without_line(const std::string &log)
{
    const size_t colon = log.find(':');
    return colon == std::string::npos ? log : log.substr(0, colon) + log.substr(log.find(' ', colon));
}

TEST_F(Scoped, LockGoesAndLeavesTheReport)
{
    const LogCapture log;
    {
        const ScopedLock lock(lock_.c_str(), 0);
        EXPECT_TRUE(lock.held());
        EXPECT_FALSE(lock_is_free());
        errno = EXDEV;
        NLIBCErrSet(0x4000, "mine.cpp", 7);
    }
    EXPECT_EQ(errno, EXDEV);
    EXPECT_EQ(NLIBCErrGet(), 0x4000);
    EXPECT_STREQ(NLIBCErrFileGet(), "mine.cpp");
    EXPECT_TRUE(lock_is_free());
    {
        const ScopedLock first(lock_.c_str(), 0, false), second(lock_.c_str(), 0, false);
        EXPECT_TRUE(first.held() && second.held());
    }
    EXPECT_EQ(log.text, "");
}

TEST_F(Scoped, LockThatIsRefusedOrCannotBeGivenBack)
{
    const LogCapture log;
    const auto open_before = open_descriptors();
    {
        const ScopedLock lock(lock_.c_str(), 0);
        const WatchedCall sleeps("usleep");
        {
            const ScopedLock second(lock_.c_str(), 10);
            EXPECT_FALSE(second.held());
        }
        EXPECT_EQ(sleeps.seen.size(), 200U);
        EXPECT_EQ(without_line(log.text), "3 scoped_lock.cpp Failed to get lock[0x0400 file_lock_time_by_file.cpp:" +
                                              std::to_string(NLIBCErrLineGet()) + "]\n");
        EXPECT_FALSE(lock_is_free());
        for (const int fd : open_descriptors())
            if (!open_before.contains(fd))
                close(fd); // behind its back
    }
    EXPECT_NE(log.text.find(" Failed to unlock[0x0500 file_unlock_by_file.cpp:"), std::string::npos) << log.text;
}

TEST_F(Scoped, DirectoryIsMadeAndRemovedIfItIsOurs)
{
    LogCapture log;
    {
        const ScopedDir dir(dir_.c_str());
        struct stat made = {};
        EXPECT_TRUE(dir.ready());
        EXPECT_EQ(stat(dir_.c_str(), &made), 0);
        EXPECT_EQ(made.st_mode, static_cast<mode_t>(S_IFDIR | 0400));
        errno = EXDEV;
    }
    EXPECT_EQ(errno, EXDEV);
    EXPECT_NE(access(dir_.c_str(), F_OK), 0);
    EXPECT_EQ(without_line(log.text), "6 scoped_dir.cpp remove directory " + dir_ + ", result is 0\n");
    for (const std::string &path : {dir_, dir_ + "/file"}) { // somebody else's
        temp_.write("dir/file", "");
        log.text.clear();
        {
            const ScopedDir dir(path.c_str());
            EXPECT_EQ(dir.ready(), path == dir_);
        }
        EXPECT_EQ(access(path.c_str(), F_OK), 0);
        EXPECT_EQ(without_line(log.text), "3 scoped_dir.cpp mkdir failed: File exists\n");
    }
}

// Enters a user and a mount namespace of its own, where /usr/bin/mount is a script: it notes its arguments and, unless
// the device is "bad", mounts a memory file system.
bool enter_own_mounts(const ScratchDir &temp)
{
    const std::string true_mount = temp.path("true_mount"), script = temp.path("mount");
    std::filesystem::copy_file("/usr/bin/mount", true_mount);
    temp.write("mount", "#!/bin/sh\necho \"$*\" >> " + temp.path("calls") + "\n[ \"$1\" != bad ] && exec " +
                            true_mount + " -t tmpfs none \"$2\"\n");
    std::filesystem::permissions(script, std::filesystem::perms::owner_all);
    return private_mounts_enter() && mount(script.c_str(), "/usr/bin/mount", nullptr, MS_BIND, nullptr) == 0;
}

TEST_F(Scoped, Mount)
{
    const auto device = [this] {
        struct stat state = {};
        EXPECT_EQ(stat(dir_.c_str(), &state), 0);
        return state.st_dev;
    };
    const int entered = in_child([&] {
        if (!enter_own_mounts(temp_))
            return 0;
        std::filesystem::create_directory(dir_);
        const dev_t outer = device();
        {
            const ScopedMount good("/dev/md0", dir_.c_str());
            EXPECT_TRUE(good.mounted());
            const dev_t inner = device();
            EXPECT_NE(inner, outer);
            temp_.write("dir/file", "");
            EXPECT_GE(open(temp_.path("dir/file").c_str(), O_RDONLY | O_CLOEXEC), 0); // does not hold it back
            {
                const ScopedMount bad("bad", dir_.c_str()); // must not unmount what it did not mount
                EXPECT_FALSE(bad.mounted());
            }
            EXPECT_EQ(device(), inner);
            NLIBCErrSet(0x4000, "mine.cpp", 7);
            errno = EXDEV;
        }
        EXPECT_EQ(errno, EXDEV);
        EXPECT_EQ(NLIBCErrGet(), 0x4000);
        EXPECT_EQ(device(), outer);
        return 1;
    });
    if (entered == 0)
        GTEST_SKIP() << "the kernel gives no namespaces to this user";
    EXPECT_EQ(temp_.read("calls"), "/dev/md0 " + dir_ + "\nbad " + dir_ + "\n");
}

} // namespace
