// The pasteboard that a display window's guest shares with the host.
#pragma once

#include <QByteArray>
#include <QObject>
#include <QTimer>

#include <memory>

class OpenScreen;

// Asks the guest for its pasteboard while the window is key, and sends it the host's when that was
// changed meanwhile. What came from the guest is never sent back to it.
class PasteboardSharing : public QObject
{
    Q_OBJECT

public:
    explicit PasteboardSharing(OpenScreen &screen);

    // The user's preference, where the guest can share at all.
    bool isEnabled() const;
    void toggle();

    void windowDidBecomeKey();
    void windowDidResignKey();
    // A guest can begin to share its pasteboard long after its window was opened, and end it.
    void capsChanged(bool windowIsKey);

    // The host's contents as they are now are not news to the guest.
    void forgetChanges();
    void copy();
    void paste();
    // The guest's contents arrived: a pasteboard archive, or what claims to be one.
    void take(const QByteArray &archive);

    void startPolling();
    void stopPolling();

private:
    OpenScreen &m_screen;
    std::unique_ptr<QTimer> m_pollTimer;
    qint64 m_changeCount; // of the host's pasteboard when both were the same last
};
