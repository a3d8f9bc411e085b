#pragma once

#include <QObject>

class QSocketNotifier;

// The signals a console program is stopped with (SIGINT, SIGTERM), turned into a Qt
// signal on the event loop; a closed pipe on the output is no reason to die.
class StopSignals : public QObject
{
    Q_OBJECT
public:
    explicit StopSignals(QObject *parent = nullptr);
    ~StopSignals() override;
    // False if they could not be caught.
    bool isValid() const { return notifier != nullptr; }

signals:
    void stopRequested();

private:
    QSocketNotifier *notifier = nullptr;
};
