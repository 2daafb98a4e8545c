// Reads one answer from a connection as its bytes arrive, and no byte beyond its end, so that a
// connection can carry several.
#pragma once

#include "platform/unique_fd.h"
#include "policy/owners.h"
#include "tarvhv/cli2/json_end.h"

#include <string>
#include <sys/types.h>
#include <vector>

class AnswerReader
{
public:
    enum class Step
    {
        more, // nothing is left to read now
        done,
        failed // errno says why, and error()
    };

    // Takes up to `descriptor_room` descriptors that come with the answer.
    explicit AnswerReader(size_t descriptor_room = 0) : m_room(descriptor_room) {}

    // Takes what has arrived; never waits. errno after `failed`: ENOTCONN at the end of the stream
    // before any byte, ECONNRESET in the middle, EPROTO for what is no JSON object, EMSGSIZE past
    // the caps of a message.
    Step read(int fd);
    int error() const { return m_error; }

    // After `done`: the answer as text and as a tree (null with errno when out of memory).
    const std::string &text() const { return m_text; }
    JsonOwner take();
    std::vector<UniqueFd> takeDescriptors() { return std::move(m_descriptors); }
    // There were more descriptors than room; those are closed.
    bool hadSurplus() const { return m_surplus; }

private:
    Step readPart(int fd);
    Step keep(const char *bytes, size_t length);
    Step ended(ssize_t result);
    Step fail(int error);
    Step parse();

    size_t m_room;
    JsonEnd m_end{JsonStart::object};
    std::string m_text;
    JsonOwner m_tree;
    std::vector<UniqueFd> m_descriptors;
    bool m_surplus = false;
    int m_error = 0;
};
