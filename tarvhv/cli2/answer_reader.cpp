#include "tarvhv/cli2/answer_reader.h"

#include "policy/json.h"
#include "tarvhv/cli2.h"
#include "tarvhv/cli2/descriptors.h"

#include <cerrno>
#include <sys/socket.h>

AnswerReader::Step AnswerReader::read(int fd)
{
    // A flood ends at the cap of a message, so that the loop has an end whoever sends.
    while (m_end.state() != JsonEnd::State::done)
        if (const Step step = readPart(fd); step != Step::done)
            return step;
    return parse();
}

JsonOwner AnswerReader::take()
{
    return std::move(m_tree);
}

// Looks at what has arrived, then takes the part that belongs to the answer. The look takes no
// descriptors: those come with the bytes that are taken.
AnswerReader::Step AnswerReader::readPart(int fd)
{
    char buffer[16384];
    const ssize_t seen = cli2_recv(fd, buffer, sizeof buffer, MSG_PEEK | MSG_DONTWAIT);
    if (seen <= 0)
        return ended(seen);
    JsonEnd ahead = m_end;
    const size_t wanted = ahead.feed(buffer, static_cast<size_t>(seen));
    const DescriptorsReceived taken =
        descriptors_receive(fd, buffer, wanted, 0, m_descriptors, m_room);
    m_surplus = m_surplus || taken.surplus;
    return taken.length <= 0 ? ended(taken.length) : keep(buffer, size_t(taken.length));
}

AnswerReader::Step AnswerReader::keep(const char *bytes, size_t length)
{
    m_end.feed(bytes, length);
    if (m_end.state() == JsonEnd::State::garbage)
        return fail(EPROTO);
    if (m_end.state() == JsonEnd::State::too_deep || m_text.size() + length > CLI2_MESSAGE_MAX)
        return fail(EMSGSIZE);
    m_text.append(bytes, length);
    return Step::done;
}

// A peer that went away with our request unread resets the connection.
AnswerReader::Step AnswerReader::ended(ssize_t result)
{
    if (result < 0 && (errno == EAGAIN || errno == EWOULDBLOCK))
        return Step::more;
    if (result < 0 && errno != ECONNRESET && errno != EPIPE)
        return fail(errno);
    return fail(m_end.state() == JsonEnd::State::before ? ENOTCONN : ECONNRESET);
}

AnswerReader::Step AnswerReader::fail(int error)
{
    m_descriptors.clear();
    errno = m_error = error;
    return Step::failed;
}

AnswerReader::Step AnswerReader::parse()
{
    if (m_tree)
        return Step::done;
    m_tree.reset(json_parse(m_text.data(), m_text.size()));
    if (m_tree)
        return Step::done;
    return fail(errno == ENOMEM ? ENOMEM : errno == E2BIG ? EMSGSIZE : EPROTO);
}
