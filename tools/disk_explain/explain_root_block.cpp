#include <algorithm>
#include <cinttypes>
#include <cstring>
#include <unistd.h>

#include "storage/root_block_op.h"
#include "tools/disk_explain/explain.h"

namespace
{

struct Copy {
    int number; // RootBlockCopy
    const char *word;
    uint64_t header_at(uint64_t disk_bytes) const // 0: no room
    {
        if (number == kRootBlockPrimary)
            return kRootBlockHeaderAt;
        return disk_bytes >= kRootBlockBackupHeader ? disk_bytes - kRootBlockBackupHeader : 0;
    }
};
constexpr Copy kCopies[] = {{kRootBlockPrimary, "primary"}, {kRootBlockBackup, "backup"}};

const char *header_state(int is_valid, const RootHeader &header)
{
    return is_valid == 1                                                         ? "valid"
           : is_valid < 0                                                        ? "unreadable"
           : memcmp(header.magic, kRootBlockMagic, sizeof(kRootBlockMagic)) != 0 ? "absent"
           : header.version == 0                                                 ? "version 0"
                                                                                 : "offset too low";
}

PartitionsTaken taken_by(const PartitionTable &table)
{
    PartitionsTaken taken;
    for (const Partition &partition : table.partitions)
        taken.add({partition.start, partition.sectors, partition.type});
    return taken;
}

void block_say(const RootBlock &block, View *view)
{
    if (block.layout != nullptr) {
        json_object *layout = layout_facts(*block.layout);
        json_object *extents = json_object_new_array();
        for (const PartitionExtent &extent : block.layout->partition) {
            json_object *facts = json_object_new_object();
            json_object_object_add(facts, "start", json_object_new_uint64(extent.start));
            json_object_object_add(facts, "sectors", json_object_new_uint64(extent.size));
            json_object_object_add(facts, "type", json_object_new_uint64(extent.fsId));
            json_object_array_add(extents, facts);
        }
        json_object_object_add(layout, "partitions", extents);
        view->fact("layout", layout);
        if (block.layout->version == 0)
            view->say("It carries no layout.");
        else
            view->say("It carries layout version %d.", block.layout->version);
    }
    if (block.extraVersion != nullptr)
        view->fact("extra_version", static_cast<uint64_t>(*block.extraVersion));
    if (block.capability == nullptr) {
        view->say("It has no capability: every system may use the disk.");
        return;
    }
    const bool shared = capability_fits(*block.capability, kCapabilityShared);
    const bool isolated = capability_fits(*block.capability, kCapabilityIsolated);
    view->fact("capability", static_cast<uint64_t>(*block.capability));
    view->fact("fits_shared_root", shared);
    view->fact("fits_isolated_root", isolated);
    view->say("Capability 0x%x: a system whose root is not on an isolated disk %s use it, one whose root is %s.",
              *block.capability, shared ? "may" : "may not", isolated ? "may" : "may not");
}

} // namespace

int root_block_examine(const ExaminedDisk &disk, RootBlock *block, View *view)
{
    RootHeader counting = {};
    int counts = 0; // the first header that is valid, or cannot be read
    for (const Copy &copy : kCopies) {
        RootHeader header = {};
        const uint64_t at = copy.header_at(disk.bytes);
        const int is_valid = at == 0 ? 0 : root_block_header_read(disk.fd.get(), at, &header);
        const char *state = at == 0 ? "no room" : header_state(is_valid, header);
        json_object *facts = json_object_new_object();
        json_object_object_add(facts, "header", json_object_new_string(state));
        view->fact(copy.word, facts);
        if (at == 0)
            view->say("The disk has no room for a %s copy.", copy.word);
        else
            view->say("The header of the %s copy, at byte %" PRIu64 ": %s.", copy.word, at, state);
        if (is_valid == 1) {
            json_object_object_add(facts, "version", json_object_new_int64(header.version));
            json_object_object_add(facts, "offset", json_object_new_uint64(header.dataOffset));
            view->say("It says: version %" PRIu32 ", body at byte %" PRIu64 ".", header.version, header.dataOffset);
        }
        if (counts == 0 && is_valid != 0) {
            counts = is_valid == 1 ? copy.number : -1;
            counting = header;
        }
    }
    if (counts <= 0)
        return counts;
    if (!root_block_place_is_free(taken_by(disk.table), counting.dataOffset)) {
        view->say("The body's place is not free of partitions, so the block does not count.");
        return 0;
    }
    RootBlockOpInfo info;
    info.fd.reset(dup(disk.fd.get()));
    info.offset = counting.dataOffset;
    info.version = std::min(counting.version, kRootBlockVersion);
    if (root_block_read(info, block) == 0)
        return counts;
    view->say("The body cannot be read.");
    return -1;
}

void explain_root_block(const ExaminedDisk &disk, View *view)
{
    const UniqueRootBlock block(root_block_alloc());
    const int counts = root_block_examine(disk, block.get(), view);
    view->fact("counts", json_object_new_int(counts));
    if (counts <= 0) {
        view->say(counts == 0 ? "There is no root block." : "The disk's root block is broken.");
        return;
    }
    view->say("The %s copy counts.", kCopies[counts - 1].word);
    block_say(*block.get(), view);
}
