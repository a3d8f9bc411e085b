// dfu-util's "-l" reply: the window's device check reads one chunk of it, a station
// the whole listing.
#include "fuzzsupport.h"

#include "app/settings.h"
#include "firmware/devicelisting.h"
#include "firmware/version.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray output = fuzz::bytes(data, size);
    for (const QByteArray &chunk : fuzz::chunks(output)) {
        const DeviceReply reply = parseDeviceReply(chunk, Settings::getTesselNINEName());
        // A version is read from between the quotes of the device's name.
        FUZZ_ASSERT(!reply.version.contains(QLatin1Char('"')));
        if (reply.kind != DeviceReply::Found)
            FUZZ_ASSERT(reply.version.isEmpty() && reply.bootLoaderRev == 0);
        if (reply.accessDenied)
            FUZZ_ASSERT(chunk.contains("LIBUSB_ERROR_ACCESS"));
    }
    const QList<ListedDevice> devices = parseDeviceListing(output);
    FUZZ_ASSERT(devices.size() <= output.count("Found "));
    for (const ListedDevice &device : devices) {
        // One line each: a port, serial or name never runs into the next line or quote.
        for (const QString &text : {device.port, device.serial, device.name, device.version})
            FUZZ_ASSERT(!text.contains(QLatin1Char('\n')) && !text.contains(QLatin1Char('"')));
        if (device.dfuMode)
            FUZZ_ASSERT(device.version.isEmpty());
    }
    return 0;
}
