#include "swap/swap_json.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <json-c/json_util.h>
#include <unistd.h>

#include "lib/file_replace.h"
#include "lib/report.h"

static constexpr char kStateKey[] = "state";
static constexpr const char *kKeys[] = {kStateKey, "Filename"};

int swap_json_file_write(json_object *object, const char *state)
{
    json_object *text = json_object_new_string(state);
    if (text == nullptr || json_object_object_add(object, kStateKey, text) != 0) {
        json_object_put(text);
        return fail(kErrOutOfMemory);
    }
    const char *json = json_object_to_json_string_ext(object, JSON_C_TO_STRING_PLAIN);
    if (json == nullptr)
        return fail(kErrOutOfMemory);
    if (file_replace(kSwapStatePath, "%s", json) == 0)
        return 0;
    NORV_LOG(LOG_ERR, "%s(%d): Fail to write json file %s!", __func__, __LINE__, kSwapStatePath);
    return -1;
}

json_object *swap_json_file_read()
{
    if (access(kSwapStatePath, F_OK) != 0 && errno == ENOENT) {
        UniqueJson fresh(json_object_new_object());
        if (!fresh)
            return fail(kErrOutOfMemory);
        return swap_json_file_write(fresh.get(), kSwapStopped) == 0 ? fresh.release() : nullptr;
    }
    UniqueJson object(json_object_from_file(kSwapStatePath));
    if (object && json_object_is_type(object.get(), json_type_object) != 0)
        return object.release();
    NORV_LOG(LOG_ERR, "%s(%d): Fail to read json file %s!", __func__, __LINE__, kSwapStatePath);
    return fail(object ? kErrBadFormat : kErrOpen);
}

const char *swap_json_get(json_object *object, const char *key)
{
    if (std::ranges::none_of(kKeys, [key](const char *known) { return strcmp(known, key) == 0; })) {
        NORV_LOG(LOG_ERR, "Fail to handle key %s to get value", key);
        return fail(kErrBadParameter);
    }
    json_object *value = nullptr;
    if (json_object_object_get_ex(object, key, &value) == 0 || json_object_is_type(value, json_type_string) == 0)
        return fail(kErrKeyMissing);
    return json_object_get_string(value);
}

bool swap_state_is(json_object *object, const char *wanted)
{
    const char *state = swap_json_get(object, kStateKey);
    return state != nullptr && strcmp(state, wanted) == 0;
}

int swap_state_check(json_object *object, const char *wanted)
{
    if (swap_state_is(object, wanted))
        return 0;
    const char *state = swap_json_get(object, kStateKey);
    NORV_LOG(LOG_ERR, "%s(%d): Swap state(%s) is not %s!", __func__, __LINE__, state != nullptr ? state : "", wanted);
    return fail(kErrBadFormat);
}
