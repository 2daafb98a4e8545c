// The sheet in which the user types a resolution for the guest.
#pragma once

#include "app/kit/WindowController.h"

#include <cstdint>
#include <memory>

namespace Ui {
class ResolutionWindow;
}
class QLabel;
class QLineEdit;
class TarvDisplay;

// Only edits values. Ends with SHEET_CONTINUE when they are to be applied, with SHEET_STOP when
// not.
class ResolutionWindowController : public WindowController
{
    Q_OBJECT

public:
    // Starts with the display's resolution.
    explicit ResolutionWindowController(const TarvDisplay &display);
    ~ResolutionWindowController() override;

    QDialog *sheet() const;
    uint64_t width() const { return m_width; }   // pixels
    uint64_t height() const { return m_height; } // pixels
    bool hdpi() const { return m_hdpi; }

    // Doubles or halves the resolution, so that the size in points stays.
    Q_INVOKABLE void toggleHDPI(QObject *sender);
    // While a field holds what is no resolution it says so beside it, and nothing else.
    Q_INVOKABLE void ok(QObject *sender);
    Q_INVOKABLE void cancel(QObject *sender);

private:
    bool commit();
    void showValues();
    void limit(QLineEdit *field, QLabel *problem, uint32_t most);

    std::unique_ptr<Ui::ResolutionWindow> m_ui;
    bool m_hdpi;
    uint64_t m_width;
    uint64_t m_height;
};
