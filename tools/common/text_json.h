// Texts of unknown origin in JSON.
#pragma once

#include <json-c/json_object.h>
#include <string_view>

// A text of JSON, the caller's: what came as no character of UTF-8 becomes '?'.
[[nodiscard]] json_object *text_json(std::string_view text);
