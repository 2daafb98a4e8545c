#include "services/tarvctl/command.h"
#include "services/tarvctl/power.h"
#include "services/tarvctl/service.h"
#include "services/tarvctl/sizes.h"
#include "services/tarvctl/store.h"
#include "services/tarvctl/table.h"

#include <algorithm>
#include <map>

namespace {

// What the files of a VM say of it.
struct Row
{
    std::string id, name = {}, version = {}, guest = {}, fault = {};
    bool suspended = false;
};

// The version tag without the line end that its file may have.
std::string version_of(struct vm *vm)
{
    KvOwner version(vm_read_version(vm));
    std::string tag = version ? kv_get_str(version.get(), "tag", "") : "";
    while (!tag.empty() && static_cast<unsigned char>(tag.back()) <= ' ')
        tag.pop_back();
    return tag;
}

// A VM that can't be read is listed with what is wrong with it; it hides no other.
Row read_row(Library &library, const std::string &id)
{
    Row row{.id = id};
    try {
        KvOwner record = library.read_config({id, ""});
        row.name = config_text(record.get(), "name");
        row.guest = config_text(record.get(), "firmware");
        row.suspended = is_suspended(record.get());
        row.version = version_of(library.open({id, ""}).get());
    } catch (const Failure &failure) {
        row.fault = failure.what();
    }
    return row;
}

std::string status_text(const VmState &state, const Row &row)
{
    if (!row.fault.empty() && !state.serves)
        return coloured("unreadable", 31);
    std::string text = state.status == VmStatus::running && !state.state.empty()
                           ? state.state
                           : vm_status_word(state.status);
    if (state.details.is_object() && state.details.contains("progress") &&
        state.details["progress"].is_number_integer())
        text += " " + std::to_string(state.details["progress"].get<int64_t>()) + " %";
    if (state.status == VmStatus::running)
        return coloured(text, 32);
    return state.status == VmStatus::failed || state.status == VmStatus::malfunction
               ? coloured(text, 31)
               : text;
}

// What keeps a running guest from going on, or "".
std::string notice_of(const VmState &state)
{
    const bool there = state.details.is_object() && state.details.contains("notice") &&
                       state.details["notice"].is_string();
    return there ? state.details["notice"].get<std::string>() : "";
}

Json row_body(const Row &row, const VmState &state)
{
    Json item = {{"id", row.id},
                 {"name", row.name},
                 {"version", row.version},
                 {"firmware", row.guest},
                 {"status", vm_status_word(state.status)},
                 {"suspended", row.suspended}};
    if (!state.state.empty())
        item["state"] = state.state;
    if (!row.fault.empty())
        item["fault"] = row.fault;
    if (const std::string notice = notice_of(state); !notice.empty())
        item["notice"] = notice;
    return item;
}

// What scripts count and loop over: neither the records nor the states are looked at.
Answer list_ids(Library &library)
{
    Answer answer{.body = library.ids()};
    for (const std::string &id : library.ids())
        answer.text += id + "\n";
    return answer;
}

// What completion offers; the states are not asked for.
Answer list_names(Library &library)
{
    Answer answer{.body = Json::array()};
    for (const std::string &id : library.ids()) {
        const std::string name = read_row(library, id).name;
        answer.body.push_back(name.empty() ? id : name);
        answer.text += printable(name.empty() ? id : name) + "\n";
    }
    return answer;
}

} // namespace

Answer run_list(const Arguments &arguments)
{
    Library library;
    if (arguments.quiet)
        return list_ids(library);
    if (arguments.names)
        return list_names(library);
    std::vector<Row> rows;
    std::map<std::string, bool> suspended;
    for (const std::string &id : library.ids()) {
        rows.push_back(read_row(library, id));
        suspended[id] = rows.back().suspended;
    }
    std::sort(rows.begin(), rows.end(), [](const Row &a, const Row &b) {
        return std::tie(a.name, a.id) < std::tie(b.name, b.id);
    });
    const auto states = query_states(suspended, std::chrono::milliseconds(1500));
    Answer answer{.body = Json::array()};
    Table table({"NAME", "STATUS", "VERSION", "FIRMWARE", "ID"});
    for (const Row &row : rows) {
        const VmState &state = states.at(row.id);
        answer.body.push_back(row_body(row, state));
        table.add_row({printable(row.name), status_text(state, row), printable(row.version),
                       printable(row.guest), printable(row.id)});
    }
    answer.text = table.text();
    for (const Row &row : rows)
        if (const std::string notice = notice_of(states.at(row.id)); !notice.empty())
            answer.text += printable(row.name) + ": " + printable(notice) + "\n";
    return answer;
}
