// detector's answer: one chunk of its output, read as "a Brio Mel is there" or not.
#include "fuzzsupport.h"

#include "flash/usbdetector.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray chunk = fuzz::bytes(data, size);
    const int answer = detectorAnswer(chunk);
    FUZZ_ASSERT(answer >= -1 && answer <= 1);
    // A device counts as there only on a 1 in what the tool printed before any NUL.
    if (answer == 1)
        FUZZ_ASSERT(chunk.left(chunk.indexOf('\0') < 0 ? chunk.size() : chunk.indexOf('\0')).contains('1'));
    return 0;
}
