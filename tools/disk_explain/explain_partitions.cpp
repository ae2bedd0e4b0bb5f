#include "tools/disk_explain/explain.h"

#include <cinttypes>

void explain_partitions(const ExaminedDisk &disk, View *view)
{
    static constexpr struct {
        const char *word, *sentence;
    } kLabels[] = {
        {"none", "There is no partition table."}, {"dos", "MS-DOS label."}, {"gpt", "GUID label."}}; // LabelKind
    const auto &[word, sentence] = kLabels[static_cast<int>(disk.table.kind)];
    view->fact("kind", word);
    view->fact("damaged", disk.label_is_damaged);
    view->say("%s", disk.label_is_damaged ? "The partition table is damaged." : sentence);
    json_object *partitions = json_object_new_array();
    for (const Partition &partition : disk.table.partitions) {
        json_object *facts = json_object_new_object();
        json_object_object_add(facts, "number", json_object_new_int(partition.number));
        json_object_object_add(facts, "start", json_object_new_uint64(partition.start));
        json_object_object_add(facts, "sectors", json_object_new_uint64(partition.sectors));
        json_object_object_add(facts, "type", json_object_new_int(partition.type));
        json_object_array_add(partitions, facts);
        view->say("Partition %d: sectors %" PRIu64 " to %" PRIu64 " (%.1f MiB), type %x%s.", partition.number,
                  partition.start, partition.end() - 1, static_cast<double>(partition.sectors) / 2048, partition.type,
                  partition.end() * kSectorBytes > disk.bytes ? ", ends behind the disk" : "");
    }
    view->fact("partitions", partitions);
}
