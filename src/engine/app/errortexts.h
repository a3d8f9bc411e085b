#pragma once

#include <QObject>
#include <QString>

class QMessageBox;

// Levels, captions and icons of every user message, and the sentences that several
// parts of the program show word for word.
class ErrorTexts : public QObject
{
    Q_OBJECT
public:
    enum errorLevel { Error = 0, Warning = 1, Info = 2, Welcome = 3 };
    Q_ENUM(errorLevel)

    static QString caption(errorLevel level);
    // The two boxes are the window library's (window/app/messageboxes.cpp): the engine
    // shows none, and a program without the window cannot call them.
    static void setupMessageBox(QMessageBox &box, errorLevel level, const QString &text);
    // A box of its own, without a parent, filled as above; returns when it is closed.
    static void execMessageBox(errorLevel level, const QString &text);

    static QString deviceNotConnected();
    // The device is there, but this user may not open it: what grants the permission.
    static QString noPermission();
    // "Device is not connected", and why when the device is there but closed to the user.
    static QString deviceNotConnected(bool accessDenied);
    static QString processAborted();
    static QString flashingNotCompleted();
    static QString processWillBeAborted();
    static QString moreInformation();
    // What the user reads when a tool reported an error during a flash.
    static QString flashingFailed(const QString &toolError);
};

Q_DECLARE_METATYPE(ErrorTexts::errorLevel)
