// The partition tool's command line. Input: the arguments, one a line.
// Covers: platform/sfdisk/options.cpp
#include <getopt.h>
#include <vector>

#include "platform/sfdisk/options.h"
#include "tests/fuzz/fuzz.h"

void fuzz_one(std::string_view input)
{
    std::vector<std::string> words = {"sfdisk"};
    while (!input.empty())
        words.push_back(text_take(&input, '\n'));
    std::vector<char *> argv;
    argv.reserve(words.size() + 1);
    for (std::string &word : words)
        argv.push_back(word.data());
    argv.push_back(nullptr);
    Options options;
    opterr = 0;
    optind = 0; // getopt begins anew
    if (!options_parse(static_cast<int>(words.size()), argv.data(), &options))
        return;
    const bool is_sound =
        options.disk_path != nullptr && options.disk_path[0] != '\0' &&
        (options.action != Action::kAdd || (options.partition.number > 0 && options.partition.sectors > 0)) &&
        (options.action != Action::kRemove ||
         (options.remove_first > 0 && options.remove_first <= options.remove_last));
    check(is_sound);
}
