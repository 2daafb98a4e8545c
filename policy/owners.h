// Trees with one owner.
#pragma once

#include "policy/json.h"
#include "policy/kv.h"

#include <memory>

struct KvFree
{
    void operator()(struct kv *node) const { kv_free(node); }
};
using KvOwner = std::unique_ptr<struct kv, KvFree>;

struct JsonFree
{
    void operator()(struct json *node) const { json_delete(node); }
};
using JsonOwner = std::unique_ptr<struct json, JsonFree>;
