#include "usbmonitor.h"

#include <QSocketNotifier>

#include <cerrno>
#include <cstring>
#include <libudev.h>

UsbMonitor::UsbMonitor(QObject *parent) : QObject(parent)
{
}

UsbMonitor::~UsbMonitor()
{
    delete notifier;
    if (monitor)
        udev_monitor_unref(monitor);
    if (context)
        udev_unref(context);
}

bool UsbMonitor::start()
{
    context = udev_new();
    // "udev": the events after udev has set up the node, so a device it names can be opened.
    monitor = context ? udev_monitor_new_from_netlink(context, "udev") : nullptr;
    if (!monitor || udev_monitor_enable_receiving(monitor) < 0) {
        lastError = QStringLiteral("Cannot listen to udev: %1").arg(QString::fromLocal8Bit(strerror(errno)));
        return false;
    }
    notifier = new QSocketNotifier(udev_monitor_get_fd(monitor), QSocketNotifier::Read);
    connect(notifier, &QSocketNotifier::activated, this, &UsbMonitor::receive);
    return true;
}

void UsbMonitor::receive()
{
    // The subsystem is checked here, not by a socket filter, which not every source of
    // events honours.
    while (udev_device *device = udev_monitor_receive_device(monitor)) {
        const char *subsystem = udev_device_get_subsystem(device);
        const char *type = udev_device_get_devtype(device);
        const char *action = udev_device_get_action(device);
        const char *name = udev_device_get_sysname(device);
        if (subsystem && type && action && name && !std::strcmp(subsystem, "usb") && !std::strcmp(type, "usb_device")) {
            const bool added = !std::strcmp(action, "add");
            if (added || !std::strcmp(action, "remove"))
                emit changed(QString::fromLocal8Bit(name), added);
        }
        udev_device_unref(device);
    }
}
