#include "app/kit/Translations.h"

#include <QCoreApplication>
#include <QLibraryInfo>
#include <QLocale>
#include <QTranslator>

#include <memory>

// A static library's resources are not found without this; it must stand outside any namespace.
static void initTranslations()
{
    Q_INIT_RESOURCE(translations);
}

namespace {

bool install(QCoreApplication *application, const QString &name, const QString &directory)
{
    auto translator = std::make_unique<QTranslator>();
    if (!translator->load(name, directory))
        return false;
    translator->setParent(application);
    return application->installTranslator(translator.release());
}

} // namespace

void installTranslations(QCoreApplication *application)
{
    initTranslations();
    for (QString language : QLocale::system().uiLanguages()) {
        language.replace(QLatin1Char('-'), QLatin1Char('_'));
        const QString code = language.section(QLatin1Char('_'), 0, 0);
        if (code == QLatin1String("en") || code == QLatin1String("C"))
            return;
        if (!install(application, QStringLiteral("tarv_") + language,
                     QStringLiteral(":/translations")))
            continue;
        install(application, QStringLiteral("qtbase_") + language,
                QLibraryInfo::path(QLibraryInfo::TranslationsPath));
        return;
    }
}
