// Messages from datagrams, on a socket pair in place of the daemon's socket. What is sent stands in the daemon's test.
#include "net/udpd.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <thread>

#include "lib/report.h"
#include "tests/support/alloc_fault.h"
#include "tests/support/udpd_datagram.h"

namespace
{

using Datagram = UdpdDatagram;
using Datagrams = std::vector<Datagram>;

std::string text(size_t bytes, char first = 'a')
{
    std::string result(bytes, '\0');
    for (size_t i = 0; i < bytes; i++)
        result[i] = static_cast<char>(first + static_cast<char>(i % 23));
    return result;
}

struct Daemon {
    UniqueFd station{}, own{};
    UDPD_HANDLE *handle = NORVUdpdGetHandle();
    std::string message{};

    Daemon()
    {
        int pair[2];
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0, pair), 0);
        station.reset(pair[0]);
        own.reset(pair[1]);
        EXPECT_EQ(udpd_init(handle, "manutild", 1122), 0);
        handle->nSocket = own.get();
    }
    Daemon(const Daemon &) = delete;
    Daemon &operator=(const Daemon &) = delete;
    ~Daemon() { EXPECT_EQ(udpd_release_handle(handle), 0); }

    void send(const std::string &bytes) const
    {
        EXPECT_EQ(::send(station.get(), bytes.data(), bytes.size(), 0), static_cast<ssize_t>(bytes.size()));
    }
    int receive(int event, int *size)
    {
        message.assign(static_cast<size_t>(*size), '\0');
        const int length = udpd_recv_data(handle, event, message.data(), size);
        message.resize(length < 0 ? 0 : static_cast<size_t>(length));
        return length;
    }
    int receive(int event = kUdpdEventAny, int size = 8192) { return receive(event, &size); }
};

// A message in datagrams that are as full as can be.
Datagrams cut(uint16_t event, const std::string &whole, uint16_t id = 9)
{
    Datagrams parts;
    for (size_t at = 0; at == 0 || at < whole.size(); at += 1024)
        parts.push_back({.event = event,
                         .payload = whole.substr(at, 1024),
                         .flags = static_cast<uint16_t>(at + 1024 >= whole.size() ? 0x8000 : 0),
                         .fragment = static_cast<uint32_t>(parts.size()),
                         .id = id});
    return parts;
}

TEST(Udpd, TakesWhatIsMeantForItAndWhole)
{
    const Datagram first{.payload = "one,", .flags = 0}, second{.payload = "two", .fragment = 1},
        third{.payload = "three", .fragment = 2};
    const Datagram noise{.payload = "noise", .name = "norvmanl"};
    const Datagram good{.event = 5, .payload = "good"}; // closes each row: received when nothing before it is
    const struct {
        const char *what;
        Datagrams sent;
        std::string message; // "" for that of `good`
    } kCases[] = {
        {"two", {first, second}, "one,two"},
        {"the second ahead", {second, first, second}, "one,two"},
        {"strangers between", {first, noise, noise, second}, "one,two"},
        {"three strangers", {first, noise, noise, noise, second}, ""},
        {"each datagram has its tries",
         {first, noise, noise, {.payload = "2,", .flags = 0, .fragment = 1}, noise, noise, third},
         "one,2,three"},
        {"another's number", {first, {.payload = "x", .fragment = 1, .id = 8}, second}, "one,two"},
        {"another event", {first, {.event = 71, .payload = "x", .fragment = 1}, second}, "one,two"},
        {"one is lost", {first, third, noise, noise, second}, ""},
        {"begun again", {first, first, first, first, first, second}, "one,two"},
        {"a name that only begins alike", {{.payload = "x", .name = std::string("manutil\0", 8)}}, ""},
        {"no request", {{.payload = "x", .flags = 0xc000}}, ""},
        {"not reserved", {{.payload = "x", .reserved = 1}}, ""},
        {"no such event", {{.event = 144, .payload = "x"}}, ""},
        {"the last event", {{.event = 143, .payload = "x"}}, "x"},
        {"longer than a datagram may be", {{.payload = text(1025)}}, ""},
        {"more told than sent", {{.payload = "exec", .length = 5}}, ""},
        {"less told than sent", {{.payload = "execute", .length = 4}}, "exec"},
        {"a number below none", {{.payload = "x", .fragment = 0xffffffff}}, ""},
    };
    Daemon daemon;
    for (const auto &[what, sent, message] : kCases) {
        SCOPED_TRACE(what);
        for (const Datagram &datagram : sent)
            daemon.send(datagram.bytes());
        daemon.send("");
        daemon.send(good.bytes().substr(0, 31));
        daemon.send(good.bytes());
        daemon.receive();
        EXPECT_EQ(daemon.message, message.empty() ? "good" : message);
        if (!message.empty()) {
            EXPECT_EQ(gUdpdLastEvent, sent.back().event);
            EXPECT_EQ(daemon.handle->usId, sent.back().id);
            daemon.receive();
        }
        EXPECT_EQ(gUdpdLastEvent, 5);
    }
}

