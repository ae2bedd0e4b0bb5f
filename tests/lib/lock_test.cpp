// Timed locks. Time is the number of sleeps asked for: none of them is slept.
#include "lib/lock.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include "autocleanup/unique.h"
#include "tests/support/outcome.h"
#include "tests/support/process_state.h"
#include "tests/support/scratch_dir.h"
#include "tests/support/watched_calls.h"

namespace
{

class Lock : public TidyTest
{
  protected:
    // A lock of somebody else: an open file of its own.
    [[nodiscard]] UniqueFd hold(int operation) const
    {
        UniqueFd fd(open(path_.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644));
        EXPECT_EQ(flock(fd.get(), operation), 0);
        return fd;
    }
    ScratchDir temp_;
    std::string path_ = temp_.path("lock");
};

TEST_F(Lock, SleepsWhileRefused)
{
    for (const int held : {LOCK_EX, LOCK_SH})
        for (const int exclusive : {0, 1})
            for (const auto &[seconds, count] : {std::pair(0, 0U), {3, 60U}, {-2, 0U}}) {
                const UniqueFd other = hold(held);
                const bool granted = held == LOCK_SH && exclusive == 0;
                const WatchedCall sleeps("usleep");
                int got = -7;
                EXPECT_EQ(outcome(NLIBCFileLockTimeByFile, path_.c_str(), exclusive, seconds, &got),
                          granted ? (Outcome{1}) : (Outcome{0, 0x0400}));
                EXPECT_EQ(sleeps.seen, std::vector<long>(granted ? 0 : count, 50'000)) << seconds;
                const UniqueFd mine(granted ? got : -1);
                EXPECT_TRUE(granted || got == -7);
            }
}

TEST_F(Lock, ComesWhenTheOtherLetsGo)
{
    // -1 waits for ever; the large number of seconds is more hundredths than 32 bits hold.
    for (const int seconds : {-1, 21'474'837, 10}) {
        const UniqueFd other = hold(LOCK_EX);
        int sleeps_left = 150, fd = -1;
        const WatchedCall sleeps("usleep", {.before = [&] {
                                     if (--sleeps_left == 0)
                                         flock(other.get(), LOCK_UN);
                                 }});
        EXPECT_EQ(NLIBCFileLockTimeByFile(path_.c_str(), 1, seconds, &fd), 1) << seconds;
        EXPECT_EQ(sleeps.seen.size(), 150U);
        EXPECT_EQ(NLIBCFileUnlockByFile(fd), 1);
    }
}

TEST_F(Lock, FileAndDescriptor)
{
    const mode_t mask = umask(022);
    int fd = -1, next = -1;
    ASSERT_EQ(NLIBCFileLockTimeByFile(path_.c_str(), 5, 0, &fd), 1);
    umask(mask);
    struct stat made = {};
    EXPECT_EQ(fstat(fd, &made), 0);
    EXPECT_EQ(made.st_mode & 07777, 0644U);
    EXPECT_EQ(fcntl(fd, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);

    // Unlocking lets go for every copy of the descriptor, and leaves the file.
    const UniqueFd copy(dup(fd));
    EXPECT_EQ(NLIBCFileUnlockByFile(fd), 1);
    EXPECT_EQ(access(path_.c_str(), F_OK), 0);
    EXPECT_EQ(NLIBCFileLockTimeByFile(path_.c_str(), 1, 0, &next), 1);
    EXPECT_EQ(NLIBCFileUnlockByFile(next), 1);
}

TEST_F(Lock, CallsFail)
{
    int fd = -1;
    EXPECT_EQ(outcome(NLIBCFileLockTimeByFile, path_.c_str(), 1, 0, nullptr), (Outcome{0, 0x0d00}));
    EXPECT_EQ(outcome(NLIBCFileLockTimeByFile, temp_.path("no/lock").c_str(), 1, -1, &fd), (Outcome{0, 0x0900}));
    for (const auto &[error, count] : {std::pair(ENOLCK, 0U), {EINTR, 20U}}) { // waiting would not help the former
        const WatchedCall sleeps("usleep"), locks("flock", {.error = error});
        EXPECT_EQ(outcome(NLIBCFileLockTimeByFile, path_.c_str(), 1, 1, &fd), (Outcome{0, 0x0400})) << error;
        EXPECT_EQ(sleeps.seen.size(), count);
    }
    for (const auto &[name, code] : {std::pair("flock", 0x0500), {"close", 0xe300}}) {
        fd = hold(LOCK_EX).release();
        {
            const WatchedCall call(name, {.error = EIO});
            EXPECT_EQ(outcome(NLIBCFileUnlockByFile, fd), (Outcome{0, code})) << name;
        }
        EXPECT_EQ(close(fd), code == 0x0500 ? -1 : 0); // closed with the lock on it: the lock went, too
    }
    EXPECT_EQ(outcome(NLIBCFileUnlockByFile, -1), (Outcome{0, 0x0d00}));
}

} // namespace
