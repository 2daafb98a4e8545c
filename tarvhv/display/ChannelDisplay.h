// A TarvDisplay whose screen comes over a display channel.
#pragma once

#include "tarvhv/display/TarvDisplay.h"
#include "tarvhv/display/handshake.h"
#include "tarvhv/display/packet_socket.h"

#include <QSocketNotifier>

#include <optional>
#include <tuple>

class ChannelDisplay : public TarvDisplay
{
    Q_OBJECT

public:
    ChannelDisplay(const QString &path, ScreenAnswer answer);

    void setDelegate(TarvDisplayDelegate *delegate) override { m_delegate = delegate; }
    const void *surface() const override { return nullptr; }
    const uint8_t *fbuf() const override;
    const display_fbctl *fbctl() const override;
    int stride() const override { return m_answer.state.buffer().stride(); }

    QString path() const override { return m_path; }
    QString uuid() const override { return QString::fromStdString(m_answer.uuid); }
    QString name() const override { return QString::fromStdString(m_answer.name); }
    unsigned totalDisplays() const override { return m_answer.total; }
    unsigned index() const override { return m_answer.index; }
    int width() const override { return m_answer.state.buffer().width(); }
    int height() const override { return m_answer.state.buffer().height(); }
    bool hdpi() const override { return m_answer.state.hdpi(); }
    bool allowsLiveResize() const override { return m_answer.state.liveResize(); }
    uint32_t caps() const override { return m_answer.state.caps(); }
    bool absolutePointer() const override { return m_answer.state.absolute(); }

    void setWidth(uint32_t width, uint32_t height, bool hdpi) override;
    bool preparePasteboardForPolling() override;
    void requestPasteboard(bool polling) override;
    void sendPasteboard(const QByteArray &archive) override;
    void takeScreenshotWithCompletionHandler(ScreenshotHandler handler) override;

    void sendKey(uint32_t number, bool down) override;
    void sendPointerPosition(int x, int y, uint32_t buttons) override;
    void sendPointerMotion(int dx, int dy, uint32_t buttons) override;
    void sendWheel(int vertical, int horizontal) override;
    void setActive(bool active) override;
    Damage takeDamage() override { return m_answer.state.damage().take(); }
    void acknowledgeFrame() override;

private:
    using Hint = std::tuple<uint32_t, uint32_t, bool>; // width, height, hdpi

    Hint currentSize() const;
    void sendWish();
    void sizeChanged();
    void readable();
    void announce();
    void announceFrame(const DisplayChanges &changes);
    void send(uint32_t type, std::initializer_list<int32_t> arguments, UniqueFd descriptor = {});
    void close(const char *why);

    QString m_path;
    ScreenAnswer m_answer;
    PacketSender m_sender;
    QSocketNotifier m_readable;
    QSocketNotifier m_writable;
    TarvDisplayDelegate *m_delegate = nullptr;
    std::optional<Hint> m_lastHint; // sent, and not answered by a change of size
    std::optional<Hint> m_wish;     // the latest size asked for, sent or not
    std::optional<bool> m_active;
    bool m_closed = false;
};
