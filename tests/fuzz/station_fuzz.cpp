// What units tell the test station: log lines and the report of their record. The first byte tells which.
// Covers: tools/norv-station/log_line.cpp(log_line_parse) tools/norv-station/unit_report.cpp

#include "tests/fuzz/fuzz.h"
#include "tools/norv-station/log_line.h"
#include "tools/norv-station/unit_report.h"

void fuzz_one(std::string_view input)
{
    const bool is_report = byte_take(&input) % 2 == 0;
    const std::string text(input);
    if (is_report) {
        for (const auto &[name, words] : unit_report_parse(text).flags)
            check(text.find(name) != text.npos && text.find(words) != text.npos);
        return;
    }
    LogRecords records;
    if (!log_line_parse(text, &records))
        return;
    std::string rest = text.substr(0, text.find('\0')); // the records are all of it, each behind its length
    for (const auto &[key, value] : records) {
        const std::string record = key + "=" + value;
        const size_t at = rest.find_first_not_of("0123456789");
        check(!key.empty() && at != rest.npos && strtoul(rest.c_str(), nullptr, 10) == record.size() &&
              rest.compare(at, record.size(), record) == 0);
        rest.erase(0, at + record.size());
    }
    check(rest.empty());
}
