#pragma once

#include <QMap>
#include <QMetaMethod>
#include <QObject>
#include <QProcess>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

#include <functional>
#include <memory>

namespace TestSupport {

QString binDir();      // the build tree's program folder, with the simulators and gpg
QString devKeyDir();   // the development signing key of this build tree

// A throwaway world for one start of the program: home, temporary folder, current
// folder and an application folder (with a blank in its path) holding a copy of the
// program and the tools a test chooses.
class Sandbox
{
public:
    Sandbox();
    bool isValid() const { return dir.isValid(); }

    QString root() const { return dir.path(); }
    QString home() const { return root() + "/home"; }
    QString tmp() const { return root() + "/tmp"; }
    QString cwd() const { return root() + "/cwd"; }
    QString app() const { return root() + "/app folder"; }
    QString workingRoot() const; // the user's private folder of the program
    // An instance's own folder (log, scratch folders), by the folder it was started in.
    QString instanceFolder(const QString &startFolder = QString()) const;
    QString logPath(const QString &startFolder = QString()) const { return instanceFolder(startFolder) + "/logfile.txt"; }
    QString log(const QString &startFolder = QString()) const;
    QString lastLogLine(const QString &startFolder = QString()) const;

    void writeConfig(const QMap<QString, QString> &keys) const;
    QString configValue(const QString &key) const;
    // Copies the program and links the named tools ("gpg", "dfu-util", ...) beside it.
    void installProgram(const QStringList &tools) const;
    QProcessEnvironment environment() const;

private:
    QTemporaryDir dir;
};

// Points this test process's home, temporary folder and log into the sandbox.
void useSandbox(const Sandbox &sandbox);

// Puts a file that cannot be run in place of a tool beside this test program, until
// the returned guard ends.
class BrokenTool
{
public:
    explicit BrokenTool(const QString &name);
    ~BrokenTool();
    BrokenTool(const BrokenTool &) = delete;
    BrokenTool &operator=(const BrokenTool &) = delete;

private:
    QString path;
    QString target;
};

// The program running in a sandbox under an X display (the suite's Xvfb).
class ProgramRun
{
public:
    // program: another copy of the program than the sandbox's, e.g. an installed one.
    ProgramRun(const Sandbox &sandbox, const QStringList &args, const QString &cwd = QString(),
               const QProcessEnvironment &extraEnv = QProcessEnvironment(), const QString &program = QString());
    ~ProgramRun();
    ProgramRun(const ProgramRun &) = delete;
    ProgramRun &operator=(const ProgramRun &) = delete;

    bool isRunning() const;
    // Waits for the end; false on time-out, when the program is killed unless asked not to.
    bool waitForExit(int msecs = 20000, bool killOnTimeout = true);
    int exitCode() const;
    QString output() const;
    void kill9();
    void terminate();

private:
    mutable QProcess process; // reading its output is no change to the run
};

// Every signal of an object as the test's thread hears it, in order: "name" or
// "name:arg,arg". Queued, so a worker's signals arrive as they reach the window.
class SignalLog : public QObject
{
public:
    explicit SignalLog(QObject *source);
    QStringList events;
    // The arguments of every emission of one signal.
    QStringList of(const QString &signal) const;
    bool has(const QString &event) const { return events.contains(event); }

    int qt_metacall(QMetaObject::Call call, int id, void **args) override;

private:
    QList<QMetaMethod> watched;
};

// A server where the program looks for its update server. Tests that use one run in
// a network namespace of their own (tests/in-own-namespaces.sh), so its port is free.
class UpdateServer
{
public:
    // The reference server (server/router.php) over a firmware tree.
    explicit UpdateServer(const QString &tree);
    // The difficult one (tests/support/testserver.py) in one of its modes.
    UpdateServer(const QString &mode, const QByteArray &listAnswer);
    // An FTP server (tests/support/ftpserver.py) on port 21 over a firmware tree, with
    // the build's account but the given password, in a mode: normal, stall, silent.
    static std::unique_ptr<UpdateServer> ftp(const QString &tree, const QString &password, const QString &mode);
    ~UpdateServer();
    bool isListening() const { return listening; }
    static quint16 port();

private:
    UpdateServer() = default;
    void start(const QString &program, const QStringList &args, const QProcessEnvironment &env);
    QProcess process;
    QTemporaryDir scratch;
    quint16 listeningPort = 0;
    bool listening = false;
};

// A FAT image mounted through FUSE (fusefat), whose server can be stopped: then every
// look at the share hangs in the kernel, as a dead network share does. Needs a mount
// namespace of the test's own.
class FuseShare
{
public:
    FuseShare(const QString &image, const QString &mountPoint);
    ~FuseShare(); // the server goes on and the share goes
    bool isMounted() const;
    void stop();

private:
    QProcess server;
    QString mountPoint;
};

// The emulated Tessel NINE (tools/tessel-emulator) on a virtual USB bus, with Debian's
// real dfu-util run by tools/dfu-util-umockdev. Device specs are the emulator's.
class EmulatedBus
{
public:
    // The emulator was built and Debian's dfu-util is installed.
    static bool available();
    // The command line that runs `command` inside a testbed of these devices.
    static QStringList command(const QStringList &devices, const QString &program, const QStringList &args);
    static QString emulator();
    // A testbed for this test process itself: the tools it starts find it through
    // UMOCKDEV_DIR until the bus goes.
    explicit EmulatedBus(const QStringList &devices);
    ~EmulatedBus();
    EmulatedBus(const EmulatedBus &) = delete;
    EmulatedBus &operator=(const EmulatedBus &) = delete;
    bool isUp() const { return up; }
    // What a device with "record=FOLDER" kept of its downloads, in the order they came.
    static QList<QByteArray> received(const QString &folder);

private:
    QProcess process;
    QTemporaryDir scratch;
    bool up = false;
};

// This process's user namespace holds the user id (a root of a namespace of its own may have no other).
bool userMapped(uint uid);

// Live (not yet reaped or zombie) processes with an argument that holds this text.
int liveProcessesWith(const QString &argument);

// A tmpfs of `kib` KiB on path (made first), only the user's; false where the test has no
// mount namespace of its own. Umount it with QProcess::execute("umount", {path}).
bool mountTmpfs(const QString &path, int kib);

QByteArray readFile(const QString &path);
// Makes the folder it goes into; false if the file could not be written whole.
bool writeFile(const QString &path, const QByteArray &content = {});

} // namespace TestSupport
