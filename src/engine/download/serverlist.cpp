#include "serverlist.h"

#include "app/logstream.h"
#include "app/settings.h"

#include <QRegularExpression>
#include <QtDebug>

bool isPlainFileName(const QString &name)
{
    // The reference server's own rule: nothing a file system, a shell or a label could
    // read as more than a name.
    static const QRegularExpression allowed(
        QRegularExpression::anchoredPattern(QStringLiteral("[A-Za-z0-9_+-][A-Za-z0-9_.+-]*")));
    return allowed.match(name).hasMatch() && !name.contains(QLatin1String(".."));
}

QStringList parseFileList(const QByteArray &body, const QString &family, bool useZipSearch)
{
    const int nul = int(body.indexOf('\0'));
    const QString text = QString::fromLatin1(nul < 0 ? body : body.left(nul));
    const bool brioMel = family == Settings::getBrioMelName();
    QStringList names;
    for (QString line : text.split(QLatin1Char('\n'), Qt::SkipEmptyParts)) {
        line = line.trimmed();
        if (!line.contains(family))
            continue;
        QString extension;
        if (brioMel)
            extension = QStringLiteral(".zkl");
        else if (!useZipSearch)
            extension = QStringLiteral(".zip.gpg");
        else if (!line.contains(QLatin1String(".zip.gpg")))
            extension = QStringLiteral(".zip");
        const int start = int(line.indexOf(family));
        const int end = extension.isEmpty() ? -1 : int(line.indexOf(extension, start));
        if (end < 0)
            continue;
        const QString name = line.mid(start, end + extension.size() - start);
        if (!isPlainFileName(name)) {
            qWarning() << "Listed name skipped, it is no plain file name:" << quoted(name);
            continue;
        }
        names << name;
    }
    return names;
}

QStringList parseFtpNameList(const QByteArray &listing, const QString &nameFilter)
{
    const QRegularExpression filter(QRegularExpression::wildcardToRegularExpression(nameFilter));
    QStringList names;
    for (const QByteArray &line : listing.split('\n')) {
        const QString name = QString::fromLatin1(line).trimmed();
        if (!filter.match(name).hasMatch())
            continue;
        if (isPlainFileName(name))
            names << name;
        else
            qWarning() << "Listed name skipped, it is no plain file name:" << quoted(name);
    }
    return names;
}
