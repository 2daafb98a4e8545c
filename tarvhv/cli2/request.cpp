#include "policy/json.h"
#include "tarvhv/cli2.h"
#include "tarvhv/cli2/io.h"
#include "tarvhv/cli2/json_end.h"

#include <cerrno>
#include <string>

namespace {

// The longest command word.
constexpr size_t COMMAND_MAX = 64;

bool is_word_byte(char byte)
{
    return (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') ||
           (byte >= '0' && byte <= '9') || byte == '-' || byte == '_';
}

int failed(int error)
{
    errno = error;
    return -1;
}

} // namespace

struct cli2_request
{
    enum class Stage
    {
        word,
        newline, // after "\r"
        value,
        complete,
        broken
    };

    Stage stage = Stage::word;
    int error = EPROTO; // why it is broken
    std::string command;
    JsonEnd end{JsonStart::object_or_text};
    std::string text;
    struct json *tree = nullptr;

    ~cli2_request() { json_delete(tree); }

    void fail(int reason)
    {
        stage = Stage::broken;
        error = reason;
    }
    void take_word(char byte);
    void take_newline(char byte, char next, bool (*wants_json)(const char *));
    size_t take_value(const char *bytes, size_t length);
};

void cli2_request::take_word(char byte)
{
    if (byte == '\r' && !command.empty())
        stage = Stage::newline;
    else if (!is_word_byte(byte))
        fail(EPROTO);
    else if (command.size() == COMMAND_MAX)
        fail(EMSGSIZE);
    else
        command += byte;
}

// A command that can do without a value gets one all the same where it follows at once.
void cli2_request::take_newline(char byte, char next, bool (*wants_json)(const char *))
{
    if (byte != '\n')
        return fail(EPROTO);
    const bool follows = next == '{' || next == '"';
    stage = follows || (wants_json && wants_json(command.c_str())) ? Stage::value : Stage::complete;
}

size_t cli2_request::take_value(const char *bytes, size_t length)
{
    const size_t taken = end.feed(bytes, length);
    if (end.state() == JsonEnd::State::garbage) {
        fail(EPROTO);
    } else if (end.state() == JsonEnd::State::too_deep || text.size() + taken > CLI2_MESSAGE_MAX) {
        fail(EMSGSIZE);
    } else {
        text.append(bytes, taken);
        if (end.state() == JsonEnd::State::done) {
            tree = json_parse(text.data(), text.size());
            stage = Stage::complete;
            if (!tree)
                fail(errno == E2BIG ? EMSGSIZE : EPROTO);
        }
    }
    return taken;
}

struct cli2_request *cli2_request_new()
{
    return new cli2_request;
}

void cli2_request_free(struct cli2_request *request)
{
    delete request;
}

int cli2_request_feed(struct cli2_request *request, const char *bytes, size_t length, size_t *used,
                      bool (*wants_json)(const char *command))
{
    using Stage = cli2_request::Stage;
    size_t taken = 0;
    while (taken < length && request->stage < Stage::complete) {
        if (request->stage == Stage::value) {
            taken += request->take_value(bytes + taken, length - taken);
            continue;
        }
        const char byte = bytes[taken++];
        if (request->stage == Stage::word)
            request->take_word(byte);
        else
            request->take_newline(byte, taken < length ? bytes[taken] : '\0', wants_json);
    }
    *used = taken;
    if (request->stage == Stage::broken)
        return failed(request->error);
    return request->stage == Stage::complete ? 1 : 0;
}

const char *cli2_request_command(const struct cli2_request *request)
{
    return request->command.c_str();
}

const struct json *cli2_request_json(const struct cli2_request *request)
{
    return request->tree;
}
