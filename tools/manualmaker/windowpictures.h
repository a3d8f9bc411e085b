#pragma once

#include <QDeadlineTimer>
#include <QImage>
#include <QList>
#include <QMap>
#include <QObject>
#include <QString>

#include <functional>

class QWidget;

// Pictures of the real window for the manual: the program's own classes, driven as a
// technician drives them, with the device tools beside the program standing in for a
// Tessel NINE. Boxes and dialogs that open modally are taken and closed as they come.
class WindowPictures : public QObject
{
    Q_OBJECT
public:
    // firmwareFolder: where the pictured firmware pair lies.
    explicit WindowPictures(const QString &firmwareFolder, QObject *parent = nullptr);

    // False with error() set when a window did not come as expected.
    bool take();
    QMap<QString, QImage> pictures() const { return taken; }
    QString error() const { return failure; }

protected:
    void timerEvent(QTimerEvent *) override;

private:
    // One handler per expected modal window, in order; it returns false to wait.
    using ModalHandler = std::function<bool(QWidget *)>;
    void expectModal(const ModalHandler &handler) { handlers << handler; }
    bool waitForModals(const QString &what);
    bool waitUntil(const std::function<bool()> &done, const QString &what);
    void keep(const QString &name, QWidget *widget);
    ModalHandler grabBox(const QString &name, int button);
    ModalHandler chooseFile(const QString &file);

    QString folder;
    QList<ModalHandler> handlers;
    QDeadlineTimer stuck;       // a modal window no handler takes is closed when it runs out
    bool tolerateBoxes = false; // boxes nobody planned for are answered with their escape button
    QMap<QString, QImage> taken;
    QString failure;
};
