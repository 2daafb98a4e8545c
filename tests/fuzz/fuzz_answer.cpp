// Reads answers from a peer that sends the bytes and closes.
#include "tarvhv/cli2.h"

#include "platform/unique_fd.h"
#include "policy/owners.h"

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <sys/socket.h>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    int fds[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds) != 0)
        abort();
    const UniqueFd near(fds[0]);
    UniqueFd far(fds[1]);
    if (cli2_send(far.get(), data, size, MSG_DONTWAIT) != 0 && errno != EAGAIN)
        abort();
    far.reset();
    while (JsonOwner(cli2_recv_json_to(near.get(), timeval{10, 0}))) {
    }
    if (errno == ETIMEDOUT)
        abort();
    return 0;
}
