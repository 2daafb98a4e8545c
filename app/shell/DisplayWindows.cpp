#include "app/shell/DisplayWindows.h"

#include "app/shell/AppParts.h"

#include <algorithm>
#include <utility>

DisplayWindows::DisplayWindows(const AppParts &parts, QObject *parent)
    : QObject(parent), m_parts(parts)
{
}

DisplayWindows::~DisplayWindows()
{
    // Nothing runs the event loop any more that would delete them later.
    for (Display &display : m_displays)
        delete display.controller.release();
}

void DisplayWindows::view(const QString &path, int index, Opened opened)
{
    for (const Display &display : m_displays) {
        if (display.index == index && display.path == path) {
            display.controller->showWindow();
            if (opened)
                opened(true);
            return;
        }
    }
    share(path, index, std::move(opened));
}

DisplayWindows::Request *DisplayWindows::requestFor(const QString &path, int index)
{
    const auto found =
        std::find_if(m_requests.begin(), m_requests.end(), [&](const Request &request) {
            return request.path == path && request.index == index;
        });
    return found == m_requests.end() ? nullptr : &*found;
}

void DisplayWindows::share(const QString &path, int index, Opened opened)
{
    if (Request *request = requestFor(path, index))
        request->waiting.push_back(std::move(opened));
    else
        create(path, index, std::move(opened));
}

void DisplayWindows::create(const QString &path, int index, Opened opened)
{
    m_requests.push_back({path, index, {std::move(opened)}});
    m_parts.createDisplay(path, unsigned(index), this,
                          [this, path, index](std::unique_ptr<TarvDisplay> display, int) {
                              created(path, index, std::move(display));
                          });
}

// The request is over before its askers are told: one of them may ask again.
void DisplayWindows::created(const QString &path, int index, std::unique_ptr<TarvDisplay> display)
{
    Request *request = requestFor(path, index);
    const Request answered = std::move(*request);
    m_requests.erase(m_requests.begin() + (request - m_requests.data()));
    const bool shown = display != nullptr;
    if (display)
        show(path, index, std::move(display));
    for (const Opened &opened : answered.waiting)
        if (opened)
            opened(shown);
    Q_EMIT requestDidEnd();
}

void DisplayWindows::show(const QString &path, int index, std::unique_ptr<TarvDisplay> display)
{
    const QString uuid = display->uuid();
    std::unique_ptr<WindowController, DeleteLater> controller(
        m_parts.makeDisplayController(std::move(display)));
    m_displays.push_back({std::move(controller), path, uuid, index});
    m_displays.back().controller->showWindow();
}

bool DisplayWindows::bringForward(const QString &vmid)
{
    for (const Display &display : m_displays) {
        if (display.uuid.compare(vmid, Qt::CaseInsensitive) == 0) {
            display.controller->showWindow();
            return true;
        }
    }
    return false;
}

void DisplayWindows::bringLastForward()
{
    m_displays.back().controller->showWindow();
}

void DisplayWindows::windowWillClose(const QWidget *window)
{
    const auto closing = std::find_if(m_displays.begin(), m_displays.end(), [&](const Display &d) {
        return d.controller->window() == window;
    });
    if (closing == m_displays.end())
        return;
    QMetaObject::invokeMethod(
        this,
        [this, controller = closing->controller.get()] {
            std::erase_if(m_displays, [controller](const Display &display) {
                return display.controller.get() == controller;
            });
        },
        Qt::QueuedConnection);
}
