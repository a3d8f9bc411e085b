#include "usbwritethread.h"

#include "flashtexts.h"

#include "app/logstream.h"
#include "app/settings.h"
#include "firmware/firmwarenames.h"
#include "platform/platform.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QtDebug>

#include <cstdio>

USBWriteThread::USBWriteThread(Settings *settings, const QStringList &firmwareFiles, const QString &destination,
                               bool skipGpg, QObject *parent)
    : QThread(parent), firmwareFiles(firmwareFiles), destination(destination), skipGpg(skipGpg),
      gpgAvailable(settings->isGpgAvailable()),
      preparation(settings, finishedByUser)
{
    qRegisterMetaType<ErrorTexts::errorLevel>("ErrorTexts::errorLevel");
    qDebug() << "****Start Writing USB**********************************************************************\n";
}

USBWriteThread::~USBWriteThread()
{
    qDebug() << "Delete external processes";
}

void USBWriteThread::abortByUser()
{
    finishedByUser = true;
    if (gpgRunning)
        qDebug() << "kill gpg";
}

void USBWriteThread::stop()
{
    stopRequested = true;
    abortByUser();
}

void USBWriteThread::run()
{
    emit sigenableAbort();
    QProcess gpg;
    emit updateStatus(FlashTexts::stage(FlashStage::Hashing));
    bool ok = preparation.hash(firmwareFiles);
    if (ok) {
        emit updateStatus(FlashTexts::stage(FlashStage::Extracting));
        ok = gpgAvailable && !skipGpg ? preparation.decrypt(firmwareFiles, gpg, gpgRunning)
                                      : preparation.copy(firmwareFiles);
    }
    if (!ok || !unpack() || !writeSysFiles()) {
        tellFailure(preparation.error());
        failureEnding();
        return;
    }
    successEnding();
}

void USBWriteThread::tellFailure(const FlashError &error)
{
    if (!error.isSet())
        return;
    // An archive that does not unpack is this worker's own failure to write.
    const bool unpacking = error.code == FlashError::Code::ExtractionFailed;
    const QString box = unpacking ? tr("Error in writing firmware files to USB") : FlashTexts::errorBox(error);
    emit updateStatus(unpacking ? box : FlashTexts::error(error));
    emit msgboxErrorSignal(ErrorTexts::Error, box);
}

bool USBWriteThread::unpack()
{
    emit updateStatus(tr("Writing firmware files"));
    const int step = firmwareFiles.isEmpty() ? 0 : int(100 / firmwareFiles.size());
    int percent = 0;
    if (!preparation.unpack(firmwareFiles, [&] {
            percent += step;
            emit updateWriteUSBProgress(percent);
            QThread::sleep(1);
        }))
        return false;
    emit updateWriteUSBProgress(100);
    return true;
}

bool USBWriteThread::writeSysFiles()
{
    emit updateStatus(tr("Building sys file lists...please wait"));
    if (!preparation.stageList(FirmwareNames::stageOs, osFiles) ||
        !preparation.stageList(FirmwareNames::stagePr, prFiles))
        return false;
    qDebug() << quoted(osFiles);
    qDebug() << quoted(prFiles);

    // The files gather in a staging folder beside the stick's folder and move into it
    // only when all of them are on the stick and read back, so that a stick pulled or a
    // run cut short never leaves part of a firmware where the device looks for one.
    // Files move one by one: sticks' file systems need not rename folders well (FAT
    // through FUSE refuses to replace one and loses a renamed one's files).
    const QString staging = destination + QLatin1String(".part");
    QStringList moved;
    bool ok = copyToStick(staging) && moveIntoPlace(staging, moved);
    ok = Settings::removeFolder(staging) && ok;
    ok = ok && Platform::syncFolder(QFileInfo(destination).path());
    if (!ok) {
        for (const QString &name : std::as_const(moved))
            QFile::remove(destination + QLatin1Char('/') + name);
        Platform::syncFolder(destination);
        emit updateStatus(tr("Copy files to destination failed."));
    }
    return ok;
}

bool USBWriteThread::copyToStick(const QString &staging)
{
    if (!Settings::removeFolder(staging) || !QDir().mkdir(staging))
        return false;
    for (const auto &[stage, files] : {std::pair{FirmwareNames::stageOs, osFiles}, {FirmwareNames::stagePr, prFiles}}) {
        for (const QString &name : files) {
            if (!copyVerified(QDir::toNativeSeparators(preparation.stagePath(stage) + QLatin1Char('/') + name),
                              QDir::toNativeSeparators(staging + QLatin1Char('/') + name)))
                return false;
        }
    }
    return Platform::syncFolder(staging);
}

bool USBWriteThread::copyVerified(const QString &source, const QString &target)
{
    QFile original(source);
    QFile copy(target);
    // A name in both "os" and "pr" fails here: a file is never overwritten.
    bool ok = original.open(QIODevice::ReadOnly) && copy.open(QIODevice::WriteOnly | QIODevice::NewOnly);
    while (ok && !original.atEnd() && !stopRequested) {
        const QByteArray chunk = original.read(1 << 20);
        ok = !chunk.isEmpty() && copy.write(chunk) == chunk.size();
    }
    ok = ok && !stopRequested && copy.flush();
    copy.close();
    if (!ok || !Platform::flushToDevice(target)) {
        qWarning() << "Copy failed" << quoted(target);
        return false;
    }
    // Read back from the stick itself: the flush dropped the cached copy.
    original.seek(0);
    if (!copy.open(QIODevice::ReadOnly) || original.size() != copy.size())
        return false;
    while (!original.atEnd()) {
        if (stopRequested)
            return false;
        const QByteArray expected = original.read(1 << 20);
        if (expected.isEmpty() || copy.read(expected.size()) != expected) {
            qWarning() << "Copy differs from its source" << quoted(target);
            return false;
        }
    }
    return true;
}

bool USBWriteThread::moveIntoPlace(const QString &staging, QStringList &moved)
{
    if (stopRequested || !(QFileInfo(destination).isDir() || QDir().mkdir(destination)))
        return false;
    for (const QString &name : osFiles + prFiles) {
        const QString from = staging + QLatin1Char('/') + name, to = destination + QLatin1Char('/') + name;
        const qint64 size = QFileInfo(from).size();
        if (std::rename(QFile::encodeName(from).constData(), QFile::encodeName(to).constData()) != 0)
            return false;
        moved << name;
        if (QFileInfo(to).size() != size)
            return false;
    }
    return Platform::syncFolder(destination);
}

void USBWriteThread::successEnding()
{
    emit sigdisableAbort();
    qDebug() << "Writing completed:";
    emit updateStatus(tr("Writing completed:"));
    const QString trademark(QChar(0x00AE));
    emit msgboxErrorSignal(
        ErrorTexts::Info,
        tr("Writing completed:") + QLatin1Char('\n') + destination + QLatin1Char('\n') +
            tr("\nPlease insert the USB Stick on Tessel NINE%1.\nStart the device and activate flash mode on Tessel "
               "NINE%2. Flashing process should start automatically!\n\nNote: If flashing process does not start "
               "automatically, the bootloader of Tessel NINE%3 might be too old.")
                .arg(trademark, trademark, trademark));
    emit exitCode(0);
}

void USBWriteThread::failureEnding()
{
    emit sigdisableAbort();
    emit exitCode(2);
}
