// The front panel on a terminal: what comes out of the line, and what it is set to.
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

std::string screen(const std::string &first, const std::string &second)
{
    std::string record = "-A#" + first + "#" + second + "#";
    record.resize(102);
    return record;
}

// Expects exactly these bytes to come out of the line next: the kernel passes them on in its own time.
void expect_line(const UniqueFd &line, const std::string &expected)
{
    std::string bytes;
    pollfd ready = {line.get(), POLLIN, 0};
    char part[1024];
    for (ssize_t count = 1; count > 0 && bytes.size() < expected.size() && poll(&ready, 1, 10'000) > 0;) {
        count = read(line.get(), part, sizeof(part));
        bytes.append(part, static_cast<size_t>(std::max<ssize_t>(count, 0)));
    }
    EXPECT_EQ(bytes, expected);
}

TEST(Lcm, TerminalGetsTheStartAndTheWarningsInTurn)
{
    using namespace std::string_literals;
    const UniqueFd line(posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC));
    ASSERT_TRUE(line && grantpt(line.get()) == 0 && unlockpt(line.get()) == 0);
    termios raw = {};
    tcgetattr(line.get(), &raw);
    raw.c_oflag = 0; // bytes as they are
    raw.c_lflag = ICANON;
    tcsetattr(line.get(), TCSANOW, &raw);
    const std::string terminal = ptsname(line.get());
    const ScratchDir folder;
    const int refused = in_child([&] {
        if (!machine_with_panel(terminal, folder.path()))
            return 1;
        const WatchedCall no_pauses("usleep");
        lcm_pass();
        expect_line(line, "7\0003\0-Ff\0-Bo\0-Lf\0-If\0-Bd\0"s + screen("No Hard Disks!", "Please Insert"));
        termios now = {};
        EXPECT_EQ(tcgetattr(gblLcmFd, &now), 0);
        EXPECT_EQ(now.c_lflag & ICANON, 0U);
        lcm_pass();
        expect_line(line, screen("No Network Link!", "Please Connect"));
        lcm_pass();
        expect_line(line, screen("No Hard Disks!", "Please Insert"));
        lcm_close();
        EXPECT_EQ(gblLcmFd, -1);
        return 0;
    });
    if (refused != 0)
        GTEST_SKIP() << "the kernel refuses mounts of its own";
}

} // namespace
