#include "tarvhv/cli2.h"
#include "tarvhv/cli2/answer_reader.h"
#include "tarvhv/cli2/exchange.h"
#include "tarvhv/cli2/io.h"

#include <cerrno>
#include <poll.h>
#include <string>
#include <vector>

namespace {

int connect_and_send(const char *path, std::string request)
{
    Exchange exchange(path ? path : "", std::move(request),
                      std::chrono::seconds(CLI2_SEND_SECONDS));
    if (exchange_run(exchange, Exchange::Step::reading) != Exchange::Step::reading) {
        errno = exchange.error();
        return -1;
    }
    return exchange.takeConnection().release();
}

Cli2Deadline deadline_in(const timeval &timeout)
{
    if (timeout.tv_sec == 0 && timeout.tv_usec == 0)
        return std::nullopt;
    return Cli2Clock::now() + std::chrono::seconds(timeout.tv_sec) +
           std::chrono::microseconds(timeout.tv_usec);
}

struct json *read_answer(int fd, const Cli2Deadline &deadline, AnswerReader &reader)
{
    for (;;) {
        if (cli2_wait(fd, POLLIN, deadline) != 0)
            return nullptr;
        const AnswerReader::Step step = reader.read(fd);
        if (step != AnswerReader::Step::more)
            return step == AnswerReader::Step::done ? reader.take().release() : nullptr;
    }
}

} // namespace

int cli2_connect(const char *path, const char *command)
{
    return connect_and_send(path, command ? exchange_request(command) : std::string());
}

struct json *cli2_recv_json(int fd)
{
    return cli2_recv_json_to(fd, {});
}

struct json *cli2_recv_json_to(int fd, struct timeval timeout)
{
    AnswerReader reader;
    return read_answer(fd, deadline_in(timeout), reader);
}

struct json *cli2_recv_json_fds(int fd, struct timeval timeout, int *fds, size_t *count)
{
    AnswerReader reader(*count);
    struct json *tree = read_answer(fd, deadline_in(timeout), reader);
    *count = 0;
    if (tree)
        for (UniqueFd &each : reader.takeDescriptors())
            fds[(*count)++] = each.release();
    return tree;
}
