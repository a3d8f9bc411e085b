#pragma once

#include "app/errortexts.h"
#include "app/searchoptions.h"

#include <QObject>
#include <QTimer>

#include <functional>

class Settings;
class SWCheckIntern;
class UserQuestions;

// In internal mode, looks for a newer program on the internal share in the background,
// and offers to hand over to the separate updater.
class SWCheck : public QObject
{
    Q_OBJECT
public:
    // The offer to upgrade goes to `questions`, which must outlive the check.
    SWCheck(Settings *settings, SearchOptions options, UserQuestions *questions, QObject *parent);
    ~SWCheck() override;

    void checkForNewVersion();
    // Whether a job runs (a flash, a download, a stick, the wizard): a question or a box
    // of the check waits until it has ended, so the hand-off never cuts one short.
    void setJobRunning(std::function<bool()> running) { jobRunning = std::move(running); }

signals:
    void sigMsgBox(ErrorTexts::errorLevel level, QString text);

public slots:
    void internalNewVersion();
    void internalVersionKeyError();
    void swInternFinished();

private:
    void abandonCheck();
    void whenNoJob(std::function<void()> action);
    void offerUpgrade();

    SWCheckIntern *swCheckIntern = nullptr;
    Settings *settings;
    SearchOptions options;
    UserQuestions *questions;
    std::function<bool()> jobRunning;
    std::function<void()> waiting; // what waits for the job to end
    QTimer jobWatch;
};
