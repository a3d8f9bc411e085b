#include "testsupport.h"

#include "app/log.h"
#include "app/settings.h"
#include "deployment.h"
#include "platform/platform.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QSettings>
#include <QTest>
#include <QTcpSocket>
#include <QThread>
#include <QUrl>

#include <algorithm>
#include <csignal>
#include <unistd.h>

namespace TestSupport {

QString binDir()
{
    return QStringLiteral(MORVANTA_TEST_BIN_DIR);
}

QString devKeyDir()
{
    return QStringLiteral(MORVANTA_TEST_DEVKEY_DIR);
}

QByteArray readFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

bool writeFile(const QString &path, const QByteArray &content)
{
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(content) == content.size();
}

Sandbox::Sandbox()
{
    for (const QString &sub : {home(), tmp(), cwd(), app()})
        QDir().mkpath(sub);
}

QString Sandbox::workingRoot() const
{
    return tmp() + "/morvanta-" + QString::number(getuid());
}

QString Sandbox::instanceFolder(const QString &startFolder) const
{
    return workingRoot() + "/instance-" + Platform::instanceKey(startFolder.isEmpty() ? cwd() : startFolder);
}

QString Sandbox::log(const QString &startFolder) const
{
    return QString::fromLocal8Bit(readFile(logPath(startFolder)));
}

QString Sandbox::lastLogLine(const QString &startFolder) const
{
    const QStringList lines = log(startFolder).split('\n', Qt::SkipEmptyParts);
    return lines.isEmpty() ? QString() : lines.last();
}

void Sandbox::writeConfig(const QMap<QString, QString> &keys) const
{
    QSettings config(home() + "/Morvanta_config.ini", QSettings::IniFormat);
    for (auto it = keys.begin(); it != keys.end(); ++it)
        config.setValue(it.key(), it.value());
}

QString Sandbox::configValue(const QString &key) const
{
    QSettings config(home() + "/Morvanta_config.ini", QSettings::IniFormat);
    return config.value(key).toString();
}

void Sandbox::installProgram(const QStringList &tools) const
{
    // A copy, not a link: the program looks for its tools beside its real path.
    QFile::remove(app() + "/morvanta");
    QFile::copy(binDir() + "/morvanta", app() + "/morvanta");
    for (const QString &tool : tools) {
        QFile::remove(app() + "/" + tool);
        QFile::link(QFileInfo(binDir() + "/" + tool).canonicalFilePath(), app() + "/" + tool);
    }
}

QProcessEnvironment Sandbox::environment() const
{
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert("HOME", home());
    env.remove("XDG_DATA_HOME"); // the history goes into the sandbox's home
    env.insert("TMPDIR", tmp());
    env.insert("XDG_RUNTIME_DIR", tmp());
    env.insert("QT_QPA_PLATFORM", "xcb");
    env.remove("LANGUAGE");
    return env;
}

void useSandbox(const Sandbox &sandbox)
{
    qputenv("HOME", QFile::encodeName(sandbox.home()));
    qputenv("TMPDIR", QFile::encodeName(sandbox.tmp()));
    Log::setFolder(sandbox.root());
    qInstallMessageHandler(logMessageHandler);
}

BrokenTool::BrokenTool(const QString &name)
    : path(QCoreApplication::applicationDirPath() + "/" + name), target(QFileInfo(path).symLinkTarget())
{
    QFile::remove(path);
    writeFile(path, "not a program");
}

BrokenTool::~BrokenTool()
{
    QFile::remove(path);
    QFile::link(target, path);
}

ProgramRun::ProgramRun(const Sandbox &sandbox, const QStringList &args, const QString &cwd,
                       const QProcessEnvironment &extraEnv, const QString &program)
{
    QProcessEnvironment env = sandbox.environment();
    for (const QString &key : extraEnv.keys())
        env.insert(key, extraEnv.value(key));
    process.setProcessEnvironment(env);
    process.setWorkingDirectory(cwd.isEmpty() ? sandbox.cwd() : cwd);
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(program.isEmpty() ? sandbox.app() + "/morvanta" : program, args);
    process.waitForStarted();
}

ProgramRun::~ProgramRun()
{
    if (process.state() != QProcess::NotRunning) {
        process.kill();
        process.waitForFinished();
    }
}

bool ProgramRun::isRunning() const
{
    return process.state() == QProcess::Running;
}

bool ProgramRun::waitForExit(int msecs, bool killOnTimeout)
{
    if (process.waitForFinished(msecs))
        return true;
    if (!killOnTimeout)
        return false;
    process.kill();
    process.waitForFinished();
    return false;
}

int ProgramRun::exitCode() const
{
    return process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
}

QString ProgramRun::output() const
{
    return QString::fromLocal8Bit(process.readAll());
}

void ProgramRun::kill9()
{
    ::kill(static_cast<pid_t>(process.processId()), SIGKILL);
    process.waitForFinished();
}

void ProgramRun::terminate()
{
    process.terminate();
    process.waitForFinished();
}

bool EmulatedBus::available()
{
    return QFileInfo(emulator()).isExecutable() && QFileInfo("/usr/bin/dfu-util").isExecutable();
}

QString EmulatedBus::emulator()
{
    return binDir() + "/tessel-emulator";
}

QStringList EmulatedBus::command(const QStringList &devices, const QString &program, const QStringList &args)
{
    QStringList command;
    for (const QString &device : devices)
        command << "--device" << device;
    return command << "--" << program << args;
}

EmulatedBus::EmulatedBus(const QStringList &devices)
{
    const QString announce = scratch.path() + "/testbed";
    process.setProcessChannelMode(QProcess::ForwardedChannels);
    // The bus lasts while this end of the pipe is open: it goes with the test, whatever ends it.
    process.start(emulator(), QStringList{"--announce", announce} + command(devices, "sh", {"-c", "cat >/dev/null"}));
    QDeadlineTimer deadline(10000);
    while (!QFileInfo::exists(announce) && !deadline.hasExpired() && process.state() != QProcess::NotRunning)
        QThread::msleep(20);
    up = QFileInfo::exists(announce);
    if (up)
        qputenv("UMOCKDEV_DIR", readFile(announce));
}

QList<QByteArray> EmulatedBus::received(const QString &folder)
{
    QList<QByteArray> images;
    for (const QString &name : QDir(folder).entryList(QDir::Files, QDir::Name))
        images << readFile(folder + "/" + name);
    return images;
}

EmulatedBus::~EmulatedBus()
{
    qunsetenv("UMOCKDEV_DIR");
    process.closeWriteChannel();
    if (!process.waitForFinished(5000))
        process.terminate();
    process.waitForFinished(5000);
}

bool userMapped(uint uid)
{
    // Lines of "inside outside count".
    for (const QByteArray &line : readFile("/proc/self/uid_map").split('\n')) {
        const QList<QByteArray> fields = line.simplified().split(' ');
        if (fields.size() == 3 && uid >= fields[0].toUInt() && uid - fields[0].toUInt() < fields[2].toUInt())
            return true;
    }
    return false;
}

int liveProcessesWith(const QString &argument)
{
    int live = 0;
    for (const QString &pid : QDir("/proc").entryList(QDir::Dirs)) {
        if (!pid.toInt())
            continue;
        const QList<QByteArray> args = readFile("/proc/" + pid + "/cmdline").split('\0');
        const QByteArray stat = readFile("/proc/" + pid + "/stat");
        const bool zombie = stat.mid(stat.lastIndexOf(')') + 2, 1) == "Z";
        const QByteArray wanted = QFile::encodeName(argument);
        if (!zombie && std::any_of(args.cbegin(), args.cend(), [&](const QByteArray &arg) { return arg.contains(wanted); }))
            ++live;
    }
    return live;
}

SignalLog::SignalLog(QObject *source)
{
    const QMetaObject *meta = source->metaObject();
    // The object's own signals, not those of the Qt class it is made of.
    const int first = (source->inherits("QThread") ? QThread::staticMetaObject : QObject::staticMetaObject).methodCount();
    for (int i = first; i < meta->methodCount(); ++i) {
        if (meta->method(i).methodType() != QMetaMethod::Signal)
            continue;
        QMetaObject::connect(source, i, this, QObject::staticMetaObject.methodCount() + int(watched.size()),
                             Qt::QueuedConnection);
        watched << meta->method(i);
    }
}

int SignalLog::qt_metacall(QMetaObject::Call call, int id, void **args)
{
    id = QObject::qt_metacall(call, id, args);
    if (id < 0 || call != QMetaObject::InvokeMetaMethod || id >= watched.size())
        return id;
    const QMetaMethod &signal = watched[id];
    QStringList values;
    for (int p = 0; p < signal.parameterCount(); ++p) {
        const QVariant value(signal.parameterMetaType(p), args[p + 1]);
        values << (value.typeId() == QMetaType::QStringList ? value.toStringList().join('|') : value.toString());
    }
    events << QString::fromLatin1(signal.name()) + (values.isEmpty() ? QString() : ":" + values.join(','));
    return -1;
}

QStringList SignalLog::of(const QString &signal) const
{
    QStringList found;
    for (const QString &event : events) {
        if (event == signal)
            found << QString();
        else if (event.startsWith(signal + ":"))
            found << event.mid(signal.size() + 1);
    }
    return found;
}

quint16 UpdateServer::port()
{
    return quint16(QUrl(QString::fromLatin1(Deployment::httpBaseUrl)).port(80));
}

UpdateServer::UpdateServer(const QString &tree)
{
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert("MORVANTA_FIRMWARE_ROOT", tree);
    env.insert("MORVANTA_ACCOUNTS", QStringLiteral(MORVANTA_TEST_BUILD_DIR) + "/server/accounts.ini");
    start("php", {"-S", "127.0.0.1:" + QString::number(port()), QStringLiteral(MORVANTA_TEST_SOURCE_DIR) + "/server/router.php"},
          env);
}

UpdateServer::UpdateServer(const QString &mode, const QByteArray &listAnswer)
{
    const QString body = scratch.path() + "/answer";
    writeFile(body, listAnswer);
    start("/usr/bin/python3",
          {QStringLiteral(MORVANTA_TEST_SOURCE_DIR) + "/tests/support/testserver.py", QString::number(port()), mode, body},
          QProcessEnvironment::systemEnvironment());
}

std::unique_ptr<UpdateServer> UpdateServer::ftp(const QString &tree, const QString &password, const QString &mode)
{
    std::unique_ptr<UpdateServer> server(new UpdateServer);
    server->listeningPort = 21;
    Settings account(static_cast<QObject *>(nullptr));
    server->start("/usr/bin/python3",
                  {QStringLiteral(MORVANTA_TEST_SOURCE_DIR) + "/tests/support/ftpserver.py", "21", tree,
                   account.getFtpUser(), password, mode},
                  QProcessEnvironment::systemEnvironment());
    return server;
}

void UpdateServer::start(const QString &program, const QStringList &args, const QProcessEnvironment &env)
{
    process.setProcessEnvironment(env);
    process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    process.start(program, args);
    QDeadlineTimer deadline(10000);
    while (!listening && !deadline.hasExpired() && process.state() != QProcess::NotRunning) {
        QTcpSocket probe;
        probe.connectToHost("127.0.0.1", listeningPort ? listeningPort : port());
        listening = probe.waitForConnected(200);
        if (!listening)
            QThread::msleep(50);
    }
}

UpdateServer::~UpdateServer()
{
    process.kill();
    process.waitForFinished();
}

} // namespace TestSupport

