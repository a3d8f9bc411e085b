// gpg's status lines: a package counts as ours only on a good, valid signature over
// data that was written, and never when any line refuses it.
#include "fuzzsupport.h"

#include "firmware/gpgrun.h"

#include <QList>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray output = fuzz::bytes(data, size);
    if (!signedByOurRing(output))
        return 0;
    static const QList<QByteArray> refusals{"BADSIG",  "ERRSIG",    "EXPSIG",            "EXPKEYSIG", "REVKEYSIG",
                                             "NO_PUBKEY", "BADMDC", "DECRYPTION_FAILED", "FAILURE",   "BADARMOR",
                                             "NODATA",  "UNEXPECTED"};
    bool good = false, valid = false, plaintext = false;
    for (const QByteArray &line : output.split('\n')) {
        if (!line.startsWith("[GNUPG:] "))
            continue;
        const QByteArray keyword = line.mid(9).split(' ').value(0).trimmed();
        FUZZ_ASSERT(!refusals.contains(keyword));
        good = good || keyword == "GOODSIG";
        valid = valid || keyword == "VALIDSIG";
        plaintext = plaintext || keyword == "PLAINTEXT";
    }
    FUZZ_ASSERT(good && valid && plaintext);
    return 0;
}
