// The partition tool's command line. Input: the arguments, one a line.
// Covers: platform/sfdisk/options.cpp
#include <cstdint>
#include <cstdlib>
#include <getopt.h>
#include <string>
#include <vector>

#include "platform/sfdisk/options.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    std::vector<std::string> words = {"sfdisk", ""};
    for (size_t at = 0; at < size; at++)
        if (data[at] == '\n')
            words.emplace_back();
        else
            words.back() += static_cast<char>(data[at]);
    std::vector<char *> argv;
    argv.reserve(words.size() + 1);
    for (std::string &word : words)
        argv.push_back(word.data());
    argv.push_back(nullptr);
    Options options;
    opterr = 0;
    optind = 0; // getopt begins anew
    if (!options_parse(static_cast<int>(words.size()), argv.data(), &options))
        return 0;
    const bool is_sound =
        options.disk_path != nullptr && options.disk_path[0] != '\0' &&
        (options.action != Action::kAdd || (options.partition.number > 0 && options.partition.sectors > 0)) &&
        (options.action != Action::kRemove ||
         (options.remove_first > 0 && options.remove_first <= options.remove_last));
    if (!is_sound)
        abort();
    return 0;
}
