// How a VM is started: one of three modes, on its way from a click or a command line to the engine.
//
//   number  word      asked for by                        what the supervisor does
//   0       normal    the application, "start -f"         boots, or resumes a saved state
//   1       forced    the application, "start -u"         the same; the guest has no add-ons
//   2       recovery  "start --recovery", "tarvvm --mode" boots afresh, from the CD first
//
// Between programs a mode travels as its number: the application's options of a start, "--mode N"
// of the supervisor.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

enum class StartMode : int32_t
{
    normal = 0,
    forced = 1,
    recovery = 2
};

// The option of the supervisor that the number of a mode follows.
inline constexpr const char *START_MODE_OPTION = "--mode";

// The mode of a number as typed behind that option; none for anything but "0", "1" and "2".
inline std::optional<StartMode> start_mode_from(std::string_view text)
{
    if (text.size() != 1 || text[0] < '0' || text[0] > '2')
        return std::nullopt;
    return StartMode(text[0] - '0');
}

// The mode of a number that a caller passes as options; what lies outside counts as the nearest.
inline StartMode start_mode_nearest(int32_t number)
{
    return StartMode(number < 0 ? 0 : number > 2 ? 2 : number);
}

// What the supervisor is told: nothing for the normal mode, which is its own default.
inline std::vector<std::string> start_mode_arguments(StartMode mode)
{
    if (mode == StartMode::normal)
        return {};
    return {START_MODE_OPTION, std::to_string(int32_t(mode))};
}

// What the application tells the controller. Only the forced mode has a form of its own there: a
// list asks for recovery by other means.
inline const char *start_mode_flags(StartMode mode)
{
    return mode == StartMode::forced ? "-uv" : "-fv";
}
