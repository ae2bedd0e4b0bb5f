// Outside commands and the semaphores between processes. Each test has semaphores of its own.
#include "storage/space.h"

#include <cerrno>
#include <csignal>
#include <gtest/gtest.h>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/wait.h>
#include <unistd.h>

#include "lib/report.h"
#include "lib/semaphore.h"
#include "tests/support/in_child.h"
#include "tests/support/private_mounts.h"
#include "tests/support/watched_calls.h"

namespace
{

constexpr key_t kKey = 0x5eafed;

TEST(SpaceExecl, TellsHowTheProgramEnded)
{
    static constexpr struct {
        const char *line;
        int result;
        const char *output;
    } kCases[] = {
        {"echo one >&2; echo two; echo three >&2; exit 7", 7, "one three "},
        {"exit 0", 0, ""},
        {"kill -KILL $$", -1, ""},
    };
    for (const auto &[line, result, output] : kCases) {
        LogCapture log;
        EXPECT_EQ(space_execl("/bin/sh", "-c", line, "", nullptr), result) << line;
        const std::string end =
            std::string(" SpaceCommand:command=\"/bin/sh -c ") + line + " \" Error=\"" + output + "\"\n";
        EXPECT_TRUE(log.text.starts_with("6 space_error_log.cpp:")) << log.text;
        EXPECT_TRUE(log.text.ends_with(end)) << log.text;
    }
    EXPECT_EQ(space_execl("/bin/no such program", nullptr), 127);
}

// More than a pipe holds, and more words than the log shows.
TEST(SpaceExecl, CutsTheLogAndNothingElse)
{
    const std::string word(3000, 'w');
    LogCapture log;
    const char *line = "i=0; while [ $i -lt 9000 ]; do echo 0123456789012345 >&2; i=$((i+1)); done; exit ${#1}";
    EXPECT_EQ(space_execl("/bin/sh", "-c", line, "sh", word.c_str(), nullptr), 3000 & 0xff);
    const size_t error = log.text.find("\" Error=\"");
    ASSERT_NE(error, std::string::npos);
    EXPECT_EQ(log.text.size(), error + strlen("\" Error=\"") + 2047 + strlen("\"\n"));
    EXPECT_EQ(error - log.text.find("/bin/sh -c"), 1023U);
}

// Runs in a namespace of its own where the kernel gives one.
void with_own_semaphores(void (*body)())
{
    const bool ran = in_child([=] { return private_mounts_enter(CLONE_NEWIPC) && (body(), true); }) != 0;
    if (!ran)
        GTEST_SKIP() << "the kernel gives no namespaces to this user";
}

TEST(Semaphore, OneHolderAtATime)
{
    with_own_semaphores([] {
        const int id = semaphore_open(kKey);
        EXPECT_EQ(semctl(id, 0, GETVAL), 1);
        EXPECT_EQ(semaphore_take(id, kSemaphoreForever), 0);
        for (const int seconds : {kSemaphoreNoWait, 0, -3}) {
            EXPECT_EQ(semaphore_take(id, seconds), -1);
            EXPECT_EQ(errno, seconds == -3 ? EINVAL : EAGAIN);
            EXPECT_EQ(NLIBCErrGet(), 0x2e00);
        }
        EXPECT_EQ(semaphore_give(id), 0);
        const pid_t holder = fork();
        if (holder == 0) {
            static_cast<void>(semaphore_take(id, kSemaphoreForever));
            raise(SIGKILL);
        }
        EXPECT_EQ(waitpid(holder, nullptr, 0), holder);
        EXPECT_EQ(semaphore_take(id, kSemaphoreNoWait), 0) << "the kernel gives back what the dead one had";
    });
}

// Between the two calls of its maker a set is worth 0, as if it were taken: one that stays so is set, one that has been
// held is not waited for.
TEST(Semaphore, IsSetForAMakerThatDiedOrIsSlow)
{
    with_own_semaphores([] {
        const int id = semget(kKey, 1, IPC_CREAT | 0666);
        {
            const WatchedCall sleeps("usleep");
            EXPECT_EQ(semaphore_open(kKey), id);
            EXPECT_EQ(sleeps.seen.size(), 100U);
        }
        EXPECT_EQ(semaphore_take(id, kSemaphoreNoWait), 0);
        {
            const WatchedCall sleeps("usleep");
            EXPECT_EQ(semaphore_open(kKey), id);
            EXPECT_EQ(sleeps.seen.size(), 0U);
        }
        EXPECT_EQ(semctl(id, 0, GETVAL), 0);
        EXPECT_EQ(semctl(id, 0, IPC_RMID), 0);

        const int slow = semget(kKey, 1, IPC_CREAT | 0666);
        int looks = 0;
        const WatchedCall sleeps("usleep", {.before = [&] {
                                     if (++looks == 3)
                                         semctl(slow, 0, SETVAL, 1);
                                 }});
        EXPECT_EQ(semaphore_open(kKey), slow);
        EXPECT_EQ(looks, 3);
        EXPECT_EQ(semctl(slow, 0, GETVAL), 1);
    });
}

} // namespace
