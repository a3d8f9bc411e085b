#include "settings.h"

#include "deployment.h"
#include "errortexts.h"
#include "logstream.h"
#include "platform/platform.h"

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QFile>
#include <QSettings>
#include <QtDebug>

namespace {
const char configFileName[] = "Morvanta_config.ini";
const char defaultConfigResource[] = ":/default/Morvanta_config.ini";
const char ftpConfigResource[] = ":/ftp/ftpconfig/ftp_conf.ini";
const char pubringResource[] = ":/gpg/keydb/pubring.gpg";
const char trustdbResource[] = ":/gpg/keydb/trustdb.gpg";
const char extractFolderName[] = "ZelkoExtract";
const char gpgFolderName[] = "ZelkoGPG";
} // namespace

Settings::Settings(QObject *parent) : QObject(parent)
{
    load();
}

Settings::~Settings()
{
    delete config;
    delete ftpConfig;
}

void Settings::load()
{
    const QString appDir = QCoreApplication::applicationDirPath();
    qDebug() << "Application directory" << quoted(appDir);

    const QString homeFile = QDir::homePath() + QDir::separator() + QLatin1String(configFileName);
    if (!QFile::exists(homeFile)) {
        // Only announced and read: the file on disk comes from the keys written below.
        qDebug() << "Copy config file to home directory!";
        QFile defaults{QString::fromLatin1(defaultConfigResource)};
        if (defaults.open(QIODevice::ReadOnly)) {
            qDebug() << quoted(QLatin1String("Copy configuration file to: ") + homeFile);
            defaults.readAll();
            defaults.close();
        }
    }

    config = new QSettings(homeFile, QSettings::IniFormat);
    setValue(QStringLiteral("Path"), appDir);

    tempDir = QDir(Platform::instanceFolderPath());
    extractFolder = tempDir.absolutePath() + QLatin1Char('/') + QLatin1String(extractFolderName);
    gpgFolder = tempDir.absolutePath() + QLatin1Char('/') + QLatin1String(gpgFolderName);
    searchPath = getValue(QStringLiteral("searchPath"));
    searchPathBrioMel = getValue(QStringLiteral("searchPathBrioMel"));

    ftpConfig = new QSettings(QLatin1String(ftpConfigResource), QSettings::IniFormat);
    ftpUrl = ftpConfig->value(QStringLiteral("ftpurl")).toString();
    ftpUser = ftpConfig->value(QStringLiteral("ftpuser")).toString();
    ftpPassword = ftpConfig->value(QStringLiteral("ftppasswd")).toString();
    if (ftpUrl.isEmpty() || ftpUser.isEmpty() || ftpPassword.isEmpty()) {
        emit settingError();
        return;
    }

    decideGpgAvailable();
    useHttp = getValue(QStringLiteral("http")) != QLatin1String("false");

    if (getValue(QStringLiteral("language")).isEmpty()) {
        if (QFile::exists(QStringLiteral("DE")))
            setValue(QStringLiteral("language"), QStringLiteral("German"));
        else if (QFile::exists(QStringLiteral("EN")))
            setValue(QStringLiteral("language"), QStringLiteral("English"));
    }
}

void Settings::decideGpgAvailable()
{
    const QString gpg = toolName(QStringLiteral("gpg"));
    const QString path = QDir(QCoreApplication::applicationDirPath()).filePath(gpg);
    qDebug() << plain("Search " + gpg + ": ") << quoted(path) << "...";
    gpgAvailable = QFile::exists(path);
    if (gpgAvailable)
        qDebug() << plain("...Found " + gpg);
    else
        qDebug() << plain("...No " + gpg);
}

QString Settings::storedKey(const QString &key) const
{
    // Keys are found whatever their case, as on the platform the file comes from,
    // and a value goes back under the spelling that the file already has.
    if (config->contains(key))
        return key;
    const QStringList keys = config->childKeys();
    for (const QString &stored : keys) {
        if (stored.compare(key, Qt::CaseInsensitive) == 0)
            return stored;
    }
    return key;
}

QString Settings::getValue(const QString &key) const
{
    return config->value(storedKey(key), QString()).toString();
}

void Settings::setValue(const QString &key, const QString &value)
{
    config->setValue(storedKey(key), value);
}

