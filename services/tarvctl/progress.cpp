#include "services/tarvctl/progress.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

void Progress::begin_step(double end)
{
    if (m_shown >= 0)
        m_start = m_end;
    m_end = end;
    report(0);
}

void Progress::report(double part)
{
    const double done = m_start + (m_end - m_start) * std::clamp(part, 0.0, 1.0);
    const int percent = static_cast<int>(std::lround(done * 100));
    if (percent <= m_shown)
        return;
    m_shown = percent;
    fprintf(stderr, "%d%%\n", percent);
}
