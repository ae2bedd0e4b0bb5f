#include <cstdio>
#include <cstring>

#include "applets/mantool.h"
#include "lib/report.h"
#include "manutil/test_flags.h"

int man_test_flag_init(int argc, char * /*argv*/[])
{
    if (argc != 2)
        return mantool_usage_error();
    return vender_update(
        [](VenderRecord *record, void *) {
            if (record->flags.pt_mem_cnt == kVenderNeverSet)
                record->flags = {};
            return 0;
        },
        nullptr);
}

int man_test_flag_reset(int argc, char * /*argv*/[])
{
    if (argc != 2)
        return mantool_usage_error();
    return vender_update(
        [](VenderRecord *record, void *) {
            record->flags = {};
            return 0;
        },
        nullptr);
}

int man_test_flag_set(int argc, char *argv[])
{
    if (argc != 4)
        return mantool_usage_error();
    return vender_update(
        [](VenderRecord *record, void *context) {
            char *const *words = static_cast<char *const *>(context);
            test_flag_set(&record->flags, words[2], words[3]);
            return 0;
        },
        argv);
}

// Reads the flags for a question.
static int flags_read(VenderTestFlags *flags)
{
    if (NORVManutilVenderSemaphoreEnter() != 0) {
        NORV_LOG(LOG_ERR, "failed to call NORVManutilVenderSemaphoreEnter()");
        return -1;
    }
    VenderRecord record;
    const int result = ManutilGetAll(&record);
    if (NORVManutilVenderSemaphoreRelease() != 0)
        NORV_LOG(LOG_ERR, "failed to call NORVManutilVenderSemaphoreRelease()");
    if (result == 0)
        *flags = record.flags;
    return result;
}

int man_test_flag_get(int argc, char *argv[])
{
    VenderTestFlags flags;
    if (argc != 3)
        return mantool_usage_error();
    if (flags_read(&flags) != 0)
        return -1;
    if (const uint32_t *counter = test_counter_find(&flags, argv[2]); counter != nullptr) {
        printf("%u\n", *counter);
        return 0;
    }
    const TestFlagPlace place = test_flag_find(argv[2]);
    if (place.group == nullptr)
        return -1;
    puts(test_result_words(test_group_flags(&flags, *place.group)[place.index]));
    return 0;
}

// The flags of a group, the first left out but for the group that has no counter of its own.
static void flags_print(VenderTestFlags *flags, TestGroupIndex index, size_t first, size_t end, const char *indent)
{
    const TestGroup &group = kTestGroupTable[index];
    for (size_t i = first; i < end && i < group.names.size(); i++)
        printf("\n%s%-24s: %s", indent, group.names[i], test_result_words(test_group_flags(flags, group)[i]));
}

static bool group_is_tested(VenderTestFlags *flags, TestGroupIndex index)
{
    return test_group_flags(flags, kTestGroupTable[index])[0] == kVenderPassed;
}

static bool group_title_print(VenderTestFlags *flags, TestGroupIndex index, const char *before)
{
    const bool is_tested = group_is_tested(flags, index);
    printf("%s%s: %s", before, kTestGroupTable[index].title, is_tested ? "True" : "False");
    return is_tested;
}

int man_test_flag_list(int argc, char * /*argv*/[])
{
    constexpr size_t kAll = SIZE_MAX, kAfterMemory = 2;
    constexpr char kDeep[] = "\t\t";
    VenderTestFlags flags;
    if (argc != 2)
        return mantool_usage_error();
    if (flags_read(&flags) != 0)
        return -1;
    if (group_title_print(&flags, kGroupProComm, ""))
        flags_print(&flags, kGroupProComm, 0, kAll, kDeep);
    if (group_title_print(&flags, kGroupPreBurnin, "\n\n")) {
        printf("\n\tMemory Test Counter: %u", flags.pt_mem_cnt);
        flags_print(&flags, kGroupPreBurnin, 1, kAfterMemory, kDeep);
        printf("\n\tDMA Test Counter: %u", flags.pt_dma_cnt);
        flags_print(&flags, kGroupPreBurnin, kAfterMemory, kAll, kDeep);
    }
    if (group_title_print(&flags, kGroupFinalFunctional, "\n\n"))
        flags_print(&flags, kGroupFinalFunctional, 1, kAll, kDeep);
    if (group_title_print(&flags, kGroupFinalBurnin, "\n\n")) {
        printf("\n\tBurnin Test Counter: %u", flags.ft_burnin_cnt);
        flags_print(&flags, kGroupFinalBurnin, 1, kAll, kDeep);
    }
    putchar('\n');
    return 0;
}

// A text of its own, which lags behind the table.
int man_test_flag_help(int /*argc*/, char * /*argv*/[])
{
    fputs("[ProComm Test]\n"
          "\tPTF_BEGIN\n\tPTF_COMPLETE\n"
          "[Pre Burn-in Test]\n"
          "\tpt_mem_cnt\n\tpt_dma_cnt\n\tPTB_TESTED\n\tPTB_MEMORY_TEST\n\tPTB_FILE_CHECKSUM\n\tPTB_NETWORK_CRC\n"
          "[Final Functional Test]\n"
          "\tFTF_TESTED\n\tFTF_TEST_COMPLETE\n\tFTF_MODEL_VERSION\n\tFTF_USB\n\tFTF_ESATA\n\tFTF_RTC\n\tFTF_FAN\n"
          "\tFTF_LED\n\tFTF_BUTTON\n\tFTF_FILE_COPY\n\tFTF_REBOOT\n\tFTF_SERIAL_NUMBER\n\tFTF_NETWORK_SPEED\n"
          "\tFTF_MAC_ADDRESS\n\tFTF_REDUNDANT_POWER\n"
          "[Final Burn-in Test]\n"
          "\tft_burnin_cnt\n\tFTB_TESTED\n\tFTB_FILE_COPY\n\tFTB_FILE_CHECKSUM\n\tFTB_SATA_ERROR\n\tFTB_NETWORK_CRC\n"
          "\tFTB_ATA_DRDY\n",
          stdout);
    return 0;
}