void Settings::setHttp(bool http)
{
    useHttp = http;
    setValue(QStringLiteral("http"), http ? QStringLiteral("true") : QStringLiteral("false"));
}

void Settings::setSearchPath(const QString &path)
{
    searchPath = path;
    setValue(QStringLiteral("searchPath"), path);
}

void Settings::setSearchPathBrioMel(const QString &path)
{
    searchPathBrioMel = path;
    setValue(QStringLiteral("searchPathBrioMel"), path);
}

QString Settings::toolName(const QString &baseName)
{
    return Platform::toolFileName(baseName);
}

QString Settings::toolPath(const QString &baseName) const
{
    const QString path = QDir::cleanPath(QCoreApplication::applicationDirPath() + QDir::separator() +
                                         toolName(baseName));
    return QLatin1Char('"') + path + QLatin1Char('"');
}

QString Settings::getDfuUtilPath() const
{
    return toolPath(QStringLiteral("dfu-util"));
}

QString Settings::getDetectorPath() const
{
    return toolPath(QStringLiteral("detector"));
}

QString Settings::getXmodemUtilPath() const
{
    return toolPath(QStringLiteral("xmodem-util"));
}

QString Settings::getGpgPath() const
{
    return toolPath(QStringLiteral("gpg"));
}

// ---- Working folders ----

QString Settings::getExtractFolderName()
{
    return QLatin1String(extractFolderName);
}

void Settings::showWarning(const QString &text) const
{
    if (warningHandler)
        warningHandler(text);
    else
        qWarning() << quoted(text);
}

bool Settings::removeFolder(const QString &path)
{
    // Never through a link: the folder may be on a USB stick, which anyone could have prepared.
    return Platform::removeTree(path);
}

void Settings::createExtractFolder()
{
    if (!removeFolder(extractFolder))
        showWarning(tr("Unable to delete Temp Folder - Restart Application"));
    if (!tempDir.mkpath(extractFolder))
        showWarning(tr("Unable to create Temp Folder - Restart Application"));
}

bool Settings::useWorkingFolder(const QString &folder)
{
    tempDir = QDir(folder);
    extractFolder = tempDir.absolutePath() + QLatin1Char('/') + QLatin1String(extractFolderName);
    gpgFolder = tempDir.absolutePath() + QLatin1Char('/') + QLatin1String(gpgFolderName);
    createExtractFolder();
    if (gpgAvailable)
        prepareGpgFolder();
    return QFileInfo(extractFolder).isDir() && (!gpgAvailable || QFileInfo(gpgFolder).isDir());
}

void Settings::prepareGpgFolder()
{
    if (!removeFolder(gpgFolder))
        showWarning(tr("Unable to delete Gpg Temp Folder - Restart Application") + QLatin1Char('\n') + gpgFolder);
    if (!tempDir.mkpath(gpgFolder))
        showWarning(tr("Unable to create Gpg Temp Folder - Restart Application") + QLatin1Char('\n') + gpgFolder);
    // gpg warns about a home that others can read.
    QFile::setPermissions(gpgFolder, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);

    copyKeyResource(QLatin1String(pubringResource), gpgFolder + QLatin1String("/pubring.gpg"),
                    tr("Unable to copy Gpg pubring"));
    copyKeyResource(QLatin1String(trustdbResource), gpgFolder + QLatin1String("/trustdb.gpg"),
                    tr("Unable to copy Gpg trustdb"));
}

void Settings::copyKeyResource(const QString &resource, const QString &destination, const QString &failureText)
{
    QFile source(resource);
    if (!source.open(QIODevice::ReadOnly)) {
        showWarning(failureText + QLatin1Char(' ') + tr("Failed to open resource"));
        return;
    }
    qDebug() << quoted(QLatin1String("Copy file to: ") + destination);
    QFile target(destination);
    if (target.open(QIODevice::WriteOnly)) {
        target.write(source.readAll());
        target.close();
    } else {
        showWarning(failureText + QLatin1Char('\n') + QFileInfo(destination).fileName());
    }
    source.close();
}

// ---- Update server and file names ----

