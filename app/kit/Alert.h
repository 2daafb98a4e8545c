// A question or message to the user: a message, more words, and buttons.
#pragma once

#include <QMessageBox>
#include <QStringList>
#include <QWidget>

#include <functional>

// Built, then shown once: as a sheet on a window or modally. The result is ALERT_FIRST_BUTTON for
// the first button, one more for each further one. The first button is the default; a button named
// "Cancel" (or the only one) answers to Escape. Without buttons there is one, "OK". The texts are
// shown as they stand, never as markup: names of VMs and messages of other programs are in them.
class Alert
{
public:
    explicit Alert(const QString &message);

    Alert &setInformativeText(const QString &text);
    Alert &setCritical();
    Alert &addButton(const QString &title);
    // One that changes nothing: it answers to Escape, whatever its name.
    Alert &addHarmlessButton(const QString &title);

    // Runs a loop of its own until a button is pressed.
    int runModal();
    // Shows it in front of all windows and returns at once with the box, which deletes itself. It
    // stands over the window that has the keyboard, if any; when that goes, the box goes
    // unanswered.
    QMessageBox *begin(std::function<void(int result)> handler);
    // Shows it on a window and returns at once with the box, which deletes itself. A window that
    // closes answers with SHEET_STOP.
    QMessageBox *beginSheet(QWidget *window, std::function<void(int result)> handler = {});

private:
    QString m_message;
    QString m_informativeText;
    QMessageBox::Icon m_icon = QMessageBox::Warning;
    QStringList m_buttons;
    qsizetype m_harmless = -1; // which of them answers to Escape; -1: by its name

    QMessageBox *makeBox(QWidget *parent) const;
    static int resultOf(const QMessageBox *box);
};
