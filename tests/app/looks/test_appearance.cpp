// Light and dark, by setting and by the desktop's wish.
#include "app/kit/Appearance.h"
#include "tests/app/kit/PrivateBus.h"
#include "tests/app/kit/application.h"

#include <QApplication>
#include <QDBusConnection>
#include <QDBusVariant>
#include <QPalette>

#include <gtest/gtest.h>

#include <cmath>

using namespace Qt::StringLiterals;

namespace {

double luminance(QColor colour)
{
    const auto linear = [](double part) {
        return part <= 0.04045 ? part / 12.92 : std::pow((part + 0.055) / 1.055, 2.4);
    };
    return 0.2126 * linear(colour.redF()) + 0.7152 * linear(colour.greenF()) +
           0.0722 * linear(colour.blueF());
}

// The contrast of two colours as accessibility guidelines measure it, from 1 to 21.
double contrast(QPalette::ColorRole text, QPalette::ColorRole ground)
{
    const QPalette palette = QApplication::palette();
    const double one = luminance(palette.color(text));
    const double other = luminance(palette.color(ground));
    return (std::max(one, other) + 0.05) / (std::min(one, other) + 0.05);
}

bool isDark()
{
    return QApplication::palette().color(QPalette::Window).lightness() < 128;
}

} // namespace

using AppearanceTest = ApplicationTest;

TEST_F(AppearanceTest, isReadableInDarkAndLight)
{
    for (const auto scheme : {Appearance::Scheme::dark, Appearance::Scheme::light}) {
        const Appearance appearance(scheme);
        EXPECT_EQ(isDark(), scheme == Appearance::Scheme::dark);
        const std::pair<QPalette::ColorRole, QPalette::ColorRole> pairs[] = {
            {QPalette::WindowText, QPalette::Window},
            {QPalette::Text, QPalette::Base},
            {QPalette::ButtonText, QPalette::Button},
            {QPalette::ToolTipText, QPalette::ToolTipBase},
            {QPalette::HighlightedText, QPalette::Highlight}};
        for (const auto &[text, ground] : pairs)
            EXPECT_GT(contrast(text, ground), 4.5) << text << " on " << ground;
    }
}

// The desktop's portal, on a bus of its own that becomes the session bus of this process.
class Portal : public QObject
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.portal.Settings")

public:
    bool start()
    {
        qputenv("DBUS_SESSION_BUS_ADDRESS", m_bus.address().toLocal8Bit());
        QDBusConnection bus = QDBusConnection::connectToBus(QDBusConnection::SessionBus, u"own"_s);
        return bus.registerObject(u"/org/freedesktop/portal/desktop"_s, this,
                                  QDBusConnection::ExportAllContents) &&
               bus.registerService(u"org.freedesktop.portal.Desktop"_s);
    }
    ~Portal() override { QDBusConnection::disconnectFromBus(u"own"_s); }

public Q_SLOTS:
    QDBusVariant Read(const QString &, const QString &) // NOLINT: the name on the bus
    {
        return QDBusVariant(QVariant::fromValue(QDBusVariant(1U)));
    }

Q_SIGNALS:
    void SettingChanged(const QString &space, const QString &key, const QDBusVariant &value);

private:
    const PrivateBus m_bus;
};

TEST_F(AppearanceTest, followsADesktopThatIsDarkAndTurnsLight)
{
    Portal portal;
    ASSERT_TRUE(portal.start());
    const Appearance appearance(Appearance::Scheme::automatic);
    EXPECT_FALSE(isDark()) << "nothing was waited for";
    EXPECT_TRUE(waitUntil(isDark));
    Q_EMIT portal.SettingChanged(u"org.freedesktop.appearance"_s, u"color-scheme"_s,
                                 QDBusVariant(2U));
    EXPECT_TRUE(waitUntil([] { return !isDark(); }));
}

#include "test_appearance.moc"
