#include "app/display/ResolutionWindowController.h"

#include "app/kit/SheetCodes.h"
#include "tarvhv/cli2/display_protocol.h"
#include "tarvhv/display/TarvDisplay.h"
#include "ui_ResolutionWindow.h"

#include <QIntValidator>
#include <QPushButton>

namespace {

// Escape and the window's own close button cancel, too.
class ResolutionSheet : public QDialog
{
public:
    void reject() override { done(SHEET_STOP); }
};

} // namespace

ResolutionWindowController::ResolutionWindowController(const TarvDisplay &display)
    : m_ui(std::make_unique<Ui::ResolutionWindow>()),
      m_hdpi(display.hdpi()),
      m_width(uint64_t(display.width())),
      m_height(uint64_t(display.height()))
{
    auto *dialog = new ResolutionSheet;
    m_ui->setupUi(dialog);
    setWindow(dialog);
    limit(m_ui->widthField, m_ui->widthProblem, DISPLAY_WIDTH_MAX);
    limit(m_ui->heightField, m_ui->heightProblem, DISPLAY_HEIGHT_MAX);
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

// The field takes what can become a number of pixels; beside it stands what is wrong, until it is
// right.
void ResolutionWindowController::limit(QLineEdit *field, QLabel *problem, uint32_t most)
{
    field->setValidator(new QIntValidator(1, int(most), field));
    problem->setTextFormat(Qt::PlainText);
    problem->setText(tr("Must be a number from 1 to %1").arg(most));
    problem->setVisible(false);
    connect(field, &QLineEdit::textChanged, problem, [field, problem] {
        if (field->hasAcceptableInput())
            problem->setVisible(false);
    });
}

// Takes the fields' values over; false, with the focus on the field, when one holds none.
bool ResolutionWindowController::commit()
{
    const std::pair<QLineEdit *, QLabel *> fields[] = {{m_ui->widthField, m_ui->widthProblem},
                                                       {m_ui->heightField, m_ui->heightProblem}};
    for (const auto &[field, problem] : fields) {
        if (!field->hasAcceptableInput()) {
            problem->setVisible(true);
            field->setAccessibleDescription(problem->text());
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
