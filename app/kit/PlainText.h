// Texts from outside, made safe for the place where they are shown.
//
// Names of VMs, messages of other programs and paths are never markup, shortcut or placeholder,
// whatever is in them. Places that can be told so (QLabel::setTextFormat) are told; for those that
// guess, these spell the text so that it comes out as it stands.
#pragma once

#include <QString>

class QWidget;

namespace PlainText {

// A tool tip guesses whether its text is markup, and would load the images that it names.
QString forToolTip(const QString &text);
// A menu takes "&" for the mark of a shortcut, and a tab for its place.
QString forMenu(const QString &text);
// A window's title takes "[*]" for the mark of unsaved changes.
QString forTitle(const QString &text);
// The title of a window as it was before forTitle.
QString ofTitle(const QWidget *window);
// A label wraps between words only: long ones are given places where they may be broken, so that
// no text makes a window wider than the screen.
QString breakable(const QString &text);

} // namespace PlainText
