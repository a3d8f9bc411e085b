#include "swcheck.h"

#include "swcheckintern.h"

#include "app/exitcode.h"
#include "app/logstream.h"
#include "app/settings.h"
#include "app/userquestions.h"

#include <QDir>
#include <QProcess>
#include <QtDebug>

#include <cstdlib>
#include <utility>

SWCheck::SWCheck(Settings *settings, SearchOptions options, UserQuestions *questions, QObject *parent)
    : QObject(parent), settings(settings), options(std::move(options)), questions(questions)
{
    jobWatch.setInterval(250);
    connect(&jobWatch, &QTimer::timeout, this, [this] { whenNoJob(std::exchange(waiting, nullptr)); });
}

void SWCheck::whenNoJob(std::function<void()> action)
{
    if (!action)
        return;
    if (jobRunning && jobRunning()) {
        waiting = std::move(action);
        jobWatch.start();
        return;
    }
    jobWatch.stop();
    action();
}

SWCheck::~SWCheck()
{
    abandonCheck();
}

void SWCheck::abandonCheck()
{
    // The version file lies on a share that may hang for minutes: a check still under
    // way is left to end by itself, unheard, and is never waited for.
    QThread *check = std::exchange(swCheckIntern, nullptr);
    if (!check)
        return;
    check->disconnect(this);
    check->setParent(nullptr);
    connect(check, &QThread::finished, check, &QObject::deleteLater);
    if (check->isFinished())
        delete check;
}

void SWCheck::checkForNewVersion()
{
    if (!options.internal)
        return;
    if (!settings->isGpgAvailable()) {
        qDebug() << "Will not check for new software version if NO_ENC version is activated";
        return;
    }
    abandonCheck();
    swCheckIntern = new SWCheckIntern(settings, this);
    connect(swCheckIntern, &SWCheckIntern::newVersion, this, &SWCheck::internalNewVersion);
    connect(swCheckIntern, &SWCheckIntern::versionKeyError, this, &SWCheck::internalVersionKeyError);
    connect(swCheckIntern, &QThread::finished, this, &SWCheck::swInternFinished);
    swCheckIntern->start(QThread::InheritPriority);
}

void SWCheck::internalVersionKeyError()
{
    whenNoJob([this] {
        emit sigMsgBox(ErrorTexts::Error, tr("A software update is available but the checksum is invalid."));
    });
}

void SWCheck::swInternFinished()
{
    if (swCheckIntern) {
        swCheckIntern->deleteLater();
        swCheckIntern = nullptr;
    }
}

void SWCheck::internalNewVersion()
{
    if (options.automatic || !options.internal) {
        // An unattended run never asks.
        qDebug() << quoted(tr("A new version of %1 is available.\nUpgrade is only possible if application\nis not in "
                              "automatic mode!")
                               .arg(QStringLiteral("Morvanta")));
        return;
    }
    whenNoJob([this] { offerUpgrade(); });
}

void SWCheck::offerUpgrade()
{
    const QString updater = settings->getValue(QStringLiteral("fenupdaterpath"));
    const QString id = settings->getValue(QStringLiteral("fenupdater_id"));
    const QString installFolder = QDir(QDir::currentPath()).absolutePath();
    const QString topFolder = installFolder.left(installFolder.lastIndexOf(QLatin1Char('/')));
    qDebug() << quoted(QStringLiteral("***********Fen Updater *********"));
    qDebug() << quoted(QLatin1String("FenUpdater:        ") + updater);
    qDebug() << quoted(QLatin1String("ID:                ") + id);
    qDebug() << quoted(QLatin1String("Install Path:      ") + installFolder);
    qDebug() << quoted(QLatin1String("Install Path (Top) ") + topFolder);
    qDebug() << quoted(QStringLiteral("********************************"));
    const QStringList arguments{QStringLiteral("/cmd"), id, topFolder};
    qDebug() << plain(updater) << quoted(arguments);
    if (!questions->confirmUpgrade())
        return;
    // The updater is started on its own and outlives us: it is to replace this program.
    if (QProcess::startDetached(updater, arguments))
        std::exit(toInt(ExitCode::Success));
    emit sigMsgBox(ErrorTexts::Error, tr("Failed to start FenUpdater!"));
}
