#include <cstdio>
#include <json-c/json.h>

#include "lib/text.h"
#include "tools/common/text_clean.h"
#include "tools/common/text_json.h"
#include "tools/norvfind/appliance.h"

namespace
{

struct Fact {
    const char *name;  // in JSON
    const char *label; // for people
    std::string text;
    bool is_number;
};

std::string number_text(int64_t number)
{
    return number < 0 ? "" : std::to_string(number);
}

template <size_t kRoom> std::string field_text(const char (&field)[kRoom])
{
    return text_clean(text_view(field));
}

// All that is known; a fact without text was not told.
std::vector<Fact> facts_of(const Appliance &appliance)
{
    const FHOST_RECORD &record = appliance.record;
    const bool has_status = record.ulStatus != 0;
    return {
        {"mac", "MAC", field_text(record.szMac), false},
        {"interface", "seen on", appliance.interface, false},
        {"address", "address", record.ulIP != 0 ? address_text(record.ulIP) : "", false},
        {"mask", "mask", record.ulMask != 0 ? address_text(record.ulMask) : "", false},
        {"gateway", "gateway", record.ulGateway != 0 ? address_text(record.ulGateway) : "", false},
        {"dns", "name server", record.ulDns != 0 ? address_text(record.ulDns) : "", false},
        {"dhcp", "DHCP", std::to_string(record.ulDhcp != 0 ? 1 : 0), true},
        {"hostname", "host name", field_text(record.szHostName), false},
        {"model", "model", field_text(record.szModel), false},
        {"unique", "model family", field_text(record.szUnique), false},
        {"serial", "serial", field_text(record.szSerial), false},
        {"os", "system", field_text(record.szOsName), false},
        {"version", "version", field_text(record.szVersion), false},
        {"build", "build", std::to_string(record.ulBuild), true},
        {"smallfix", "small fix", std::to_string(record.ulSmallFix), true},
        {"status", "status", has_status ? std::to_string(record.ulStatus) : "", true},
        {"status_text", "status", has_status ? status_words(record.ulStatus) : "", false},
        {"progress", "memory test", number_text(appliance.progress), true},
        {"migration", "differences", number_text(appliance.migration), true},
        {"disk_version", "version on disk", text_clean(appliance.old_version), false},
        {"disk_model", "model on disk", text_clean(appliance.old_model), false},
        {"disk_build", "build on disk", number_text(appliance.old_build), true},
        {"raid", "RAID model", number_text(appliance.raid), true},
        {"key", "public key", field_text(record.szPubKey), false},
        {"key_id", "key", record.ulKeyId != 0 ? std::to_string(record.ulKeyId) : "", true},
        {"sealed", "sealed", appliance.is_sealed ? "1" : "0", true},
    };
}

} // namespace

void appliances_print_table(const std::vector<Appliance> &appliances)
{
    constexpr char kRow[] = "%-17s  %-15s  %-18s  %-10s  %-12s  %-17s  %-13s  %s\n";
    printf(kRow, "MAC", "ADDRESS", "HOST NAME", "MODEL", "VERSION", "STATUS", "SERIAL", "SEALED");
    for (const Appliance &appliance : appliances) {
        const FHOST_RECORD &record = appliance.record;
        const std::string version = field_text(record.szVersion) + "-" + std::to_string(record.ulBuild);
        printf(kRow, field_text(record.szMac).c_str(), record.ulIP != 0 ? address_text(record.ulIP).c_str() : "-",
               field_text(record.szHostName).c_str(), field_text(record.szModel).c_str(), version.c_str(),
               status_words(record.ulStatus), field_text(record.szSerial).c_str(), appliance.is_sealed ? "yes" : "no");
    }
}

void appliances_print_json(const std::vector<Appliance> &appliances)
{
    json_object *list = json_object_new_array();
    for (const Appliance &appliance : appliances) {
        json_object *entry = json_object_new_object();
        for (const Fact &fact : facts_of(appliance))
            if (!fact.text.empty())
                json_object_object_add(entry, fact.name,
                                       fact.is_number ? json_object_new_int64(atoll(fact.text.c_str()))
                                                      : text_json(fact.text));
        json_object_array_add(list, entry);
    }
    puts(json_object_to_json_string_ext(list, JSON_C_TO_STRING_PRETTY));
    json_object_put(list);
}

void appliance_print(const Appliance &appliance)
{
    for (const Fact &fact : facts_of(appliance))
        if (!fact.text.empty() && fact.name != std::string_view("status"))
            printf("%-16s %s\n", fact.label, fact.text.c_str());
}
