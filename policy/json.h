// JSON trees: the socket messages of the services and the answers of the controller.
//
// The tree owns its nodes; the texts it answers live as long as it. No function throws.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

// Node kinds. The numbers are part of the interface.
enum : int
{
    JSON_NULL = 0,
    JSON_BOOL = 1,
    JSON_STRING = 2,
    JSON_NUMBER = 3, // a double
    JSON_ARRAY = 4,
    JSON_OBJECT = 5,
};

struct json;

// Parses one JSON value that fills the text (white space around it aside). Null with errno EINVAL
// for malformed text and E2BIG for more than 64 levels.
struct json *json_parse(const char *text, size_t length);
// The tree as one line of JSON.
std::string json_print(const struct json *tree);
// Frees a tree; null is accepted.
void json_delete(struct json *tree);

// New values. Null with ENOMEM only.
struct json *json_mkobject();
struct json *json_mkarray();
struct json *json_mkstr(const char *text);
struct json *json_mknumber(double number);
struct json *json_mkbool(bool value);

// Appends a member to an object, or an item to an array (whose name is ignored and may be null).
// json_append takes `value` over, also when it fails (a value that is in a tree already is refused
// and left there). 0, or -1 with EINVAL.
int json_append(struct json *tree, const char *name, struct json *value);
int json_append_str(struct json *tree, const char *name, const char *text);
int json_append_int64(struct json *tree, const char *name, int64_t number);
int json_append_bool(struct json *tree, const char *name, bool value);

// What a node is. A null node is JSON_NULL without a name.
int json_kind(const struct json *node);
const char *json_name(const struct json *node); // null outside an object
const char *json_str(const struct json *node);  // "" when not a string
double json_number(const struct json *node);    // 0 when not a number
bool json_bool(const struct json *node);        // false when not a boolean

// Children in order, of objects and arrays.
struct json *json_first_child(const struct json *node);
struct json *json_next(const struct json *node);

// The first member of an object with exactly this name (no path), or null.
struct json *json_find_member(const struct json *tree, const char *name);
// The node at a dotted path ("body.status", "body.displays[0]"), or null.
struct json *json_find(const struct json *tree, const char *path);
// The text or number at a dotted path; the default when the tree is null, the member is missing or
// it is of another kind. A number is truncated toward zero and held to the range of the result.
const char *json_find_str(const struct json *tree, const char *path, const char *missing);
int64_t json_find_int64(const struct json *tree, const char *path, int64_t missing);
bool json_find_bool(const struct json *tree, const char *path, bool missing);
