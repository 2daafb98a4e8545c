// The conversation with a guest's clipboard agent: who is there, what it can do, who has contents
// to give. Bytes go in and come out; no sockets, no clock.
//
//   no agent --its capabilities--> agent that is ready, or one that can't give and take contents
//   any --capabilities that ask for ours--> another agent: what was said before is void
//   any --reset--> no agent
#pragma once

#include "services/tarvvm/pasteboard/agent_codec.h"

#include <cstdint>
#include <string>
#include <string_view>

class AgentListener
{
public:
    virtual ~AgentListener() = default;
    // An agent said what it can do. `anew`: it has just come, and knows of nothing.
    virtual void agentCame(bool anew) = 0;
    // There is none any more.
    virtual void agentLeft() = 0;
    // The guest has contents of these kinds (bits: 1 << AgentKind) to give, or none any more.
    virtual void agentGrabbed(uint32_t kinds) = 0;
    virtual void agentReleased() = 0;
    // The guest wants the contents that this side has to give.
    virtual void agentAsked(uint32_t kind) = 0;
    // The answer to a request. Contents that are too large come as fewer bytes than their size.
    virtual void agentAnswered(uint32_t kind, std::string contents, uint32_t size) = 0;
};

class AgentLink
{
public:
    // Messages that may wait for the agent to read. One that asks for more is not listened to.
    static constexpr size_t WAITING_MAX = 64;

    explicit AgentLink(AgentListener &listener) : m_listener(listener) {}

    // Takes bytes of the guest in. False when they make no sense: what() says how, and nothing more
    // is to be fed before a reset.
    bool feed(std::string_view bytes);
    const char *what() const { return m_what; }
    // Forgets the agent and what was to be said to it.
    void reset();
    // Whether a message has begun and not ended.
    bool inside() const { return m_decoder.inside(); }
    bool known() const { return m_known; }

    // Whether an agent is there that gives and takes contents.
    bool ready() const { return (m_capabilities & AGENT_CAP_BY_DEMAND) != 0; }
    bool linesEndWithCrLf() const { return (m_capabilities & AGENT_CAP_CRLF) != 0; }

    // Tells an agent what this side can do and asks it for the same.
    void announce();
    void grab(uint32_t kinds);
    // Asks for contents of at most so many bytes.
    void request(AgentKind kind, size_t contents_max);
    // No answer is waited for any more.
    void endRequest() { m_decoder.setContentsMax(0); }
    void answer(AgentKind kind, AgentEncoder::Contents contents);

    // Appends the next bytes to send. False when there are none.
    bool next(std::string *bytes) { return m_encoder.next(bytes); }
    bool hasOutput() const { return m_encoder.waiting() != 0; }

private:
    bool handle(AgentMessage &message);
    bool handleCapabilities(std::string_view body);
    bool handleContents(AgentMessage &message, std::string_view body);
    bool refuse(const char *what);
    void sendCapabilities(bool ask);
    std::string selection() const;

    AgentListener &m_listener;
    AgentDecoder m_decoder;
    AgentEncoder m_encoder;
    uint32_t m_capabilities = 0; // of the guest's agent
    bool m_known = false;        // there is one
    bool m_asked = false;        // for them, and there was no answer yet
    const char *m_what = "";
};
