// Views of a disk: each tells one thing that a disk holds, in sentences for a person and in facts for a program. They
// read and never write.
#pragma once

#include <cstdint>
#include <json-c/json.h>
#include <string>
#include <vector>

#include "autocleanup/unique.h"
#include "platform/sfdisk/label.h"
#include "storage/partition_layout.h"

struct ExaminedDisk {
    const char *path;
    UniqueFd fd; // read-only
    uint64_t bytes;
    PartitionTable table;
    bool label_is_damaged;      // `table` is empty then
    PartitionExtent root, swap; // partitions 1 and 2; zeros without
};

struct View {
    std::vector<std::string> sentences;
    json_object *facts = json_object_new_object(); // owned by whoever takes the view

    void say(const char *format, ...) __attribute__((format(printf, 2, 3)));
    void fact(const char *key, uint64_t value) { json_object_object_add(facts, key, json_object_new_uint64(value)); }
    void fact(const char *key, bool value) { json_object_object_add(facts, key, json_object_new_boolean(value)); }
    void fact(const char *key, const char *value) { json_object_object_add(facts, key, json_object_new_string(value)); }
    void fact(const char *key, json_object *value) { json_object_object_add(facts, key, value); }
};

void explain_partitions(const ExaminedDisk &disk, View *view);
void explain_layout(const ExaminedDisk &disk, View *view);
void explain_root_block(const ExaminedDisk &disk, View *view);
void explain_super_block(const ExaminedDisk &disk, View *view);

// A layout as facts.
[[nodiscard]] json_object *layout_facts(const PartitionLayout &layout);

// The block that counts on an open disk, by the rules of root_block_get. Returns the copy, 0 or -1 as that does.
struct RootBlock;
[[nodiscard]] int root_block_examine(const ExaminedDisk &disk, RootBlock *block, View *view);
