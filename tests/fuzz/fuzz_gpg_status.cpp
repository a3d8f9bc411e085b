// gpg's status lines: a package counts as ours only on a good, valid signature over
// data that was written, and never when any line refuses it. The target writes the
// status output itself, line by line from a table whose verdict it knows, so the
// answer it expects does not come from the code under test.
#include "fuzzsupport.h"

#include "firmware/gpgrun.h"

namespace {
enum Kind { Neutral, Good, Valid, Plain, Refusal };

struct Line {
    const char *text;
    Kind kind;
};

// What gpg prints, and lines that only look like it.
const Line table[] = {
    {"[GNUPG:] NEWSIG", Neutral},
    {"[GNUPG:] KEY_CONSIDERED 0123456789ABCDEF0123456789ABCDEF01234567 0", Neutral},
    {"[GNUPG:] SIG_ID abc 2026-11-24 1795996800", Neutral},
    {"[GNUPG:] GOODSIG 0123456789ABCDEF Zelko", Good},
    {"[GNUPG:] VALIDSIG 0123456789ABCDEF0123456789ABCDEF01234567 2026-11-24", Valid},
    {"[GNUPG:] PLAINTEXT 62 1795996800 firmware.zip", Plain},
    {"[GNUPG:] PLAINTEXT_LENGTH 1024", Neutral},
    {"[GNUPG:] TRUST_UNDEFINED 0 pgp", Neutral},
    {"[GNUPG:] DECRYPTION_OKAY", Neutral},
    {"[GNUPG:] BADSIG 0123456789ABCDEF Zelko", Refusal},
    {"[GNUPG:] ERRSIG 0123456789ABCDEF 1 8 00 1795996800 9", Refusal},
    {"[GNUPG:] EXPSIG 0123456789ABCDEF Zelko", Refusal},
    {"[GNUPG:] EXPKEYSIG 0123456789ABCDEF Zelko", Refusal},
    {"[GNUPG:] REVKEYSIG 0123456789ABCDEF Zelko", Refusal},
    {"[GNUPG:] NO_PUBKEY 0123456789ABCDEF", Refusal},
    {"[GNUPG:] BADMDC", Refusal},
    {"[GNUPG:] DECRYPTION_FAILED", Refusal},
    {"[GNUPG:] FAILURE gpg-exit 33554433", Refusal},
    {"[GNUPG:] BADARMOR", Refusal},
    {"[GNUPG:] NODATA 1", Refusal},
    {"[GNUPG:] UNEXPECTED 0", Refusal},
    // Not status lines, or other keywords: they neither grant nor refuse.
    {"gpg: Good signature from \"Zelko\"", Neutral},
    {"gpg: [GNUPG:] BADSIG in a message", Neutral},
    {"[GNUPG:]GOODSIG no blank", Neutral},
    {"[GNUPG:] GOODSIGNATURE", Neutral},
    {"[GNUPG:] VALIDSIGNATURE", Neutral},
    {"[GNUPG:] PLAINTEXTUAL", Neutral},
    {"[gnupg:] BADSIG lower case", Neutral},
    {"", Neutral},
};
constexpr size_t tableSize = sizeof table / sizeof table[0];
} // namespace

// Each input line makes one output line: its first byte picks the line of the table,
// the rest of it follows after a blank.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    QByteArray output;
    bool refused = false, good = false, valid = false, plain = false;
    for (const QByteArray &script : fuzz::bytes(data, size).split('\n')) {
        if (script.isEmpty())
            continue;
        const Line &line = table[uint8_t(script.at(0)) % tableSize];
        output += line.text;
        if (script.size() > 1)
            output += ' ' + script.mid(1);
        output += '\n';
        refused = refused || line.kind == Refusal;
        good = good || line.kind == Good;
        valid = valid || line.kind == Valid;
        plain = plain || line.kind == Plain;
    }
    FUZZ_ASSERT(signedByOurRing(output) == (!refused && good && valid && plain));
    // The record's signer: the key of the first valid signature, whatever follows it.
    FUZZ_ASSERT(signerFingerprint(output) ==
                (valid ? QStringLiteral("0123456789ABCDEF0123456789ABCDEF01234567") : QString()));
    return 0;
}
