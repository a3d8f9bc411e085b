#pragma once

#include <QObject>
#include <QString>

// Every yes-or-no question of the program: No is the default and the escape answer.
class DialogQuestions : public QObject
{
    Q_OBJECT
public:
    static bool questionFlash(bool automatic, int compare);
    // A Tessel NINE waits in DFU mode: flash it? Unattended runs do, and say so in the log.
    static bool questionRecoverDevice(bool automatic);
    static bool questionAbortDownload();
    static bool questionClose(const QString &hint);
    static bool questionAbortFlash();
    static bool questionAbortUsbWrite();
    static bool questionAbortBootLoader();
    static bool questionUpgrade();
    static bool questionOverwriteFiles();
    static bool questionOverwriteFolder(const QString &path);
    static bool questionDownload(const QString &version, int option);

private:
    static bool ask(const QString &text);
};
