#include "catalogues.h"
#include "startupboxes.h"

#include "app/buildidentity.h"
#include "app/commandline.h"
#include "app/exitcode.h"
#include "app/log.h"
#include "app/logstream.h"
#include "app/settings.h"
#include "platform/platform.h"
#include "platform/singleinstance.h"
#include "ui/dialog.h"

#include <QApplication>
#include <QDir>
#include <QFile>
#include <QtDebug>

#include <cstdio>
#include <cstring>

namespace {

bool identityComplete()
{
    if (QString::fromLatin1(BuildIdentity::appVersion).isEmpty())
        return false;
    for (const char *field : BuildIdentity::fields) {
        if (QString::fromLatin1(field).isEmpty())
            return false;
    }
    return true;
}

// One pass: everything from the application object to the end of its event loop.
// A language change ends the loop with 3 and the caller runs a new pass.
int runPass(int &argc, char **argv)
{
    QApplication app(argc, argv);
    // Lets the desktop match the window to the installed entry and its icon.
    QGuiApplication::setDesktopFileName(QStringLiteral("com.zelko.morvanta"));
    Settings startSettings(static_cast<QObject *>(nullptr));
    const QString languageName = startSettings.getValue(QStringLiteral("language"));

    if (!identityComplete())
        showInstallationCorrupted();
    QString appVersion = QString::fromLatin1(BuildIdentity::appVersion);
    appVersion.replace(QLatin1Char('_'), QLatin1Char(' '));

    SingleInstance instance(QDir(QDir::currentPath()).absolutePath());
    if (!instance.acquire())
        showAlreadyRunning();

    const Catalogues catalogues(languageName);

    Log::setFolder(Platform::instanceFolder());
    clearLogFile();
    qInstallMessageHandler(logMessageHandler);
    qDebug() << "Logfile path " << quoted(Log::filePath());

    const QString titleSuffix =
        startSettings.isGpgAvailable() ? QString() : QStringLiteral(" < Not using Zelko signed files > ");
    qDebug() << "Version: " << quoted(appVersion) << "\n";

    const QString usage = usageText();

    const QString dfuName = Settings::toolName(QStringLiteral("dfu-util"));
    const QString dfuPath = QDir(QCoreApplication::applicationDirPath()).filePath(dfuName);
    qDebug() << plain("Search " + dfuName + ": ") << quoted(dfuPath) << "...";
    const bool dfuMissing = !QFile::exists(dfuPath);
    if (dfuMissing)
        qDebug() << plain("..." + dfuName + " not found");
    else
        qDebug() << plain("...Found " + dfuName);

    CommandLine line;
    SearchOptions options;
    if (startSettings.getValue(QStringLiteral("mode")) == QLatin1String("internal") &&
        startSettings.isGpgAvailable()) {
        line = parseCommandLine(argc, argv);
        if (line.help) {
            qDebug() << quoted(usage);
            showHelpBox(usage);
            return toInt(ExitCode::Failed);
        }
        const QString broken = validateCommandLine(line, dfuMissing);
        if (!broken.isEmpty()) {
            showParameterError(broken);
            return toInt(ExitCode::Failed);
        }
        options = line.toSearchOptions();
    }

    Dialog dialog(options, dfuMissing, nullptr);
    dialog.setWindowFlags(Qt::WindowCloseButtonHint | Qt::WindowMinimizeButtonHint);
    dialog.setWindowTitle(line.titleTag + appVersion + titleSuffix);
    dialog.setVisible(true);
    if (options.automatic && line.bootloader) {
        const int result = dialog.startAutomaticBootLoader(options.useFile);
        qDebug() << quoted(QString::number(result));
        return result;
    }
    if (options.automatic)
        dialog.startAutomatic();

    return QApplication::exec();
}

} // namespace

int main(int argc, char **argv)
{
    // Asked by scripts and package checks: answered before any window, display or log.
    if (argc == 2 && std::strcmp(argv[1], "--version") == 0) {
        std::printf("morvanta %s\n", BuildIdentity::appVersion);
        return toInt(ExitCode::Success);
    }
    int result;
    do {
        result = runPass(argc, argv);
    } while (result == toInt(ExitCode::LanguageChange));
    return result;
}
