// Owners of the trees that the policy library hands out.
#pragma once

#include "policy/json.h"
#include "policy/kv.h"

#include <memory>

struct KvFree
{
    void operator()(kv *tree) const { kv_free(tree); }
};
using KvTree = std::unique_ptr<kv, KvFree>;

struct JsonFree
{
    void operator()(json *tree) const { json_delete(tree); }
};
using JsonTree = std::unique_ptr<json, JsonFree>;
