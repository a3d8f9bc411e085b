// xmodem-util's records: what the Brio Mel flash reads of each chunk.
#include "fuzzsupport.h"

#include "flash/xmodemrecord.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    for (const QByteArray &chunk : fuzz::chunks(fuzz::bytes(data, size))) {
        const XmodemStatus status = parseXmodemRecord(chunk);
        FUZZ_ASSERT(status.statusCode >= -1);
        FUZZ_ASSERT(status.loadedSize >= 0 && status.allBinSize >= 0);
        FUZZ_ASSERT(!status.userMessage.contains(QLatin1Char('"')));
        // An incomplete record changes nothing: no status, no sizes.
        if (status.statusCode < 0)
            FUZZ_ASSERT(status.loadedSize == 0 && status.allBinSize == 0);
    }
    return 0;
}
