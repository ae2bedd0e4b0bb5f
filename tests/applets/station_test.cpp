// The test station against units with the real daemon: virtual ones, and one on an interface.
#include <csignal>
#include <gtest/gtest.h>
#include <json-c/json.h>
#include <string>
#include <unistd.h>

#include "build_paths.h"
#include "tests/platform/run_program.h"
#include "tests/support/box_links.h"
#include "tests/support/box_station.h"
#include "tests/support/box_text.h"
#include "tests/support/rows.h"
#include "tests/support/scratch_dir.h"
#include "tests/support/udpd_datagram.h"

namespace
{

constexpr char kStation[] = NORV_BINARY_DIR "/tools/norv-station/norv-station";

TEST(Station, TakesUnitsToTheirVerdicts)
{
    const ScratchDir folder;
    const std::string out = folder.path("reports");
    const Finished run = run_program({kStation, "--units", "4", "--fail", "2", "--fail", "3:memory", "--fail",
                                      "4:silent", "--seconds", "6", "--mac", "02:00:00:ff:ff:fc", "--serial", "A9",
                                      "--command", "echo told >/tmp/manutil_command.output; exit 3", "--out", out});
    if (run.status == 77)
        GTEST_SKIP() << run.out;
    EXPECT_EQ(run.status, 1) << run.out;
    EXPECT_TRUE(run.out.ends_with("4 units: 0 passed, 4 failed\n")) << run.out; // the command fails on all

    const std::string failed = R"(,"FAILED","command 'echo told >/tmp/manutil_command.output; exit 3': exit status 3)";
    const std::string kTable[] = {
        "\"unit\",\"mac\",*",
        R"("1",*,"A9","A9","02:00:00:FF:FF:FC","C-A9",*)" + failed + "\"",
        R"("2","02:00:00:00:00:02","A10","A10","02:00:01:00:00:00",*)" + failed + "; FTF_USB failed\"",
        R"("3",*,"A11","A11","02:00:01:00:00:04",*)" + failed + "; PTB_MEMORY_TEST reads Fail, not Pass\"",
        R"("4",*,"A12","","","C-A12",*)" + failed + "; no answer to FTF_FAN\"",
    };
    const std::vector<std::string> table = lines(folder.read("reports/units.csv"));
    ASSERT_EQ(table.size(), std::size(kTable));
    for (size_t i = 0; i < table.size(); i++)
        EXPECT_TRUE(pattern_matches(kTable[i], table[i])) << table[i];
    const std::string log = folder.read("reports/log.csv"), report = folder.read("reports/units.json");
    EXPECT_TRUE(pattern_matches("*\"VIRTUAL000003\",*,\"memory test: wrong word in pass 12\"*", log)) << log;
    EXPECT_TRUE(pattern_matches("*\"02:00:00:00:00:02\",\"VIRTUAL000002\",\"000002\",\"virtual\",\"0\",*,\"FTF_USB: no "
                                "device at the front port\"*",
                                log))
        << log;
    json_object *parsed = json_tokener_parse(report.c_str());
    EXPECT_NE(parsed, nullptr) << report;
    json_object_put(parsed);
    EXPECT_TRUE(pattern_matches("*\"output\":\"told\\n\"*\"FTF_USB\":\"Fail\"*\"PTB_MEMORY_TEST\":\"Fail\"*", report))
        << report;
}

TEST(Station, GoodUnitsPass)
{
    const ScratchDir folder;
    const Finished run = run_program({kStation, "--units", "2", "--out", folder.path()});
    if (run.status == 77)
        GTEST_SKIP() << run.out;
    EXPECT_EQ(run.status, 0) << run.out;
    EXPECT_TRUE(run.out.ends_with("2 units: 2 passed, 0 failed\n")) << run.out;
    EXPECT_NE(run.out.find(" 1  02:00:00:00:00:01  VIRT000001     PASSED  "), std::string::npos) << run.out;
}

// The answer to a station's question for units, from an address of its own.
std::string unit_answer(const std::string &question)
{
    constexpr size_t kIdAt = 14 + 20 + 8 + 24;
    const UdpdDatagram answer{.payload = std::string("\0\0\0\2"
                                                     "0%",
                                                     6),
                              .flags = 0xc000,
                              .id = static_cast<uint16_t>(static_cast<uint8_t>(question.at(kIdAt)) |
                                                          static_cast<uint8_t>(question.at(kIdAt + 1)) << 8)};
    return UdpFrame{.source_mac = std::string("\2\0\0\0\0\7", 6),
                    .source_port = 9999,
                    .destination_port = 1122,
                    .payload = answer.bytes()}
        .bytes();
}

// A unit on the interface eth0, and the station at the wire's other end.
struct Segment : Sandbox {
    BoxLinks links{*this};

    Segment()
    {
        EXPECT_TRUE(links.live_wire("eth0", "tap0"));
        host_file("/bin/norv-station", kStation);
        call({.call = "sleep", .args = "15"});
        for (const char *path : {"/bin/cat", "/bin/mkdir"})
            host_file(path, path);
        file("/proc/sys/kernel/norv_install_flag", "0");
        file("/etc.defaults/norvinfo.conf", "unique=a_b_c\n");
        file("/etc/norvmanlog.conf", "label=line 4\n");
        directory("/tmp/bootmnt");
        leaves({"*"});
    }
    Result station(const std::string &options) { return run(words(options, "/bin/norv-station"), {.seconds = 60}); }
};

