#include "windowpictures.h"

#include "app/settings.h"
#include "ui/breakflash.h"
#include "ui/dialog.h"
#include "ui/dialogquestions.h"
#include "ui/wizard/wizardbootloader.h"

#include <QAbstractButton>
#include <QAction>
#include <QApplication>
#include <QCheckBox>
#include <QDeadlineTimer>
#include <QEventLoop>
#include <QFileDialog>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QTabWidget>
#include <QTimer>

#include <cstdio>

namespace {

const int patienceMs = 30000;

template <typename T> T *child(QWidget *window, const char *name)
{
    return window->findChild<T *>(QString::fromLatin1(name));
}

// Lets queued work and painting happen for a moment.
void settle(int ms = 300)
{
    QEventLoop loop;
    QTimer::singleShot(ms, &loop, &QEventLoop::quit);
    loop.exec();
}

} // namespace

WindowPictures::WindowPictures(const QString &firmwareFolder, QObject *parent)
    : QObject(parent), folder(firmwareFolder), stuck(patienceMs)
{
    startTimer(50);
}

void WindowPictures::timerEvent(QTimerEvent *)
{
    // Modal windows run their own event loops, under any wait of ours: the time limit
    // of a modal window nobody takes lives here.
    QWidget *modal = QApplication::activeModalWidget();
    if (!modal || !modal->isVisible()) {
        stuck.setRemainingTime(patienceMs);
        return;
    }
    auto *box = qobject_cast<QMessageBox *>(modal);
    if (handlers.isEmpty() && box && tolerateBoxes) {
        std::fprintf(stderr, "manualmaker: answered a box nobody planned for: %s\n", qPrintable(box->text()));
        if (QAbstractButton *answer = box->escapeButton() ? box->escapeButton() : box->defaultButton())
            answer->click();
        else
            box->accept();
        return;
    }
    if (handlers.isEmpty() || stuck.hasExpired()) {
        failure = (handlers.isEmpty() ? QStringLiteral("unexpected ") : QStringLiteral("left standing: ")) +
                  (box ? QStringLiteral("box ") + box->text() : QLatin1String(modal->metaObject()->className()));
        if (auto *dialog = qobject_cast<QDialog *>(modal))
            dialog->done(QDialog::Rejected);
        else
            modal->close();
        return;
    }
    // The handler is taken off first: it may open the next modal window itself.
    const ModalHandler handler = handlers.takeFirst();
    if (handler(modal))
        stuck.setRemainingTime(patienceMs);
    else
        handlers.prepend(handler);
}

bool WindowPictures::waitUntil(const std::function<bool()> &done, const QString &what)
{
    const QDeadlineTimer deadline(patienceMs);
    while (!done()) {
        if (deadline.hasExpired() || !failure.isEmpty()) {
            if (failure.isEmpty()) {
                QWidget *modal = QApplication::activeModalWidget();
                failure = QStringLiteral("timed out waiting for ") + what;
                if (modal)
                    failure += QStringLiteral(" (open: %1 \"%2\")")
                                   .arg(QLatin1String(modal->metaObject()->className()), modal->windowTitle());
            }
            return false;
        }
        settle(50);
    }
    return failure.isEmpty();
}

bool WindowPictures::waitForModals(const QString &what)
{
    return waitUntil([this] { return handlers.isEmpty() && !QApplication::activeModalWidget(); }, what);
}

void WindowPictures::keep(const QString &name, QWidget *widget)
{
    settle();
    taken.insert(name, widget->grab().toImage());
}

WindowPictures::ModalHandler WindowPictures::grabBox(const QString &name, int button)
{
    return [this, name, button](QWidget *modal) {
        auto *box = qobject_cast<QMessageBox *>(modal);
        if (!box)
            return false;
        if (!name.isEmpty())
            keep(name, box);
        QAbstractButton *answer = button ? box->button(QMessageBox::StandardButton(button)) : box->defaultButton();
        if (answer)
            answer->click();
        else
            box->accept();
        return true;
    };
}

WindowPictures::ModalHandler WindowPictures::chooseFile(const QString &file)
{
    return [file](QWidget *modal) {
        auto *dialog = qobject_cast<QFileDialog *>(modal);
        if (!dialog)
            return false;
        // Typed as a user would: the dialog's model may not have read the folder yet.
        if (auto *name = dialog->findChild<QLineEdit *>(QStringLiteral("fileNameEdit")))
            name->setText(file);
        QMetaObject::invokeMethod(dialog, "accept", Qt::QueuedConnection);
        return true;
    };
}

