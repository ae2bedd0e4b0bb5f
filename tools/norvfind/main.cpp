// Finds appliances on the LAN, shows one, and sets its network.
#include <algorithm>
#include <arpa/inet.h>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <getopt.h>
#include <sodium.h>
#include <strings.h>
#include <unistd.h>

#include "autocleanup/unique.h"
#include "findhost/keys.h"
#include "lib/text.h"
#include "tools/common/now_ms.h"
#include "tools/norvfind/wire.h"

namespace
{

constexpr char kUsage[] =
    "usage: norvfind scan [--json] [common options]\n"
    "       norvfind show MAC [--json] [common options]\n"
    "       norvfind set MAC --dhcp [--hostname NAME] [common options]\n"
    "       norvfind set MAC --ip ADDRESS/BITS [--gateway ADDRESS] [--dns ADDRESS] [--hostname NAME] [common options]\n"
    "\n"
    "  scan  asks on every interface and lists the appliances that answer\n"
    "  show  tells all that one appliance says of itself\n"
    "  set   sets an appliance's network, sealed to the key that it tells; no word of it can be read on the way\n"
    "\n"
    "  --interface NAME  ask there only; may be given several times\n"
    "  --port N          9999 (default), 9998 or 9997\n"
    "  --seconds N       how long to listen: 4, for set 60\n"
    "  --plain           for appliances without keys: ask and set in the clear\n"
    "  --key-file FILE   add the secret key of this run to FILE, for the dissector in tools/wireshark\n"
    "  --help            print this text\n"
    "\n"
    "With the right to use frames (root, or cap_net_raw) appliances without an address and on foreign subnets are "
    "heard.\n"
    "\n"
    "Exit status: 0 done; 1 nobody answered; 2 wrong use, or no network; 3 the appliance refused, or it failed;\n"
    "4 an install is running there.\n";

enum ExitStatus : int { kDone = 0, kNobody = 1, kWrongUse = 2, kRefused = 3, kLocked = 4 };

constexpr int kSecondsMax = 86400;

struct Options {
    std::vector<std::string> interfaces;
    uint16_t port = 9999;
    int seconds = 0; // 0: the command's own
    bool json = false, plain = false, dhcp = false;
    std::string hostname;
    const char *key_file = nullptr;
    uint32_t ip = 0, mask = 0, gateway = 0, dns = 0; // network order
};

int usage()
{
    fputs(kUsage, stderr);
    return kWrongUse;
}

void packet_begin(uint32_t type, FhostPacket *packet)
{
    fhost_packet_begin(packet);
    fhost_put_number(packet, PKT_ID_PTYPE, type);
    fhost_put_number(packet, PKT_ID_STAMP, kFhostStamp);
}

// Who asks: the MAC of the port, and the number of the key that answers are to be sealed with.
void asker_put(const Port &port, bool with_key, FhostPacket *packet)
{
    fhost_put_mac(packet, PKT_ID_PC_MAC, port.mac);
    if (with_key)
        fhost_put_number(packet, PKT_ID_KEY_ID, FHOSTProcessKeyId());
}

// Asks on every port; `mac` empty: everybody.
bool query_send(const Wire &wire, const std::string &mac, bool plain)
{
    bool is_sent = false;
    for (const Port &port : wire.ports) {
        FhostPacket packet;
        packet_begin(PKT_ID_PTYPE_QUERY, &packet);
        fhost_put_number(&packet, PKT_ID_CAPS1, kFhostCapsMigration);
        fhost_put_number(&packet, PKT_ID_CAPS2, kFhostCapsMigration);
        if (!mac.empty())
            fhost_put_text(&packet, PKT_ID_MAC, mac);
        asker_put(port, !plain, &packet);
        if (!plain) {
            char key[2 * kFhostKeyBytes + 1];
            sodium_bin2hex(key, sizeof(key), FHOSTProcessPublicKey(), kFhostKeyBytes);
            fhost_put_text(&packet, PKT_ID_PUBKEY, key);
        }
        is_sent |= wire_send(wire, port, packet);
    }
    return is_sent;
}

bool mac_is(const Appliance &appliance, const std::string &mac)
{
    const std::string_view own = text_view(appliance.record.szMac);
    return own.size() == mac.size() && strncasecmp(own.data(), mac.data(), mac.size()) == 0;
}

// Listens to the end; of several answers with one MAC the one that tells most counts: a sealed one before a plain one.
std::vector<Appliance> answers_collect(const Wire &wire, int seconds)
{
    std::vector<Appliance> found;
    const int64_t end = now_ms() + seconds * int64_t{1000};
    Appliance heard;
    for (int64_t left = end - now_ms(); left > 0 && wire_receive(wire, static_cast<int>(left), &heard);
         left = end - now_ms()) {
        const std::string mac(text_view(heard.record.szMac));
        const auto known =
            std::find_if(found.begin(), found.end(), [&](const Appliance &one) { return mac_is(one, mac); });
        if (known == found.end())
            found.push_back(heard);
        else if (heard.is_sealed || !known->is_sealed)
            *known = heard;
    }
    std::sort(found.begin(), found.end(), [](const Appliance &a, const Appliance &b) {
        return text_view(a.record.szMac) < text_view(b.record.szMac);
    });
    return found;
}

int scan(const Wire &wire, const Options &options)
{
    if (!query_send(wire, "", options.plain))
        return kWrongUse;
    const std::vector<Appliance> found = answers_collect(wire, options.seconds != 0 ? options.seconds : 4);
    if (options.json)
        appliances_print_json(found);
    else if (!found.empty())
        appliances_print_table(found);
    if (found.empty())
        fprintf(stderr, "norvfind: nobody answered\n");
    return found.empty() ? kNobody : kDone;
}

// Waits for an answer of one appliance that `is_it` accepts.
template <typename Test>
bool answer_wait(const Wire &wire, const std::string &mac, int64_t wait_ms, Test is_it, Appliance *out)
{
    const int64_t end = now_ms() + wait_ms;
    for (int64_t left = wait_ms; left > 0 && wire_receive(wire, static_cast<int>(left), out); left = end - now_ms())
        if (mac_is(*out, mac) && is_it(*out))
            return true;
    return false;
}

int nobody(const std::string &mac, bool is_sealed)
{
    fprintf(stderr, "norvfind: %s did not answer%s\n", mac.c_str(), is_sealed ? " with a sealed reply" : "");
    return kNobody;
}

// Asks one appliance until it answers. An appliance does not answer who asked it a second ago.
ExitStatus ask(const Wire &wire, const std::string &mac, bool plain, bool is_sealed, int seconds, Appliance *out)
{
    constexpr int64_t kRepeatMs = 3000;
    const int64_t end = now_ms() + seconds * int64_t{1000};
    for (int64_t left = end - now_ms(); left > 0; left = end - now_ms()) {
        if (!query_send(wire, mac, plain))
            return kWrongUse;
        if (answer_wait(
                wire, mac, std::min(left, kRepeatMs), [&](const Appliance &one) { return one.is_sealed || !is_sealed; },
                out))
            return kDone;
    }
    return static_cast<ExitStatus>(nobody(mac, is_sealed));
}

int show(const Wire &wire, const Options &options, const std::string &mac)
{
    Appliance appliance;
    const int result = ask(wire, mac, options.plain, false, options.seconds != 0 ? options.seconds : 4, &appliance);
    if (result != kDone)
        return result;
    if (options.json)
        appliances_print_json({appliance});
    else
        appliance_print(appliance);
    return kDone;
}

// The packet that sets the network.
void setting_build(const Options &options, const Port &port, const Appliance &appliance, FhostPacket *packet)
{
    packet_begin(PKT_ID_PTYPE_NETSETTING, packet);
    fhost_put_number(packet, PKT_ID_NET_DHCP, options.dhcp ? 1 : 0);
    const std::string_view hostname =
        options.hostname.empty() ? text_view(appliance.record.szHostName) : std::string_view(options.hostname);
    fhost_put_text(packet, PKT_ID_NET_HOSTNAME, hostname);
    fhost_put_text(packet, PKT_ID_NET_MAC, text_view(appliance.record.szMac));
    if (!options.dhcp) {
        fhost_put_number(packet, PKT_ID_NET_IP, options.ip);
        fhost_put_number(packet, PKT_ID_NET_MASK, options.mask);
        fhost_put_number(packet, PKT_ID_NET_GATEWAY, options.gateway);
        fhost_put_number(packet, PKT_ID_NET_DNS, options.dns);
    }
    asker_put(port, !options.plain, packet);
}

bool setting_seal(const Appliance &appliance, FhostPacket *packet)
{
    uint8_t key[kFhostKeyBytes];
    const std::string_view text = text_view(appliance.record.szPubKey);
    FhostPacket sealed;
    if (sodium_hex2bin(key, sizeof(key), text.data(), text.size(), nullptr, nullptr, nullptr) != 0 ||
        text.size() != 2 * sizeof(key) || fhost_seal(*packet, key, &sealed) != 0) {
        fprintf(stderr, "norvfind: the appliance's key is no good\n");
        return false;
    }
    *packet = sealed;
    return true;
}

// The port on which an appliance was heard.
const Port &port_of(const Wire &wire, const Appliance &appliance)
{
    for (const Port &port : wire.ports)
        if (port.name == appliance.interface)
            return port;
    return wire.ports.front();
}

// Whether an answer is to what was set: it tells of a failure, or has the new settings. A late answer to the question
// before has neither.
bool setting_is_answered(const Options &options, const Appliance &answer)
{
    const FHOST_RECORD &record = answer.record;
    if (answer.result_code > 0)
        return true;
    const std::string told = options.hostname.substr(0, options.hostname.find('.')).substr(0, 31);
    if (!told.empty() && text_view(record.szHostName) != told)
        return false;
    return options.dhcp ? record.ulDhcp != 0 : record.ulIP == options.ip;
}

int set(const Wire &wire, const Options &options, const std::string &mac)
{
    constexpr int kFindSeconds = 8, kSetSeconds = 60;
    Appliance appliance;
    const int asked = ask(wire, mac, options.plain, !options.plain,
                          options.seconds != 0 ? options.seconds : kFindSeconds, &appliance);
    if (asked != kDone)
        return asked;
    const Port &port = port_of(wire, appliance);
    FhostPacket packet;
    setting_build(options, port, appliance, &packet);
    if ((!options.plain && !setting_seal(appliance, &packet)) || !wire_send(wire, port, packet))
        return kWrongUse;
    const auto is_it = [&](const Appliance &one) {
        return (one.is_sealed || options.plain) && setting_is_answered(options, one);
    };
    if (!answer_wait(wire, mac, (options.seconds != 0 ? options.seconds : kSetSeconds) * int64_t{1000}, is_it,
                     &appliance))
        return nobody(mac, !options.plain);
    const int64_t code = appliance.result_code >= 0 ? appliance.result_code : int64_t{kFhostDone};
    if (options.json)
        appliances_print_json({appliance});
    printf("%s: %s\n", mac.c_str(), result_words(code));
    return code == kFhostDone ? kDone : code == kFhostLocked ? kLocked : kRefused;
}

// An address with the length of its network, "192.168.1.5/24".
bool network_parse(const char *text, Options *options)
{
    const char *slash = strchr(text, '/');
    unsigned bits = 0;
    if (slash == nullptr || !text_number(slash + 1, &bits) || bits < 1 || bits > 31)
        return false;
    options->mask = htonl(~0U << (32 - bits));
    return inet_pton(AF_INET, std::string(text, slash).c_str(), &options->ip) == 1;
}

// Takes one option. False when its value is no good.
bool option_take(int option, const char *value, Options *options)
{
    switch (option) {
    case 'j':
        return options->json = true;
    case 'p':
        return options->plain = true;
    case 'd':
        return options->dhcp = true;
    case 'i':
        options->interfaces.emplace_back(value);
        return true;
    case 'P':
        return text_number(value, &options->port) && options->port >= 9997 && options->port <= 9999;
    case 's':
        return text_number(value, &options->seconds) && options->seconds > 0 && options->seconds <= kSecondsMax;
    case 'k':
        options->key_file = value;
        return true;
    case 'h':
        options->hostname = value;
        return !options->hostname.empty() && options->hostname.size() <= 32;
    case 'a':
        return network_parse(value, options);
    case 'g':
        return inet_pton(AF_INET, value, &options->gateway) == 1;
    case 'n':
        return inet_pton(AF_INET, value, &options->dns) == 1;
    default:
        return false;
    }
}

// Adds the secret key to a file, which nobody else may read when it is new. False, told, when that cannot be done.
bool secret_key_note(const char *path)
{
    const UniqueFd file(open(path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600));
    const uint8_t *key = FHOSTProcessSecretKeyOpen();
    char text[2 * kFhostKeyBytes + 1] = "";
    if (key != nullptr)
        sodium_bin2hex(text, sizeof(text), key, kFhostKeyBytes);
    FHOSTProcessSecretKeyClose();
    const bool is_written = file && key != nullptr && dprintf(file.get(), "%s\n", text) == sizeof(text); // a line
    sodium_memzero(text, sizeof(text));
    if (!is_written)
        fprintf(stderr, "norvfind: cannot write the secret key to %s\n", path);
    return is_written;
}

constexpr option kOptions[] = {
    {"json", no_argument, nullptr, 'j'},
    {"plain", no_argument, nullptr, 'p'},
    {"dhcp", no_argument, nullptr, 'd'},
    {"interface", required_argument, nullptr, 'i'},
    {"port", required_argument, nullptr, 'P'},
    {"seconds", required_argument, nullptr, 's'},
    {"key-file", required_argument, nullptr, 'k'},
    {"hostname", required_argument, nullptr, 'h'},
    {"ip", required_argument, nullptr, 'a'},
    {"gateway", required_argument, nullptr, 'g'},
    {"dns", required_argument, nullptr, 'n'},
    {"help", no_argument, nullptr, 'H'},
    {nullptr, 0, nullptr, 0},
};

} // namespace

