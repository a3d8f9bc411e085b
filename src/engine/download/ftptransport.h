#pragma once

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QObject>
#include <QStringList>
#include <QTimer>

class QFileDevice;
class QSocketNotifier;

// FTP for the downloads, over libcurl driven from the Qt event loop: no thread of its
// own, so the files are written here, on the window's thread. A listing runs connect
// and login, the folder changes and the list, one command after the other on one
// connection; a fetch brings files into the devices given. Each command reports as it
// ends; ten seconds without an answer or without data end any of them.
class FtpTransport : public QObject
{
    Q_OBJECT
public:
    enum Command { Connect, Login, ChangeFolder, ChangeUserFolder, List, Fetch };
    Q_ENUM(Command)

    explicit FtpTransport(QObject *parent);
    ~FtpTransport() override;

    // The last folder is the one listed; a second one is a user's folder.
    void list(const QString &host, const QString &user, const QString &password, const QStringList &folders);
    // Names from the listed folder, each into its device, one after the other.
    void fetch(const QStringList &names, const QList<QFileDevice *> &targets);
    // Stops at once; nothing more is reported.
    void abort();
    QByteArray listing() const { return listed; }

signals:
    void commandFinished(FtpTransport::Command command, bool error);
    void timedOut();
    void progress(qint64 done, qint64 total);
    void fileFinished(int index);

private:
    struct Step {
        Command command;
        QString path; // below the server's root, ending in "/" for a folder
        QFileDevice *target = nullptr;
        int index = 0;
    };
    void next();
    void stepDone(int result);
    void socketEvent(int socket, int flags);
    void timeout();
    void perform(int socket, int flags);
    void tick(); // every transfer looked at, whatever libcurl waits for
    void reap();
    void detach();

    friend struct FtpCallbacks; // libcurl's, in its own types

    void *multi; // CURLM
    void *easy;  // CURL
    QTimer timer;
    QTimer heartbeat;
    QHash<int, QList<QSocketNotifier *>> notifiers;
    QList<Step> steps;
    Step current{};
    bool running = false;
    bool aborted = false;
    int insideCurl = 0;
    QString host, user, password, folder;
    QByteArray listed;
    qint64 lastDone = -1;
};
