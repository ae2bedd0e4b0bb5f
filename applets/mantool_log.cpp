#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <sys/types.h>

#include "applets/mantool.h"
#include "external/sys_attribute.h"
#include "lib/file.h"
#include "lib/report.h"
#include "manutil/vender.h"
#include "net/net.h"
#include "net/udpd.h"

static constexpr char kServer[] = "norvmanlogd";
static constexpr int kPort = 1123, kEvent = 1;
static constexpr char kSerialPath[] = "/proc/sys/kernel/norv_serial";
static constexpr char kLabelPath[] = "/etc/norvmanlog.conf";
static constexpr char kCounterPath[] = "/tmp/norvmanlogcounter";
static constexpr char kSessionPath[] = "/tmp/norvmanlogsession";

namespace
{

// Records of "<length of key=value in decimal><key>=<value>" behind each other, and a NUL.
struct Message {
    char text[1024];
    size_t length;
};
constexpr size_t kHeldBack = 5; // the decimal length of the last record, and the NUL

// What stands in front of the log text; all of it together leaves room for one.
struct Values {
    char serial[64], mac[7], label[256], counter[24], session[16], model[20];
};

void serial_and_mac_get(Values *values)
{
    uint8_t mac[6];
    if (!sys_attribute_read(kSerialPath, values->serial, sizeof(values->serial)))
        NORV_LOG(LOG_ERR, "Fail to read %s", kSerialPath); // a line from an unknown unit is better than none
    if (system_first_vender_mac_addr_get(mac) == 0 || NORVManutilMacGet(1, mac) == 0) // what it booted with, or has now
        snprintf(values->mac, sizeof(values->mac), "%02X%02X%02X", mac[3], mac[4], mac[5]);
    else
        NORV_LOG(LOG_ERR, "Fail to get the first address");
}

// The number of this line, and the next one's stored.
void counter_take(Values *values)
{
    char stored[sizeof(values->counter)] = "0";
    static_cast<void>(NLIBCFileGetKeyValue(kCounterPath, "counter", stored, sizeof(stored), 0));
    const unsigned counter = static_cast<unsigned>(strtoul(stored, nullptr, 10));
    snprintf(values->counter, sizeof(values->counter), "%u", counter);
    char next[sizeof(values->counter)];
    snprintf(next, sizeof(next), "%u", counter + 1);
    if (NLIBCFileSetKeyValue(kCounterPath, "counter", next, nullptr) != 1)
        NORV_LOG(LOG_ERR, "Fail to store the counter in %s", kCounterPath);
}

// The number that all lines since the unit was switched on share.
void session_get(Values *values)
{
    if (NLIBCFileGetKeyValue(kSessionPath, "session", values->session, sizeof(values->session), 0) > kEmptyValue)
        return;
    srand(static_cast<unsigned>(time(nullptr)));
    snprintf(values->session, sizeof(values->session), "%09d", rand() % 999999999 + 1);
    if (NLIBCFileSetKeyValue(kSessionPath, "session", values->session, nullptr) != 1)
        NORV_LOG(LOG_ERR, "Fail to store the session in %s", kSessionPath);
}

int model_get(Values *values)
{
    char unique[128] = "";
    if (NLIBCFileGetKeyValue(kDefaultsPath, "unique", unique, sizeof(unique), 0) <= kEmptyValue)
        static_cast<void>(NLIBCFileGetKeyValue(kConfPath, "unique", unique, sizeof(unique), 0));
    const char *first = strchr(unique, '_');
    if (first == nullptr) {
        NORV_LOG(LOG_ERR, "Get first '_' error , unique name's format is invalid");
        return -1;
    }
    const char *second = strchr(first + 1, '_');
    if (second == nullptr) {
        NORV_LOG(LOG_ERR, "Get second '_' error , unique name's format is invalid");
        return -1;
    }
    snprintf(values->model, sizeof(values->model), "%.19s", second + 1);
    return 0;
}

int values_get(Values *values)
{
    serial_and_mac_get(values);
    if (NLIBCFileGetKeyValue(kLabelPath, "label", values->label, sizeof(values->label), 0) <= kEmptyValue) {
        NORV_LOG(LOG_ERR, "Get label from %s fail", kLabelPath);
        return -1;
    }
    counter_take(values);
    session_get(values);
    return model_get(values);
}

void record_add(Message *message, const char *key, const char *value)
{
    const int added = snprintf(message->text + message->length, sizeof(message->text) - message->length, "%zu%s=%s",
                               strlen(key) + 1 + strlen(value), key, value);
    message->length += static_cast<size_t>(added);
}

int message_make(const Values &values, const char *log, Message *message)
{
    record_add(message, "SN", values.serial);
    record_add(message, "MAC", values.mac);
    record_add(message, "LABEL", values.label);
    record_add(message, "COUNTER", values.counter);
    record_add(message, "SESSION", values.session);
    record_add(message, "MODEL", values.model);
    const ssize_t length = static_cast<ssize_t>(strlen(log));
    const ssize_t room = static_cast<ssize_t>(sizeof(message->text) - kHeldBack - message->length - strlen("LOG="));
    if (length > room) {
        NORV_LOG(LOG_ERR, "The log length is %zd, exceeds the max length %zd, the log won't be sent", length, room);
        return -1;
    }
    record_add(message, "LOG", log);
    return 0;
}

int message_send(UDPD_HANDLE *handle, const char *log)
{
    Values values = {};
    Message message = {};
    if (udpd_init(handle, kServer, kPort) != 0 || values_get(&values) != 0 || message_make(values, log, &message) != 0)
        return -1;
    const int sent = udpd_send_data(handle, kEvent, message.text, static_cast<int>(message.length) + 1, 1);
    NORV_LOG(LOG_ERR, "Final string size = %zd, string = \"%s\"\n", static_cast<ssize_t>(message.length), message.text);
    return sent < 0 ? -1 : 0;
}

} // namespace

int man_log(int argc, char *argv[])
{
    if (argc != 3)
        return mantool_usage_error();
    UDPD_HANDLE *handle = NORVUdpdGetHandle();
    if (handle == nullptr)
        return -1;
    const int result = message_send(handle, argv[2]);
    udpd_release_handle(handle);
    return result;
}
