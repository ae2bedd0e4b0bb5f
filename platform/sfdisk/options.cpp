#include "platform/sfdisk/options.h"

#include <cstring>
#include <getopt.h>

#include "lib/text.h"

namespace
{

bool size_parse(std::string_view text, uint64_t *sectors)
{
    if (text == "-1") {
        *sectors = kToTheEnd;
        return true;
    }
    return text_number(text, sectors) && *sectors > 0 && *sectors != kToTheEnd;
}

bool range_parse(std::string_view text, Options *options)
{
    if (text == "-1") {
        options->action = Action::kRemoveAll;
        return true;
    }
    options->action = Action::kRemove;
    const size_t colon = text.find(':');
    return colon != std::string_view::npos && text_number(text.substr(0, colon), &options->remove_first) &&
           text_number(text.substr(colon + 1), &options->remove_last) && options->remove_first > 0 &&
           options->remove_last <= 255 && options->remove_first <= options->remove_last;
}

// What stands in the rest of the line: one disk, and words that are empty.
bool disk_parse(int argc, char *argv[], Options *options)
{
    for (int index = optind; index < argc; index++) {
        if (argv[index][0] == '\0')
            continue;
        if (options->disk_path != nullptr)
            return false;
        options->disk_path = argv[index];
    }
    return options->disk_path != nullptr;
}

} // namespace

bool options_parse(int argc, char *argv[], Options *options)
{
    static constexpr option kLongOptions[] = {{"fast-delete", required_argument, nullptr, 'D'}, {}};
    int actions = 0;
    bool has_type = false;
    for (int letter; (letter = getopt_long(argc, argv, "lM:N:u:qfFj:z:t:", kLongOptions, nullptr)) != -1;) {
        bool is_right = true;
        switch (letter) {
        case 'l':
            actions++;
            break;
        case 'M':
            actions++;
            options->action = Action::kEnsureLabel;
            is_right = strcmp(optarg, "1") == 0;
            break;
        case 'D':
            actions++;
            is_right = range_parse(optarg, options);
            break;
        case 'z':
            actions++;
            options->action = Action::kAdd;
            is_right = size_parse(optarg, &options->partition.sectors);
            break;
        case 'N':
            is_right = text_number(optarg, &options->partition.number) && options->partition.number > 0;
            break;
        case 'j':
            is_right = text_number(optarg, &options->partition.gap);
            break;
        case 't':
            has_type = true;
            is_right = text_number(optarg, &options->partition.type, 16);
            break;
        case 'u':
            is_right = strcmp(optarg, "S") == 0;
            break;
        case 'q':
        case 'f':
        case 'F':
            break;
        default:
            return false;
        }
        if (!is_right)
            return false;
    }
    const bool adds = options->action == Action::kAdd;
    return actions == 1 && has_type == adds && (!adds || options->partition.number > 0) &&
           disk_parse(argc, argv, options);
}
