#include "app/shell/Arguments.h"

#include <QDir>
#include <QFileInfo>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <limits>

namespace {

const QString URL_SCHEME = QStringLiteral("tarv");

constexpr char USAGE[] =
    "Usage: tarv [FILE or URL]...\n"
    "Shows and runs virtual machines. A running Tarv opens what is named here.\n"
    "\n"
    "  FILE        a VM's display: the path of its socket, then perhaps \":\" and a display index\n"
    "  URL         a request: tarv:PATH?d=INDEX shows a display; where Tarv itself runs the VMs,\n"
    "              tarv:?vmid=ID&a=MODE starts one (0 normally, 1 forced, 2 in recovery)\n"
    "  --help      print this and exit\n"
    "  --version   print the version and exit\n";

bool isUrlRequest(const QString &text)
{
    return text.startsWith(URL_SCHEME + QLatin1Char(':'), Qt::CaseInsensitive);
}

// A value whose percent-encoding is malformed is no value.
std::optional<QString> withoutPercentEncoding(const QString &text)
{
    for (qsizetype at = text.indexOf(QLatin1Char('%')); at >= 0;
         at = text.indexOf(QLatin1Char('%'), at + 1)) {
        bool number = false;
        text.mid(at + 1, 2).toUInt(&number, 16);
        if (!number || at + 2 >= text.size())
            return std::nullopt;
    }
    return QUrl::fromPercentEncoding(text.toUtf8());
}

QString queryOf(const QString &url)
{
    const QString beforeFragment = url.section(QLatin1Char('#'), 0, 0);
    const qsizetype mark = beforeFragment.indexOf(QLatin1Char('?'));
    return mark < 0 ? QString() : beforeFragment.mid(mark + 1);
}

} // namespace

bool answerAtOnce(int argc, char **argv, int *status)
{
    for (int i = 1; i < argc && strcmp(argv[i], "--") != 0; ++i) {
        const bool help = strcmp(argv[i], "--help") == 0 || strcmp(argv[i], "-h") == 0;
        if (!help && strcmp(argv[i], "--version") != 0)
            continue;
        *status = printf("%s", help ? USAGE : "tarv " TARV_VERSION "\n") < 0 ? 1 : 0;
        return true;
    }
    return false;
}

bool parseArguments(const QStringList &arguments, StartArguments *parsed, QString *error)
{
    bool options = true;
    for (const QString &argument : arguments.mid(1)) {
        if (options && argument == QLatin1String("--")) {
            options = false;
        } else if (options && argument.size() > 1 && argument.startsWith(QLatin1Char('-'))) {
            *error = QStringLiteral("unknown argument %1 (see tarv --help)").arg(argument);
            return false;
        } else if (isUrlRequest(argument) || argument.startsWith(QLatin1String("file:"))) {
            parsed->open.append(QUrl(argument));
        } else if (!argument.isEmpty()) {
            parsed->open.append(QUrl::fromLocalFile(QFileInfo(argument).absoluteFilePath()));
        }
    }
    return true;
}

std::optional<UrlRequest> parseUrlRequest(const QString &text)
{
    const QUrl url(text);
    if (!url.isValid() || !isUrlRequest(text))
        return std::nullopt;
    UrlRequest request{url.path(QUrl::FullyDecoded), {}};
    for (const QString &piece : queryOf(text).split(QLatin1Char('&'))) {
        const QStringList parts = piece.split(QLatin1Char('='));
        if (parts.size() != 2)
            continue;
        if (const auto value = withoutPercentEncoding(parts[1]))
            request.parameters[parts[0]] = *value;
    }
    return request;
}

int displayIndexOf(const QString &name)
{
    return integerValue(name.section(QLatin1Char('/'), -1).section(QLatin1Char(':'), 1, 1));
}

int integerValue(const QString &text)
{
    // strtol takes what this needs: white space, a sign, digits, and stops at anything else.
    const long value = strtol(text.toLatin1().constData(), nullptr, 10);
    return int(
        std::clamp<long>(value, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()));
}
