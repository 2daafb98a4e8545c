// What loading and saving YAML share: the owners of libyaml's objects and the error text.
#pragma once

#include <string>

#include <yaml.h>

// An object of libyaml with the call that releases it.
template <typename Object, auto release>
struct YamlOwner : Object
{
    YamlOwner() : Object{} {}
    ~YamlOwner() { release(this); }
    YamlOwner(const YamlOwner &) = delete;
    YamlOwner &operator=(const YamlOwner &) = delete;
};

using YamlParser = YamlOwner<yaml_parser_t, yaml_parser_delete>;
using YamlEmitter = YamlOwner<yaml_emitter_t, yaml_emitter_delete>;
using YamlEvent = YamlOwner<yaml_event_t, yaml_event_delete>;

// The message that kv_yaml_error answers, of this thread.
void kv_yaml_set_error(std::string message);
