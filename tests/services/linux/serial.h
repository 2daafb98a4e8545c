// What the Linux guest said on its serial line, as its log has it.
#pragma once

#include "tests/support/service_home.h"

#include <gtest/gtest.h>

#include <string>
#include <unistd.h>
#include <vector>

#define SKIP_WITHOUT_LINUX_GUEST()                                                                 \
    if (access(TARV_GUEST_DIR "/linux.img", R_OK) != 0)                                            \
    GTEST_SKIP() << "the Linux guest is missing: tools/fetch-guest, then build again"

// One "tick" line.
struct Tick
{
    long number = 0;
    long clock = 0, rtc = 0; // seconds since the epoch
};

class Serial
{
public:
    // A guest boots in 10 s, and in several times that where other tests keep the processors busy.
    static constexpr std::chrono::seconds PATIENCE{180};

    explicit Serial(std::string log) : m_log(std::move(log)) {}

    std::string text() const { return file_text(m_log); }
    // Waits until something was said at any time.
    bool said(const std::string &what) const { return after(what, 0) != std::string::npos; }
    // Waits until something was said after what the call before found.
    bool says(const std::string &what)
    {
        const size_t at = after(what, m_seen);
        m_seen = at == std::string::npos ? m_seen : at + 1;
        return at != std::string::npos;
    }
    std::vector<Tick> ticks() const
    {
        std::vector<Tick> result;
        const std::string all = text();
        for (size_t at = 0; (at = all.find("guest: tick ", at)) != std::string::npos; at++)
            if (Tick tick; sscanf(all.c_str() + at, "guest: tick %ld clock %ld rtc %ld",
                                  &tick.number, &tick.clock, &tick.rtc) == 3)
                result.push_back(tick);
        return result;
    }
    // Waits for `more` ticks beyond those that there are.
    bool goesOn(size_t more)
    {
        const size_t wanted = ticks().size() + more;
        return wait_for([&] { return ticks().size() >= wanted; });
    }

private:
    // Where that was said; if it is not, what was said instead can be read.
    size_t after(const std::string &what, size_t from) const
    {
        size_t at = from;
        const auto found = [&] {
            return (at = text().find("guest: " + what, from)) != std::string::npos;
        };
        EXPECT_TRUE(wait_for(found, PATIENCE)) << what << "\n" << text();
        return at;
    }

    std::string m_log;
    size_t m_seen = 0;
};
