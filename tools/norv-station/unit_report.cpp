#include "tools/norv-station/unit_report.h"

#include "lib/text.h"
#include "manutil/test_flags.h"

UnitReport unit_report_parse(std::string_view text)
{
    UnitReport report;
    text = text.substr(0, text.find('\0'));
    while (!text.empty()) {
        const size_t end = text.find('\n');
        const std::string_view line = text_strip(text.substr(0, end));
        text.remove_prefix(end == text.npos ? text.size() : end + 1);
        const size_t colon = line.find(':');
        if (colon == line.npos)
            continue;
        const std::string name(text_strip(line.substr(0, colon)));
        const std::string value(text_strip(line.substr(colon + 1)));
        if (name == "SN")
            report.serial = value;
        else if (name == "MAC")
            report.mac = value;
        else if (test_flag_find(name.c_str()).group != nullptr)
            report.flags[name] = value;
    }
    return report;
}
