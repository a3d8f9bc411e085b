#include "testsupport.h"

#include "app/log.h"
#include "app/settings.h"
#include "deployment.h"
#include "platform/platform.h"

#include <QAction>
#include <QApplication>
#include <QDeadlineTimer>
#include <QDir>
#include <QFileDialog>
#include <QLineEdit>
#include <QFile>
#include <QMessageBox>
#include <QProcess>
#include <QPushButton>
#include <QSettings>
#include <QTabWidget>
#include <QTest>
#include <QTcpSocket>
#include <QTextDocument>
#include <QThread>
#include <QTreeWidget>
#include <QUrl>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <unistd.h>
#include <xcb/xcb.h>

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

// xdotool matches titles with POSIX extended expressions.
static QString exactTitle(const QString &title)
{
    QString pattern = "^";
    for (const QChar c : title) {
        if (QStringLiteral(".[]()*+?{}|^$\\").contains(c))
            pattern += '\\';
        pattern += c;
    }
    return pattern + "$";
}

static QString xdotool(const QStringList &args)
{
    QProcess p;
    p.start("xdotool", args);
    p.waitForFinished(5000);
    return QString::fromLocal8Bit(p.readAllStandardOutput()).trimmed();
}

// Whether the window with this X id is still shown under this title.
static bool stillShown(const QString &title, const QString &id)
{
    return xdotool({"search", "--onlyvisible", "--name", exactTitle(title)}).split('\n').contains(id);
}

QString waitForWindow(const QString &title, int msecs)
{
    const QString pattern = exactTitle(title);
    QDeadlineTimer deadline(msecs);
    do {
        const QString ids = xdotool({"search", "--onlyvisible", "--name", pattern});
        if (!ids.isEmpty())
            return ids.split('\n').first();
        QThread::msleep(100);
    } while (!deadline.hasExpired());
    return QString();
}

bool windowExists(const QString &title)
{
    return !waitForWindow(title, 0).isEmpty();
}

static void sendDeleteWindow(const QString &id)
{
    xcb_connection_t *connection = xcb_connect(nullptr, nullptr);
    if (xcb_connection_has_error(connection)) {
        xcb_disconnect(connection);
        return;
    }
    const auto atom = [connection](const char *name) {
        xcb_intern_atom_reply_t *reply =
            xcb_intern_atom_reply(connection, xcb_intern_atom(connection, 0, uint16_t(strlen(name)), name), nullptr);
        const xcb_atom_t value = reply ? reply->atom : XCB_ATOM_NONE;
        free(reply);
        return value;
    };
    xcb_client_message_event_t event{};
    event.response_type = XCB_CLIENT_MESSAGE;
    event.format = 32;
    event.window = xcb_window_t(id.toULong());
    event.type = atom("WM_PROTOCOLS");
    event.data.data32[0] = atom("WM_DELETE_WINDOW");
    event.data.data32[1] = XCB_CURRENT_TIME;
    xcb_send_event(connection, 0, event.window, XCB_EVENT_MASK_NO_EVENT, reinterpret_cast<const char *>(&event));
    xcb_flush(connection);
    xcb_disconnect(connection);
}

// Does something to the window with this title, again until it is gone, as a person
// tries once more when nothing happened, waiting `patienceMs` after each try.
static bool untilGone(const QString &title, int msecs, int patienceMs, const std::function<void(const QString &)> &act)
{
    const QString id = waitForWindow(title, msecs);
    QDeadlineTimer deadline(msecs);
    while (!id.isEmpty() && !deadline.hasExpired()) {
        act(id);
        for (int waited = 0; waited < patienceMs; waited += 50) {
            QThread::msleep(50);
            if (!stillShown(title, id))
                return true;
        }
    }
    return false;
}

bool closeWindow(const QString &title, int msecs)
{
    // Qt may drop a close that comes while a window it has just shown is still settling.
    return untilGone(title, msecs, 500, sendDeleteWindow);
}

bool answerBox(const QString &title, int msecs)
{
    // No window manager gives the box the keyboard: take it there, then type. On a busy
    // machine the key can land before the focus; it is pressed again only when the box
    // has plainly stayed, for a second key would reach the window below.
    return untilGone(title, msecs, 3000, [](const QString &id) {
        xdotool({"windowfocus", "--sync", id});
        QThread::msleep(100);
        xdotool({"key", "Return"});
    });
}

