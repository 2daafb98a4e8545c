#include "hostlib/config/config.h"
#include "services/engine/host.h"
#include "services/tarvctl/command.h"
#include "services/tarvctl/power.h"
#include "services/tarvctl/service.h"
#include "services/tarvctl/store.h"
#include "services/tarvctl/table.h"

namespace {

// A configuration as JSON, texts as texts and numbers as numbers.
Json to_json(const struct kv *node)
{
    switch (kv_type(node)) {
    case KV_MAP: {
        Json object = Json::object();
        for (auto *child = kv_first(node); child; child = kv_next(child))
            object[kv_key(child)] = to_json(child);
        return object;
    }
    case KV_LIST: {
        Json list = Json::array();
        for (auto *child = kv_first(node); child; child = kv_next(child))
            list.push_back(to_json(child));
        return list;
    }
    case KV_INT:
    case KV_DATE:
        return kv_int(node, 0);
    case KV_BOOL:
        return kv_int(node, 0) != 0;
    case KV_NONE:
        return nullptr;
    default:
        return kv_str(node, "");
    }
}

// One line per value, as "hard_drives[0].file".
void add_lines(const Json &value, const std::string &path, std::string &text)
{
    if (value.is_object()) {
        for (const auto &[key, child] : value.items()) {
            std::string place = path;
            place.append(path.empty() ? "" : ".").append(key);
            add_lines(child, place, text);
        }
    } else if (value.is_array()) {
        for (size_t index = 0; index < value.size(); ++index) {
            std::string place = path;
            place.append("[").append(std::to_string(index)).append("]");
            add_lines(value[index], place, text);
        }
    } else {
        text += path + ": " +
                printable(value.is_string() ? value.get<std::string>() : value.dump()) + "\n";
    }
}

// Ends the command with the reason of what has failed.
void require(const ServiceFailure &failure)
{
    if (failure)
        throw Failure(ExitStatus::input, failure.text);
}

Answer show_command(Library &library, const VmRef &ref, const struct kv *record)
{
    Machine machine;
    EngineHost host;
    const std::string directory = library.directory() + "/" + ref.id;
    const std::string file = directory + "/config.yaml";
    require(machine_parse(record, ref.id.c_str(), file.c_str(), &machine));
    require(engine_host_read(directory, &host));
    require(engine_host_check(machine, &host));
    const LaunchOptions options{.incoming = !machine.state_file.empty()};
    const Launch launch = engine_launch(machine, host, options);
    Answer answer{.text = engine_launch_line(launch) + "\n"};
    answer.body = {{"program", launch.program},
                   {"arguments", launch.arguments},
                   {"environment", launch.environment}};
    return answer;
}

} // namespace

Answer run_show(const Arguments &arguments)
{
    Library library;
    const VmRef ref = library.resolve(arguments.vm);
    KvOwner record = library.read_config(ref);
    if (arguments.command)
        return show_command(library, ref, record.get());
    const VmState state = query_state(ref.id, is_suspended(record.get()));
    Answer answer;
    answer.body = {{"id", ref.id},
                   {"name", ref.name},
                   {"status", vm_status_word(state.status)},
                   {"directory", library.directory() + "/" + ref.id},
                   {"configuration", to_json(record.get())}};
    if (state.details.is_object())
        answer.body["running"] = state.details;
    add_lines(answer.body, "", answer.text);
    return answer;
}
