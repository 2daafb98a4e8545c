// Light or dark: as the user has set it, else as the desktop asks for.
#pragma once

#include <QDBusMessage>
#include <QObject>
#include <QString>
#include <QVariant>

#include <optional>

// Exists once, beside the QApplication. Where the desktop's own theme brings its colours to Qt
// nothing is changed; where only the desktop portal tells of a dark desktop, its wish is met with
// colours of our own.
class Appearance : public QObject
{
    Q_OBJECT

public:
    enum class Scheme
    {
        automatic,
        light,
        dark,
    };
    // "auto", "light" or "dark", ignoring case.
    static std::optional<Scheme> schemeNamed(const QString &name);

    // Applies a scheme at once; an automatic one follows the desktop from then on.
    explicit Appearance(Scheme scheme, QObject *parent = nullptr);

private:
    const QString m_platformStyle;
    bool m_ownColours = false;

    void use(Scheme scheme);
    void followDesktop();
    // The portal's colour scheme: 1 asks for dark, anything else for nothing in particular.
    void desktopPrefers(QVariant preference);
    // The portal's signal SettingChanged.
    Q_SLOT void settingChanged(const QDBusMessage &change);
};