TEST(Udpd, MessageThatDoesNotFitWaits)
{
    Daemon daemon;
    for (const size_t bytes : {size_t{0}, size_t{1055}, size_t{1056}, size_t{5000}}) {
        SCOPED_TRACE(bytes);
        for (const Datagram &datagram : cut(19, text(bytes)))
            daemon.send(datagram.bytes());
        int size = 1056;
        if (bytes >= 1056) {
            EXPECT_EQ(daemon.receive(kUdpdEventAny, &size), -1);
            EXPECT_EQ(NLIBCErrGet(), 0x7600);
            EXPECT_EQ(size, static_cast<int>(bytes));
            size--;
            EXPECT_EQ(daemon.receive(19, &size), -1); // and goes on waiting
            EXPECT_EQ(NLIBCErrGet(), 0x7600);
        }
        EXPECT_EQ(daemon.receive(19, &size), static_cast<int>(bytes));
        EXPECT_EQ(daemon.message, text(bytes));
        EXPECT_EQ(gUdpdLastEvent, 19);
    }
}

// No sender takes the memory: what does not end is dropped, and the next message is served.
TEST(Udpd, MessageWithoutEndIsDropped)
{
    constexpr uint32_t kDatagrams = 100000;
    Daemon daemon;
    std::thread station([&] {
        Datagram part{.payload = text(1024), .flags = 0};
        for (; part.fragment < kDatagrams; part.fragment++)
            daemon.send(part.bytes());
        daemon.send(Datagram{.payload = "good"}.bytes());
    });
    daemon.receive();
    station.join();
    EXPECT_EQ(daemon.message, "good");
    EXPECT_EQ(NLIBCErrGet(), 0x7700);
}

TEST(Udpd, ReceivesWithoutMemoryOrSocket)
{
    Daemon daemon;
    for (int nth = 1, struck = 1; struck; nth++) {
        for (const Datagram &datagram : cut(19, text(5000)))
            daemon.send(datagram.bytes());
        AllocFault fault(nth);
        int size = 8192;
        char buffer[8192];
        const int length = udpd_recv_data(daemon.handle, 19, buffer, &size);
        struck = fault.struck();
        EXPECT_EQ(fault.held(), 0);
        EXPECT_EQ(length, struck ? -1 : 5000);
        EXPECT_TRUE(!struck || NLIBCErrGet() == 0x7500);
        while (recv(daemon.own.get(), buffer, sizeof(buffer), MSG_DONTWAIT) > 0)
            continue;
    }
    daemon.own.reset();
    for (const int fd : {daemon.handle->nSocket, -1}) {
        NLIBCErrSet(0, "", 0);
        daemon.handle->nSocket = fd;
        EXPECT_EQ(daemon.receive(), -1);
        EXPECT_EQ(NLIBCErrGet(), 0x7a00);
    }
}

} // namespace
