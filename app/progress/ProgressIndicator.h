// A progress indicator that spins while the end is not known, and is a bar once it is.
#pragma once

#include <QProgressBar>
#include <QTimer>

class ProgressIndicator : public QProgressBar
{
    Q_OBJECT

public:
    enum class Style
    {
        spinner,
        bar,
    };

    explicit ProgressIndicator(QWidget *parent = nullptr);

    Style style() const { return m_style; }
    void setStyle(Style style);
    // Lets the spinner turn; it costs nothing while it is not seen.
    void startAnimation();
    bool isAnimating() const { return m_frames.isActive(); }

    QSize sizeHint() const override;

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    QTimer m_frames;
    Style m_style = Style::spinner;
    int m_step = 0;
};
