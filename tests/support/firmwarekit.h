#pragma once

#include <QByteArray>
#include <QList>
#include <QPair>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

namespace TestSupport {

using ZipEntries = QList<QPair<QString, QByteArray>>; // name ("os/", "os/a.sys") and content

// Firmware packages for tests: real zip archives made with libzip, signed with the
// real gpg by the build tree's development key (or a stranger's).
class FirmwareKit
{
public:
    FirmwareKit();
    ~FirmwareKit();
    FirmwareKit(const FirmwareKit &) = delete;
    FirmwareKit &operator=(const FirmwareKit &) = delete;

    static bool makeZip(const QString &path, const ZipEntries &entries);

    enum class Packing {
        Signed,            // gpg --sign with the development key
        SignedByStranger,  // with a key the program's key ring does not hold
        Stored,            // gpg --store: OpenPGP data without any signature
        DetachedSignature, // a good signature of `input`, without the data
    };
    bool pack(const QString &input, const QString &output, Packing how = Packing::Signed);

    // A Tessel NINE pair "<folder>/<name>.OS.zip[.gpg]" and ".PR.zip[.gpg]" with
    // osCount and prCount .sys files of `size` bytes; returns {OS, PR}.
    QStringList makePackage(const QString &folder, const QString &name, int osCount, int prCount, int size,
                            bool signedFiles);
    // A boot loader package "<folder>/<name>.BL.zip[.gpg]" with blCount .sys files.
    QString makeBootloader(const QString &folder, const QString &name, int blCount, int size, bool signedFiles);

    // Each .sys file starts with "TESSEL_NAME=<deviceName>" when one is given.
    static ZipEntries stageEntries(const QString &stage, int count, int size, const QString &deviceName = QString());
    // What a device receives of these stages' packages: their .sys files in flash order.
    static QList<QByteArray> flashedImages(const QStringList &stages, int count, int size,
                                           const QString &deviceName = QString());

private:
    QString developerHome();
    QString strangerHome();

    QTemporaryDir homes;
    QString devHome;
    QString otherHome;
};

} // namespace TestSupport
