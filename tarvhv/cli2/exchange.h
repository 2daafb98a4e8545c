// One question to a service, from the connection to the end of the answer, without ever waiting.
//
//   connecting --(the peer's queue of connections is full)--> connecting, a little later
//   connecting -> sending -> receiving -> done
//   any -> failed
//
// Whoever drives it calls advance() whenever fd() is ready for events(), or wakeAt() has come; so a
// thread can drive one, and wait for it, or a hundred at a time (exchange_pool.h).
#pragma once

#include "platform/unique_fd.h"
#include "tarvhv/cli2/answer_reader.h"
#include "tarvhv/cli2/io.h"

#include <chrono>
#include <functional>
#include <string>
#include <vector>

class Exchange
{
public:
    enum class Step
    {
        retry,   // wait until wakeAt(): there is nothing else to wait for
        writing, // wait until fd() can be written
        reading, // wait until fd() can be read
        done,
        failed // error() says why
    };

    // A question to whoever serves a path: `request` are the bytes of it, none for a question that
    // is only whether somebody serves there. The patience, from the first advance() to the end of
    // the answer, is the deadline of the whole; zero: no limit.
    Exchange(std::string path, std::string request, std::chrono::milliseconds patience,
             size_t descriptor_room = 0);

    // Does what can be done now.
    Step advance();
    Step step() const { return m_step; }
    bool ended() const { return m_step == Step::done || m_step == Step::failed; }
    // The connection, -1 while there is none. It stays open until the exchange goes.
    int fd() const { return m_socket.get(); }
    short events() const; // as of poll
    // When to call advance() although nothing is ready; none: no limit.
    Cli2Deadline wakeAt() const;

    // An errno: that of the connection (ENOENT also where a stranger serves), those of
    // AnswerReader, ETIMEDOUT after the deadline.
    int error() const { return m_error; }
    // Somebody holds the socket, whatever became of the question.
    bool isServed() const { return m_served; }
    // The whole request went out: it may have been carried out, whatever became of the answer.
    bool isSent() const { return m_sent; }

    // After `done`.
    JsonOwner takeAnswer() { return m_reader.take(); }
    const std::string &answerText() const { return m_reader.text(); }
    std::vector<UniqueFd> takeDescriptors() { return m_reader.takeDescriptors(); }
    bool hadSurplusDescriptors() const { return m_reader.hadSurplus(); }
    // The connection for a conversation that goes on, as a descriptor that blocks.
    UniqueFd takeConnection();

private:
    Step connectNow();
    Step sendNow();
    Step receiveNow();
    Step fail(int error);
    Step retryLater();

    std::string m_path;
    std::string m_request; // what is left to send
    std::chrono::milliseconds m_patience;
    AnswerReader m_reader;
    UniqueFd m_socket;
    Cli2Deadline m_deadline; // from the first step on
    Cli2Deadline m_again;
    std::chrono::milliseconds m_pause;
    Step m_step = Step::retry;
    bool m_begun = false;
    bool m_served = false;
    bool m_sent = false;
    int m_error = 0;
};

// Drives one exchange to the given step (reading: until the request is sent) or its end, on this
// thread. `meanwhile` is called at least every 100 ms and may throw.
Exchange::Step exchange_run(Exchange &exchange, Exchange::Step until = Exchange::Step::done,
                            const std::function<void()> &meanwhile = {});

// A request that changes something says until when it may be carried out, so that one whose sender
// has given up is not: the service may have been stopped meanwhile and find it in its queue a day
// later. Both sides run on one machine: the member "deadline" of the request's object counts the
// milliseconds of the machine's steady clock.
inline constexpr const char *REQUEST_DEADLINE = "deadline";
int64_t request_deadline(std::chrono::milliseconds patience);
// Whether a request's deadline has passed; false for one without.
bool request_is_late(const struct json *request);

// The bytes of a request: a command, and the JSON value behind it ("": none).
std::string exchange_request(const std::string &command, const std::string &value = {});
