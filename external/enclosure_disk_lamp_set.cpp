#include <cstdio>

#include "autocleanup/unique.h"
#include "external/enclosure_lamp.h"
#include "lib/report.h"

int enclosure_lamp_write(const char *path, bool is_on)
{
    UniqueFile file(fopen(path, "we"));
    const bool is_written = file && fprintf(file.get(), "%d\n", is_on ? 1 : 0) > 0;
    return file && fclose(file.release()) == 0 && is_written ? 0 : fail(kErrWrite);
}

int enclosure_disk_lamp_set(const char *disk_name, EnclosureLamp lamp, bool is_on)
{
    EnclosureSlot slot;
    if (enclosure_slot_find(disk_name, &slot) != 0)
        return -1;
    char path[sizeof(slot.folder) + 16];
    snprintf(path, sizeof(path), "%s/%s", slot.folder, kLampNames[lamp]);
    return enclosure_lamp_write(path, is_on);
}
