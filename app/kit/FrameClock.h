// A clock at the screen's refresh rate that ticks only when somebody waits for the next frame.
#pragma once

#include <QElapsedTimer>
#include <QObject>
#include <QPointer>
#include <QScreen>
#include <QTimer>

class FrameClock : public QObject
{
    Q_OBJECT

public:
    explicit FrameClock(QObject *parent = nullptr);

    // The screen whose refresh rate counts; null for 60 Hz.
    void setScreen(QScreen *screen);
    // A stopped clock keeps a request until it is started.
    void start();
    void stop();
    bool isRunning() const { return m_running; }
    // Asks for one tick at the next frame, never earlier than one frame after the last. Further
    // requests until then are the same one. Without requests the clock sleeps.
    void requestTick();

Q_SIGNALS:
    void ticked();

private:
    QPointer<QScreen> m_screen;
    QTimer m_timer;
    QElapsedTimer m_sinceTick;
    bool m_running = false;
    bool m_requested = false;

    void schedule();
};
