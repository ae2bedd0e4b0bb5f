#include "disk/disk_rule.h"

// On a mismatch the last '*' takes one character more. Every earlier one can stay as it is, so the time is at most the
// product of the lengths.
bool disk_rule_pattern_matches(std::string_view pattern, std::string_view text)
{
    size_t in_pattern = 0, in_text = 0, behind_star = pattern.npos, star_end = 0;
    while (in_text < text.size()) {
        if (in_pattern < pattern.size() && pattern[in_pattern] == '*') {
            behind_star = ++in_pattern;
            star_end = in_text;
        } else if (in_pattern < pattern.size() &&
                   (pattern[in_pattern] == '?' || pattern[in_pattern] == text[in_text])) {
            in_pattern++;
            in_text++;
        } else if (behind_star != pattern.npos) {
            in_pattern = behind_star;
            in_text = ++star_end;
        } else {
            return false;
        }
    }
    return pattern.find_first_not_of('*', in_pattern) == pattern.npos;
}
