// Attributes of the kernel's device tree, one line of text each.
#pragma once

#include <cstddef>
#include <string_view>

// Reads the first line of a file into `text`, trimmed and cut to the room. False, `text` empty, when it cannot be read
// or is empty.
bool sys_attribute_read(const char *path, char *text, size_t size);

// The same below a folder. Returns a hexadecimal number, "0x" allowed; -1 when there is none.
[[nodiscard]] long sys_attribute_hex(const char *folder, const char *name);

// The last component of a path that begins with `prefix`; empty without one.
[[nodiscard]] std::string_view sys_path_component(std::string_view path, std::string_view prefix);
