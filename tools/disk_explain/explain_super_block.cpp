#include <cinttypes>

#include "storage/space_block.h"
#include "tools/disk_explain/explain.h"

// A text of the disk with a '?' for each byte that is no plain character.
static std::string shown(const char *text)
{
    std::string plain(text);
    for (char &byte : plain)
        if (byte < ' ' || byte > '~')
            byte = '?';
    return plain;
}

static json_object *caches_facts(const NORVBlock &block, View *view)
{
    json_object *caches = json_object_new_array();
    for (const BlockCache *record = block.cacheInfo; record != nullptr; record = record->next) {
        const std::string id = shown(record->id);
        json_object *facts = json_object_new_object();
        json_object_object_add(facts, "id", json_object_new_string(id.c_str()));
        json_object_object_add(facts, "mode", json_object_new_int64(record->mode));
        json_object_object_add(facts, "size", json_object_new_uint64(record->size));
        json_object_object_add(facts, "count", json_object_new_int64(record->count));
        json_object_array_add(caches, facts);
        view->say("Cache %s: mode %" PRIu32 ", size %" PRIu64 ".", id.c_str(), record->mode, record->size);
    }
    return caches;
}

void explain_super_block(const ExaminedDisk &disk, View *view)
{
    const bool has_root = disk.root.size != 0;
    const int64_t at = has_root ? space_block_offset(disk.root.start) : kSpaceBlockOffset;
    view->say("Its place is byte %" PRId64 "%s.", at,
              !has_root                 ? ", but without partition 1 the appliance does not look"
              : at == kSpaceBlockOffset ? ", since partition 1 begins at sector 2048 or later"
                                        : ", since partition 1 begins before sector 2048");
    view->fact("offset", static_cast<uint64_t>(at));
    view->fact("looked_at", has_root);

    if (static_cast<uint64_t>(at) + sizeof(NORVBlock::magic) > disk.bytes) {
        view->fact("found", json_object_new_int(0));
        view->say("The disk ends before that.");
        return;
    }
    const UniqueSpaceBlock owner(space_block_alloc());
    const int found = space_block_read(disk.fd.get(), disk.path, at, owner.get());
    view->fact("found", json_object_new_int(found));
    if (found != 1) {
        view->say(found == 0 ? "There is no super block." : "The disk's super block is broken, or cannot be read.");
        return;
    }
    const NORVBlock &block = *owner.get();
    view->fact("version", static_cast<uint64_t>(block.version));
    view->fact("space_type", static_cast<uint64_t>(block.spaceType));
    const std::string space = shown(block.spacePath);
    view->fact("space", space.c_str());
    view->fact("raid_group_limit", shown(block.raidGroupLimit).c_str());
    view->say("Version %" PRIu32 ", of space %s, type 0x%" PRIx32 ": %s cache data.", block.version, space.c_str(),
              block.spaceType, (block.spaceType & kSpaceTypeCache) != 0 ? "with" : "without");
    json_object *raids = json_object_new_array();
    for (int i = 0; i < block.raidList->nItem; i++) {
        const std::string identifier = shown(NLIBCSzListGet(block.raidList, i));
        json_object_array_add(raids, json_object_new_string(identifier.c_str()));
        view->say("Array %s.", identifier.c_str());
    }
    view->fact("raids", raids);
    view->fact("caches", caches_facts(block, view));
}
