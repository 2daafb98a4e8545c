#include "hostlib/vms/vms.h"

#include "policy/json.h"
#include "policy/kv.h"

#include <cmath>
#include <limits>

namespace {

// 2^63 and 2^64, exact as doubles.
constexpr double TWO_63 = 9223372036854775808.0;
constexpr double TWO_64 = 18446744073709551616.0;

// Toward zero; what has no place in 64 bits goes to the nearest end.
int64_t as_signed(double number)
{
    if (std::isnan(number))
        return 0;
    if (number >= TWO_63)
        return std::numeric_limits<int64_t>::max();
    if (number < -TWO_63)
        return std::numeric_limits<int64_t>::min();
    return static_cast<int64_t>(number);
}

// The bits of the unsigned value, so that numbers from 2^63 on survive.
int64_t as_unsigned_bits(double number)
{
    if (!(number >= TWO_63))
        return as_signed(number);
    return static_cast<int64_t>(number >= TWO_64 ? std::numeric_limits<uint64_t>::max()
                                                 : static_cast<uint64_t>(number));
}

void add_children(struct kv *tree, const struct json *node)
{
    const bool in_list = json_kind(node) == JSON_ARRAY;
    for (struct json *child = json_first_child(node); child; child = json_next(child)) {
        struct kv *value = kv_from_json(child);
        // In a list the items behind it keep their places.
        if (!value && in_list)
            value = kv_new_type(KV_NONE);
        if (value)
            kv_set(tree, json_name(child), value);
    }
}

struct kv *new_container(uint32_t type, const struct json *node)
{
    struct kv *tree = kv_new_type(type);
    if (tree)
        add_children(tree, node);
    return tree;
}

} // namespace

struct kv *kv_from_json(const struct json *node)
{
    switch (json_kind(node)) {
    case JSON_BOOL:
        return kv_new_type(KV_BOOL, json_bool(node) ? 1 : 0);
    case JSON_STRING:
        return kv_new_type(KV_STRING, json_str(node));
    case JSON_NUMBER:
        return kv_new_type(KV_INT, as_signed(json_number(node)));
    case JSON_ARRAY:
        return new_container(KV_LIST, node);
    case JSON_OBJECT:
        return new_container(KV_MAP, node);
    default:
        return nullptr;
    }
}

int kv_set_json(struct kv *kv, const struct json *node)
{
    switch (json_kind(node)) {
    case JSON_BOOL:
        kv_set_type(kv, json_name(node), json_bool(node), KV_BOOL);
        break;
    case JSON_STRING:
        kv_set_type(kv, json_name(node), json_str(node), KV_STRING);
        break;
    case JSON_NUMBER:
        kv_set_type(kv, json_name(node), as_unsigned_bits(json_number(node)), KV_INT);
        break;
    case JSON_ARRAY:
    case JSON_OBJECT:
        add_children(kv, node);
        break;
    default:
        break;
    }
    return 0;
}
