// The front panel on a terminal. What it shows is seen with the event daemon.
#include "panel/lcm.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include "autocleanup/unique.h"
#include "tests/support/in_child.h"
#include "tests/support/private_mounts.h"
#include "tests/support/scratch_dir.h"
#include "tests/support/watched_calls.h"

namespace
{

// Puts the terminal alone into a /dev of this process, and takes the network away. Returns false when the kernel
// refuses.
bool machine_with_panel(const std::string &terminal, const std::string &folder)
{
    const std::string panel = folder + "/ttyACM0";
    return private_mounts_enter(CLONE_NEWNET) && mount("none", folder.c_str(), "tmpfs", 0, nullptr) == 0 &&
           mknod(panel.c_str(), S_IFREG | 0600, 0) == 0 &&
           mount(terminal.c_str(), panel.c_str(), nullptr, MS_BIND, nullptr) == 0 &&
           mount(folder.c_str(), "/dev", nullptr, MS_BIND | MS_REC, nullptr) == 0;
}

TEST(Lcm, TerminalPassesEachByteAsItIs)
{
    const UniqueFd line(posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC));
    ASSERT_TRUE(line && grantpt(line.get()) == 0 && unlockpt(line.get()) == 0);
    termios before = {};
    tcgetattr(line.get(), &before);
    before.c_lflag = ICANON;
    tcsetattr(line.get(), TCSANOW, &before);
    const std::string terminal = ptsname(line.get());
    const ScratchDir folder;
    const int refused = in_child([&] {
        if (!machine_with_panel(terminal, folder.path()))
            return 1;
        const WatchedCall no_pauses("usleep");
        lcm_pass();
        termios now = {};
        EXPECT_EQ(tcgetattr(gblLcmFd, &now), 0);
        EXPECT_EQ(now.c_lflag & ICANON, 0U);
        char first = 0;
        pollfd ready = {line.get(), POLLIN, 0};
        EXPECT_EQ(poll(&ready, 1, 10'000), 1);
        EXPECT_EQ(read(line.get(), &first, 1), 1);
        EXPECT_EQ(first, '7');
        lcm_close();
        EXPECT_EQ(gblLcmFd, -1);
        return 0;
    });
    if (refused != 0)
        GTEST_SKIP() << "the kernel refuses mounts of its own";
}

} // namespace
