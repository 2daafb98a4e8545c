#include "app/kit/Alert.h"

#include "app/kit/PlainText.h"
#include "app/kit/SheetCodes.h"
#include "app/kit/WindowController.h"

#include <QCoreApplication>
#include <QLabel>
#include <QPointer>
#include <QPushButton>

namespace {
constexpr int ICON_SIDE = 48; // logical pixels
} // namespace

Alert::Alert(const QString &message) : m_message(message) {}

Alert &Alert::setInformativeText(const QString &text)
{
    m_informativeText = text;
    return *this;
}

Alert &Alert::setCritical()
{
    m_icon = QMessageBox::Critical;
    return *this;
}

Alert &Alert::addButton(const QString &title)
{
    m_buttons.append(title);
    return *this;
}

Alert &Alert::addHarmlessButton(const QString &title)
{
    m_harmless = m_buttons.size();
    return addButton(title);
}

QMessageBox *Alert::makeBox(QWidget *parent) const
{
    auto *box = new QMessageBox(parent);
    box->setObjectName(QStringLiteral("alert"));
    box->setWindowTitle(QCoreApplication::applicationName());
    box->setIcon(m_icon);
    const QIcon image(m_icon == QMessageBox::Critical ? QStringLiteral(":/tarv/failure.svg")
                                                      : QStringLiteral(":/tarv/caution.svg"));
    if (const QPixmap pixmap = image.pixmap(QSize(ICON_SIDE, ICON_SIDE), box->devicePixelRatioF());
        !pixmap.isNull())
        box->setIconPixmap(pixmap);
    // Not a window that keeps the application: its end is not that of the last one.
    box->setAttribute(Qt::WA_QuitOnClose, false);
    box->setTextFormat(Qt::PlainText);
    box->setText(PlainText::breakable(m_message));
    box->setInformativeText(PlainText::breakable(m_informativeText));
    for (QLabel *label : box->findChildren<QLabel *>())
        if (label->pixmap().isNull())
            label->setTextFormat(Qt::PlainText); // the format of the box is the message's alone
    const QString cancel = QCoreApplication::translate("Alert", "Cancel");
    QStringList titles = m_buttons;
    if (titles.isEmpty())
        titles.append(QCoreApplication::translate("Alert", "OK"));
    for (int i = 0; i < titles.size(); ++i) {
        const bool cancels = m_harmless < 0 ? titles[i] == cancel : m_harmless == i;
        QPushButton *button =
            box->addButton(titles[i], cancels ? QMessageBox::RejectRole : QMessageBox::AcceptRole);
        button->setObjectName(QStringLiteral("alertButton%1").arg(i + 1));
        button->setProperty("alertResult", ALERT_FIRST_BUTTON + i);
        if (i == 0)
            box->setDefaultButton(button);
        if (cancels || titles.size() == 1)
            box->setEscapeButton(button);
    }
    return box;
}

int Alert::resultOf(const QMessageBox *box)
{
    const QAbstractButton *button = box->clickedButton();
    return button ? button->property("alertResult").toInt() : SHEET_STOP;
}

int Alert::runModal()
{
    // The window that it stands on can go meanwhile, and takes it along.
    const QPointer<QMessageBox> box(makeBox(WindowController::keyWindow()));
    box->exec();
    const int result = box ? resultOf(box) : SHEET_STOP;
    delete box;
    return result;
}

QMessageBox *Alert::begin(std::function<void(int)> handler)
{
    QWidget *key = WindowController::keyWindow();
    while (key && key->parentWidget()) // a sheet may end before the box is answered
        key = key->parentWidget();
    QMessageBox *box = makeBox(key);
    box->setWindowModality(Qt::ApplicationModal);
    QObject::connect(box, &QDialog::finished, box, [box, handler = std::move(handler)](int) {
        box->deleteLater();
        handler(resultOf(box));
    });
    box->show();
    return box;
}

QMessageBox *Alert::beginSheet(QWidget *window, std::function<void(int)> handler)
{
    QMessageBox *box = makeBox(window);
    const QPointer<QMessageBox> guard(box);
    const auto finish = [guard, handler = std::move(handler)](int) {
        const int result = guard ? resultOf(guard) : SHEET_STOP;
        if (guard)
            guard->deleteLater();
        if (handler)
            handler(result);
    };
    if (auto *controller = WindowController::forWindow(window)) {
        controller->beginSheet(box, finish);
        return box;
    }
    box->setWindowFlags(Qt::Sheet);
    QObject::connect(box, &QDialog::finished, window, finish);
    box->open();
    return box;
}
