// The version file on the share: at most 64 KiB of an ini, read for its [General] keys.
#include "fuzzsupport.h"

#include "update/swcheckintern.h"
#include "update/versionfile.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray bytes = fuzz::bytes(data, qMin(size, size_t(64 * 1024)));
    const QHash<QString, QString> keys = parseIniGeneral(bytes);
    for (auto it = keys.cbegin(); it != keys.cend(); ++it) {
        FUZZ_ASSERT(!it.key().isEmpty() && it.key() == it.key().toLower());
        FUZZ_ASSERT(!it.key().contains(QLatin1Char('=')));
        // One line gives one key: no line break inside a key or a value.
        for (const QString &text : {it.key(), it.value()})
            FUZZ_ASSERT(!text.contains(QLatin1Char('\n')) && !text.contains(QLatin1Char('\r')));
    }
    const int sum = SWCheckIntern::checksum(keys.value(QStringLiteral("morvanta")));
    FUZZ_ASSERT(sum >= 0 && sum <= 255);
    return 0;
}
