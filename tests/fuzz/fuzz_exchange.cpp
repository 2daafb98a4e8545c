// What a service sends to who asks it: any bytes, in any pieces, with descriptors among them. The
// same bytes in one piece have to come out the same.
#include "tarvhv/cli2.h"
#include "tarvhv/cli2/descriptors.h"
#include "tarvhv/cli2/exchange.h"

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <sys/socket.h>
#include <unistd.h>

namespace {

struct Place
{
    Place()
    {
        char name[] = "/tmp/fuzz-exchange-XXXXXX";
        if (!mkdtemp(name))
            abort();
        directory = name;
        path = directory + "/s";
        listener.reset(cli2_listen(path.c_str()));
        if (!listener)
            abort();
    }
    ~Place() { std::filesystem::remove_all(directory); }

    std::string directory, path;
    UniqueFd listener;
};

struct Outcome
{
    int error;
    std::string text;
    size_t descriptors;
    bool operator==(const Outcome &) const = default;
};

Outcome ask(const Place &place, const uint8_t *data, size_t size, size_t step,
            size_t with_descriptor)
{
    Exchange exchange(place.path, "status\r\n", std::chrono::minutes(1), 2);
    exchange_run(exchange, Exchange::Step::reading);
    UniqueFd service(cli2_accept(place.listener.get()));
    if (!service)
        abort();
    const int fd = place.listener.get();
    for (size_t at = 0; at < size && !exchange.ended(); at += step) {
        const bool with = with_descriptor >= at && with_descriptor < at + step;
        if (descriptors_send(service.get(), data + at, std::min(step, size - at),
                             {&fd, with ? 1u : 0u}) < 0)
            break;
        exchange.advance();
    }
    service.reset();
    if (exchange_run(exchange) == Exchange::Step::failed && exchange.error() == ETIMEDOUT)
        abort();
    const bool done = exchange.step() == Exchange::Step::done;
    if (done != bool(exchange.takeAnswer()))
        abort();
    return {exchange.error(), done ? exchange.answerText() : "", exchange.takeDescriptors().size()};
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const Place place;
    if (size < 2)
        return 0;
    const size_t step = 1 + data[0] % 64, with_descriptor = data[1];
    const Outcome whole = ask(place, data + 2, size - 2, size, with_descriptor);
    const Outcome pieces = ask(place, data + 2, size - 2, step, with_descriptor);
    // A descriptor behind the end of the answer comes along only where it came in the same piece.
    if (whole.error != pieces.error || whole.text != pieces.text)
        abort();
    return 0;
}