TEST(Station, LooksAtASegment)
{
    Segment box;
    const std::string look = "--interface tap0 --expect 1";
    Result nobody = box.station("--interface tap0 --out /tmp/none");
    EXPECT_EQ(nobody.exit_status, 3);
    EXPECT_EQ(nobody.err, "norv-station: nobody answered\n");
    { // Two boards that came with one address: neither is given anything.
        const BoxStation twins(box, "eth0");
        Process station = box.start(words(look + " --serial A1", "/bin/norv-station"), {.seconds = 60});
        const std::string answer = unit_answer(twins.receive(60));
        twins.send(answer);
        twins.send(answer);
        const Result result = station.wait();
        EXPECT_EQ(result.exit_status, 1);
        EXPECT_NE(
            result.out.find("02:00:00:00:00:07  -              FAILED  memory -       tests  0/36    answers twice"),
            std::string::npos)
            << result.out;
    }
    box.run({"manutild"});
    ASSERT_TRUE(box.wait_for("select 3*", 60));
    const Result one = box.station(look);
    EXPECT_EQ(one.exit_status, 0) << one.err;
    EXPECT_NE(one.out.find(" SEEN "), std::string::npos) << one.out;
    EXPECT_TRUE(one.out.ends_with("1 units: 0 passed, 0 failed\n"));
    EXPECT_FALSE(box.exists("/.box/volumes/dev:norvboot2/vender")); // only looked
    box.file("/tmp/memtester.progress", "1205/9999\n");             // of a test that does not get on
    EXPECT_NE(box.station(look + " --stall 1").out.find(" memory 12.05% "), std::string::npos);
    box.remove("/tmp/memtester.progress");
    EXPECT_EQ(box.station("--interface tap0 --expect 2 --seconds 3 --serial A1").exit_status, 3);
    EXPECT_FALSE(box.exists("/.box/volumes/dev:norvboot2/vender"));
    // A serial that the unit refuses, and a report that cannot be written.
    const Result refused = box.station(look + " --serial A1");
    EXPECT_EQ(refused.exit_status, 0) << refused.out;
    const Result longer = box.station(look + " --serial A10");
    EXPECT_EQ(longer.exit_status, 1);
    EXPECT_NE(longer.out.find("serial: Length of SN is changed.; serial reads A1, not A10"), std::string::npos)
        << longer.out;
    box.directory("/tmp/out/units.csv");
    const Result lost = box.station(look + " --out /tmp/out");
    EXPECT_EQ(lost.exit_status, 2);
    EXPECT_NE(lost.out.find("  A1             SEEN "), std::string::npos) << lost.out; // what it has

    // Among them a serial in which nothing counts, and a group's address.
    for (const char *wrong :
         {"", "--interface none", "--units 1 --interface tap0", "--units 1 --fail 2", "--units 2 --fail 1:x",
          "--interface tap0 --serial A", "--interface tap0 --mac 01:00:00:00:00:00",
          "--interface tap0 --out /etc/norvmanlog.conf", "--interface tap0 more"})
        EXPECT_EQ(box.station(wrong).exit_status, 2) << wrong;
}

TEST(Station, TakesLogLines)
{
    Segment box;
    box.directory("/tmp/full/log.csv"); // cannot be written
    for (const char *folder : {"/tmp/out", "/tmp/full"}) {
        const int before = box.record().count("poll *");
        Process station =
            box.start({"/bin/norv-station", "--interface", "tap0", "--listen", "--out", folder}, {.seconds = 60});
        for (int tries = 0; tries < 2000 && box.record().count("poll *") == before; tries++)
            usleep(10000);
        box.run({"mantool", "-log", "say \"hi\"\x1b[2J, twice"});
        box.run({"mantool", "-log", "second"});
        for (int tries = 0; tries < 2000 && station.out().find("second") == std::string::npos; tries++)
            usleep(10000);
        station.signal(SIGTERM);
        const Result result = station.wait();
        EXPECT_EQ(result.exit_status, folder == std::string("/tmp/out") ? 0 : 2) << result.err;
        EXPECT_NE(result.out.find(": say \"hi\"?[2J, twice\n"), std::string::npos) << result.out;
        EXPECT_NE(result.out.find(": second\n"), std::string::npos);
    }
    const std::string csv = box.read_file("/tmp/out/log.csv");
    EXPECT_TRUE(csv.starts_with("\"time\",\"mac\",\"serial\",\"vendor_mac\",\"label\",\"counter\",\"session\","
                                "\"model\",\"text\"\n"));
    EXPECT_NE(csv.find(",\"c\",\"say \"\"hi\"\"?[2J, twice\"\n"), std::string::npos) << csv;
    EXPECT_NE(csv.find("\"line 4\",\"1\","), std::string::npos) << csv; // the second one's number
}

} // namespace