bool typeInto(const QString &title, const QString &keys, bool asText, int msecs)
{
    const QString id = waitForWindow(title, msecs);
    if (id.isEmpty())
        return false;
    xdotool({"windowfocus", "--sync", id});
    QThread::msleep(100);
    if (asText) {
        xdotool({"type", "--delay", "10", keys});
        xdotool({"key", "Return"});
    } else {
        // One key at a time, each after the last has had its effect.
        for (const QString &key : keys.split(' ', Qt::SkipEmptyParts)) {
            xdotool({"key", key});
            QThread::msleep(150);
        }
    }
    return true;
}

ModalAnswerer::ModalAnswerer(QObject *parent) : QObject(parent)
{
    startTimer(50);
}

void ModalAnswerer::timerEvent(QTimerEvent *)
{
    QWidget *modal = QApplication::activeModalWidget();
    if (auto *dialog = qobject_cast<QFileDialog *>(modal)) {
        if (!dialog->isVisible())
            return;
        ++fileDialogs;
        if (fileToChoose.isEmpty()) {
            dialog->reject();
        } else {
            // Typed as a user would: selectFile() depends on the dialog's file model
            // having loaded the folder, typing does not.
            if (auto *name = dialog->findChild<QLineEdit *>("fileNameEdit"))
                name->setText(fileToChoose);
            QMetaObject::invokeMethod(dialog, "accept");
        }
        return;
    }
    auto *box = qobject_cast<QMessageBox *>(modal);
    if (!box || !box->isVisible())
        return;
    if (answerWhen && !answerWhen(box))
        return;
    titles << box->windowTitle();
    // What the user reads: a box that takes its text for markup shows something else.
    QString shown = box->text();
    if (box->textFormat() == Qt::RichText || (box->textFormat() == Qt::AutoText && Qt::mightBeRichText(shown))) {
        QTextDocument document;
        document.setHtml(shown);
        shown = document.toPlainText();
    }
    texts << shown;
    QAbstractButton *button = box->defaultButton();
    if (!plannedButtons.isEmpty())
        button = box->button(QMessageBox::StandardButton(plannedButtons.takeFirst()));
    if (button)
        button->click();
    else
        box->accept();
}

bool pickDrive(const QString &name, int msecs)
{
    QDeadlineTimer deadline(msecs);
    do {
        for (QWidget *w : QApplication::topLevelWidgets()) {
            auto *list = w->isVisible() ? w->findChild<QTreeWidget *>("fileList") : nullptr;
            if (!list)
                continue;
            const auto found = list->findItems(name, Qt::MatchEndsWith);
            if (!found.isEmpty())
                list->setCurrentItem(found.first());
            w->findChild<QPushButton *>(found.isEmpty() ? "buttonCancel" : "buttonOK")->click();
            return true;
        }
        QTest::qWait(20);
    } while (!deadline.hasExpired());
    return false;
}

// A control on a page that this start of the program took out of its tabs.
static bool onRemovedPage(const QWidget *control)
{
    for (const QWidget *w = control; w && w->parentWidget(); w = w->parentWidget()) {
        const auto *tabs = w->parentWidget()->parentWidget() ? qobject_cast<const QTabWidget *>(
                                                                   w->parentWidget()->parentWidget())
                                                             : nullptr;
        if (tabs && tabs->indexOf(const_cast<QWidget *>(w)) < 0)
            return true;
    }
    return false;
}

QStringList lockedJobControls(QWidget *window)
{
    QStringList locked;
    for (const char *name : {"tessel_nine", "tab_tessel_nine_flash", "tab_tessel_nine_usbdrive",
                             "tab_tessel_nine_download", "lsearchButton_tessel_nine", "lupdateButton_tessel_nine",
                             "exsearchButton_tessel_nine", "usbDriveStartButton_tessel_nine", "nsearchButton_tessel_nine",
                             "expertMode_tessel_nine", "tessel_briomel", "lsearchButton_tessel_briomel",
                             "lupdateButton_tessel_briomel"}) {
        const QWidget *control = window->findChild<QWidget *>(name);
        if (control && !control->isEnabled() && !onRemovedPage(control))
            locked << name;
    }
    if (!window->findChild<QAction *>("actionFlash_Bootloader")->isEnabled())
        locked << "actionFlash_Bootloader";
    return locked;
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