QString Settings::getTesselNINEName() { return QStringLiteral("Tessel_NINE"); }
QString Settings::getBrioMelName() { return QStringLiteral("BRIO_MEL"); }
QString Settings::getTesselNINELatestFolder() { return QStringLiteral("TesselNINE_Latest"); }
QString Settings::getTesselNINEUnstableFolder() { return QStringLiteral("TesselNINE_Unstable"); }
QString Settings::getTesselNINEBootloaderFolder() { return QStringLiteral("TesselNINE_Bootloader"); }
QString Settings::getBrioMelLatestFolder() { return QStringLiteral("BRIO_MEL_Latest"); }
QString Settings::getBrioMelUnstableFolder() { return QStringLiteral("BRIO_MEL_Unstable"); }
QString Settings::getNetworkFirmwareFolder() { return QLatin1String(Deployment::networkFirmwareFolder); }
QString Settings::getNetworkDebugFolder() { return QLatin1String(Deployment::networkDebugFolder); }
QString Settings::getNetworkBootloaderFolder() { return QLatin1String(Deployment::networkBootloaderFolder); }

QString Settings::getTesselNINENameFilter(bool useZipSearch) const
{
    return useSignedForms(useZipSearch) ? QStringLiteral("Tessel_NINE*zip.gpg") : QStringLiteral("Tessel_NINE*.zip");
}

QString Settings::getFirmwareFilter(bool useZipSearch) const
{
    if (useSignedForms(useZipSearch))
        return QLatin1String("Files(*.") + QLatin1String("PR.zip") + QLatin1String(".gpg *.") +
               QLatin1String("OS.zip") + QLatin1String(".gpg)");
    return QLatin1String("Files(*.") + QLatin1String("PR.zip") + QLatin1String(" *.") + QLatin1String("OS.zip") +
           QLatin1String(")");
}

QString Settings::getBootloaderFilter(bool useZipSearch) const
{
    if (useSignedForms(useZipSearch))
        return QLatin1String("Files(*.") + QLatin1String("BL.zip") + QLatin1String(".gpg)");
    return QLatin1String("Files(*.") + QLatin1String("BL.zip") + QLatin1String(")");
}

QString Settings::listUrl(const QString &folder, const QString &userIdentifier) const
{
    QString url = QLatin1String(Deployment::httpBaseUrl) + QLatin1String("/getFileList.php?Folder=") + folder;
    if (!userIdentifier.isEmpty())
        url += QLatin1Char('/') + userIdentifier;
    return url + QLatin1Char('&') + getCredentialsQuery();
}

QString Settings::fileUrl(const QString &folder, const QString &userIdentifier)
{
    QString url = QLatin1String(Deployment::httpBaseUrl) + QLatin1Char('/') + folder;
    if (!userIdentifier.isEmpty())
        url += QLatin1Char('/') + userIdentifier;
    return url + QLatin1Char('/');
}

QString Settings::getTesselNINELatestListUrl() const { return listUrl(getTesselNINELatestFolder(), QString()); }
QString Settings::getBrioMelLatestListUrl() const { return listUrl(getBrioMelLatestFolder(), QString()); }
QString Settings::getTesselNINEBootloaderListUrl() const { return listUrl(getTesselNINEBootloaderFolder(), QString()); }
QString Settings::getTesselNINEUnstableListUrl(const QString &userIdentifier) const
{
    return listUrl(getTesselNINEUnstableFolder(), userIdentifier);
}
QString Settings::getBrioMelUnstableListUrl(const QString &userIdentifier) const
{
    return listUrl(getBrioMelUnstableFolder(), userIdentifier);
}
QString Settings::getTesselNINELatestFileUrl() { return fileUrl(getTesselNINELatestFolder(), QString()); }
QString Settings::getBrioMelLatestFileUrl() { return fileUrl(getBrioMelLatestFolder(), QString()); }
QString Settings::getTesselNINEBootloaderFileUrl() { return fileUrl(getTesselNINEBootloaderFolder(), QString()); }
QString Settings::getTesselNINEUnstableFileUrl(const QString &userIdentifier)
{
    return fileUrl(getTesselNINEUnstableFolder(), userIdentifier);
}
QString Settings::getBrioMelUnstableFileUrl(const QString &userIdentifier)
{
    return fileUrl(getBrioMelUnstableFolder(), userIdentifier);
}

QString Settings::getCredentialsQuery() const
{
    const QByteArray digest = QCryptographicHash::hash(ftpPassword.toLatin1(), QCryptographicHash::Sha1).toHex();
    return QLatin1String("User=") + ftpUser + QLatin1String("&PW=") + QString::fromLatin1(digest);
}
