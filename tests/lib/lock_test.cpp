// Timed locks. Time is the number of sleeps asked for: none of them is slept.
#include "lib/lock.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

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
    int hold(int operation)
    {
        const int fd = open(path_.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
        EXPECT_EQ(flock(fd, operation), 0);
        return fd;
    }
    ScratchDir temp_;
    std::string path_ = temp_.path("lock");
};

TEST_F(Lock, SleepsWhileRefused)
{
    static constexpr struct {
        int seconds;
        size_t sleeps;
    } kCases[] = {{0, 0}, {1, 20}, {3, 60}, {-2, 0}};
    const int other = hold(LOCK_EX);
    for (const auto &row : kCases)
        for (const int exclusive : {0, 1}) {
            const WatchedCall sleeps("usleep"), tries("flock", {.times = 0}), opens("open", {.times = 0});
            int fd = -7;
            EXPECT_EQ(outcome(NLIBCFileLockTimeByFile, path_.c_str(), exclusive, row.seconds, &fd),
                      (Outcome{0, 0x0400}))
                << row.seconds;
            EXPECT_EQ(fd, -7);
            EXPECT_EQ(sleeps.seen, std::vector<long>(row.sleeps, 50'000)) << row.seconds;
            EXPECT_EQ(tries.seen, std::vector<long>(row.sleeps + 1, (exclusive ? LOCK_EX : LOCK_SH) | LOCK_NB));
            EXPECT_EQ(opens.seen.size(), 1U);
        }
    close(other);
}

TEST_F(Lock, ComesWhenTheOtherLetsGo)
{
    // -1 waits for ever; the large number of seconds is more hundredths than 32 bits hold.
    for (const int seconds : {-1, 21'474'837, 10}) {
        const int other = hold(LOCK_EX);
        int sleeps_left = 150, fd = -1;
        const WatchedCall sleeps("usleep", {.before = [&] {
                                     if (--sleeps_left == 0)
                                         flock(other, LOCK_UN);
                                 }});
        EXPECT_EQ(NLIBCFileLockTimeByFile(path_.c_str(), 1, seconds, &fd), 1) << seconds;
        EXPECT_EQ(sleeps.seen.size(), 150U);
        EXPECT_EQ(NLIBCFileUnlockByFile(fd), 1);
        close(other);
    }
}

TEST_F(Lock, SharedAndExclusive)
{
    for (const int held : {LOCK_SH, LOCK_EX})
        for (const int exclusive : {0, 1}) {
            const int other = hold(held);
            const bool granted = held == LOCK_SH && exclusive == 0;
            int fd = -1;
            EXPECT_EQ(NLIBCFileLockTimeByFile(path_.c_str(), exclusive, 0, &fd), granted ? 1 : 0);
            if (granted) {
                EXPECT_EQ(NLIBCFileUnlockByFile(fd), 1);
            }
            close(other);
        }
}

TEST_F(Lock, FileAndDescriptor)
{
    const mode_t mask = umask(022);
    int fd = -1;
    ASSERT_EQ(NLIBCFileLockTimeByFile(path_.c_str(), 5, 0, &fd), 1);
    umask(mask);
    struct stat made = {};
    EXPECT_EQ(stat(path_.c_str(), &made), 0);
    EXPECT_EQ(made.st_mode & 07777, 0644U);
    EXPECT_EQ(fcntl(fd, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);

    // Unlocking lets go for every copy of the descriptor, and leaves the file.
    const int copy = dup(fd);
    EXPECT_EQ(NLIBCFileUnlockByFile(fd), 1);
    int next = -1;
    EXPECT_EQ(NLIBCFileLockTimeByFile(path_.c_str(), 1, 0, &next), 1);
    EXPECT_EQ(NLIBCFileUnlockByFile(next), 1);
    EXPECT_EQ(access(path_.c_str(), F_OK), 0);
    close(copy);
}

TEST_F(Lock, LockingFails)
{
    int fd = -1;
    EXPECT_EQ(outcome(NLIBCFileLockTimeByFile, nullptr, 1, 0, &fd), (Outcome{0, 0x0d00}));
    EXPECT_EQ(outcome(NLIBCFileLockTimeByFile, path_.c_str(), 1, 0, nullptr), (Outcome{0, 0x0d00}));
    EXPECT_NE(access(path_.c_str(), F_OK), 0);
    EXPECT_EQ(outcome(NLIBCFileLockTimeByFile, temp_.path("no/lock").c_str(), 1, -1, &fd), (Outcome{0, 0x0900}));

    static constexpr struct {
        int error, times;
        int result;
        size_t sleeps;
    } kCases[] = {
        {ENOLCK, 1, 0, 0}, // waiting would not help
        {EINTR, 3, 1, 3},
        {EINTR, 1000, 0, 20},
    };
    for (const auto &row : kCases) {
        const WatchedCall sleeps("usleep"), locks("flock", {.error = row.error, .times = row.times});
        EXPECT_EQ(outcome(NLIBCFileLockTimeByFile, path_.c_str(), 1, 1, &fd),
                  (Outcome{row.result, row.result == 1 ? 0 : 0x0400}))
            << row.error;
        EXPECT_EQ(sleeps.seen.size(), row.sleeps);
        if (row.result == 1)
            close(fd);
    }
}

TEST_F(Lock, UnlockingFails)
{
    static constexpr struct {
        const char *call;
        int code;
    } kCases[] = {{"flock", 0x0500}, {"close", 0xe300}};
    for (const auto &row : kCases) {
        const int fd = hold(LOCK_EX);
        {
            const WatchedCall call(row.call, {.error = EIO});
            EXPECT_EQ(outcome(NLIBCFileUnlockByFile, fd), (Outcome{0, row.code})) << row.call;
        }
        EXPECT_EQ(close(fd), row.code == 0x0500 ? -1 : 0); // closed with the lock on it: the lock went, too
    }
    EXPECT_EQ(outcome(NLIBCFileUnlockByFile, -1), (Outcome{0, 0x0d00}));
}

TEST_F(Lock, ConfigurationLockNeverStalls)
{
    for (int nested = 0; nested < 3; nested++)
        EXPECT_EQ(NLIBCFileLock(kConfLockWord, 30), 0);
    EXPECT_EQ(NLIBCFileUnlock(kConfUnlockWord), 0);
}

} // namespace
