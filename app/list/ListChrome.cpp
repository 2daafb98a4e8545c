#include "app/list/ListChrome.h"

#include "app/kit/UserDefaults.h"
#include "app/list/TrackingArea.h"
#include "ui_WelcomeWindowController.h"

#include <QApplication>

using namespace Qt::StringLiterals;

namespace {
const QString GEOMETRY_KEY = u"VirtualMachinesWindowGeometry"_s;
const QString COLUMNS_KEY = u"VirtualMachinesTableColumns"_s;
constexpr int ICON_SIZE = 44; // logical pixels

QFont scaled(QFont font, qreal factor)
{
    font.setPointSizeF(font.pointSizeF() * factor);
    return font;
}
} // namespace

ListChrome::ListChrome(QMainWindow *window, const Ui::WelcomeWindowController &ui)
    : QObject(window), m_window(window), m_ui(ui)
{
    setTexts();
    m_ui.unreadableButton->setIcon(QIcon(u":/tarv/caution.svg"_s));
    const QIcon icon = QApplication::windowIcon();
    m_ui.iconLabel->setPixmap(
        icon.pixmap(QSize(ICON_SIZE, ICON_SIZE), m_window->devicePixelRatioF()));
    m_ui.iconLabel->setVisible(!icon.isNull());
    m_ui.closeButton->hide();
    m_ui.emptyState->hide();
    m_ui.unreadableButton->hide();
}

void ListChrome::setTexts()
{
    m_ui.versionLabel->setText(tr("Version %@").replace(u"%@"_s, QString::fromUtf8(TARV_VERSION)));
    QFont title = scaled(m_ui.titleLabel->font(), 1.6);
    title.setWeight(QFont::DemiBold);
    m_ui.titleLabel->setFont(title);
    m_ui.noContainersLabel->setFont(scaled(m_ui.noContainersLabel->font(), 1.3));
    m_ui.unreadableButton->setFont(scaled(m_ui.unreadableButton->font(), 0.9));
}

void ListChrome::showState(bool empty, bool canMake, int unreadable)
{
    m_ui.emptyState->setVisible(empty);
    m_ui.emptyHint->setText(canMake ? tr("Choose New VM… to make one.")
                                    : tr("Make one with the command \"tarvctl create\"."));
    m_ui.unreadableButton->setVisible(unreadable > 0);
    m_ui.unreadableButton->setText(unreadable == 1
                                       ? tr("1 VM could not be read")
                                       : tr("%n VMs could not be read", nullptr, unreadable));
}

void ListChrome::reloadInfoViewTrackingAreaForCurrentLayout()
{
    delete m_infoViewTrackingArea;
    auto *area = new TrackingArea(m_ui.infoView);
    m_infoViewTrackingArea = area;
    connect(area, &TrackingArea::mouseEntered, this, [this, area] { mouseEntered(area); });
    connect(area, &TrackingArea::mouseExited, this, [this, area] { mouseExited(area); });
}

void ListChrome::mouseEntered(const TrackingArea *area)
{
    if (area == m_infoViewTrackingArea)
        m_ui.closeButton->show();
}

void ListChrome::mouseExited(const TrackingArea *area)
{
    if (area == m_infoViewTrackingArea)
        m_ui.closeButton->hide();
}

void ListChrome::restoreLayout()
{
    const UserDefaults &defaults = UserDefaults::standard();
    m_window->restoreGeometry(defaults.dataForKey(GEOMETRY_KEY));
    m_ui.virtualMachinesTableView->restoreColumns(defaults.dataForKey(COLUMNS_KEY));
}

void ListChrome::saveLayout() const
{
    UserDefaults &defaults = UserDefaults::standard();
    defaults.setData(GEOMETRY_KEY, m_window->saveGeometry());
    defaults.setData(COLUMNS_KEY, m_ui.virtualMachinesTableView->saveColumns());
}
