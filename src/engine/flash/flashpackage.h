#pragma once

#include <QList>
#include <QMetaType>
#include <QString>
#include <QStringList>

// A firmware package checked and unpacked, ready to go onto a device: its .sys files
// in flash order ("bl", "os", "pr"), each with its size and SHA-256, and who signed it.
struct FlashPackage {
    struct File {
        QString stage; // "bl", "os" or "pr"
        QString name;  // as in the package, "os_01.sys"
        QString path;  // where it lies unpacked
        qint32 size = 0;
        QString sha256; // hex; empty when it could not be read
    };

    QList<File> files;
    QStringList signers; // fingerprints of the keys that signed it; none for plain zips
    qint32 totalSize = 0;

    QList<File> stageFiles(const QString &stage) const
    {
        QList<File> found;
        for (const File &file : files) {
            if (file.stage == stage)
                found << file;
        }
        return found;
    }
};

Q_DECLARE_METATYPE(FlashPackage)
