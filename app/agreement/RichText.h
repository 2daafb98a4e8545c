// Reads rich text (RTF) into a document: paragraphs with their alignment, indents and spacing,
// bold, italic and underlined text, sizes, characters outside ASCII. Everything else is passed
// over.
#pragma once

#include <QByteArray>
#include <QString>
#include <QTextDocument>

// Replaces the document's contents. At most 4 MiB and 64 nested groups. False with a reason, and
// the document empty.
bool readRichText(const QByteArray &rtf, QTextDocument *document, QString *error);
// The same with a file, which the reason names.
bool readRichTextFile(const QString &path, QTextDocument *document, QString *error);
