#include "flashtexts.h"

#include "app/errortexts.h"
#include "app/settings.h"
#include "firmware/firmwarenames.h"

#include <iterator>

namespace {
struct MarkText {
    DfuMark mark;
    const char *text;
    bool deviceNotConnected; // the text follows "Device is not connected"
};

const MarkText markTexts[] = {
    {DfuMark::NoDevice, QT_TRANSLATE_NOOP("FlashTexts", "No DFU capable USB device found"), false},
    {DfuMark::SeveralDevices, QT_TRANSLATE_NOOP("FlashTexts", "More than one DFU capable USB device found"), false},
    // The joining " - " is not part of this text.
    {DfuMark::LostDevice, QT_TRANSLATE_NOOP("FlashTexts", "Lost device after RESET"), true},
    {DfuMark::FunctionalDescriptor, QT_TRANSLATE_NOOP("FlashTexts", " - Functional descriptor"), true},
    {DfuMark::OpeningError, QT_TRANSLATE_NOOP("FlashTexts", " - Opening error"), true},
    {DfuMark::ConfigurationError, QT_TRANSLATE_NOOP("FlashTexts", " - Configuration error"), true},
    {DfuMark::AltInterfaceError, QT_TRANSLATE_NOOP("FlashTexts", " - Alt interface error"), true},
    {DfuMark::GetStatusError, QT_TRANSLATE_NOOP("FlashTexts", " - Get status error"), true},
    {DfuMark::DetachingError, QT_TRANSLATE_NOOP("FlashTexts", " - Detaching error"), true},
    {DfuMark::ClearStatusError, QT_TRANSLATE_NOOP("FlashTexts", " - Clear status error"), true},
    {DfuMark::InterfaceError, QT_TRANSLATE_NOOP("FlashTexts", " - Interface error"), true},
    {DfuMark::RuntimeModeError, QT_TRANSLATE_NOOP("FlashTexts", " - In Runtime Mode error"), true},
    {DfuMark::DownloadError, QT_TRANSLATE_NOOP("FlashTexts", "Error during download"), false},
    {DfuMark::FirmwareCorrupt, QT_TRANSLATE_NOOP("FlashTexts", "Device's firmware is corrupt"), false},
    {DfuMark::ProgramMemory, QT_TRANSLATE_NOOP("FlashTexts", "Program memory function failed"), false},
};

// The status codes of DFU 1.1, as dfu-util words them.
const char *const statusTexts[] = {
    QT_TRANSLATE_NOOP("FlashTexts", "No error condition is present"),
    QT_TRANSLATE_NOOP("FlashTexts", "File is not targeted for use by this device"),
    QT_TRANSLATE_NOOP("FlashTexts", "File is for this device but fails some vendor-specific test"),
    QT_TRANSLATE_NOOP("FlashTexts", "Device is unable to write memory"),
    QT_TRANSLATE_NOOP("FlashTexts", "Memory erase function failed"),
    QT_TRANSLATE_NOOP("FlashTexts", "Memory erase check failed"),
    QT_TRANSLATE_NOOP("FlashTexts", "Program memory function failed"),
    QT_TRANSLATE_NOOP("FlashTexts", "Programmed memory failed verification"),
    QT_TRANSLATE_NOOP("FlashTexts", "Cannot program memory due to received address that is out of range"),
    QT_TRANSLATE_NOOP("FlashTexts", "Received DFU_DNLOAD with wLength = 0, but device does not think that it has all "
                                    "data yet"),
    QT_TRANSLATE_NOOP("FlashTexts", "Device's firmware is corrupt. It cannot return to run-time (non-DFU) operations"),
    QT_TRANSLATE_NOOP("FlashTexts", "iString indicates a vendor specific error"),
    QT_TRANSLATE_NOOP("FlashTexts", "Device detected unexpected USB reset signaling"),
    QT_TRANSLATE_NOOP("FlashTexts", "Device detected unexpected power on reset"),
    QT_TRANSLATE_NOOP("FlashTexts", "Something went wrong, but the device does not know what it was"),
    QT_TRANSLATE_NOOP("FlashTexts", "Device stalled an unexpected request"),
};

QString dfuUtil()
{
    return Settings::toolName(QStringLiteral("dfu-util"));
}

// The tool's last words behind the sentence, when it said any.
QString withLastLine(const QString &sentence, const QString &lastLine)
{
    return lastLine.isEmpty() ? sentence : sentence + QLatin1Char('\n') + lastLine;
}
} // namespace

QString FlashTexts::stage(FlashStage stage)
{
    switch (stage) {
    case FlashStage::Hashing:
        return tr("Calculate MD5 Hashes");
    case FlashStage::Extracting:
        return tr("Extracting firmware");
    case FlashStage::Listing:
        return tr("Building sys file lists");
    case FlashStage::Sizing:
        return tr("Calculating total file size");
    case FlashStage::Searching:
        return tr("Search for DFU USB device - This might take a few seconds");
    case FlashStage::Written:
        return tr("Flashing completed");
    case FlashStage::Restarting:
    case FlashStage::Verifying:
        break;
    }
    return QString();
}

