#include "firmwarekit.h"

#include "testsupport.h"

#include <QDir>
#include <QFile>
#include <QProcess>

#include <zip.h>

#include <algorithm>
#include <vector>

namespace TestSupport {

namespace {
bool gpg(const QString &home, const QStringList &args, const QByteArray &input = QByteArray())
{
    QProcess p;
    p.setProcessChannelMode(QProcess::MergedChannels);
    p.start("gpg", QStringList{"--homedir", home, "--batch", "--quiet", "--yes"} + args);
    if (!p.waitForStarted())
        return false;
    p.write(input);
    p.closeWriteChannel();
    p.waitForFinished(60000);
    return p.exitStatus() == QProcess::NormalExit && p.exitCode() == 0;
}

void stopAgent(const QString &home)
{
    QProcess::execute("gpgconf", {"--homedir", home, "--kill", "all"});
}
} // namespace

// gpg-agent's socket path must stay short, hence /tmp.
FirmwareKit::FirmwareKit() : homes("/tmp/mvkit-XXXXXX")
{
}

FirmwareKit::~FirmwareKit()
{
    for (const QString &home : {devHome, otherHome}) {
        if (!home.isEmpty())
            stopAgent(home);
    }
}

bool FirmwareKit::makeZip(const QString &path, const ZipEntries &entries)
{
    if (entries.isEmpty()) {
        // libzip writes no file for an empty archive: the end record alone is one.
        QFile f(path);
        return f.open(QIODevice::WriteOnly) && f.write(QByteArray("PK\x05\x06", 4) + QByteArray(18, '\0')) == 22;
    }
    int error = 0;
    zip_t *zip = zip_open(QFile::encodeName(path).constData(), ZIP_CREATE | ZIP_TRUNCATE, &error);
    if (!zip)
        return false;
    bool ok = true;
    std::vector<QByteArray> contents; // libzip reads them at zip_close
    contents.reserve(size_t(entries.size()));
    for (const auto &entry : entries) {
        const QByteArray name = entry.first.toUtf8();
        if (name.endsWith('/')) {
            ok = ok && zip_dir_add(zip, name.constData(), ZIP_FL_ENC_UTF_8) >= 0;
            continue;
        }
        contents.push_back(entry.second);
        zip_source_t *source =
            zip_source_buffer(zip, contents.back().constData(), zip_uint64_t(contents.back().size()), 0);
        ok = ok && source && zip_file_add(zip, name.constData(), source, ZIP_FL_ENC_UTF_8 | ZIP_FL_OVERWRITE) >= 0;
    }
    return zip_close(zip) == 0 && ok;
}

QString FirmwareKit::developerHome()
{
    if (devHome.isEmpty()) {
        devHome = homes.path() + "/dev";
        QDir().mkpath(devHome);
        QFile::setPermissions(devHome, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        gpg(devHome, {"--import", devKeyDir() + "/secret.asc"});
    }
    return devHome;
}

QString FirmwareKit::strangerHome()
{
    if (otherHome.isEmpty()) {
        otherHome = homes.path() + "/other";
        QDir().mkpath(otherHome);
        QFile::setPermissions(otherHome, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        gpg(otherHome, {"--passphrase", "", "--quick-gen-key", "Stranger <stranger@example.invalid>", "rsa2048",
                        "sign", "never"});
    }
    return otherHome;
}

bool FirmwareKit::pack(const QString &input, const QString &output, Packing how)
{
    switch (how) {
    case Packing::Signed:
        return gpg(developerHome(), {"--sign", "-o", output, input});
    case Packing::SignedByStranger:
        return gpg(strangerHome(), {"--sign", "-o", output, input});
    case Packing::Stored:
        return gpg(developerHome(), {"--store", "-o", output, input});
    case Packing::DetachedSignature:
        return gpg(developerHome(), {"--detach-sign", "-o", output, input});
    }
    return false;
}

ZipEntries FirmwareKit::stageEntries(const QString &stage, int count, int size, const QString &deviceName)
{
    ZipEntries entries{{stage + "/", QByteArray()}};
    for (int i = 0; i < count; ++i) {
        QByteArray content(size, '\0');
        for (int b = 0; b < size; ++b)
            content[b] = char((b * 31 + i * 7 + stage.size()) & 0xff);
        // The emulated Tessel NINE takes its new name from the firmware it was given.
        const QByteArray marker = "TESSEL_NAME=" + deviceName.toLatin1() + "\n";
        if (!deviceName.isEmpty())
            content.replace(0, std::min(qsizetype(size), marker.size()), marker.left(size));
        entries << qMakePair(QString("%1/%1_%2.sys").arg(stage).arg(i + 1, 2, 10, QChar('0')), content);
    }
    return entries;
}

static QString finish(FirmwareKit &kit, const QString &plain, bool signedFiles)
{
    if (!signedFiles)
        return plain;
    const QString gpgFile = plain + ".gpg";
    const bool ok = kit.pack(plain, gpgFile);
    QFile::remove(plain);
    return ok ? gpgFile : QString();
}

QStringList FirmwareKit::makePackage(const QString &folder, const QString &name, int osCount, int prCount, int size,
                                     bool signedFiles)
{
    const QString os = folder + "/" + name + ".OS.zip";
    const QString pr = folder + "/" + name + ".PR.zip";
    // "Tessel_NINE_V1_2_4" runs as "V1_2_4", "Tessel_NINE_01_02_04" as "Tessel_NINE 01.02.04".
    const QString version = name.section('.', 0, 0).mid(QString("Tessel_NINE_").size());
    const QString deviceName = version.startsWith('V') ? version : "Tessel_NINE " + QString(version).replace('_', '.');
    if (!makeZip(os, stageEntries("os", osCount, size, deviceName)) ||
        !makeZip(pr, stageEntries("pr", prCount, size, deviceName)))
        return {};
    return {finish(*this, os, signedFiles), finish(*this, pr, signedFiles)};
}

QString FirmwareKit::makeBootloader(const QString &folder, const QString &name, int blCount, int size,
                                    bool signedFiles)
{
    const QString bl = folder + "/" + name + ".BL.zip";
    if (!makeZip(bl, stageEntries("bl", blCount, size)))
        return {};
    return finish(*this, bl, signedFiles);
}

QList<QByteArray> FirmwareKit::flashedImages(const QStringList &stages, int count, int size, const QString &deviceName)
{
    QList<QByteArray> images;
    for (const QString &stage : stages)
        for (const auto &[name, content] : stageEntries(stage, count, size, deviceName))
            if (name.endsWith(".sys"))
                images << content;
    return images;
}

} // namespace TestSupport
