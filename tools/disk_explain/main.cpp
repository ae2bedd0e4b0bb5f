// Tells what a disk, or an image of one, holds and why the appliance takes it for what it does.
//
//   disk-explain [--json] IMAGE|DEVICE
//
// Exit status: 0 told; 1 the disk cannot be read; 2 a wrong command line.
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <fcntl.h>

#include "tools/disk_explain/explain.h"

namespace
{

struct ViewRow {
    const char *key, *title;
    void (*explain)(const ExaminedDisk &disk, View *view);
};
constexpr ViewRow kViews[] = {
    {"label", "Partitions", explain_partitions},
    {"layout", "Layout", explain_layout},
    {"root_block", "Root block", explain_root_block},
    {"super_block", "Super block", explain_super_block},
};

PartitionExtent extent_of(const PartitionTable &table, int number)
{
    const Partition *partition = table_find(table, number);
    return partition == nullptr ? PartitionExtent{}
                                : PartitionExtent{partition->start, partition->sectors, partition->type};
}

Fault disk_examine(const char *path, ExaminedDisk *examined)
{
    Disk disk;
    if (const Fault opened = disk_open(path, DiskAccess::kRead, &disk); opened != Fault::kNone)
        return opened;
    examined->path = path;
    examined->bytes = disk.sectors * kSectorBytes;
    const Fault fault = label_read(disk, &examined->table);
    examined->label_is_damaged = fault == Fault::kDamaged;
    if (fault != Fault::kNone && fault != Fault::kDamaged)
        return fault;
    examined->root = extent_of(examined->table, 1);
    examined->swap = extent_of(examined->table, 2);
    examined->fd = std::move(disk.fd);
    return Fault::kNone;
}

void disk_print(const ExaminedDisk &disk, bool as_json)
{
    json_object *all = json_object_new_object();
    json_object_object_add(all, "path", json_object_new_string(disk.path));
    json_object_object_add(all, "bytes", json_object_new_uint64(disk.bytes));
    if (!as_json)
        printf("%s: %.1f GiB\n", disk.path, static_cast<double>(disk.bytes) / (1 << 30));
    for (const ViewRow &row : kViews) {
        View view;
        row.explain(disk, &view);
        json_object *sentences = json_object_new_array();
        for (const std::string &sentence : view.sentences)
            json_object_array_add(sentences, json_object_new_string(sentence.c_str()));
        view.fact("sentences", sentences);
        json_object_object_add(all, row.key, view.facts);
        if (as_json)
            continue;
        printf("\n%s\n", row.title);
        for (const std::string &sentence : view.sentences)
            printf("  %s\n", sentence.c_str());
    }
    if (as_json)
        puts(json_object_to_json_string_ext(all, JSON_C_TO_STRING_PRETTY | JSON_C_TO_STRING_NOSLASHESCAPE));
    json_object_put(all);
}

} // namespace

void View::say(const char *format, ...)
{
    char text[512];
    va_list rest;
    va_start(rest, format);
    vsnprintf(text, sizeof(text), format, rest);
    va_end(rest);
    sentences.emplace_back(text);
}

int main(int argc, char *argv[])
{
    static constexpr char kUsage[] = "usage: disk-explain [--json] IMAGE|DEVICE\n"
                                     "       disk-explain --help\n";
    if (argc == 2 && strcmp(argv[1], "--help") == 0)
        return fputs(kUsage, stdout) < 0 ? 2 : 0;
    const bool as_json = argc > 1 && strcmp(argv[1], "--json") == 0;
    if (argc != (as_json ? 3 : 2) || argv[argc - 1][0] == '-') {
        fputs(kUsage, stderr);
        return 2;
    }
    ExaminedDisk disk = {};
    if (const Fault fault = disk_examine(argv[argc - 1], &disk); fault != Fault::kNone) {
        const FaultText &why = fault_text(fault);
        fprintf(stderr, "disk-explain: %s %s%s%s\n", argv[argc - 1], why.text, why.has_errno ? ": " : "",
                why.has_errno ? strerror(errno) : "");
        return 1;
    }
    disk_print(disk, as_json);
    return 0;
}
