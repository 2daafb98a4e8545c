#include "policy/json.h"
#include "tarvhv/cli2.h"
#include "tarvhv/cli2/io.h"

#include <cerrno>
#include <memory>
#include <string>

namespace {

std::string quoted(const char *text)
{
    const std::unique_ptr<struct json, decltype(&json_delete)> node(json_mkstr(text ? text : ""),
                                                                    json_delete);
    return json_print(node.get());
}

int send_answer(int fd, std::string text, const struct json *body, const int *fds, size_t count)
{
    if (body)
        text += ",\"body\":" + json_print(body);
    text += "}";
    if (text.size() > CLI2_MESSAGE_MAX) {
        errno = EMSGSIZE;
        return -1;
    }
    text += "\r\n";
    return cli2_send_fds(fd, text.data(), text.size(), 0, fds, count);
}

} // namespace

int cli2_answer(int fd, const struct json *body, const int *fds, size_t count)
{
    return send_answer(fd, R"({"status":"OK")", body, fds, count);
}

int cli2_answer_error(int fd, int error, const char *message, const struct json *body)
{
    return send_answer(fd,
                       R"({"status":"ERROR","error":)" + std::to_string(error) +
                           ",\"message\":" + quoted(message),
                       body, nullptr, 0);
}
