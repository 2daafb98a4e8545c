#include "services/tarvvm/screens/desktop.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace {

constexpr const char *BUTTONS[] = {"left",       "middle", "right", "wheel-up",
                                   "wheel-down", "side",   "extra"};

int32_t scaled(uint64_t at, uint64_t size)
{
    return size == 0 ? 0 : int32_t(std::min<uint64_t>(at, size) * DESKTOP_FAR / size);
}

JsonTree axis(const char *name, int32_t value)
{
    JsonTree data(json_mkobject());
    json_append_str(data.get(), "axis", name);
    json_append_int64(data.get(), "value", value);
    return data;
}

void append_event(json *list, const char *type, JsonTree data)
{
    JsonTree event(json_mkobject());
    json_append_str(event.get(), "type", type);
    json_append(event.get(), "data", data.release());
    json_append(list, nullptr, event.release());
}

} // namespace

DesktopPlace desktop_place(const std::vector<DesktopScreen> &screens, size_t screen, int32_t x,
                           int32_t y)
{
    uint64_t left = 0, width = 0, height = 0;
    for (size_t i = 0; i < screens.size(); i++) {
        if (i == screen)
            left = width;
        width += screens[i].width;
        height = std::max<uint64_t>(height, screens[i].height);
    }
    return {scaled(left + uint64_t(std::max(x, 0)), width),
            scaled(uint64_t(std::max(y, 0)), height)};
}

void Desktop::setSize(size_t screen, uint32_t width, uint32_t height)
{
    if (screen < m_screens.size())
        m_screens[screen] = {width, height};
}

void Desktop::moveTo(size_t screen, int32_t x, int32_t y)
{
    const DesktopPlace place = desktop_place(m_screens, screen, x, y);
    send("abs", axis("x", place.x), axis("y", place.y));
}

void Desktop::button(uint32_t number, bool down)
{
    if (number >= std::size(BUTTONS))
        return;
    JsonTree data(json_mkobject());
    json_append_bool(data.get(), "down", down);
    json_append_str(data.get(), "button", BUTTONS[number]);
    send("btn", std::move(data));
}

void Desktop::send(const char *type, JsonTree data, JsonTree more)
{
    JsonTree list(json_mkarray());
    append_event(list.get(), type, std::move(data));
    if (more)
        append_event(list.get(), type, std::move(more));
    JsonTree arguments(json_mkobject());
    json_append(arguments.get(), "events", list.release());
    m_gate.sent();
    m_qmp.execute("input-send-event", std::move(arguments),
                  [gate = &m_gate](const json *, const std::string &) { gate->answered(); });
}
