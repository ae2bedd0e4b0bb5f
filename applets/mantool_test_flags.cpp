#include <cstdio>

#include "applets/mantool.h"
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

int man_test_flag_get(int argc, char *argv[])
{
    VenderRecord record;
    if (argc != 3)
        return mantool_usage_error();
    if (vender_get(&record) != 0)
        return -1;
    if (const uint32_t *counter = test_counter_find(&record.flags, argv[2]); counter != nullptr) {
        printf("%u\n", *counter);
        return 0;
    }
    const TestFlagPlace place = test_flag_find(argv[2]);
    if (place.group == nullptr)
        return -1;
    puts(test_result_words(test_group_flags(&record.flags, *place.group)[place.index]));
    return 0;
}

static void flags_print(VenderTestFlags *flags, const TestGroup &group, size_t first, size_t end)
{
    for (size_t i = first; i < end; i++)
        printf("\n\t\t%-24s: %s", group.names[i], test_result_words(test_group_flags(flags, group)[i]));
}

static void all_flags_print(VenderTestFlags *flags, TestGroupIndex index)
{
    flags_print(flags, kTestGroupTable[index], 0, kTestGroupTable[index].names.size());
}

static bool group_title_print(VenderTestFlags *flags, TestGroupIndex index)
{
    const TestGroup &group = kTestGroupTable[index];
    const bool is_tested = test_group_flags(flags, group)[0] == kVenderPassed;
    printf(group.title_format, is_tested ? "True" : "False");
    return is_tested;
}

int man_test_flag_list(int argc, char * /*argv*/[])
{
    VenderRecord record;
    if (argc != 2)
        return mantool_usage_error();
    if (vender_get(&record) != 0)
        return -1;
    VenderTestFlags *flags = &record.flags;
    if (group_title_print(flags, kGroupProComm))
        all_flags_print(flags, kGroupProComm);
    if (group_title_print(flags, kGroupPreBurnin)) {
        const TestGroup &group = kTestGroupTable[kGroupPreBurnin];
        constexpr size_t kMemory = 1; // stands beside its counter
        printf("\n\tMemory Test Counter: %u", flags->pt_mem_cnt);
        flags_print(flags, group, kMemory, kMemory + 1);
        printf("\n\tDMA Test Counter: %u", flags->pt_dma_cnt);
        flags_print(flags, group, 0, kMemory);
        flags_print(flags, group, kMemory + 1, group.names.size());
    }
    // The final tests' flags are told also before anything was tested.
    group_title_print(flags, kGroupFinalFunctional);
    all_flags_print(flags, kGroupFinalFunctional);
    group_title_print(flags, kGroupFinalBurnin);
    printf("\n\tBurnin Test Counter: %u", flags->ft_burnin_cnt);
    all_flags_print(flags, kGroupFinalBurnin);
    putchar('\n');
    return 0;
}

// A text of its own, which lags behind the table.
int man_test_flag_help(int argc, char * /*argv*/[])
{
    if (argc != 2)
        return mantool_usage_error();
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
          "\tFTB_ATA_DRDY\n\tFTB_CHECK_ITEM\n",
          stdout);
    return 0;
}
