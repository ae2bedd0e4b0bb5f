#include "tests/support/in_child.h"

#include <cerrno>
#include <cstdio>
#include <gtest/gtest.h>
#include <iostream>
#include <sys/mman.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

void not_run(std::string_view why)
{
    std::cout << "[  SKIPPED ] not run: " << why << std::endl;
    _exit(77);
}

int in_child(const std::function<int()> &body, const std::function<void(pid_t)> &meanwhile)
{
    void *page = mmap(nullptr, sizeof(int), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (page == MAP_FAILED) {
        ADD_FAILURE() << "no shared page";
        return -1;
    }
    int *result = static_cast<int *>(page);
    fflush(nullptr);
    const bool had_failed = testing::Test::HasFailure();
    const pid_t pid = fork();
    if (pid == 0) {
        closelog();
        *result = body();
        fflush(nullptr);
        _exit(testing::Test::HasFailure() && !had_failed ? 1 : 0);
    }
    if (meanwhile && pid > 0)
        meanwhile(pid);
    int status = -1;
    EXPECT_EQ(TEMP_FAILURE_RETRY(waitpid(pid, &status, 0)), pid);
    EXPECT_EQ(status, 0) << "the child failed";
    const int answer = *result;
    munmap(page, sizeof(int));
    return answer;
}
