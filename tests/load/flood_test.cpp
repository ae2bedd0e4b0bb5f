// Daemons under floods of datagrams: noise, damaged requests, one request again and again, and good requests from a
// client each. A good request is answered afterwards, and nothing has grown.
#include <algorithm>
#include <cstring>
#include <random>
#include <sstream>
#include <unistd.h>

#include "tests/findhost/packet_bytes.h"
#include "tests/load/load.h"
#include "tests/support/box_links.h"
#include "tests/support/box_station.h"
#include "tests/support/udpd_datagram.h"

namespace
{

constexpr int kBrief = 400, kFull = 1'000'000;
constexpr int kFirst = 60'000;                 // of which a quarter are clients, who fill findhostd's table
constexpr int kBatch = 32;                     // datagrams between two looks at the daemon's queue
constexpr unsigned long kQueue_bytes = 50'000; // more than this waits in it: so does the flood,
constexpr double kPatience_s = 0.002;          // but not for long
constexpr double kAnswer_s = 120;              // for what comes at once unless the machine is busy

struct Flooded {
    const char *role;
    int port, other_port; // the flood's, and that of the question before and after
    std::string (*request)(int client);
    void (*mend)(std::string *damaged); // takes out what would end or change the daemon
    std::string answer;                 // begins the answer's payload
};

std::string query(int client)
{
    char text[96];
    snprintf(text, sizeof(text), "02:cc:00:%02x:%02x:%02x", client >> 16 & 0xff, client >> 8 & 0xff, client & 0xff);
    std::string packet = base(1) + element(0x7c, text);
    snprintf(text, sizeof(text), "%064x", client + 2);
    return plain(packet + element(0xc4, text) + number(0xc5, static_cast<unsigned>(client) + 1));
}

// A damaged query may be a setting, which is refused, or a script that this box does not have.
void query_mend(std::string * /*damaged*/) {}

std::string progress_question(int client)
{
    return UdpdDatagram{.event = 72, .id = static_cast<uint16_t>(client)}.bytes();
}

// The stop would be obeyed; the others run what is in the datagram, or empty the box's /tmp.
void event_mend(std::string *damaged)
{
    constexpr size_t kEventAt = 22;
    if (damaged->size() < kEventAt + 2)
        return;
    const int event = bytes_of(*damaged)[kEventAt] | bytes_of(*damaged)[kEventAt + 1] << 8;
    for (const int obeyed : {13, 20, 47, 51, 0x80})
        if (event == obeyed)
            (*damaged)[kEventAt] = 72;
}

const Flooded kDaemons[] = {
    {"findhostd", 9999, 9997, query, query_mend, "\x12\x34\x55\x66NORV"},
    {"manutild", 1122, 1122, progress_question, event_mend, "NORVUdpdmanutild"},
};

class Flood : public testing::TestWithParam<Flooded>
{
  protected:
    Sandbox box{};
    BoxLinks links{box};
    std::unique_ptr<BoxStation> station{};
    std::mt19937 random{20}; // the same flood each time
    pid_t pid = -1;
    unsigned long lost = 0; // by the kernel, since the daemon's queue was full

    void SetUp() override
    {
        const std::string role = GetParam().role;
        ASSERT_TRUE(links.live_wire("eth0", "peer0")) << strerror(errno);
        station = std::make_unique<BoxStation>(box, "peer0");
        box.file("/etc.defaults/norvinfo.conf", "supportraid=no\n");
        box.file("/etc/sysconfig/network-scripts/ifcfg-eth0",
                 "BOOTPROTO=static\nIPADDR=10.0.0.4\nNETMASK=255.255.255.0\n");
        box.host_file("/bin/ping", "/bin/true"); // one for each query that is served
        box.compress_sleeps();
        box.leaves({"process " + role, "/var/run/" + role + ".pid*", "/tmp/fhost.status*", "/tmp/install.lock"});
        ASSERT_EQ(box.run({role}).exit_status, 0);
        ASSERT_TRUE(box.wait_for(role == "findhostd" ? "select 5.*" : "select 3.*", kAnswer_s));
        box.remove("/etc/ld.so.preload"); // what it runs from now on is not recorded
        pid = std::stoi(box.read_file("/var/run/" + role + ".pid"));
    }
    void TearDown() override
    {
        if (pid <= 0)
            return;
        box.signal(pid, SIGKILL);
        EXPECT_TRUE(box.wait_for_end(pid, kAnswer_s));
    }

