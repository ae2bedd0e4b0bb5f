#include "tools/norv-station/virtual_units.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <net/ethernet.h>
#include <net/if.h>
#include <net/if_arp.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include "tests/support/box_links.h"
#include "tests/support/sandbox.h"

namespace
{

constexpr char kModel[] = "unique=\"norv_x86_virtual\"\nsupportraid=\"no\"\n";

// The factory's own programs on a unit. A unit's fault is a word in a file.
constexpr char kMemoryTest[] = R"(#!/bin/sh
progress() { echo "$1/20" >/tmp/progress.new && mv /tmp/progress.new /tmp/memtester.progress; }
read fault </etc/unit.fault
progress 0
(
    n=0 result=1
    while [ $n -lt 20 ] && [ $result = 1 ]; do
        n=$((n + 1))
        progress $n
        sleep 0.1
        [ "$fault" != memory ] || [ $n -lt 12 ] || result=2
    done
    [ $result = 1 ] || mantool -log "memory test: wrong word in pass $n"
    mantool -test_flag_set PTB_MEMORY_TEST $result
    rm -f /tmp/memtester.progress
) </dev/null >/dev/null 2>&1 &
)";
constexpr char kUnitTest[] = R"(#!/bin/sh
read fault </etc/unit.fault
case "$fault $1" in
"test FTF_USB")
    mantool -log "$1: no device at the front port"
    exit 1 ;;
"silent FTF_FAN")
    read daemon </var/run/manutild.pid
    kill -9 $daemon ;;
esac
exit 0
)";

bool complain(size_t number, const char *what)
{
    fprintf(stderr, "norv-station: virtual unit %zu: %s: %s\n", number, what, strerror(errno));
    return false;
}

// Gives an interface that is down an address of its own.
bool mac_set(const Sandbox &box, const char *name, uint8_t number)
{
    const UniqueFd fd(box.socket(AF_INET, SOCK_DGRAM));
    ifreq request = {};
    memcpy(request.ifr_name, name, strlen(name) + 1);
    request.ifr_hwaddr.sa_family = ARPHRD_ETHER;
    request.ifr_hwaddr.sa_data[0] = 0x02;
    request.ifr_hwaddr.sa_data[5] = static_cast<char>(number);
    return ioctl(fd.get(), SIOCSIFHWADDR, &request) == 0;
}

} // namespace

// eth0 leads to the station; eth1 is there for its address.
struct VirtualUnit : Sandbox {
    BoxLinks links{*this};

    void fill(size_t number, const std::string &fault)
    {
        char text[32];
        snprintf(text, sizeof(text), "VIRTUAL%06zu\n", number);
        file("/proc/sys/kernel/norv_serial", text);
        snprintf(text, sizeof(text), "0200000000%02zx\n", number);
        file("/proc/sys/kernel/norv_mac_address1", text);
        file("/proc/sys/kernel/norv_vender_format_version", "1\n");
        file("/proc/sys/kernel/norv_install_flag", "0");
        file("/etc.defaults/norvinfo.conf", kModel);
        file("/etc/norvinfo.conf", kModel);
        file("/etc.defaults/VERSION", "buildnumber=\"1\"\n");
        file("/etc/norvmanlog.conf", "label=virtual\n");
        file("/etc/unit.fault", fault + "\n");
        file("/usr/sbin/memory_test", kMemoryTest, 0755);
        file("/usr/sbin/unit_test", kUnitTest, 0755);
        directory("/tmp/bootmnt");
        for (const char *path : {"/bin/cat", "/bin/mkdir", "/bin/mv", "/bin/rm", "/bin/sleep", "/bin/touch"})
            host_file(path, path);
        program("/bin/killall");
        for (const char *seconds : {"15", "1", "5"}) // pauses that hardware needs
            call({.call = "sleep", .args = seconds});
        call({.call = "usleep"});
        board_scenario("");
        leaves({"*"});
    }
    [[nodiscard]] bool wire(size_t number, StationPort *port)
    {
        const bool is_wired = links.wire("eth0", "tap0") && links.wire("eth1", "tap1") &&
                              mac_set(*this, "eth0", static_cast<uint8_t>(number)) && links.set("eth0", true) &&
                              links.set("eth1", true) && links.set("tap0", true) && links.settle("tap0", true);
        return (is_wired && port_bind(UniqueFd(socket(AF_PACKET, SOCK_DGRAM, htons(ETH_P_IP))),
                                      "unit" + std::to_string(number), links.index("tap0"), port)) ||
               complain(number, "no wire");
    }
    [[nodiscard]] bool launch(size_t number)
    {
        return (run({"manutild"}).exit_status == 0 && wait_for("select 3*", 60)) || complain(number, "no daemon");
    }
};

VirtualUnits::VirtualUnits() = default;
VirtualUnits::~VirtualUnits() = default;

bool VirtualUnits::start(size_t count, const std::map<size_t, std::string> &faults, std::vector<StationPort> *ports)
{
    for (size_t number = 1; number <= count; number++) {
        const auto fault = faults.find(number);
        StationPort port;
        units_.push_back(std::make_unique<VirtualUnit>());
        VirtualUnit &unit = *units_.back();
        unit.fill(number, fault != faults.end() ? fault->second : "none");
        if (!unit.wire(number, &port) || !unit.launch(number))
            return false;
        ports->push_back(std::move(port));
    }
    return true;
}

void VirtualUnits::plan_fill(Plan *plan)
{
    const auto fill = [](std::string *text, const char *value) {
        if (text->empty())
            *text = value;
    };
    fill(&plan->memory_command, "memory_test");
    fill(&plan->test_command, "unit_test");
    fill(&plan->first_serial, "VIRT000001");
    fill(&plan->custom_serial, "C-");
    fill(&plan->check, "norv_x86_virtual,1");
    fill(&plan->action, "true,true");
    if (!plan->first_mac)
        plan->first_mac = Mac{0x02, 0, 0, 0x10, 0, 0};
}

bool virtual_fault_is_known(const std::string &fault)
{
    return fault == "test" || fault == "memory" || fault == "silent";
}
