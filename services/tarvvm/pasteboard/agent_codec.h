// The bytes of the agent protocol, which a guest's clipboard agent speaks on its port: chunks that
// carry the stream of a message each, cut anywhere. No sockets. All numbers are little-endian.
//
//   chunk    u32 port, u32 size, then `size` bytes
//   message  u32 protocol (1), u32 type, u64 opaque, u32 size, then `size` bytes
//
// The agents that the guests' systems come with write a message as one chunk of any size, but read
// no chunk above AGENT_CHUNK_MAX.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

inline constexpr size_t AGENT_CHUNK_MAX = 2048;          // bytes after a chunk's header
inline constexpr size_t AGENT_CONTROL_MAX = 64 * 1024;   // bytes of a message that is no contents
inline constexpr size_t AGENT_PASSED_OVER_MAX = 1 << 30; // bytes of a message that is passed over
inline constexpr size_t AGENT_HEAD_KEPT = 64;            // bytes kept of one that is passed over
inline constexpr size_t AGENT_TYPES_MAX = 64;            // types of contents that a grab offers

// Types of messages that matter here; all others are passed over.
enum AgentType : uint32_t
{
    AGENT_CLIPBOARD = 4, // contents: u32 kind, bytes
    AGENT_CAPABILITIES = 6,
    AGENT_GRAB = 7,    // has contents to give: u32 kinds
    AGENT_REQUEST = 8, // asks for them: u32 kind
    AGENT_RELEASE = 9, // has none any more
    AGENT_MAX_CLIPBOARD = 14,
};

// Kinds of contents.
enum AgentKind : uint32_t
{
    AGENT_NONE = 0,
    AGENT_TEXT = 1, // UTF-8
    AGENT_PNG = 2,
};

// Bits of capabilities.
inline constexpr uint32_t AGENT_CAP_BY_DEMAND = 1u << 5;      // grab, request, release
inline constexpr uint32_t AGENT_CAP_SELECTION = 1u << 6;      // clipboard messages name a selection
inline constexpr uint32_t AGENT_CAP_CRLF = 1u << 9;           // the guest's lines end with CR LF
inline constexpr uint32_t AGENT_CAP_MAX_CLIPBOARD = 1u << 10; // can be told a limit
inline constexpr uint32_t AGENT_CAP_REGRAB = 1u << 16; // a grab takes over without a release before

struct AgentMessage
{
    uint32_t type = 0;
    uint32_t size = 0; // as it says itself
    std::string body;  // all of it, or the first AGENT_HEAD_KEPT bytes of one that is passed over
};

// Puts messages together from bytes as they arrive.
class AgentDecoder
{
public:
    // Takes bytes in and appends the messages that they complete. False when they are not of the
    // protocol: what() says how, and the stream means nothing until a reset.
    bool feed(std::string_view bytes, std::vector<AgentMessage> *messages);
    void reset();
    const char *what() const { return m_what; }
    // Whether a chunk or a message has begun and not ended.
    bool inside() const;
    // Contents above so many bytes are passed over; 0 at first, so that a guest can make this side
    // hold only what was asked of it.
    void setContentsMax(size_t size) { m_contents_max = size; }

private:
    bool beginChunk();
    bool beginMessage();
    bool refuse(const char *what);
    size_t takeMessage(std::string_view bytes, std::vector<AgentMessage> *messages);

    size_t m_contents_max = 0;
    std::string m_chunk_head;
    std::string m_message_head;
    uint32_t m_chunk_left = 0;
    bool m_chunk_is_ours = false; // of the port whose messages are for this side
    AgentMessage m_message;
    uint32_t m_message_left = 0;
    bool m_in_message = false;
    bool m_keep = false;
    const char *m_what = "";
};

// Cuts messages into chunks, one at a time: contents are shared, not copied, while they wait.
class AgentEncoder
{
public:
    using Contents = std::shared_ptr<const std::string>;

    // Queues a message whose body is `head` and then the contents, if any.
    void add(AgentType type, const std::string &head, Contents contents = nullptr);
    // Takes messages of a type back of which nothing is out yet. How many.
    size_t drop(AgentType type);
    // Appends the bytes of the next chunk. False when there is none.
    bool next(std::string *bytes);
    size_t waiting() const { return m_messages.size(); }
    void clear() { m_messages.clear(); }

private:
    struct Message
    {
        AgentType type;
        std::string head; // with the message's header
        Contents contents;
        size_t done = 0; // bytes of both that are out
    };
    std::deque<Message> m_messages;
};

// Bodies of messages. A selection, where the guest's messages name one, precedes all else.
std::string agent_number(uint32_t value);
// Takes a number off the front. False when there are too few bytes.
bool agent_take_number(std::string_view *bytes, uint32_t *value);