bool WindowPictures::take()
{
    const QString firmware = folder + QStringLiteral("/Tessel_NINE_V1_2_4.OS.zip.gpg");

    // A plain start: the welcome box, then the window.
    expectModal(grabBox(QStringLiteral("welcome"), 0));
    Dialog window(SearchOptions(), false, nullptr);
    window.show();
    if (!waitForModals(QStringLiteral("the welcome box")))
        return false;
    auto *update = child<QPushButton>(&window, "lupdateButton_tessel_nine");
    auto *search = child<QPushButton>(&window, "lsearchButton_tessel_nine");

    // A firmware chosen with no device on the cable, then with one.
    qputenv("DFU_SIM_DEVICE", "absent");
    expectModal(chooseFile(firmware));
    expectModal(grabBox(QString(), 0)); // "Device is not connected"
    search->click();
    if (!waitForModals(QStringLiteral("the file dialog and the box of no device")))
        return false;
    keep(QStringLiteral("notconnected"), &window);

    // With no device the search button looks for the device again, as a technician
    // presses it after plugging the cable in.
    qputenv("DFU_SIM_DEVICE", "present");
    search->click();
    if (!waitUntil([&] { return update->isEnabled(); }, QStringLiteral("the Update button")))
        return false;
    keep(QStringLiteral("cable"), &window);

    // The question before a flash, answered No: nothing is flashed.
    expectModal(grabBox(QStringLiteral("question"), QMessageBox::No));
    update->click();
    if (!waitForModals(QStringLiteral("the flash question")))
        return false;

    // The other Tessel NINE tabs, and the expert mode's question.
    auto *modes = child<QTabWidget>(&window, "tab_tessel_nine_options");
    modes->setCurrentWidget(child<QWidget>(&window, "tab_tessel_nine_usbdrive"));
    keep(QStringLiteral("usbstick"), &window);
    modes->setCurrentWidget(child<QWidget>(&window, "tab_tessel_nine_download"));
    keep(QStringLiteral("download"), &window);
    expectModal([this](QWidget *modal) {
        auto *dialog = qobject_cast<QDialog *>(modal);
        if (!dialog || qobject_cast<QMessageBox *>(modal))
            return false;
        keep(QStringLiteral("expert"), dialog);
        dialog->reject();
        return true;
    });
    auto *expert = child<QCheckBox>(&window, "expertMode_tessel_nine");
    expert->click();
    child<QPushButton>(&window, "nsearchButton_tessel_nine")->click();
    if (!waitForModals(QStringLiteral("the expert mode dialog")))
        return false;
    expert->click();

    // A device left in update mode by a flash that did not end.
    expectModal(grabBox(QStringLiteral("updatemode"), QMessageBox::No));
    QTimer::singleShot(0, [] { (void)DialogQuestions::questionRecoverDevice(false); });
    if (!waitForModals(QStringLiteral("the update mode question")))
        return false;

    // The boot loader wizard: its first page and the page that flashes.
    expectModal([this](QWidget *modal) {
        auto *wizard = qobject_cast<QWizard *>(modal);
        if (!wizard)
            return false;
        keep(QStringLiteral("wizard"), wizard);
        wizard->setStartId(WizardBootLoader::Select);
        wizard->restart();
        keep(QStringLiteral("wizard-select"), wizard);
        wizard->reject();
        return true;
    });
    modes->setCurrentWidget(child<QWidget>(&window, "tab_tessel_nine_flash"));
    QTimer::singleShot(0, child<QAction>(&window, "actionFlash_Bootloader"), &QAction::trigger);
    if (!waitForModals(QStringLiteral("the boot loader wizard")))
        return false;

    // The restart between the wizard's two stages.
    {
        BreakFlash restart(nullptr);
        restart.show();
        keep(QStringLiteral("restart"), &restart);
    }

    // Internal mode: the Brio Mel beside the Tessel NINE. Its look for a new program
    // version on the maker's share may put a box up on a machine that has the share.
    tolerateBoxes = true;
    SearchOptions internal;
    internal.internal = true;
    expectModal(grabBox(QString(), 0));
    Dialog internalWindow(internal, false, nullptr);
    internalWindow.show();
    if (!waitForModals(QStringLiteral("the welcome box of internal mode")))
        return false;
    child<QTabWidget>(&internalWindow, "tab_devices")->setCurrentWidget(child<QWidget>(&internalWindow, "tessel_briomel"));
    keep(QStringLiteral("internal"), &internalWindow);
    return failure.isEmpty();
}
