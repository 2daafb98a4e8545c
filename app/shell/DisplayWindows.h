// The windows that show VMs' screens, and the screens that are being opened for them.
#pragma once

#include "app/kit/WindowController.h"
#include "tarvhv/display/TarvDisplay.h"

#include <QObject>
#include <QString>

#include <functional>
#include <memory>
#include <vector>

struct AppParts;

// One window for each open display. Opening takes its time and never blocks; meanwhile a request is
// under way, which further ones for the same display join.
class DisplayWindows : public QObject
{
    Q_OBJECT

public:
    // Whether a window opened, or was brought forward.
    using Opened = std::function<void(bool)>;

    // The parts outlive this.
    explicit DisplayWindows(const AppParts &parts, QObject *parent = nullptr);
    ~DisplayWindows() override;

    size_t count() const { return m_displays.size(); }
    // Neither a window nor a request for one.
    bool isIdle() const { return m_displays.empty() && m_requests.empty(); }

    // Brings the window of a display forward, or opens one.
    void view(const QString &path, int index, Opened opened);
    // Opens a window, or joins the request that is under way for the same display.
    void share(const QString &path, int index, Opened opened);
    // Opens a window whatever else is open.
    void create(const QString &path, int index, Opened opened);
    // Brings a window of a VM forward; false when none is open.
    bool bringForward(const QString &vmid);
    // Brings the window forward that was opened last, of at least one.
    void bringLastForward();

    // Lets go of the window that is about to close, if it is one of these: on the next turn of the
    // loop, since it is in the middle of its own close.
    void windowWillClose(const QWidget *window);

Q_SIGNALS:
    // A request is over, with a window or without one.
    void requestDidEnd();

private:
    // An open window, with what its display said of itself when it was opened.
    struct Display
    {
        std::unique_ptr<WindowController, DeleteLater> controller;
        QString path;
        QString uuid;
        int index;
    };
    struct Request
    {
        QString path;
        int index;
        std::vector<Opened> waiting;
    };

    Request *requestFor(const QString &path, int index);
    void created(const QString &path, int index, std::unique_ptr<TarvDisplay> display);
    void show(const QString &path, int index, std::unique_ptr<TarvDisplay> display);

    const AppParts &m_parts;
    std::vector<Display> m_displays;
    std::vector<Request> m_requests;
};
