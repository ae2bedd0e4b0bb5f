#include "storage/partition_layout_parts.h"
#include "storage/partition_layout_table.h"
#include "storage/root_block.h"
#include "tools/disk_explain/explain.h"

json_object *layout_facts(const PartitionLayout &layout)
{
    json_object *facts = json_object_new_object();
    json_object_object_add(facts, "version", json_object_new_int(layout.version));
    json_object_object_add(facts, "raid", json_object_new_boolean(layout.blRaidType));
    json_object_object_add(facts, "builtin", json_object_new_boolean(layout.blBuildinStorage));
    return facts;
}

// What the quick form, which leaves the types out, makes of the disk on each kind of model.
static json_object *quick_facts(const ExaminedDisk &disk, View *view)
{
    json_object *versions = json_object_new_array();
    for (const PartitionLayout &row : partition_layout_table::kRows) {
        if (!same_place(row.partition[0], disk.root) || !same_place(row.partition[1], disk.swap))
            continue;
        json_object_array_add(versions, layout_facts(row));
        view->say("By place alone it is layout %d of a model %s.", row.version,
                  row.blRaidType != 0         ? "with arrays"
                  : row.blBuildinStorage != 0 ? "with built-in storage"
                                              : "without arrays");
    }
    return versions;
}

void explain_layout(const ExaminedDisk &disk, View *view)
{
    int row = -1;
    const PartitionLayout *layout = partition_layout_match(disk.root, disk.swap, &row);
    const char *source = layout != nullptr ? "table" : "none";
    View unused;
    const UniqueRootBlock block(root_block_alloc());
    if (layout == nullptr && root_block_examine(disk, block.get(), &unused) > 0 && block.get()->layout != nullptr &&
        partition_layout_describes(*block.get()->layout, disk.root, disk.swap)) {
        layout = block.get()->layout;
        source = "root block";
    }
    json_object_put(unused.facts);

    view->fact("source", source);
    if (layout == nullptr) {
        view->say("Partitions 1 and 2 are those of no layout, and no root block describes them: another system's disk, "
                  "or a blank one.");
    } else {
        view->fact("version", json_object_new_int(layout->version));
        view->fact("raid", layout->blRaidType != 0);
        view->fact("row", json_object_new_int(row));
        view->say("Layout version %d, %s.", layout->version,
                  row >= 0 ? "by place, size and type of partitions 1 and 2"
                           : "as the root block says, which describes partitions 1 and 2");
    }
    view->fact("by_place", quick_facts(disk, view));
}