    void send(const std::string &payload, int client, int port)
    {
        std::string ip = "\x0a";
        for (const int shift : {16, 8, 0})
            ip += static_cast<char>(client >> shift);
        station->send(UdpFrame{.source_mac = station->mac(),
                               .source_ip = ip,
                               .source_port = 4321,
                               .destination_port = static_cast<uint16_t>(port),
                               .payload = payload}
                          .bytes());
    }
    // The bytes that wait in the daemon's queue.
    unsigned long queued()
    {
        char port[16];
        snprintf(port, sizeof(port), ":%04X ", GetParam().port);
        std::istringstream lines(box.read_file(process_path(pid, "net/udp")));
        unsigned long bytes = 0;
        for (std::string line; std::getline(lines, line);) {
            if (line.find(port) == std::string::npos)
                continue;
            EXPECT_EQ(sscanf(line.c_str(), "%*d: %*s %*s %*s %*x:%lx", &bytes), 1) << line;
            lost = std::stoul(line.substr(line.find_last_of(' ', line.find_last_not_of(' '))));
        }
        return bytes;
    }
    void queue_wait(unsigned long most, double seconds)
    {
        for (int tries = 0; queued() > most && tries < seconds * 10'000; tries++)
            usleep(100);
    }

    std::string noise()
    {
        std::string bytes(random() % 1200, '\0');
        for (char &byte : bytes)
            byte = static_cast<char>(random());
        return bytes;
    }
    // Up to four bytes are others, and every second one is cut.
    std::string damaged()
    {
        std::string bytes = GetParam().request(1);
        for (unsigned change = random() % 4 + 1; change > 0; change--)
            bytes[random() % bytes.size()] = static_cast<char>(random());
        GetParam().mend(&bytes);
        if (random() % 2 == 0)
            bytes.resize(random() % bytes.size());
        return bytes;
    }
    // More than `most` bytes in the daemon's queue hold the flood up, for so many seconds at most. Returns how many of
    // the last quarter, a client each, were read.
    int flood(int count, unsigned long most, double seconds)
    {
        unsigned long lost_before = lost;
        for (int at = 0; at < count; at++) {
            const int client = 0x10000 + at;
            switch (at * 4LL / count) {
            case 0:
                send(noise(), 1, GetParam().port);
                break;
            case 1:
                send(damaged(), 1, GetParam().port);
                break;
            case 2:
                send(GetParam().request(1), 1, GetParam().port);
                break;
            default:
                send(GetParam().request(client), client, GetParam().port);
            }
            if (at % kBatch == 0)
                queue_wait(most, seconds);
            if (at < count / 4 * 3)
                lost_before = lost;
        }
        queue_wait(0, kAnswer_s);
        return count / 4 - static_cast<int>(lost - lost_before);
    }
    // Asks from an address of its own, and waits for that answer.
    void expect_answer()
    {
        queue_wait(0, kAnswer_s);
        while (!station->receive(0.5).empty())
            continue;
        send(GetParam().request(7), 7, GetParam().other_port);
        for (std::string frame; !(frame = station->receive(kAnswer_s)).empty();) {
            const int port = bytes_of(frame)[36] << 8 | bytes_of(frame)[37];
            if (port != GetParam().other_port)
                continue;
            EXPECT_EQ(frame.substr(42, GetParam().answer.size()), GetParam().answer);
            while (!station->receive(0.5).empty())
                continue;
            return;
        }
        ADD_FAILURE() << "no answer";
    }
};

TEST_P(Flood, IsOutlived)
{
    // The first flood has the daemon take all that it ever will: findhostd fills its table of 4096 clients twice.
    const int count = load_size(kBrief, kFull), first = std::min(count, kFirst);
    EXPECT_GE(flood(first, 0, kAnswer_s), first < kFirst ? 0 : 2 * 4096);
    send(plain(base(11)), 1, GetParam().port); // findhostd logs, which opens the log
    expect_answer();
    const Held before = held_by(box, pid);
    const unsigned long lost_before = lost;
    flood(count, kQueue_bytes, kPatience_s);
    expect_answer();
    const Held after = held_by(box, pid, &before);
    expect_no_growth(before, after);
    note(std::string(GetParam().role) + ": " + std::to_string(count) + " datagrams",
         "answers afterwards; " + std::to_string(lost - lost_before) + " came while its queue was full");
    note_held(before, after);
}

INSTANTIATE_TEST_SUITE_P(Daemons, Flood, testing::ValuesIn(kDaemons),
                         [](const auto &row) { return std::string(row.param.role); });

} // namespace
