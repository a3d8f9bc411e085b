// The update server's listings, of its list script (HTTP) and of NLST (FTP): every name
// taken from them becomes a file name in a folder of ours.
#include "fuzzsupport.h"

#include "app/settings.h"
#include "download/serverlist.h"

namespace {
struct Kind {
    QString family;
    bool useZipSearch;
    QString ftpFilter;
    QString extension; // every listed name ends with it
};
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size == 0)
        return 0;
    static const Kind kinds[] = {
        {Settings::getTesselNINEName(), false, QStringLiteral("Tessel_NINE*zip.gpg"), QStringLiteral(".zip.gpg")},
        {Settings::getTesselNINEName(), true, QStringLiteral("Tessel_NINE*.zip"), QStringLiteral(".zip")},
        {Settings::getBrioMelName(), false, QStringLiteral("BRIO_MEL*.zkl"), QStringLiteral(".zkl")},
    };
    const Kind &kind = kinds[data[0] % 3];
    const QByteArray body = fuzz::bytes(data + 1, size - 1);

    for (const QString &name : parseFileList(body, kind.family, kind.useZipSearch)) {
        FUZZ_ASSERT(fuzz::isPlainName(name));
        FUZZ_ASSERT(name.startsWith(kind.family) && name.endsWith(kind.extension));
    }
    for (const QString &name : parseFtpNameList(body, kind.ftpFilter)) {
        FUZZ_ASSERT(fuzz::isPlainName(name));
        FUZZ_ASSERT(name.startsWith(kind.family) && name.endsWith(kind.extension.mid(1)));
    }
    return 0;
}
