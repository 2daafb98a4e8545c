#include "app/kit/Appearance.h"

#include "app/kit/PlainStyle.h"

#include <QApplication>
#include <QDBusConnection>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusVariant>
#include <QPalette>
#include <QStyle>

namespace {

const QString PORTAL_SERVICE = QStringLiteral("org.freedesktop.portal.Desktop");
const QString PORTAL_PATH = QStringLiteral("/org/freedesktop/portal/desktop");
const QString SETTINGS_INTERFACE = QStringLiteral("org.freedesktop.portal.Settings");
const QString APPEARANCE_SPACE = QStringLiteral("org.freedesktop.appearance");
const QString COLOUR_SCHEME_KEY = QStringLiteral("color-scheme");
constexpr uint PREFER_DARK = 1;
// The style of a desktop that brings none.
const QString FUSION = QStringLiteral("fusion");

constexpr QRgb HIGHLIGHT = 0xff2f6fb8;

struct Colour
{
    QPalette::ColorRole role;
    QRgb normal;
    QRgb disabled; // 0: as normal
};

constexpr Colour DARK_COLOURS[] = {
    {QPalette::Window, 0xff2b2d31, 0},
    {QPalette::WindowText, 0xffe8e9eb, 0xff85888e},
    {QPalette::Base, 0xff1f2124, 0xff26282b},
    {QPalette::AlternateBase, 0xff26282c, 0},
    {QPalette::Text, 0xffe8e9eb, 0xff85888e},
    {QPalette::PlaceholderText, 0xff9a9da3, 0},
    {QPalette::Button, 0xff35383d, 0xff2f3135},
    {QPalette::ButtonText, 0xffe8e9eb, 0xff85888e},
    {QPalette::BrightText, 0xffff7b72, 0},
    {QPalette::Highlight, HIGHLIGHT, 0xff4a4d53},
    {QPalette::HighlightedText, 0xffffffff, 0xffb9bbc0},
    {QPalette::Link, 0xff6cb2f5, 0},
    {QPalette::LinkVisited, 0xffb59af0, 0},
    {QPalette::ToolTipBase, 0xff3a3d42, 0},
    {QPalette::ToolTipText, 0xffe8e9eb, 0},
    {QPalette::Light, 0xff4b4e54, 0},
    {QPalette::Midlight, 0xff42454a, 0},
    {QPalette::Mid, 0xff232528, 0},
    {QPalette::Dark, 0xff1a1b1e, 0},
    {QPalette::Shadow, 0xff0e0f10, 0},
};

QPalette lightPalette()
{
    QPalette palette = QApplication::style()->standardPalette();
    // White on the style's own blue is hard to read.
    for (const auto group : {QPalette::Active, QPalette::Inactive})
        palette.setColor(group, QPalette::Highlight, HIGHLIGHT);
    return palette;
}

QPalette darkPalette()
{
    QPalette palette;
    for (const Colour &colour : DARK_COLOURS) {
        palette.setColor(QPalette::All, colour.role, QColor::fromRgb(colour.normal));
        if (colour.disabled)
            palette.setColor(QPalette::Disabled, colour.role, QColor::fromRgb(colour.disabled));
    }
    return palette;
}

bool isDark(const QPalette &palette)
{
    return palette.color(QPalette::Window).lightness() <
           palette.color(QPalette::WindowText).lightness();
}

} // namespace

std::optional<Appearance::Scheme> Appearance::schemeNamed(const QString &name)
{
    const QString lower = name.toLower();
    if (lower == QLatin1String("auto"))
        return Scheme::automatic;
    if (lower == QLatin1String("light"))
        return Scheme::light;
    if (lower == QLatin1String("dark"))
        return Scheme::dark;
    return std::nullopt;
}

Appearance::Appearance(Scheme scheme, QObject *parent)
    : QObject(parent), m_platformStyle(QApplication::style()->objectName())
{
    if (scheme != Scheme::automatic || m_platformStyle == FUSION)
        use(scheme);
    if (scheme == Scheme::automatic)
        followDesktop();
}

// Only Fusion draws every control in the colours that it is given.
void Appearance::use(Scheme scheme)
{
    m_ownColours = scheme != Scheme::automatic;
    if (m_ownColours || m_platformStyle == FUSION)
        QApplication::setStyle(new PlainStyle);
    else
        QApplication::setStyle(m_platformStyle);
    if (scheme == Scheme::automatic)
        QApplication::setPalette(QPalette());
    else if (scheme == Scheme::dark)
        QApplication::setPalette(darkPalette());
    else
        QApplication::setPalette(lightPalette());
}

void Appearance::followDesktop()
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected())
        return;
    bus.connect(PORTAL_SERVICE, PORTAL_PATH, SETTINGS_INTERFACE, QStringLiteral("SettingChanged"),
                this, SLOT(settingChanged(QDBusMessage)));
    QDBusMessage call = QDBusMessage::createMethodCall(PORTAL_SERVICE, PORTAL_PATH,
                                                       SETTINGS_INTERFACE, QStringLiteral("Read"));
    call << APPEARANCE_SPACE << COLOUR_SCHEME_KEY;
    // No portal, or one that knows no colours, asks for nothing.
    auto *answer = new QDBusPendingCallWatcher(bus.asyncCall(call), this);
    connect(answer, &QDBusPendingCallWatcher::finished, this, [this, answer] {
        answer->deleteLater();
        const QDBusPendingReply<QDBusVariant> reply = *answer;
        if (reply.isValid())
            desktopPrefers(reply.value().variant());
    });
}

void Appearance::settingChanged(const QDBusMessage &change)
{
    const QVariantList arguments = change.arguments();
    if (arguments.value(0) == APPEARANCE_SPACE && arguments.value(1) == COLOUR_SCHEME_KEY)
        desktopPrefers(arguments.value(2).value<QDBusVariant>().variant());
}

void Appearance::desktopPrefers(QVariant preference)
{
    // A read answers with the value inside a second variant.
    if (preference.userType() == qMetaTypeId<QDBusVariant>())
        preference = preference.value<QDBusVariant>().variant();
    const bool dark = preference.toUInt() == PREFER_DARK;
    if (!dark && m_ownColours)
        use(Scheme::automatic);
    else if (dark && !m_ownColours && !isDark(QApplication::palette()))
        use(Scheme::dark);
}
