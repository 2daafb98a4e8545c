#include "app/agreement/EULAWindowController.h"

#include "app/agreement/RichText.h"
#include "app/agreement/TarvCLI.h"
#include "app/kit/Alert.h"
#include "app/kit/MainMenu.h"
#include "app/kit/SupportFiles.h"
#include "ui_EULAWindowController.h"

namespace {
constexpr qreal AGREEMENT_MARGIN = 16; // logical pixels
} // namespace

EULAWindowController::EULAWindowController()
    : EULAWindowController(supportFile("documentation/License.rtf"), TarvCLI::acceptEULA)
{
}

EULAWindowController::EULAWindowController(const QString &agreementPath, Accept accept)
    : m_ui(std::make_unique<Ui::EULAWindowController>()), m_accept(std::move(accept))
{
    auto *window = new QWidget;
    m_ui->setupUi(window);
    MainMenu::installIn(window);
    setWindow(window);
    QString error;
    if (!readRichTextFile(agreementPath, m_ui->eulaView->document(), &error))
        m_ui->eulaView->setPlainText(tr("The agreement can't be shown.\n\n%1").arg(error));
    m_ui->eulaView->document()->setDocumentMargin(AGREEMENT_MARGIN);
    m_ui->eulaView->moveCursor(QTextCursor::Start);
    connect(m_ui->acceptButton, &QPushButton::clicked, this,
            [this] { acceptEULA(m_ui->acceptButton); });
    connect(m_ui->closeButton, &QPushButton::clicked, this, &EULAWindowController::close);
}

EULAWindowController::~EULAWindowController() = default;

void EULAWindowController::acceptEULA(QObject *)
{
    m_ui->acceptButton->setEnabled(false);
    // The user may be asked for a password meanwhile, and the service may take its time.
    m_work.run(BackgroundWork::Lane::launchService, [this, accept = m_accept] {
        TarvError error;
        const bool success = accept(&error);
        return [this, success, error] { accepted(success, error); };
    });
}

void EULAWindowController::accepted(bool success, const TarvError &error)
{
    m_ui->acceptButton->setEnabled(true);
    if (success)
        close();
    else
        Alert(error.description).setCritical().beginSheet(window());
}
