// The command line of the application, and the files and URLs that it is asked to open.
#pragma once

#include <QMap>
#include <QString>
#include <QStringList>
#include <QUrl>

#include <optional>

struct StartArguments
{
    QList<QUrl> open; // "tarv:" URLs as they stand, files as absolute "file:" URLs
};

// Prints what --version or --help asks for. True when that is all; the exit status in `status`.
bool answerAtOnce(int argc, char **argv, int *status);
// The arguments (of which the first is the program). False with a message for an unknown option.
bool parseArguments(const QStringList &arguments, StartArguments *parsed, QString *error);

// What a "tarv:" URL asks for.
struct UrlRequest
{
    QString path; // without percent-encoding
    QMap<QString, QString> parameters;
};
// Pieces of the query that are not one name and one value are left out; a later one of the same
// name replaces an earlier. None for what is no "tarv:" URL.
std::optional<UrlRequest> parseUrlRequest(const QString &text);

// The display index of a name "path:index"; 0 without one. A colon in a folder's name is none of
// the index: a relative path gets the name of every folder above it.
int displayIndexOf(const QString &name);
// The number that a text starts with, 0 without one.
int integerValue(const QString &text);
