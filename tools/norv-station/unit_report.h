// What a unit tells of its record: the output of the factory tool's -sn_get, -mac_get and -test_flag_list.
#pragma once

#include <map>
#include <string>
#include <string_view>

struct UnitReport {
    std::string serial, mac;                  // empty: it has none, or cannot read it
    std::map<std::string, std::string> flags; // "FTF_USB": "Pass", "Fail" or "NotTest"; a group not begun may miss
};

[[nodiscard]] UnitReport unit_report_parse(std::string_view text);
