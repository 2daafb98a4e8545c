// The administrator right "com.quelda.tarv.admin".
#pragma once

#include <QDBusConnection>
#include <QString>

// Obtains the right; the user may be asked for a password. Root has it. Blocks until the user has
// answered: not for the main thread. False with a reason.
bool obtainAdministratorRight(QString *error);
// The same through polkit on a system bus, whoever asks.
bool obtainRightFromPolkit(const QDBusConnection &bus, QString *error);
