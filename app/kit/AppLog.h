// Lines of the application in the product's log: "Sat Nov 21 10:15:00 tarv: text".
#pragma once

#include <QString>

// Writes one line of a module ("tarv" or "ctl"). Any thread; a failed write is silent.
void appLog(const char *module, const QString &text);