int main(int argc, char *argv[])
{
    Options options;
    for (int option; (option = getopt_long(argc, argv, "", kOptions, nullptr)) != -1;) {
        if (option == 'H')
            return fputs(kUsage, stdout) < 0 ? kWrongUse : kDone;
        if (!option_take(option, optarg, &options))
            return usage();
    }
    const int words = argc - optind;
    const std::string command = words > 0 ? argv[optind] : "", mac = words > 1 ? argv[optind + 1] : "";
    const bool is_known = command == "scan" ? words == 1 : (command == "show" || command == "set") && words == 2;
    const bool is_setting = options.dhcp != (options.ip != 0); // to one of the two
    if (!is_known || (command == "set" && !is_setting))
        return usage();
    if (FHOSTProcessKeyInit() != 0 && !options.plain) {
        fprintf(stderr, "norvfind: cannot make a key\n");
        return kWrongUse;
    }
    Wire wire;
    int result = kWrongUse;
    if ((options.key_file == nullptr || secret_key_note(options.key_file)) &&
        wire_open(options.interfaces, options.port, &wire)) {
        if (command == "scan")
            result = scan(wire, options);
        else if (command == "show")
            result = show(wire, options, mac);
        else
            result = set(wire, options, mac);
    }
    FHOSTProcessKeyFree();
    return result;
}
