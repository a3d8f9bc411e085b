#pragma once

#include <QMetaType>
#include <QString>
#include <QStringList>

// The marks of dfu-util's error lines that the program knows.
enum class DfuMark {
    NoDevice,
    SeveralDevices,
    LostDevice,
    FunctionalDescriptor,
    OpeningError,
    ConfigurationError,
    AltInterfaceError,
    GetStatusError,
    DetachingError,
    ClearStatusError,
    InterfaceError,
    RuntimeModeError,
    DownloadError,
    FirmwareCorrupt,
    ProgramMemory,
};

// Why a flash did not go on, as a code and the outside words its text takes, in their
// order (a path, the tool's last line, a port). Each front end words it its own way.
struct FlashError {
    enum class Code {
        None,
        // The package, before anything reaches the device
        HashFailed,
        FileUnreadable,   // the file
        GpgNotStarted,
        GpgOpenFailed,
        SignatureInvalid,
        CopyFailed,       // from, to
        ExtractionFailed,
        NoFirmwareFiles,
        ZeroSizedFile,
        PackageTooLarge,
        // The device
        NotConnected,     // accessDenied
        SeveralDevices,   // their ports
        PortBusy,         // the port
        PortLockFailed,   // the port, why
        // dfu-util
        ToolMark,         // mark, dfuStatus, accessDenied
        ToolNotStarted,
        ToolSilent,
        ToolExitCode,     // number: the exit code; the tool's last line, if any
        ToolKilled,       // the tool's last line, if any
        WrongUnit,        // the port, the serial there, the serial flashed
        PreparedChanged,  // the file: not the one checked when the package was prepared
        // After the last file
        DeviceNotBack,    // the port
        WrongVersion,     // the port, the version it runs, the package's
        // The front end's reasons and the record
        Incomplete,       // the run ended without saying why
        TimeLimit,        // number: seconds
        NotRecorded,      // the history, why
    };

    Code code = Code::None;
    QStringList args;
    int number = 0;
    DfuMark mark = DfuMark::NoDevice;
    int dfuStatus = -1; // the device's DFU status behind a failed block, -1 none
    bool accessDenied = false;

    FlashError() = default;
    FlashError(Code code, const QStringList &args = {}, int number = 0) : code(code), args(args), number(number) {}
    static FlashError tool(DfuMark mark, int dfuStatus = -1, bool accessDenied = false)
    {
        FlashError error(Code::ToolMark);
        error.mark = mark;
        error.dfuStatus = dfuStatus;
        error.accessDenied = accessDenied;
        return error;
    }

    QString arg(int i) const { return args.value(i); }
    bool isSet() const { return code != Code::None; }
    // The package could not be made ready: no tool ran against the device.
    bool isPackageError() const { return code >= Code::HashFailed && code <= Code::PackageTooLarge; }
    // A file did not go in: dfu-util failed or did not run, or another unit came back.
    bool isToolError() const { return code >= Code::ToolMark && code <= Code::WrongUnit; }
};

Q_DECLARE_METATYPE(FlashError)
