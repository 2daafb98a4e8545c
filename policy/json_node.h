// The nodes of a JSON tree, for the library's own files.
#pragma once

#include "policy/json.h"

#include <memory>
#include <vector>

struct json
{
    using Owner = std::unique_ptr<json>;

    explicit json(int of_kind) : kind(of_kind) {}

    int kind;
    bool truth = false;
    double number = 0;
    std::string text;
    std::string name;
    json *parent = nullptr;
    size_t index = 0; // among the parent's children
    std::vector<Owner> children;
};

// Puts a node that is in no tree at the end of an array or object.
json *json_adopt(json *tree, json::Owner node);
