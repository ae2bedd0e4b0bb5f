#include <cinttypes>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <json-c/json.h>

#include "autocleanup/unique_json.h"
#include "disk/disk_rule.h"
#include "lib/report.h"
#include "lib/text.h"

namespace
{

constexpr int kFormat = 1;
constexpr int kDepthMax = 8;
constexpr uint64_t kSectorBytes = 512, kGigabyte = 1000000000;

using UniqueTokener = Unique<json_tokener *, nullptr, json_tokener_free>;

// A condition of a rule, and how the disk's side of it is written.
struct Condition {
    const char *key;
    void (*text)(const DiskIdentity &disk, char *text, size_t size);
};
void model_text(const DiskIdentity &disk, char *text, size_t size)
{
    snprintf(text, size, "%s", disk.model);
}
void firmware_text(const DiskIdentity &disk, char *text, size_t size)
{
    snprintf(text, size, "%s", disk.firmware);
}
void size_text(const DiskIdentity &disk, char *text, size_t size)
{
    snprintf(text, size, "%" PRIu64, disk.sectors / (kGigabyte / kSectorBytes));
}
constexpr Condition kConditions[] = {{"model", model_text}, {"firmware", firmware_text}, {"size", size_text}};
static_assert(kGigabyte % kSectorBytes == 0);

__attribute__((format(printf, 2, 3))) int fault(DiskRuleReport *report, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(report->fault, sizeof(report->fault), format, arguments);
    va_end(arguments);
    return fail(kErrBadFormat);
}

bool is_text(const json_object *value)
{
    return json_object_is_type(value, json_type_string) != 0;
}

// Texts of JSON can hold a NUL.
std::string_view text_of(json_object *value)
{
    return {json_object_get_string(value), static_cast<size_t>(json_object_get_string_len(value))};
}

int action_read(json_object *owner, const char *key, DiskRuleAction *action)
{
    json_object *object = nullptr, *selectable = nullptr;
    if (json_object_object_get_ex(owner, key, &object) == 0 || json_object_is_type(object, json_type_object) == 0 ||
        json_object_object_get_ex(object, "selectable", &selectable) == 0 ||
        json_object_is_type(selectable, json_type_boolean) == 0)
        return fail(kErrBadFormat);
    action->is_selectable = json_object_get_boolean(selectable) != 0;
    return 0;
}

const Condition *condition_find(const char *key)
{
    for (const Condition &condition : kConditions)
        if (strcmp(condition.key, key) == 0)
            return &condition;
    return nullptr;
}

// Whether a rule is one: known keys, patterns of text, an action.
int rule_check(json_object *rule, size_t number, DiskRuleReport *report)
{
    if (json_object_is_type(rule, json_type_object) == 0)
        return fault(report, "rule %zu: not an object", number);
    DiskRuleAction action;
    if (action_read(rule, "action", &action) != 0)
        return fault(report, "rule %zu: no action with a boolean selectable", number);
    json_object_object_foreach(rule, key, value)
    {
        if (strcmp(key, "action") == 0)
            continue;
        if (condition_find(key) == nullptr)
            return fault(report, "rule %zu: unknown key %s", number, key);
        if (!is_text(value))
            return fault(report, "rule %zu: %s is not a text", number, key);
    }
    return 0;
}

bool rule_matches(json_object *rule, const DiskIdentity &disk)
{
    json_object_object_foreach(rule, key, pattern)
    {
        const Condition *condition = condition_find(key);
        if (condition == nullptr) // the action
            continue;
        char text[64];
        condition->text(disk, text, sizeof(text));
        if (!disk_rule_pattern_matches(text_of(pattern), text))
            return false;
    }
    return true;
}

int parse(std::string_view database, UniqueJson *root, DiskRuleReport *report)
{
    if (database.size() > kDiskRuleBytesMax)
        return fault(report, "larger than %zu bytes", kDiskRuleBytesMax);
    const UniqueTokener tokener(json_tokener_new_ex(kDepthMax));
    if (!tokener)
        return fail(kErrOutOfMemory);
    json_tokener_set_flags(tokener.get(), JSON_TOKENER_STRICT | JSON_TOKENER_VALIDATE_UTF8);
    root->reset(json_tokener_parse_ex(tokener.get(), database.data(), static_cast<int>(database.size())));
    const json_tokener_error error = json_tokener_get_error(tokener.get());
    const size_t end = json_tokener_get_parse_end(tokener.get());
    if (error != json_tokener_success)
        return fault(report, "byte %zu: %s", end, json_tokener_error_desc(error));
    if (!text_strip(database.substr(end)).empty())
        return fault(report, "byte %zu: more behind the end", end);
    return 0;
}

// Parses a database and looks at all of it. `rules` is a part of `root`.
int load(std::string_view database, UniqueJson *root, json_object **rules, DiskRuleReport *report)
{
    *report = {};
    if (parse(database, root, report) != 0)
        return -1;
    json_object *format = nullptr, *version = nullptr;
    DiskRuleAction action;
    if (json_object_is_type(root->get(), json_type_object) == 0)
        return fault(report, "not an object");
    if (json_object_object_get_ex(root->get(), "format", &format) == 0 ||
        json_object_is_type(format, json_type_int) == 0 || json_object_get_int64(format) != kFormat)
        return fault(report, "format is not %d", kFormat);
    if (action_read(root->get(), "default", &action) != 0)
        return fault(report, "no default with a boolean selectable");
    if (json_object_object_get_ex(root->get(), "rules", rules) == 0 ||
        json_object_is_type(*rules, json_type_array) == 0)
        return fault(report, "no array of rules");
    for (size_t i = 0; i < json_object_array_length(*rules); i++)
        if (rule_check(json_object_array_get_idx(*rules, i), i + 1, report) != 0)
            return -1;
    if (json_object_object_get_ex(root->get(), "version", &version) != 0 && is_text(version))
        text_cut(report->version, text_of(version));
    return 0;
}

} // namespace

int disk_rule_check(std::string_view database, DiskRuleReport *report)
{
    UniqueJson root;
    json_object *rules = nullptr;
    return load(database, &root, &rules, report);
}

int disk_rule_action_find(std::string_view database, const DiskIdentity &disk, DiskRuleAction *action)
{
    UniqueJson root;
    json_object *rules = nullptr;
    DiskRuleReport report;
    if (load(database, &root, &rules, &report) != 0)
        return -1;
    for (size_t i = 0; i < json_object_array_length(rules); i++) {
        json_object *rule = json_object_array_get_idx(rules, i);
        if (rule_matches(rule, disk))
            return action_read(rule, "action", action);
    }
    return action_read(root.get(), "default", action);
}
