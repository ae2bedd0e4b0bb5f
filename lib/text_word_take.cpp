#include "lib/text.h"

#include <algorithm>

std::string_view text_word_take(std::string_view *text, std::string_view blanks)
{
    text->remove_prefix(std::min(text->find_first_not_of(blanks), text->size()));
    const std::string_view word = text->substr(0, text->find_first_of(blanks));
    text->remove_prefix(word.size());
    return word;
}
