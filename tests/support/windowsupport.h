#pragma once

// What tests of the window need beyond testsupport.h: the built program's windows
// under X, and boxes, dialogs and controls of a window in this process.
#include "testsupport.h"

#include <QObject>
#include <QStringList>

#include <functional>

class QMessageBox;
class QWidget;

namespace TestSupport {

// Waits for a top-level window whose title matches exactly; returns its X id or 0.
QString waitForWindow(const QString &title, int msecs = 15000);
// Presses Return in the window with this title (a box's default button), again until
// it is gone; false if it never came or stays.
bool answerBox(const QString &title, int msecs = 15000);
bool windowExists(const QString &title);
// Closes the window with this title as a window manager's close button does, again
// until it is gone (for a window that asks nothing on closing); false if it stays.
bool closeWindow(const QString &title, int msecs = 15000);
// Types keys (xdotool names, e.g. "ctrl+g Tab"), or with asText a text and Return,
// into the window with this title.
bool typeInto(const QString &title, const QString &keys, bool asText = false, int msecs = 15000);

// In-process: answers every modal box (with the next planned button, else its
// default) and every file dialog (with fileToChoose, or cancels), and records them:
// a box's text as the user reads it.
class ModalAnswerer : public QObject
{
    Q_OBJECT
public:
    explicit ModalAnswerer(QObject *parent = nullptr);
    QStringList titles;
    QStringList texts;
    QList<int> plannedButtons; // QMessageBox::StandardButton values, used in order
    // A box stands until this says it may be answered; by default at once.
    std::function<bool(QMessageBox *)> answerWhen;
    QString fileToChoose;
    int fileDialogs = 0;
    int answered() const { return int(titles.size()); }
    void clear()
    {
        titles.clear();
        texts.clear();
    }

protected:
    void timerEvent(QTimerEvent *) override;
};

// Picks the entry that ends in `name` in a selection list (the drive list) once one is
// open, or cancels it; false when none opened within msecs.
bool pickDrive(const QString &name, int msecs = 5000);

// The main window's controls that start a job, and the pages that hold them, that
// cannot be used now, by object name (the boot loader action among them).
QStringList lockedJobControls(QWidget *window);

} // namespace TestSupport
