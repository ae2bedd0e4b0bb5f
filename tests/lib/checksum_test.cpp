// What a check of a checksum list says, where no tool is: on links and pipes, which need none. Lists of files are
// held against the true tool in the applet's test.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "lib/cksum/cksum.h"
#include "tests/support/private_root.h"

namespace
{

TEST(CheckDirChecksum, Results)
{
    const struct {
        const char *list; // NULL: there is none
        int lenient, strict;
    } kRows[] = {
        {nullptr, 0x0900, 0x0900},
        {"0 5 link 7 2\n0 0 pipe 51 1824\n# Norvcksum 5 58 1826\n", 0, 0},
        {"0 5 link 7 2\n0 0 pipe 51 1824\n", 0, 0x3800},
        {"0 5 link 7 2\n0 0 pipe 51 1824", 0, 0x3800},
        {"0 0 pipe 51 1823\n", 0x3800, 0x3800},
        {"0 1 pipe 51 1824\n", 0x3800, 0x3800},
        {"1 5 link 7 2\n", 0x3800, 0x3800},
        {"0 5 link 4 2\n", 0x3200, 0x3200},            // before the file
        {"909783072 6 hello 7 428\n", 0x8100, 0x8100}, // needs the tool
    };
    for (const auto &row : kRows) {
        SCOPED_TRACE(row.list != nullptr ? row.list : "no list");
        const PrivateRoot root;
        root.write("/upd/hello", "hello\n");
        if (row.list != nullptr)
            root.write("/upd/checksum.norv", row.list);
        root.run([&] {
            EXPECT_EQ(symlink("hello", "/upd/link"), 0);
            EXPECT_EQ(mkfifo("/upd/pipe", 0600), 0);
            EXPECT_EQ(CheckDirChecksum("/upd", 0), row.lenient);
            EXPECT_EQ(CheckDirChecksum("/upd", 1), row.strict);
            EXPECT_NE(access("/tmp/cksum.tmp", F_OK), 0);
            if (row.strict == 0) { // no place for what the tool says
                EXPECT_EQ(mkdir("/tmp/cksum.tmp", 0700), 0);
                EXPECT_EQ(CheckDirChecksum("/upd", 1), 0x8100);
            }
        });
    }
    EXPECT_EQ(CheckDirChecksum(nullptr, 0), 0x3100);
}

} // namespace
