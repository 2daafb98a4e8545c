// What a guest's agent sends, cut anywhere, to a side that asks for and gives contents as it goes.
#include "services/tarvvm/pasteboard/agent_link.h"

#include <cstdint>
#include <cstdlib>

namespace {

class Side : public AgentListener
{
public:
    Side() : link(*this) {}
    void agentCame(bool) override { link.grab(~0u); }
    void agentLeft() override {}
    void agentGrabbed(uint32_t kinds) override
    {
        if (kinds & 1u << AGENT_TEXT)
            link.request(AGENT_TEXT, CONTENTS_MAX);
    }
    void agentReleased() override { link.endRequest(); }
    void agentAsked(uint32_t) override { link.answer(AGENT_TEXT, m_contents); }
    void agentAnswered(uint32_t, std::string contents, uint32_t size) override
    {
        if (contents.size() > size || contents.size() > CONTENTS_MAX + AGENT_HEAD_KEPT)
            abort();
    }

    static constexpr size_t CONTENTS_MAX = 256;
    AgentLink link;

private:
    AgentEncoder::Contents m_contents = std::make_shared<const std::string>(3000, 'x');
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size == 0)
        return 0;
    const size_t step = data[0] + size_t{1};
    std::string_view rest(reinterpret_cast<const char *>(data) + 1, size - 1);
    Side side;
    while (!rest.empty()) {
        if (!side.link.feed(rest.substr(0, step)))
            side.link.reset();
        rest.remove_prefix(std::min(step, rest.size()));
        std::string out;
        // An agent that reads in odd turns only: the rest may wait, but not grow without end.
        for (int i = 0; (step & 1) != 0 && i < 4 && side.link.next(&out); i++)
            if (out.size() > (AGENT_CHUNK_MAX + 8) * size_t(i + 1))
                abort();
    }
    size_t chunks = 0;
    for (std::string out; side.link.next(&out); chunks++)
        out.clear();
    if (chunks > (AgentLink::WAITING_MAX + size) * 3)
        abort();
    return 0;
}
