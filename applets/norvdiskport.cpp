#include "applets/norvdiskport.h"

#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>

#include "applets/applets.h"
#include "autocleanup/unique.h"
#include "disk/disk.h"
#include "lib/conf.h"
#include "lib/report.h"
#include "lib/string.h"

static constexpr int kEsataPortsMax = 3;

int result_add(ResultText *result, const char *format, ...)
{
    char piece[128];
    va_list arguments;
    va_start(arguments, format);
    const int length = vsnprintf(piece, sizeof(piece), format, arguments);
    va_end(arguments);
    if (length < 0 || length >= static_cast<int>(sizeof(piece)))
        return fail(kErrTextDoesNotFit);
    return NLIBCStrCat(&result->text, &result->size, piece);
}

namespace
{

// By DiskPortType.
constexpr const char *kClassWords[] = {"UNKNOWN", "SATA",  "ESATA",  "EUNIT",  "USB",     "NORVBOOT",
                                       "ISCSI",   "CACHE", "USBHUB", "SDCARD", "INVALID", "SYS"};
static_assert(std::size(kClassWords) == kDiskPortSystem + 1);

struct ClassOption {
    const char *word;
    int type;
};
constexpr ClassOption kClassOptions[] = {
    {"-internal", kDiskPortInternal}, {"-esata", kDiskPortEsata},     {"-usb", kDiskPortUsb},
    {"-eunit", kDiskPortExpansion},   {"-iscsi", kDiskPortIscsi},     {"-norvboot", kDiskPortBoot},
    {"-cache", kDiskPortCache},       {"-invalid", kDiskPortInvalid}, {"-sys", kDiskPortSystem},
};

// Class that a word names; kDiskPortUnknown for none.
int class_find(const char *word)
{
    for (const ClassOption &option : kClassOptions)
        if (strcmp(option.word, word) == 0)
            return option.type;
    return kDiskPortUnknown;
}

int usage_print();

int names_add(const NLIBSZLIST *names, ResultText *result)
{
    for (int i = 0; i < names->nItem; i++)
        if (result_add(result, " %s", NLIBCSzListGet(names, i)) != 0)
            return -1;
    return 0;
}

int option_class(char *args[], ResultText *result)
{
    UniqueList disks(NLIBCSzListAlloc(1024));
    if (!disks || external_disk_port_enum(class_find(args[0]), disks.address()) != 0)
        return -1;
    return names_add(disks.get(), result);
}

int option_enum_port(char *args[], ResultText *result)
{
    const int type = class_find(args[1]);
    if (type == kDiskPortUnknown)
        return usage_print();
    UniqueList ports(NLIBCSzListAlloc(1024));
    if (!ports || external_disk_port_enum_all(type, ports.address()) != 0)
        return -1;
    if (type == kDiskPortEsata && ports.get()->nItem > kEsataPortsMax) {
        puts("This model don't support eSATA device.");
        return -1;
    }
    return names_add(ports.get(), result);
}

int option_port_check(char *args[], ResultText *result)
{
    const int type = external_disk_port_check(args[1]);
    const bool is_sas = type == kDiskPortInternal && conf_supportsas();
    return result_add(result, "%s", is_sas ? "SAS" : kClassWords[type]);
}

int option_installable_disk_list(char * /*args*/[], ResultText *result)
{
    UniqueList disks(NLIBCSzListAlloc(1024));
    if (!disks || NORVDiskSystemInstallationDeviceEnum(disks.address()) != 0)
        return -1;
    return names_add(disks.get(), result);
}

int option_part_name_get(char *args[], ResultText *result)
{
    char *end = nullptr, name[64];
    const long number = strtol(args[1], &end, 10);
    if (*end != '\0' || number > INT_MAX || number < INT_MIN)
        return fail(kErrBadParameter);
    if (disk_device_partition_name_get(args[2], static_cast<int>(number), name, sizeof(name)) != 0)
        return -1;
    return result_add(result, "%s", name);
}

int option_missing_system_disk_list(char * /*args*/[], ResultText * /*result*/)
{
    return 0;
}

struct Option {
    const char *word;
    const char *behind; // the words it takes, as the usage text shows them
    int words;          // how many those are
    int (*run)(char *args[], ResultText *result);
};
constexpr Option kOptions[] = {
    {"-enum_port", " <-internal/-esata/-usb/-eunit/-cache>", 1, option_enum_port},
    {"-portcheck", " <device>", 1, option_port_check},
    {"-atatodevice", " <ata link>", 1, option_ata_to_device},
    {"-deviceinfo", " <device>", 1, option_device_info},
    {"-portthawlist", "", 0, option_port_thaw_list},
    {"-installable_disk_list", "", 0, option_installable_disk_list},
    {"-part_name_get", " <number> <device>", 2, option_part_name_get},
    {"-incompatible_disk_list", "", 0, option_incompatible_disk_list},
    {"-missing_system_disk_list", "", 0, option_missing_system_disk_list},
    {"-invalid_disk_list", "", 0, option_invalid_disk_list},
};
constexpr Option kClassOption = {"", "", 0, option_class};

// The option of a word with so many words behind it; NULL for none.
const Option *option_find(const char *word, int words)
{
    if (words == 0 && class_find(word) != kDiskPortUnknown)
        return &kClassOption;
    for (const Option &option : kOptions)
        if (words == option.words && strcmp(option.word, word) == 0)
            return &option;
    return nullptr;
}

int usage_print()
{
    puts("Usage:");
    for (const ClassOption &option : kClassOptions)
        printf("    norvdiskport %s\n", option.word);
    for (const Option &option : kOptions)
        printf("    norvdiskport %s%s\n", option.word, option.behind);
    return -1;
}

} // namespace

int norvdiskport_main(int argc, char *argv[])
{
    const Option *option = argc < 2 ? nullptr : option_find(argv[1], argc - 2);
    if (option == nullptr)
        return usage_print();
    ResultText result;
    const int status = option->run(argv + 1, &result);
    const UniqueText owner(result.text);
    if (status == 0)
        puts(owner ? owner.get() : "");
    return status;
}
