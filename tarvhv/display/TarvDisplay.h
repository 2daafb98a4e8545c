// One guest screen of a running VM, as the application sees it.
#pragma once

#include "tarvhv/cli2/damage.h"

#include <QByteArray>
#include <QImage>
#include <QObject>
#include <QString>

#include <cstdint>
#include <functional>
#include <memory>

struct display_fbctl;
class TarvDisplay;

// Told about a display. Every call comes on the main thread; the display outlives the call.
class TarvDisplayDelegate
{
public:
    virtual ~TarvDisplayDelegate() = default;
    // A new frame buffer or a changed mode of the guest's screen.
    virtual void displayNotification(TarvDisplay *display) = 0;
    // Pixels of the picture changed, and nothing else did.
    virtual void displayPixelsDidChange(TarvDisplay *display) { displayNotification(display); }
    // The guest's pasteboard arrived: a pasteboard archive.
    virtual void displayPasteboardDataDidChange(TarvDisplay *display,
                                                const QByteArray &archive) = 0;
    // The screen is gone; the display shows nothing from now on.
    virtual void displayDidClose(TarvDisplay *display) = 0;
};

// The screen of a VM: its picture, its properties and the ways to act on it. Abstract, so that
// windows are tested with another one. Used on the main thread; no call waits for the VM.
class TarvDisplay : public QObject
{
    Q_OBJECT

public:
    using ScreenshotHandler = std::function<void(const QImage &image)>;
    using QObject::QObject;

    virtual void setDelegate(TarvDisplayDelegate *delegate) = 0;

    // A shared surface; none in this implementation.
    virtual const void *surface() const = 0;
    // The frame buffer's first pixel (32-bit xRGB) and its control block; null without one. Valid
    // until the next displayNotification or displayDidClose.
    virtual const uint8_t *fbuf() const = 0;
    virtual const display_fbctl *fbctl() const = 0;
    // Bytes from row to row of the frame buffer, as checked against its memory: to be used instead
    // of the control block's, which the VM's side can change at any time.
    virtual int stride() const { return width() * 4; }

    virtual QString path() const = 0; // as given to TarvDisplayCreate
    virtual QString uuid() const = 0;
    virtual QString name() const = 0;
    virtual unsigned totalDisplays() const = 0;
    virtual unsigned index() const = 0;
    virtual int width() const = 0;  // pixels
    virtual int height() const = 0; // pixels
    virtual bool hdpi() const = 0;
    virtual bool allowsLiveResize() const = 0;
    virtual uint32_t caps() const = 0; // DISPLAY_CAP_*
    // Whether the guest takes absolute pointer positions now.
    virtual bool absolutePointer() const = 0;

    // Asks the guest for a resolution. A size equal to the guest's or to the last asked is not
    // sent.
    virtual void setWidth(uint32_t width, uint32_t height, bool hdpi) = 0;
    virtual bool preparePasteboardForPolling() = 0;
    virtual void requestPasteboard(bool polling) = 0;
    virtual void sendPasteboard(const QByteArray &archive) = 0;
    // Hands a copy of the picture to the handler, later and on the main thread.
    virtual void takeScreenshotWithCompletionHandler(ScreenshotHandler handler) = 0;

    // Input. Keys are XT set 1 numbers with 0x80 for the E0 keys; positions are guest pixels;
    // buttons are bits: 0 left, 1 middle, 2 right, 5 back, 6 forward.
    virtual void sendKey(uint32_t number, bool down) = 0;
    virtual void sendPointerPosition(int x, int y, uint32_t buttons) = 0;
    virtual void sendPointerMotion(int dx, int dy, uint32_t buttons) = 0;
    virtual void sendWheel(int vertical, int horizontal) = 0;
    // Whether somebody looks: a hidden display costs the VM nothing.
    virtual void setActive(bool active) = 0;
    // What changed since this was last asked, by the view that paints it. More is sent only once
    // acknowledgeFrame() says that it went into a paint.
    virtual Damage takeDamage() = 0;
    virtual void acknowledgeFrame() = 0;

Q_SIGNALS:
    // The guest's pointer image changed; a null image: the guest shows none of ours.
    void pointerChanged(const QImage &image, const QPoint &hotSpot);
    void pointerModeChanged(bool absolute);
    void capsChanged();
};

// Opens screen `index` of the VM whose service socket is at `path`, waiting at most one second.
// Null with errno set. A ":N" at the end of the path is taken off before connecting.
std::unique_ptr<TarvDisplay> TarvDisplayCreate(const QString &path, unsigned index);
// The same without waiting: the handler gets the display, or null and an errno, on the main thread.
void TarvDisplayCreateAsync(const QString &path, unsigned index, QObject *context,
                            std::function<void(std::unique_ptr<TarvDisplay>, int error)> handler);
