// Builds one manual: the window's pictures in the manual's language, taken from the
// program's own classes, and the text kept in the project, into one PDF.
//   manualmaker English|German TEXT.html OUT.pdf
#include "manualprinter.h"
#include "windowpictures.h"

#include "app/catalogues.h"

#include <QApplication>
#include <QDir>
#include <QFile>
#include <QProcessEnvironment>
#include <QTemporaryDir>

#include <cstdio>

namespace {

// The window talks a lot to its log; here only what went wrong counts.
void quietHandler(QtMsgType type, const QMessageLogContext &, const QString &message)
{
    if (type == QtCriticalMsg || type == QtFatalMsg)
        std::fprintf(stderr, "%s\n", qPrintable(message));
}

bool writeFile(const QString &path, const QByteArray &content)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(content) == content.size() && file.flush();
}

int fail(const QString &message)
{
    std::fprintf(stderr, "manualmaker: %s\n", qPrintable(message));
    return 1;
}

} // namespace

int main(int argc, char **argv)
{
    if (argc != 4 || (qstrcmp(argv[1], "English") != 0 && qstrcmp(argv[1], "German") != 0)) {
        std::fprintf(stderr, "usage: manualmaker English|German TEXT.html OUT.pdf\n");
        return 64;
    }
    const QString language = QString::fromLatin1(argv[1]);

    // The window keeps its settings and scratch folders under the home folder: a home of
    // its own, so the builder's own settings are neither read nor touched.
    QTemporaryDir home(QDir::tempPath() + QStringLiteral("/technician-XXXXXX"));
    if (!home.isValid())
        return fail(QStringLiteral("no scratch folder: ") + home.errorString());
    for (const char *name : {"HOME", "XDG_CONFIG_HOME", "XDG_DATA_HOME", "XDG_CACHE_HOME", "TMPDIR"})
        qputenv(name, QFile::encodeName(home.path()));
    // Nothing of the builder's session changes the pictures: no scenario of the device
    // stand-in, no desktop theme, style or font size.
    for (const QString &entry : QProcessEnvironment::systemEnvironment().keys()) {
        if (entry.startsWith(QLatin1String("DFU_SIM_")))
            qunsetenv(entry.toLatin1().constData());
    }
    for (const char *name : {"QT_QPA_PLATFORMTHEME", "QT_STYLE_OVERRIDE", "QT_SCREEN_SCALE_FACTORS", "QT_FONT_DPI",
                             "QT_ENABLE_HIGHDPI_SCALING", "LANGUAGE"})
        qunsetenv(name);
    const QString runtime = home.path() + QStringLiteral("/runtime");
    if (!QDir().mkdir(runtime) || !QFile::setPermissions(runtime, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner))
        return fail(QStringLiteral("cannot prepare ") + runtime);
    qputenv("XDG_RUNTIME_DIR", QFile::encodeName(runtime));
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    // Sharp pictures on paper: the window drawn at twice its size.
    qputenv("QT_SCALE_FACTOR", "2");
    // The device the pictures show: a Tessel NINE with firmware V1_2_3, answered by the
    // dfu-util stand-in beside the program.
    qputenv("DFU_SIM_NAME", "V1_2_3");
    qputenv("DFU_SIM_HASH_MS", "10");

    // The path field shows the end of the path: the same words at every build.
    const QString firmware = home.path() + QStringLiteral("/home/technician/Firmware");
    if (!QDir().mkpath(firmware) ||
        !writeFile(home.path() + QStringLiteral("/Morvanta_config.ini"),
                   "[General]\nlanguage=" + language.toLatin1() + "\n"))
        return fail(QStringLiteral("cannot prepare ") + home.path());
    for (const char *part : {"OS", "PR"}) {
        if (!writeFile(firmware + QStringLiteral("/Tessel_NINE_V1_2_4.%1.zip.gpg").arg(QLatin1String(part)), "pictured"))
            return fail(QStringLiteral("cannot prepare ") + firmware);
    }

    QCoreApplication::setAttribute(Qt::AA_DontUseNativeDialogs);
    QApplication app(argc, argv);
    qInstallMessageHandler(quietHandler);
    const Catalogues catalogues(language);
    if (language == QLatin1String("German") && !catalogues.loaded())
        return fail(QStringLiteral("the German catalogue did not load"));

    WindowPictures window(firmware);
    if (!window.take())
        return fail(QStringLiteral("pictures of the window: ") + window.error());
    ManualPrinter printer(language == QLatin1String("German") ? QStringLiteral("de") : QStringLiteral("en"),
                          window.pictures());
    if (!printer.print(QString::fromLocal8Bit(argv[2]), QString::fromLocal8Bit(argv[3])))
        return fail(printer.error());
    return 0;
}