QString FlashTexts::transfer(const QString &stage, int number, int total)
{
    return QLatin1String("Flashing firmware stage ") + FirmwareNames::stageLabel(stage) + tr(" - File ") +
           QString::number(number) + QLatin1Char('/') + QString::number(total);
}

QString FlashTexts::completedBox()
{
    return tr("Flashing completed") + tr("\nPlease perform Tessel restart!");
}

QString FlashTexts::dfuStatus(int status)
{
    return status >= 0 && status < int(std::size(statusTexts)) ? tr(statusTexts[status]) : QString();
}

QString FlashTexts::toolError(const FlashError &error)
{
    for (const MarkText &entry : markTexts) {
        if (entry.mark != error.mark)
            continue;
        QString text = tr(entry.text);
        if (entry.deviceNotConnected) {
            text = ErrorTexts::deviceNotConnected() +
                   (text.startsWith(QLatin1String(" - ")) ? text : QLatin1String(" - ") + text);
            // A device there but closed to this user: what grants the permission.
            if (error.accessDenied)
                text += QLatin1Char('\n') + ErrorTexts::noPermission();
        }
        const QString reason = dfuStatus(error.dfuStatus);
        return reason.isEmpty() ? text : text + QLatin1String(" - ") + reason;
    }
    return ErrorTexts::flashingNotCompleted();
}

QString FlashTexts::error(const FlashError &error)
{
    using Code = FlashError::Code;
    switch (error.code) {
    case Code::None:
        return QString();
    case Code::HashFailed:
        return tr("Error calculating MD5 Hash");
    case Code::FileUnreadable:
        return tr("File can't be opened");
    case Code::GpgNotStarted:
        return tr("Error starting GPG, restart again");
    case Code::GpgOpenFailed:
        return tr("Unable to open gpg file");
    case Code::SignatureInvalid:
        return tr("Invalid digital signature");
    case Code::CopyFailed:
        return tr("Failed to copy file %1").arg(error.arg(0));
    case Code::ExtractionFailed:
        return tr("Error in firmware extraction");
    case Code::NoFirmwareFiles:
        return tr("Package contains no firmware files");
    case Code::ZeroSizedFile:
        return tr("Packages contain zero sized files");
    case Code::PackageTooLarge:
        return tr("Package is too large to flash");
    case Code::NotConnected:
        return ErrorTexts::deviceNotConnected(error.accessDenied);
    case Code::SeveralDevices:
        return toolError(FlashError::tool(DfuMark::SeveralDevices));
    case Code::PortBusy:
        return tr("Another run is flashing the device on port %1").arg(error.arg(0));
    case Code::PortLockFailed:
        return tr("Cannot lock port %1: %2").arg(error.arg(0), error.arg(1));
    case Code::ToolMark:
        return toolError(error);
    case Code::ToolNotStarted:
        return tr("Unable to start %1").arg(dfuUtil());
    case Code::ToolSilent:
        return tr("%1 ended without any output").arg(dfuUtil());
    case Code::ToolExitCode:
        return withLastLine(tr("%1 ended with exit code %2").arg(dfuUtil()).arg(error.number), error.arg(0));
    case Code::ToolKilled:
        return withLastLine(tr("%1 was ended by a signal").arg(dfuUtil()), error.arg(0));
    case Code::WrongUnit:
        return tr("Another device is on the port %1: serial %2, not %3").arg(error.arg(0), error.arg(1), error.arg(2));
    case Code::PreparedChanged:
        return tr("The prepared firmware changed: %1 is not the file that was checked").arg(error.arg(0));
    case Code::DeviceNotBack:
        return tr("The device did not come back on port %1").arg(error.arg(0));
    case Code::WrongVersion:
        return tr("The device on port %1 runs %2, not %3").arg(error.arg(0), error.arg(1), error.arg(2));
    case Code::Incomplete:
        return ErrorTexts::flashingNotCompleted();
    case Code::TimeLimit:
        return tr("Time limit of %1 s reached").arg(error.number);
    case Code::NotRecorded:
        return tr("Cannot write the history %1: %2").arg(error.arg(0), error.arg(1));
    }
    return ErrorTexts::flashingNotCompleted();
}

QString FlashTexts::corruptedFiles()
{
    return tr("\n\nThe selected firmware files are corrupted or\nthis version of %1 does not match with these "
              "files.\nTry again and be sure that\nthe latest version of this software is installed")
        .arg(QStringLiteral("Morvanta"));
}

QString FlashTexts::errorBox(const FlashError &error)
{
    using Code = FlashError::Code;
    switch (error.code) {
    case Code::FileUnreadable:
        return FlashTexts::error(error) + tr("\n\nThe selected firmware file\n%1\ncan't be opened").arg(error.arg(0));
    case Code::GpgOpenFailed:
    case Code::SignatureInvalid:
        return FlashTexts::error(error) + corruptedFiles();
    case Code::CopyFailed:
        return tr("Failed to copy file\n%1\nto\n%2").arg(error.arg(0), error.arg(1));
    default:
        break;
    }
    return error.isToolError() ? ErrorTexts::flashingFailed(FlashTexts::error(error)) : FlashTexts::error(error);
}
