// A display without a VM: windows and views are tested with it. It records what is asked of it.
#pragma once

#include "tarvhv/cli2/display_protocol.h"
#include "tarvhv/display/TarvDisplay.h"

#include <QColor>
#include <QRect>

#include <string>
#include <utility>

class FakeDisplay : public TarvDisplay
{
public:
    FakeDisplay(int width, int height) { setSize(width, height); }

    void setSize(int width, int height)
    {
        image = QImage(width, height, QImage::Format_RGB32);
        image.fill(Qt::black);
        damage.reset(uint32_t(width), uint32_t(height));
        damage.addAll();
        notify();
    }
    void paint(const QRect &rectangle, QColor colour)
    {
        for (int y = rectangle.top(); y <= rectangle.bottom(); y++)
            for (int x = rectangle.left(); x <= rectangle.right(); x++)
                image.setPixelColor(x, y, colour);
        damage.add({rectangle.x(), rectangle.y(), rectangle.width(), rectangle.height()});
        if (delegate)
            delegate->displayPixelsDidChange(this);
    }
    void notify()
    {
        if (delegate)
            delegate->displayNotification(this);
    }

    void setDelegate(TarvDisplayDelegate *value) override { delegate = value; }
    const void *surface() const override { return nullptr; }
    const uint8_t *fbuf() const override { return image.constBits(); }
    const display_fbctl *fbctl() const override { return &control; }
    QString path() const override { return QStringLiteral("/nowhere"); }
    QString uuid() const override { return id; }
    QString name() const override { return vmName; }
    unsigned totalDisplays() const override { return screens; }
    unsigned index() const override { return 1; }
    int width() const override { return image.width(); }
    int height() const override { return image.height(); }
    bool hdpi() const override { return dense; }
    bool allowsLiveResize() const override { return resizable; }
    uint32_t caps() const override { return capabilities; }
    bool absolutePointer() const override { return absolute; }

    void setWidth(uint32_t width, uint32_t height, bool hdpi) override
    {
        note("size", {int(width), int(height), hdpi});
    }
    bool preparePasteboardForPolling() override { return true; }
    void requestPasteboard(bool polling) override { note("ask", {polling}); }
    void sendPasteboard(const QByteArray &archive) override { pasteboards.append(archive); }
    void takeScreenshotWithCompletionHandler(ScreenshotHandler handler) override { handler(image); }
    void sendKey(uint32_t number, bool down) override { note("key", {int(number), down}); }
    void sendPointerPosition(int x, int y, uint32_t buttons) override
    {
        note("position", {x, y, int(buttons)});
    }
    void sendPointerMotion(int dx, int dy, uint32_t buttons) override
    {
        note("motion", {dx, dy, int(buttons)});
    }
    void sendWheel(int vertical, int horizontal) override { note("wheel", {vertical, horizontal}); }
    void setActive(bool value) override { active = value; }
    Damage takeDamage() override { return damage.take(); }
    void acknowledgeFrame() override { acknowledged++; }

    // What was asked since the last look, as "key 30 1, key 30 0".
    std::string taken() { return std::exchange(m_asked, {}); }

    TarvDisplayDelegate *delegate = nullptr;
    QImage image;
    Damage damage;
    display_fbctl control{};
    QString id = QStringLiteral("4a9e");
    QString vmName = QStringLiteral("mac");
    unsigned screens = 1;
    bool absolute = true;
    bool dense = false;
    bool resizable = true;
    uint32_t capabilities = 0;
    bool active = false;
    int acknowledged = 0;
    QList<QByteArray> pasteboards;

private:
    void note(const char *what, std::initializer_list<int> arguments)
    {
        m_asked += m_asked.empty() ? what : std::string(", ") + what;
        for (const int each : arguments)
            m_asked += ' ' + std::to_string(each);
    }
    std::string m_asked;
};
