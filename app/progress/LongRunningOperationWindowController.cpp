#include "app/progress/LongRunningOperationWindowController.h"

#include "app/kit/SheetCodes.h"
#include "app/progress/LongOperationWindow.h"
#include "app/progress/ProgressIndicator.h"
#include "ui_LongRunningOperationWindowController.h"

#include <QPushButton>
#include <QTimer>

#include <algorithm>

namespace {
constexpr int ANIMATION_DELAY_MS = 100;
} // namespace

LongRunningOperationWindowController *LongRunningOperationWindowController::controller()
{
    return new LongRunningOperationWindowController;
}

LongRunningOperationWindowController::LongRunningOperationWindowController()
    : m_ui(std::make_unique<Ui::LongRunningOperationWindowController>())
{
    auto *sheet = new LongOperationWindow;
    m_ui->setupUi(sheet);
    setWindow(sheet);
    connect(m_ui->backgroundButton, &QPushButton::clicked, this, [this] { background(); });
    connect(m_ui->cancelButton, &QPushButton::clicked, this, [this] { cancelOperation(); });
    windowDidLoad();
}

LongRunningOperationWindowController::~LongRunningOperationWindowController() = default;

void LongRunningOperationWindowController::windowDidLoad()
{
    QTimer::singleShot(ANIMATION_DELAY_MS, m_ui->progressIndicator,
                       &ProgressIndicator::startAnimation);
}

LongOperationWindow *LongRunningOperationWindowController::sheet() const
{
    return qobject_cast<LongOperationWindow *>(window());
}

ProgressIndicator *LongRunningOperationWindowController::progressIndicator() const
{
    return m_ui->progressIndicator;
}

QString LongRunningOperationWindowController::title() const
{
    return m_ui->titleLabel->text();
}

void LongRunningOperationWindowController::setTitle(const QString &title)
{
    m_ui->titleLabel->setText(title);
    if (sheet())
        sheet()->setWindowTitle(title);
}

void LongRunningOperationWindowController::setProgress(double percent)
{
    if (!(percent > 0))
        return;
    ProgressIndicator *indicator = m_ui->progressIndicator;
    if (indicator->style() != ProgressIndicator::Style::bar) {
        indicator->setStyle(ProgressIndicator::Style::bar);
        indicator->setRange(0, 100);
        // The spinner stands beside the text, the bar below it.
        m_ui->progressLayout->addWidget(m_ui->titleLabel, 0, 0, 1, 2);
        m_ui->progressLayout->addWidget(indicator, 1, 0, 1, 2);
    }
    indicator->setValue(static_cast<int>(std::min(percent, 100.0)));
}

void LongRunningOperationWindowController::background(QObject *)
{
    if (sheet())
        sheet()->done(SHEET_CONTINUE);
}

void LongRunningOperationWindowController::cancelOperation(QObject *)
{
    if (sheet())
        sheet()->done(SHEET_CANCEL);
}
