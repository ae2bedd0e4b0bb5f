// Owns a reference to an object of json-c.
#pragma once
#include <json-c/json_object.h>

#include "autocleanup/unique.h"

inline void unique_json_put(json_object *object)
{
    json_object_put(object);
}
using UniqueJson = Unique<json_object *, nullptr, unique_json_put>;
