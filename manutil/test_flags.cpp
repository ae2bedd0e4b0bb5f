#include "manutil/test_flags.h"

#include <cstring>

#include "lib/string.h"

static constexpr const char *kProCommNames[] = {"PTF_BEGIN", "PTF_COMPLETE"};
static constexpr const char *kPreBurninNames[] = {"PTB_TESTED",      "PTB_MEMORY_TEST", "PTB_FILE_CHECKSUM",
                                                  "PTB_NETWORK_CRC", "PTB_AV_STRESS",   "PTB_FILE_COPY",
                                                  "PTB_CHECK_ITEM"};
static constexpr const char *kFinalFunctionalNames[] = {"FTF_TESTED",
                                                        "FTF_TEST_COMPLETE",
                                                        "FTF_MODEL",
                                                        "FTF_VERSION",
                                                        "FTF_USB",
                                                        "FTF_ESATA",
                                                        "FTF_RTC",
                                                        "FTF_FAN",
                                                        "FTF_LED",
                                                        "FTF_BUTTON",
                                                        "FTF_FILE_COPY",
                                                        "FTF_REBOOT",
                                                        "FTF_SERIAL_NUMBER",
                                                        "FTF_NETWORK_SPEED",
                                                        "FTF_MAC_ADDRESS",
                                                        "FTF_REDUNDANT_POWER",
                                                        "FTF_ESATA2",
                                                        "FTF_HDD_SEQ",
                                                        "FTF_CPU_NAME",
                                                        "FTF_MEMORY_SIZE",
                                                        "FTF_FUSE",
                                                        "FTF_TRANSCODING",
                                                        "FTF_SAS_CONTROLLER_PHY",
                                                        "FTF_SATA_SPEED",
                                                        "FTF_TEN_GIGA_NIC",
                                                        "FTF_GROUP_UPDATE"};
static constexpr const char *kFinalBurninNames[] = {"FTB_TESTED",      "FTB_FILE_COPY", "FTB_FILE_CHECKSUM", "FTB_SATA",
                                                    "FTB_NETWORK_CRC", "FTB_ATA_DRDY",  "FTB_CHECK_ITEM"};

#define TEST_GROUP(title_format, member, names)                                                                        \
    {                                                                                                                  \
        title_format, offsetof(VenderTestFlags, member), sizeof(VenderTestFlags::member), names                        \
    }
constexpr TestGroup kTestGroupTable[kTestGroups] = {
    TEST_GROUP("ProComm Test: %s", procomm, kProCommNames),
    TEST_GROUP("\n\nPre Burn-in Test: %s", pre_burnin, kPreBurninNames),
    TEST_GROUP("\n\nFinal Functional Test: %s", final_functional, kFinalFunctionalNames),
    TEST_GROUP("\n\nFinal Burn-in Test: %s", final_burnin, kFinalBurninNames),
};

struct TestCounter {
    const char *name;
    uint32_t VenderTestFlags::*count;
    TestGroupIndex group; // marked as tested when the counter is set
};
static constexpr TestCounter kCounters[] = {
    {"pt_mem_cnt", &VenderTestFlags::pt_mem_cnt, kGroupPreBurnin},
    {"pt_dma_cnt", &VenderTestFlags::pt_dma_cnt, kGroupPreBurnin},
    {"ft_burnin_cnt", &VenderTestFlags::ft_burnin_cnt, kGroupFinalBurnin},
};

uint8_t *test_group_flags(VenderTestFlags *flags, const TestGroup &group)
{
    return reinterpret_cast<uint8_t *>(flags) + group.member;
}

TestFlagPlace test_flag_find(const char *name)
{
    for (const TestGroup &group : kTestGroupTable)
        for (size_t i = 0; i < group.names.size(); i++)
            if (strcmp(group.names[i], name) == 0)
                return {&group, i};
    return {nullptr, 0};
}

uint32_t *test_counter_find(VenderTestFlags *flags, const char *name)
{
    for (const TestCounter &counter : kCounters)
        if (strcmp(counter.name, name) == 0)
            return &(flags->*counter.count);
    return nullptr;
}

static void group_mark_tested(VenderTestFlags *flags, TestGroupIndex group)
{
    test_group_flags(flags, kTestGroupTable[group])[0] = kVenderPassed;
}

static void func_error_set(VenderTestFlags *flags, const char *digits)
{
    for (size_t i = 0; i < sizeof(flags->final_functional) && digits[i] != '\0'; i++)
        if (digits[i] >= '0' && digits[i] <= '2')
            flags->final_functional[i] = static_cast<uint8_t>(digits[i] - '0');
}

// Reads a counter. -1 is how a record says that it was never set.
static bool counter_parse(const char *text, uint32_t *count)
{
    if (strcmp(text, "-1") != 0)
        return ParseNumber(text, count);
    *count = kVenderNeverSet;
    return true;
}

static void flag_set(VenderTestFlags *flags, const TestFlagPlace &place, uint32_t value)
{
    if (place.group == nullptr || value > kVenderFailed)
        return;
    const bool is_begin = place.group == &kTestGroupTable[kGroupProComm] && place.index == 0;
    if (is_begin && flags->pt_mem_cnt == kVenderNeverSet)
        *flags = {};
    uint8_t *group = test_group_flags(flags, *place.group);
    group[0] = kVenderPassed;
    group[place.index] = static_cast<uint8_t>(value);
}

void test_flag_set(VenderTestFlags *flags, const char *name, const char *value)
{
    if (strcmp(name, "ft_func_error") == 0) {
        func_error_set(flags, value);
        return;
    }
    uint32_t number = 0;
    if (!counter_parse(value, &number))
        return;
    for (const TestCounter &counter : kCounters)
        if (strcmp(counter.name, name) == 0) {
            flags->*counter.count = number;
            group_mark_tested(flags, counter.group);
            return;
        }
    flag_set(flags, test_flag_find(name), number);
}

const char *test_result_words(uint8_t flag)
{
    static constexpr const char *kWords[] = {"NotTest", "Pass", "Fail"};
    return flag <= kVenderFailed ? kWords[flag] : "Unknown manutil errors";
}
