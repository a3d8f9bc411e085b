#pragma once

#include <QObject>

class QSocketNotifier;

// The signals a console program is stopped (SIGINT, SIGTERM) or reloaded with (SIGHUP), turned into a Qt
// signal on the event loop; a closed pipe on the output is no reason to die.
class StopSignals : public QObject
{
    Q_OBJECT
public:
    explicit StopSignals(QObject *parent = nullptr);
    ~StopSignals() override;
    // False if they could not be caught.
    bool isValid() const { return notifier != nullptr; }
    // SIGHUP as well, as a service manager's reload; without this call it ends the process.
    void listenForReload();

signals:
    void stopRequested();
    void reloadRequested();

private:
    QSocketNotifier *notifier = nullptr;
};
