// The user's language.
#pragma once

class QCoreApplication;

// Loads the application's translations, and Qt's where they are installed, for the first of the
// user's languages that there are any for. English needs none. Before the first window is made.
void installTranslations(QCoreApplication *application);
