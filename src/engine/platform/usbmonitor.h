#pragma once

#include <QObject>

class QSocketNotifier;
struct udev;
struct udev_monitor;

// USB devices coming and going, as udev announces them: the port (dfu-util's path,
// "1-2") of each device that was added or removed. Nothing is opened or asked of the
// devices themselves.
class UsbMonitor : public QObject
{
    Q_OBJECT
public:
    explicit UsbMonitor(QObject *parent = nullptr);
    ~UsbMonitor() override;
    // False when udev cannot be listened to (then error() says why).
    bool start();
    QString error() const { return lastError; }

signals:
    void changed(const QString &port, bool added);

private:
    void receive();

    struct udev *context = nullptr;
    struct udev_monitor *monitor = nullptr;
    QSocketNotifier *notifier = nullptr;
    QString lastError;
};
