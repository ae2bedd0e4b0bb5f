// The names of the factory's tests, in their groups.
#pragma once

#include <cstddef>
#include <span>

#include "manutil/vender.h"

struct TestGroup {
    const char *title_format;           // of a report; takes whether the group was tested
    uint16_t member, bytes;             // byte offset and size of its flags in VenderTestFlags
    std::span<const char *const> names; // by index; 0 is whether the group was tested
};
inline constexpr int kTestGroups = 4;
enum TestGroupIndex { kGroupProComm, kGroupPreBurnin, kGroupFinalFunctional, kGroupFinalBurnin };
extern const TestGroup kTestGroupTable[kTestGroups];

// The flags of a group.
[[nodiscard]] uint8_t *test_group_flags(VenderTestFlags *flags, const TestGroup &group);

// Where a flag stands.
struct TestFlagPlace {
    const TestGroup *group; // NULL: there is no such flag
    size_t index;
};
[[nodiscard]] TestFlagPlace test_flag_find(const char *name);

// The counter of that name; NULL when there is none.
[[nodiscard]] uint32_t *test_counter_find(VenderTestFlags *flags, const char *name);

// Sets a counter or flag by name, "ft_func_error" among them, and marks its group as tested. An unknown name, and a
// flag with a value above 2, change nothing. `value` is a number or, for ft_func_error, digits by position.
void test_flag_set(VenderTestFlags *flags, const char *name, const char *value);

// A flag in words.
[[nodiscard]] const char *test_result_words(uint8_t flag);
