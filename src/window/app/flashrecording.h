#pragma once

#include <QString>

#include <memory>

class DFUThread;
class FlashRecorder;
class Version;

// The history's record of one flash of the window (cable flash, automatic run, the
// wizard's boot loader stage), through the engine's recorder. The window shows nothing
// of it: a history that cannot be written is a line in the log.
class FlashRecording
{
public:
    FlashRecording();
    ~FlashRecording();

    // Begins the record of the worker's flash. The device is the one of the last query.
    void begin(DFUThread *worker, const Version &version, const QString &deviceVersion, const QString &firmwareFile,
               bool signedPackage, bool recovering);
    // Completes it: 0 the flash ended well; aborted: by the user.
    void end(int exitCode, bool aborted);

private:
    std::unique_ptr<FlashRecorder> record;
    bool recovering = false;
};
