#pragma once

#include <QDir>
#include <QObject>
#include <QString>

#include <functional>

class Dialog;
class QSettings;

// Configuration file, built-in server account, tool paths, working folders and the
// names shared with the update server.
class Settings : public QObject
{
    Q_OBJECT
public:
    // Plain form, for main: reads the configuration, touches no folder.
    explicit Settings(QObject *parent);
    // Full form, for the main window: also prepares the working folders, and tells the
    // owner of a broken installation. Defined by the window library (window/app).
    explicit Settings(Dialog *owner);
    ~Settings() override;

    QString getValue(const QString &key) const;
    void setValue(const QString &key, const QString &value);

    bool isHttp() const { return useHttp; }
    void setHttp(bool http);
    QString getSearchPath() const { return searchPath; }
    QString getSearchPathBrioMel() const { return searchPathBrioMel; }
    void setSearchPath(const QString &path);
    void setSearchPathBrioMel(const QString &path);
    QString getFtpUrl() const { return ftpUrl; }
    QString getFtpUser() const { return ftpUser; }
    QString getFtpPassword() const { return ftpPassword; }
    bool isGpgAvailable() const { return gpgAvailable; }

    // Quoted, so that a path with blanks survives QProcess::start.
    QString getDfuUtilPath() const;
    QString getDetectorPath() const;
    QString getXmodemUtilPath() const;
    QString getGpgPath() const;
    // The platform's file name of a tool ("gpg" here), for texts and log lines.
    static QString toolName(const QString &baseName);

    // Working folders
    QString getExtractFolder() const { return extractFolder; }
    static QString getExtractFolderName();
    QString getGpgFolder() const { return gpgFolder; }
    static bool removeFolder(const QString &path);
    void createExtractFolder();
    // Fresh GPG home holding copies of the built-in key ring.
    void prepareGpgFolder();
    // Moves the extract and GPG folders into a folder of their own and prepares them:
    // a run that must not touch any instance's folders. False if it could not be made.
    bool useWorkingFolder(const QString &folder);
    // Where warnings about the working folders go: the window shows a box, the station
    // prints a line. Without a handler they are only logged.
    static void setWarningHandler(std::function<void(const QString &)> handler) { warningHandler = std::move(handler); }

    // Update server and file names
    static QString getTesselNINEName();
    static QString getBrioMelName();
    static QString getTesselNINELatestFolder();
    static QString getTesselNINEUnstableFolder();
    static QString getTesselNINEBootloaderFolder();
    static QString getBrioMelLatestFolder();
    static QString getBrioMelUnstableFolder();
    static QString getNetworkFirmwareFolder();
    static QString getNetworkDebugFolder();
    static QString getNetworkBootloaderFolder();
    QString getTesselNINENameFilter(bool useZipSearch) const;
    QString getFirmwareFilter(bool useZipSearch) const;
    QString getBootloaderFilter(bool useZipSearch) const;

    QString getTesselNINELatestListUrl() const;
    QString getBrioMelLatestListUrl() const;
    QString getTesselNINEBootloaderListUrl() const;
    QString getTesselNINEUnstableListUrl(const QString &userIdentifier) const;
    QString getBrioMelUnstableListUrl(const QString &userIdentifier) const;
    static QString getTesselNINELatestFileUrl();
    static QString getBrioMelLatestFileUrl();
    static QString getTesselNINEBootloaderFileUrl();
    static QString getTesselNINEUnstableFileUrl(const QString &userIdentifier);
    static QString getBrioMelUnstableFileUrl(const QString &userIdentifier);
    QString getCredentialsQuery() const;

signals:
    void settingError();

private:
    void load();
    void decideGpgAvailable();
    void copyKeyResource(const QString &resource, const QString &destination, const QString &failureText);
    QString toolPath(const QString &baseName) const;
    QString storedKey(const QString &key) const;
    QString listUrl(const QString &folder, const QString &userIdentifier) const;
    static QString fileUrl(const QString &folder, const QString &userIdentifier);
    bool useSignedForms(bool useZipSearch) const { return gpgAvailable && !useZipSearch; }
    void showWarning(const QString &text) const;

    QSettings *config = nullptr;
    QSettings *ftpConfig = nullptr;
    QString searchPath;
    QString searchPathBrioMel;
    QString extractFolder;
    QString gpgFolder;
    QDir tempDir;
    QString ftpUrl;
    QString ftpUser;
    QString ftpPassword;
    bool gpgAvailable = true;
    bool useHttp = false;
    static inline std::function<void(const QString &)> warningHandler;
};
