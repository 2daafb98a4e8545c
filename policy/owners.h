// Trees with one owner.
#pragma once

#include "platform/owners.h"
#include "policy/json.h"
#include "policy/kv.h"

using KvOwner = std::unique_ptr<struct kv, Closer<kv_free>>;
using JsonOwner = std::unique_ptr<struct json, Closer<json_delete>>;
