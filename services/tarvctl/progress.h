// Progress for whoever watches standard error: lines "NN%", each number once.
#pragma once

class Progress
{
public:
    // The next step takes the share of the whole up to `end`, 0 to 1.
    void begin_step(double end);
    // How much of the step is done, 0 to 1.
    void report(double part);

private:
    double m_start = 0, m_end = 1;
    int m_shown = -1;
};
