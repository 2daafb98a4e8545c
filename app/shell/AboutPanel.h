// What the application is, and which version of it.
#pragma once

class QWidget;

// Shows the panel over a window (may be null). It deletes itself.
void showAboutPanel(QWidget *window);