TestSupport::FuseShare::FuseShare(const QString &image, const QString &mountPoint) : mountPoint(mountPoint)
{
    QFile disk(image);
    if (!disk.open(QIODevice::WriteOnly | QIODevice::Truncate) || !disk.resize(16 << 20))
        return;
    disk.close();
    QDir().mkpath(mountPoint);
    if (QProcess::execute("/sbin/mkfs.vfat", {"-F", "16", image}) != 0)
        return;
    server.start("fusefat", {"-f", "-o", "rw+", image, mountPoint});
    server.waitForStarted();
    QDeadlineTimer deadline(5000);
    while (!isMounted() && server.state() == QProcess::Running && !deadline.hasExpired())
        QTest::qWait(100);
}

TestSupport::FuseShare::~FuseShare()
{
    ::kill(pid_t(server.processId()), SIGCONT);
    if (isMounted())
        QProcess::execute("umount", {"-l", mountPoint});
}

bool TestSupport::FuseShare::isMounted() const
{
    // The kernel's table writes a blank in a path as \040.
    return readFile("/proc/self/mountinfo").contains(" " + QFile::encodeName(mountPoint).replace(" ", "\\040") + " ");
}

void TestSupport::FuseShare::stop()
{
    ::kill(pid_t(server.processId()), SIGSTOP);
}

bool TestSupport::mountTmpfs(const QString &path, int kib)
{
    QDir().mkpath(path);
    return QProcess::execute("mount", {"-t", "tmpfs", "-o", QString("size=%1k,mode=700").arg(kib), "tmpfs", path}) == 0;
}
