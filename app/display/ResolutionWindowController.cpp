#include "app/display/ResolutionWindowController.h"

#include "app/kit/SheetCodes.h"
#include "tarvhv/cli2/display_protocol.h"
#include "tarvhv/display/TarvDisplay.h"
#include "ui_ResolutionWindow.h"

#include <QIntValidator>
#include <QPushButton>

ResolutionWindowController::ResolutionWindowController(const TarvDisplay &display)
    : m_ui(std::make_unique<Ui::ResolutionWindow>()),
      m_hdpi(display.hdpi()),
      m_width(uint64_t(display.width())),
      m_height(uint64_t(display.height()))
{
    auto *dialog = new QDialog;
    m_ui->setupUi(dialog);
    setWindow(dialog);
    m_ui->widthField->setValidator(new QIntValidator(1, int(DISPLAY_WIDTH_MAX), dialog));
    m_ui->heightField->setValidator(new QIntValidator(1, int(DISPLAY_HEIGHT_MAX), dialog));
    m_ui->hdpiButton->setChecked(m_hdpi);
    showValues();
    m_ui->widthField->selectAll();
    connect(m_ui->hdpiButton, &QCheckBox::clicked, this, [this] { toggleHDPI(m_ui->hdpiButton); });
    connect(m_ui->buttonBox, &QDialogButtonBox::accepted, this, [this] { ok(nullptr); });
    connect(m_ui->buttonBox, &QDialogButtonBox::rejected, this, [this] { cancel(nullptr); });
}

ResolutionWindowController::~ResolutionWindowController() = default;

QDialog *ResolutionWindowController::sheet() const
{
    return qobject_cast<QDialog *>(window());
}

// Takes the fields' values over; false, with the focus on the field, when one holds none.
bool ResolutionWindowController::commit()
{
    for (QLineEdit *field : {m_ui->widthField, m_ui->heightField}) {
        if (!field->hasAcceptableInput()) {
            field->setFocus();
            field->selectAll();
            return false;
        }
    }
    m_width = m_ui->widthField->text().toULongLong();
    m_height = m_ui->heightField->text().toULongLong();
    return true;
}

void ResolutionWindowController::showValues()
{
    m_ui->widthField->setText(QString::number(m_width));
    m_ui->heightField->setText(QString::number(m_height));
}

void ResolutionWindowController::toggleHDPI(QObject *)
{
    commit();
    m_hdpi = m_ui->hdpiButton->isChecked();
    m_width = m_hdpi ? m_width * 2 : m_width >> 1;
    m_height = m_hdpi ? m_height * 2 : m_height >> 1;
    showValues();
}

void ResolutionWindowController::ok(QObject *)
{
    if (commit() && sheet())
        sheet()->done(SHEET_CONTINUE);
}

void ResolutionWindowController::cancel(QObject *)
{
    if (sheet())
        sheet()->done(SHEET_STOP);
}
