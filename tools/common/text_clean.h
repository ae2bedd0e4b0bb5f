// Texts of unknown origin on a terminal.
#pragma once

#include <string>
#include <string_view>

// The text without what a terminal would obey: control characters become '?'.
[[nodiscard]] std::string text_clean(std::string_view text);
