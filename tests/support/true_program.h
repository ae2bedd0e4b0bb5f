// A program for roots that have no libraries: it ends with 0, whatever its arguments.
#pragma once

#include <string>

inline std::string true_program()
{
    // The headers of elf(5), one loaded segment that is the whole file, and: mov $60, %al; syscall.
    std::string image("\x7f\x45LF\2\1\1\0\0\0\0\0\0\0\0\0\2\0\x3e\0\1\0\0\0\x78\0\x40\0\0\0\0\0\x40\0\0\0\0\0\0\0", 40);
    image += std::string("\0\0\0\0\0\0\0\0\0\0\0\0\x40\0\x38\0\1\0\0\0\0\0\0\0", 24);
    image += std::string("\1\0\0\0\5\0\0\0\0\0\0\0\0\0\0\0\0\0\x40\0\0\0\0\0\0\0\x40\0\0\0\0\0", 32);
    image += std::string("\x80\0\0\0\0\0\0\0\x80\0\0\0\0\0\0\0\0\x10\0\0\0\0\0\0", 24);
    return image + std::string("\xb0\x3c\x0f\x05\0\0\0\0", 8);
}
