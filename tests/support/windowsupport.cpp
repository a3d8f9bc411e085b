#include "windowsupport.h"

#include <QAction>
#include <QApplication>
#include <QDeadlineTimer>
#include <QFileDialog>
#include <QLineEdit>
#include <QMessageBox>
#include <QProcess>
#include <QPushButton>
#include <QTabWidget>
#include <QTest>
#include <QTextDocument>
#include <QThread>
#include <QTreeWidget>

#include <cstdlib>
#include <cstring>
#include <xcb/xcb.h>

namespace TestSupport {

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
            // Queued: a box the dialog asks on accepting (replace the file?) is answered
            // by the next tick, which could not come while this one waited for it.
            QMetaObject::invokeMethod(dialog, "accept", Qt::QueuedConnection);
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

} // namespace TestSupport
