#include "app/shell/AboutPanel.h"

#include <QApplication>
#include <QIcon>
#include <QMessageBox>

namespace {

constexpr int ICON_SIDE = 64; // logical pixels

QString localised(const char *text)
{
    return QCoreApplication::translate("AboutPanel", text);
}

} // namespace

void showAboutPanel(QWidget *window)
{
    auto *about = new QMessageBox(window);
    about->setAttribute(Qt::WA_DeleteOnClose);
    about->setObjectName(QStringLiteral("about"));
    about->setWindowTitle(localised(QT_TRANSLATE_NOOP("AboutPanel", "About Tarv")));
    about->setIconPixmap(
        QApplication::windowIcon().pixmap(QSize(ICON_SIDE, ICON_SIDE), about->devicePixelRatioF()));
    // Markup of our own; nothing in it comes from outside.
    about->setText(
        QStringLiteral("<h2>%1</h2>").arg(localised(QT_TRANSLATE_NOOP("AboutPanel", "Tarv"))));
    const QString version =
        localised(QT_TRANSLATE_NOOP("AboutPanel", "Version %@"))
            .replace(QLatin1String("%@"), QCoreApplication::applicationVersion());
    const QString purpose = localised(
        QT_TRANSLATE_NOOP("AboutPanel", "Runs virtual machines and shows their screens."));
    about->setInformativeText(version + QStringLiteral("<br>") +
                              QString(purpose).replace(QLatin1Char(' '), QChar::Nbsp));
    about->open();
}
