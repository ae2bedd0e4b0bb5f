// The event daemon through very many events of the board, and a cable that comes and goes.
#include <csignal>
#include <unistd.h>

#include "platform/board/board.h"
#include "tests/load/load.h"
#include "tests/support/box_links.h"

namespace
{

constexpr int kBrief = 1'000, kFull = 100'000, kEventsPerChange = 20; // of the cable

TEST(Soak, NcemdOutlivesItsEvents)
{
    // A press in button mode, which powers nothing off, among all others.
    static constexpr int kEvents[] = {0x200, 0x223, 0x230, 0x240, 0x2800, 0x201, 0x224, 0x230, 0x240, 0x2800, 0x777};
    const int count = load_size(kBrief, kFull);
    Sandbox box;
    box.file("/etc.defaults/norvinfo.conf",
             "supportraid=no\nmaxdisks=4\nusbportcfg=0x80\ninternalportcfg=0xf\nbuzzeroffen=0x200\n");
    box.directory("/sys/block/sda");
    box.file("/sys/class/scsi_host/host0/norv_port_thaw", "0\n");
    box.file("/sys/class/scsi_host/host0/norv_diskname_trans", "sda\n");
    box.file("/etc/sysconfig/network-scripts/ifcfg-eth0", "BOOTPROTO=dhcp\n");
    box.file("/etc/sysconfig/network-scripts/ifcfg-peer0", "IPADDR=10.0.0.4\nNETMASK=255.255.255.0\n");
    for (const char *path : {"/sbin/udhcpc", "/sbin/ifconfig", "/sbin/route"})
        box.program(path);
    BoxLinks links(box);
    ASSERT_TRUE(links.live_wire("eth0", "peer0"));
    box.compress_sleeps();
    box.leaves({"process ncemd", "/tmp/.not.dualhead"});
    ASSERT_EQ(box.run({"ncemd"}).exit_status, 0);
    ASSERT_TRUE(box.wait_for("board * event_source 2 0", 60));
    const pid_t pid = box.processes().at(0).pid;

    int raised = 0, changes = 0;
    const auto next = [&] { return kEvents[static_cast<size_t>(raised) % std::size(kEvents)]; };
    const auto raise_all = [&](int events) {
        for (const int end = raised + events; raised < end;) {
            box.board([&](struct board &board) {
                while (raised < end && board_event_raise(&board, next()) == 0)
                    raised++;
            });
            if (raised / kEventsPerChange > changes) {
                const bool is_up = changes++ % 2 != 0;
                EXPECT_TRUE(links.set("peer0", is_up) && links.settle("eth0", is_up));
            }
            usleep(1000);
        }
        uint32_t pending = 1;
        for (int tries = 0; pending > 0 && tries < 60'000; tries++, usleep(1000))
            box.board([&](struct board &board) { pending = board_event_pending(&board); });
        EXPECT_EQ(pending, 0U);
    };
    raise_all(200);
    const Held before = held_by(box, pid);
    raise_all(count);
    while (next() != 0x224) // out of button mode again
        raise_all(1);
    const Held after = held_by(box, pid, &before);
    expect_no_growth(before, after);
    EXPECT_EQ(box.record().count("board * event_get -> 0x*"), raised);
    for (const std::string program : {"udhcpc *eth0*", "ifconfig eth0 *", "route add *peer0"}) {
        for (int tries = 0; box.record().count("run /sbin/" + program) < changes / 2 && tries < 600; tries++)
            usleep(100'000);
        EXPECT_GE(box.record().count("run /sbin/" + program), changes / 2) << program;
    }
    box.signal(pid, SIGTERM);
    int status = -1;
    EXPECT_TRUE(box.wait_for_end(pid, 60, &status));
    EXPECT_EQ(status, 0);
    note("ncemd: " + std::to_string(raised) + " events of the board, " + std::to_string(changes) + " of a cable",
         "all are taken, then it ends on SIGTERM");
    note_held(before, after);
}

} // namespace
