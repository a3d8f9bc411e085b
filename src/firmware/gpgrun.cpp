#include "gpgrun.h"

#include "app/logstream.h"
#include "app/settings.h"
#include "app/toolrun.h"

#include <QFile>
#include <QFileInfo>
#include <QtDebug>

QStringList gpgArguments(const QString &homeDir, const QString &tempPath, const QString &extractName,
                         const QString &outName, const QString &inputFile)
{
    const QStringList arguments{QStringLiteral("--batch"),
                                QStringLiteral("--yes"),
                                QStringLiteral("--homedir"),
                                homeDir,
                                QStringLiteral("--always-trust"),
                                QStringLiteral("-o"),
                                QDir::fromNativeSeparators(tempPath + QLatin1Char('/') + extractName +
                                                           QLatin1Char('/') + outName),
                                inputFile};
    qDebug() << "GPG Arguments " << quoted(arguments);
    return arguments;
}

QStringList decryptedFileList(const QString &tempPath, const QStringList &encrypted)
{
    QStringList files;
    for (const QString &path : encrypted) {
        QString name = QFileInfo(path).fileName();
        const int cut = name.indexOf(QLatin1String(".gpg"));
        if (cut >= 0)
            name.truncate(cut);
        files << tempPath + QLatin1Char('/') + Settings::getExtractFolderName() + QLatin1Char('/') + name;
    }
    qDebug() << quoted(files);
    return files;
}

GpgOutcome runGpg(QProcess &process, const QString &gpgPath, const QStringList &arguments,
                  const std::atomic<bool> &stop)
{
    bool openError = false;
    const ToolResult result = runTool(
        process, gpgPath, arguments,
        [&openError](const QByteArray &output) {
            qDebug() << "GPG Output " << quoted(output);
            if (QString::fromLocal8Bit(output).contains(QLatin1String("can't open")))
                openError = true;
        },
        &stop, 3000);
    // gpg writes the content before it has checked the signature: nothing of a failed
    // run may stay behind to be mistaken for a checked archive.
    if (!result.succeeded() || openError) {
        const int output = int(arguments.indexOf(QStringLiteral("-o")));
        if (output >= 0 && output + 1 < arguments.size())
            QFile::remove(arguments.at(output + 1));
    }
    if (!result.started)
        return GpgOutcome::StartFailed;
    if (openError)
        return GpgOutcome::OpenFailed;
    if (!result.succeeded())
        return GpgOutcome::BadSignature;
    return GpgOutcome::Done;
}
