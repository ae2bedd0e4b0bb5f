#include "tools/common/text_clean.h"

std::string text_clean(std::string_view text)
{
    std::string clean;
    for (const char c : text)
        clean += static_cast<unsigned char>(c) < ' ' || c == '\x7f' ? '?' : c;
    return clean;
}
