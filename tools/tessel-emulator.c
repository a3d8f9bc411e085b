/* An emulated Tessel NINE on a virtual USB bus, for Debian's real dfu-util and libusb.
 *
 *   tessel-emulator [--device DEVICE]... [--announce FILE] -- COMMAND [ARG]...
 *
 * umockdev's testbed holds each device's sysfs entry and device node; this program
 * answers the usbdevfs ioctls that libusb sends to the node, as a DFU 1.1 device would.
 * COMMAND runs inside the testbed (UMOCKDEV_DIR is set for it); a tool that is to see
 * the devices runs under umockdev's preload library (build/bin/dfu-util-umockdev does that
 * for dfu-util). The emulator ends with COMMAND's exit code. See tools/README.md.
 */
#define _GNU_SOURCE
#include <glib-unix.h>
#include <umockdev.h>

#include <errno.h>
#include <sys/ioctl.h>
#include <linux/usbdevice_fs.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

enum { appIDLE = 0, appDETACH = 1, dfuIDLE = 2, dfuDNLOAD_SYNC = 3, dfuDNBUSY = 4, dfuDNLOAD_IDLE = 5,
       dfuMANIFEST_SYNC = 6, dfuMANIFEST = 7, dfuMANIFEST_WAIT_RESET = 8, dfuERROR = 10 };
enum { statusOK = 0, errWRITE = 3, errSTALLEDPKT = 0x0f };
enum { DETACH = 0, DNLOAD = 1, UPLOAD = 2, GETSTATUS = 3, CLRSTATUS = 4, GETSTATE = 5, ABORT = 6 };

/* What happens at the end of a download, and which fault the device shows. */
typedef enum {
    RESET_REENUMERATES, /* the final reset finds a new device: dfu-util says "Done!" and exits 74 */
    RESET_OK,           /* the final reset succeeds; the device comes back a moment later */
    MANIFEST_TOLERANT,  /* stays in DFU mode after each download */
    STALL,              /* stalls the DNLOAD of block `at` */
    ERR_WRITE,          /* cannot write block `at`: dfuERROR, errWRITE */
    PULLED,             /* leaves the bus at the DNLOAD of block `at` */
    NO_RETURN,          /* detached, it never comes back */
    LATE_RETURN,        /* detached, it comes back after `after` ms */
    BUSY,               /* asks for `after` ms of patience after every block */
    STAYS_OLD,          /* flashed, it keeps its old name */
} Scenario;

typedef struct Instance Instance;

typedef struct {
    /* configuration */
    int port;
    guint16 vendor, product;
    char name[64];
    char serial[32];
    gboolean foreign; /* another maker's device, always in DFU mode */
    gboolean closed;  /* a node the user may not open */
    gboolean startsInDfu; /* an interrupted flash: waits in DFU mode from the start */
    Scenario scenario;
    int at, after;
    int offBus; /* ms off the bus at each re-enumeration (detach, final reset) */
    int lag;    /* ms a node stays closed to the user after a re-enumeration, as udev sets permissions late */
    char swapSerial[32]; /* the unit a person plugs in while this one is off the bus ... */
    int swapAt;          /* ... at its Nth re-enumeration (1: after the first detach), 0: never */
    int returns;         /* re-enumerations so far */
    gboolean appeared;
    char *record;  /* folder for the downloaded images */
    char *control; /* file whose word "pulled" or "plugged" pulls or plugs the device */
    /* state */
    Instance *current;
    gboolean dfuMode;
    int state, status;
    GByteArray *image;
    int block;
    gboolean busyShown;
    int downloads;
    char controlWord[16];
} Device;

/* One appearance of a device on the bus: its node, its handler, and for each client (a
 * tool that opened the node; several may at once) the URBs it may reap. */
struct Instance {
    Device *device; /* NULL once the device has left the bus */
    UMockdevIoctlBase *handler;
    GHashTable *done; /* UMockdevIoctlClient -> GQueue of UMockdevIoctlData */
    char syspath[128];
    char devnode[64];
};

static UMockdevTestbed *testbed;
static GMutex lock;
static GPtrArray *devices;
static int nextDevnum = 2;
static GMainLoop *loop;
static int commandStatus = 1;
static GPid commandPid;

static void appear(Device *d, gboolean dfuMode);
static gboolean openNode(gpointer data);

/* ---- Descriptors ---- */

static void put16(guint8 *p, guint16 v)
{
    p[0] = v & 0xff;
    p[1] = v >> 8;
}

static guint8 dfuAttributes(const Device *d)
{
    /* bitCanDnload, bitCanUpload; bitManifestationTolerant on request */
    return 0x03 | (d->scenario == MANIFEST_TOLERANT ? 0x04 : 0);
}

static int deviceDescriptor(const Device *d, guint8 *p)
{
    const guint8 head[] = {18, 1, 0x00, 0x02, 0, 0, 0, 64};
    memcpy(p, head, sizeof head);
    put16(p + 8, d->vendor);
    put16(p + 10, d->product);
    put16(p + 12, 0x0001);
    p[14] = 1;
    p[15] = 2;
    p[16] = 3;
    p[17] = 1;
    return 18;
}

static int configDescriptor(const Device *d, guint8 *p)
{
    const guint8 config[] = {9, 2, 27, 0, 1, 1, 0, 0x80, 50};
    const guint8 interface[] = {9, 4, 0, 0, 0, 0xfe, 0x01, d->dfuMode ? 2 : 1, 4};
    guint8 functional[] = {9, 0x21, dfuAttributes(d), 0xff, 0, 0, 0x10, 0x10, 0x01};
    memcpy(p, config, 9);
    memcpy(p + 9, interface, 9);
    memcpy(p + 18, functional, 9);
    return 27;
}

static const char *interfaceName(const Device *d)
{
    if (d->foreign)
        return "@Internal Flash  /0x08000000/04*016Kg";
    return d->dfuMode ? "BOOTLOADER" : d->name;
}

static int stringDescriptor(const Device *d, int index, guint8 *p)
{
    const char *text = index == 1 ? "Zelko" : index == 2 ? "Tessel NINE" : index == 3 ? d->serial
                     : index == 4 ? interfaceName(d) : NULL;
    if (index == 0) {
        const guint8 languages[] = {4, 3, 0x09, 0x04};
        memcpy(p, languages, 4);
        return 4;
    }
    if (!text)
        return -1;
    int n = 0;
    for (; text[n] && n < 126; ++n)
        put16(p + 2 + 2 * n, (guint8) text[n]);
    p[0] = (guint8) (2 + 2 * n);
    p[1] = 3;
    return p[0];
}

/* ---- Appearing on the bus and leaving it ---- */

static char *hex(const guint8 *bytes, int length)
{
    GString *s = g_string_new(NULL);
    for (int i = 0; i < length; ++i)
        g_string_append_printf(s, "%02x", bytes[i]);
    return g_string_free(s, FALSE);
}

static gboolean onIoctl(UMockdevIoctlBase *handler, UMockdevIoctlClient *client, Instance *instance);

static void freeQueue(gpointer queue)
{
    g_queue_free_full(queue, (GDestroyNotify) umockdev_ioctl_data_unref);
}

static void onClientVanished(UMockdevIoctlBase *handler, UMockdevIoctlClient *client, Instance *instance)
{
    (void) handler;
    g_mutex_lock(&lock);
    g_hash_table_remove(instance->done, client);
    g_mutex_unlock(&lock);
}

/* A tool that runs as another user (for a closed node, see appear()) must still reach
 * the testbed's sockets. */
static void openSockets(const char *folder)
{
    GDir *dir = g_dir_open(folder, 0, NULL);
    for (const char *name; dir && (name = g_dir_read_name(dir));) {
        char *path = g_build_filename(folder, name, NULL);
        struct stat st;
        if (lstat(path, &st) == 0 && S_ISSOCK(st.st_mode))
            chmod(path, 0777);
        else if (lstat(path, &st) == 0 && S_ISDIR(st.st_mode))
            openSockets(path);
        g_free(path);
    }
    if (dir)
        g_dir_close(dir);
}

/* The testbed sends a uevent to every "event<fd>" socket it lists, and the tools'
 * preload library (uevent-socket-preload.c) renames a freshly bound socket under this
 * lock: sent without it, an event may meet a socket between the listing and the rename
 * ("cannot connect to client's event socket") and never reach the tool. */
static int lockEvents(void)
{
    char *path = g_build_filename(umockdev_testbed_get_root_dir(testbed), ".event-lock", NULL);
    const int fd = open(path, O_RDONLY | O_CREAT | O_CLOEXEC, 0666);
    g_free(path);
    if (fd >= 0)
        flock(fd, LOCK_EX);
    return fd;
}

static void unlockEvents(int fd)
{
    if (fd >= 0)
        close(fd);
}

static void leave(Device *d)
{
    Instance *gone = d->current;
    if (!gone)
        return;
    d->current = NULL;
    gone->device = NULL; /* its clients hear "no device" from now on */
    const int events = lockEvents();
    umockdev_testbed_uevent(testbed, gone->syspath, "remove");
    umockdev_testbed_remove_device(testbed, gone->syspath);
    unlockEvents(events);
}

static void appear(Device *d, gboolean dfuMode)
{
    if (d->current)
        return;
    d->dfuMode = dfuMode || d->foreign;
    d->state = d->dfuMode ? dfuIDLE : appIDLE;
    d->status = statusOK;
    g_byte_array_set_size(d->image, 0);
    d->block = 0;

    /* Another unit in its place: the same port, another serial. */
    if (d->appeared && ++d->returns == d->swapAt)
        g_strlcpy(d->serial, d->swapSerial, sizeof d->serial);

    Instance *instance = g_new0(Instance, 1);
    instance->device = d;
    const int devnum = nextDevnum++;
    g_snprintf(instance->devnode, sizeof instance->devnode, "/dev/bus/usb/001/%03d", devnum);
    g_snprintf(instance->syspath, sizeof instance->syspath, "/sys/devices/pci0000:00/0000:00:14.0/usb1/1-%d",
               d->port);
    instance->handler = umockdev_ioctl_base_new();
    instance->done = g_hash_table_new_full(g_direct_hash, g_direct_equal, NULL, freeQueue);
    g_signal_connect(instance->handler, "handle-ioctl", G_CALLBACK(onIoctl), instance);
    g_signal_connect(instance->handler, "client-vanished", G_CALLBACK(onClientVanished), instance);
    /* The handler first: the "add" uevent may send a client to the node at once. */
    GError *error = NULL;
    if (!umockdev_testbed_attach_ioctl(testbed, instance->devnode, instance->handler, &error))
        g_error("attach_ioctl: %s", error->message);

    guint8 descriptors[64];
    const int length = deviceDescriptor(d, descriptors);
    const int total = length + configDescriptor(d, descriptors + length);
    char *descriptorHex = hex(descriptors, total);
    char *record = g_strdup_printf(
        "P: /devices/pci0000:00/0000:00:14.0/usb1/1-%d\n"
        "N: bus/usb/001/%03d\n"
        "E: SUBSYSTEM=usb\nE: DEVTYPE=usb_device\nE: DRIVER=usb\n"
        "E: DEVNAME=/dev/bus/usb/001/%03d\nE: BUSNUM=001\nE: DEVNUM=%03d\nE: PRODUCT=%x/%x/1\n"
        "A: busnum=1\\n\nA: devnum=%d\\n\nA: speed=480\\n\nA: bConfigurationValue=1\\n\n"
        "A: idVendor=%04x\\n\nA: idProduct=%04x\\n\nA: bcdDevice=0001\\n\nA: serial=%s\\n\n"
        "H: descriptors=%s\n",
        d->port, devnum, devnum, devnum, d->vendor, d->product, devnum, d->vendor, d->product, d->serial,
        descriptorHex);
    const int events = lockEvents(); /* adding sends "add" */
    if (!umockdev_testbed_add_from_string(testbed, record, &error))
        g_error("add_from_string: %s", error->message);
    unlockEvents(events);
    g_free(record);
    g_free(descriptorHex);
    const gboolean lagging = d->lag > 0 && d->appeared;
    d->appeared = TRUE;
    if (d->closed || d->lag > 0) {
        /* Nobody may open it: libusb reads LIBUSB_ERROR_ACCESS. Root may open anything,
         * so for root the tool runs as another user (see tools/dfu-util-umockdev.in). A
         * lagging node opens for everyone once its time is up. */
        char *node = g_build_filename(umockdev_testbed_get_root_dir(testbed), instance->devnode, NULL);
        chmod(node, d->closed || lagging ? (getuid() == 0 ? 0600 : 0) : 0666);
        g_free(node);
        openSockets(umockdev_testbed_get_root_dir(testbed));
        /* where the preload library makes the tool's socket for uevents */
        chmod(umockdev_testbed_get_root_dir(testbed), 01777);
        if (lagging && !d->closed)
            g_timeout_add(d->lag, openNode, d);
    }
    d->current = instance;
}

/* udev has set the node's permissions: the user may open it now. */
static gboolean openNode(gpointer data)
{
    g_mutex_lock(&lock);
    Device *d = data;
    if (d->current) {
        char *node = g_build_filename(umockdev_testbed_get_root_dir(testbed), d->current->devnode, NULL);
        chmod(node, 0666);
        g_free(node);
    }
    g_mutex_unlock(&lock);
    return G_SOURCE_REMOVE;
}

static gboolean returnLate(gpointer data)
{
    g_mutex_lock(&lock);
    appear(data, TRUE);
    g_mutex_unlock(&lock);
    return G_SOURCE_REMOVE;
}

static gboolean returnToRuntime(gpointer data)
{
    g_mutex_lock(&lock);
    Device *d = data;
    leave(d);
    appear(d, FALSE);
    g_mutex_unlock(&lock);
    return G_SOURCE_REMOVE;
}

/* ---- The DFU 1.1 state machine ---- */

static void finishDownload(Device *d)
{
    ++d->downloads;
    if (d->record) {
        g_mkdir_with_parents(d->record, 0755);
        char *file = g_strdup_printf("%s/1-%d-%03d.bin", d->record, d->port, d->downloads);
        g_file_set_contents(file, (const char *) d->image->data, d->image->len, NULL);
        g_free(file);
    }
    /* The new firmware tells its name: "TESSEL_NAME=<name>" up to a line feed. */
    const char *marker = "TESSEL_NAME=";
    const guint8 *found = d->image->len ? memmem(d->image->data, d->image->len, marker, strlen(marker)) : NULL;
    if (found && d->scenario != STAYS_OLD) {
        const guint8 *end = d->image->data + d->image->len;
        char name[64] = {0};
        for (int i = 0; found + strlen(marker) + i < end && i < 63; ++i) {
            const char c = (char) found[strlen(marker) + i];
            if (c < 0x20 || c > 0x7e)
                break;
            name[i] = c;
        }
        if (name[0])
            g_strlcpy(d->name, name, sizeof d->name);
    }
}

/* Answers one control request. Returns the data length of an IN answer (or 0), or
 * -EPIPE for a stall, or -ENODEV when the device left the bus on it. */
static int control(Device *d, const guint8 *setup, guint8 *data)
{
    const guint8 type = setup[0], request = setup[1];
    const int value = setup[2] | setup[3] << 8, length = setup[6] | setup[7] << 8;
    guint8 answer[512];
    int n = -EPIPE;

    if (type == 0x80 && request == 6) { /* GET_DESCRIPTOR */
        const int kind = value >> 8;
        if (kind == 1)
            n = deviceDescriptor(d, answer);
        else if (kind == 2)
            n = configDescriptor(d, answer);
        else if (kind == 3)
            n = stringDescriptor(d, value & 0xff, answer);
        else if (kind == 0x21 && configDescriptor(d, answer) > 0) /* the DFU functional descriptor alone */
            n = 9, memmove(answer, answer + 18, 9);
        if (n < 0)
            return -EPIPE;
        n = MIN(n, length);
        memcpy(data, answer, n);
        return n;
    }
    if ((type & 0x60) == 0) /* SET_CONFIGURATION, SET_INTERFACE and the like */
        return 0;
    if ((type & 0x7f) != 0x21)
        return -EPIPE;

    switch (request) {
    case DETACH:
        if (d->dfuMode)
            return -EPIPE;
        d->state = appDETACH;
        return 0;
    case DNLOAD:
        if (!d->dfuMode || (d->state != dfuIDLE && d->state != dfuDNLOAD_IDLE))
            break;
        if (length == 0) {
            if (d->state != dfuDNLOAD_IDLE)
                break;
            d->state = dfuMANIFEST_SYNC;
            return 0;
        }
        ++d->block;
        if (d->block == d->at && d->scenario == PULLED) {
            leave(d);
            return -ENODEV;
        }
        if (d->block == d->at && d->scenario == STALL) {
            d->state = dfuERROR;
            d->status = errSTALLEDPKT;
            return -EPIPE;
        }
        g_byte_array_append(d->image, data, length);
        d->state = dfuDNLOAD_SYNC;
        d->busyShown = FALSE;
        return 0;
    case GETSTATUS: {
        int poll = 0;
        if (d->state == dfuDNLOAD_SYNC) {
            if (d->block == d->at && d->scenario == ERR_WRITE) {
                d->state = dfuERROR;
                d->status = errWRITE;
            } else if (d->scenario == BUSY && !d->busyShown) {
                d->busyShown = TRUE;
                poll = d->after;
                d->state = dfuDNBUSY;
            } else {
                d->state = dfuDNLOAD_IDLE;
            }
        } else if (d->state == dfuDNBUSY) {
            d->state = dfuDNLOAD_IDLE;
        } else if (d->state == dfuMANIFEST_SYNC) {
            finishDownload(d);
            g_byte_array_set_size(d->image, 0);
            d->block = 0;
            d->state = dfuMANIFEST;
            poll = 10;
        } else if (d->state == dfuMANIFEST) {
            d->state = d->scenario == MANIFEST_TOLERANT ? dfuIDLE : dfuMANIFEST_WAIT_RESET;
        }
        const guint8 status[6] = {d->status, poll & 0xff, (poll >> 8) & 0xff, (poll >> 16) & 0xff, d->state, 0};
        n = MIN(6, length);
        memcpy(data, status, n);
        return n;
    }
    case CLRSTATUS:
        if (d->state == dfuERROR) {
            d->state = dfuIDLE;
            d->status = statusOK;
            g_byte_array_set_size(d->image, 0);
        }
        return 0;
    case GETSTATE:
        if (length < 1)
            break;
        data[0] = (guint8) d->state;
        return 1;
    case ABORT:
        if (d->dfuMode && d->state != dfuERROR) {
            d->state = dfuIDLE;
            g_byte_array_set_size(d->image, 0);
            d->block = 0;
        }
        return 0;
    default:
        break;
    }
    /* A request out of place stalls and leaves the device in dfuERROR. */
    if (d->dfuMode) {
        d->state = dfuERROR;
        d->status = errSTALLEDPKT;
    }
    return -EPIPE;
}

/* USBDEVFS_RESET: after a detach the device comes back in DFU mode, after a download
 * in run-time mode. Returns the errno of the ioctl. */
static int reset(Device *d)
{
    if (!d->dfuMode && d->state == appDETACH) {
        leave(d);
        if (d->scenario == LATE_RETURN || d->offBus)
            g_timeout_add(d->scenario == LATE_RETURN ? d->after : d->offBus, returnLate, d);
        else if (d->scenario != NO_RETURN)
            appear(d, TRUE);
        return ENODEV;
    }
    if (d->dfuMode && d->state == dfuMANIFEST_WAIT_RESET) {
        if (d->scenario == RESET_OK) {
            g_timeout_add(200, returnToRuntime, d);
            return 0;
        }
        leave(d);
        if (d->offBus)
            g_timeout_add(d->offBus, returnToRuntime, d);
        else
            appear(d, FALSE);
        return ENODEV;
    }
    return 0;
}

/* ---- usbdevfs ---- */

static gboolean onIoctl(UMockdevIoctlBase *handler, UMockdevIoctlClient *client, Instance *instance)
{
    (void) handler;
    UMockdevIoctlData *arg = umockdev_ioctl_client_get_arg(client);
    const gulong request = umockdev_ioctl_client_get_request(client);
    long result = 0;
    int error = 0;

    g_mutex_lock(&lock);
    Device *d = instance->device;
    switch (request) {
    case USBDEVFS_GET_CAPABILITIES: {
        UMockdevIoctlData *caps = umockdev_ioctl_data_resolve(arg, 0, sizeof(guint32), NULL);
        *(guint32 *) caps->data = USBDEVFS_CAP_BULK_CONTINUATION | USBDEVFS_CAP_NO_PACKET_SIZE_LIM |
                                  USBDEVFS_CAP_REAP_AFTER_DISCONNECT | USBDEVFS_CAP_ZERO_PACKET;
        umockdev_ioctl_data_unref(caps);
        break;
    }
    case USBDEVFS_CLAIMINTERFACE:
    case USBDEVFS_RELEASEINTERFACE:
    case USBDEVFS_SETINTERFACE:
    case USBDEVFS_SETCONFIGURATION:
    case USBDEVFS_CLEAR_HALT:
    case USBDEVFS_RESETEP:
        error = d ? 0 : ENODEV;
        break;
    case USBDEVFS_RESET:
        error = d ? reset(d) : ENODEV;
        break;
    case USBDEVFS_SUBMITURB: {
        if (!d) {
            error = ENODEV;
            break;
        }
        UMockdevIoctlData *urbData = umockdev_ioctl_data_resolve(arg, 0, sizeof(struct usbdevfs_urb), NULL);
        struct usbdevfs_urb *urb = (struct usbdevfs_urb *) urbData->data;
        UMockdevIoctlData *buffer =
            urb->buffer_length >= 8
                ? umockdev_ioctl_data_resolve(urbData, G_STRUCT_OFFSET(struct usbdevfs_urb, buffer),
                                              (gsize) urb->buffer_length, NULL)
                : NULL;
        if (urb->type != USBDEVFS_URB_TYPE_CONTROL || !buffer) {
            error = EINVAL;
        } else {
            const int n = control(d, buffer->data, buffer->data + 8);
            if (n == -ENODEV) {
                error = ENODEV;
            } else {
                urb->status = n < 0 ? n : 0;
                urb->actual_length = n < 0 ? 0 : n;
                GQueue *queue = g_hash_table_lookup(instance->done, client);
                if (!queue)
                    g_hash_table_insert(instance->done, client, queue = g_queue_new());
                g_queue_push_tail(queue, umockdev_ioctl_data_ref(urbData));
            }
        }
        if (buffer)
            umockdev_ioctl_data_unref(buffer);
        umockdev_ioctl_data_unref(urbData);
        break;
    }
    case USBDEVFS_REAPURB:
    case USBDEVFS_REAPURBNDELAY: {
        GQueue *queue = g_hash_table_lookup(instance->done, client);
        if (!queue || g_queue_is_empty(queue)) {
            error = d ? EAGAIN : ENODEV;
            break;
        }
        UMockdevIoctlData *urbData = g_queue_pop_head(queue);
        UMockdevIoctlData *pointer = umockdev_ioctl_data_resolve(arg, 0, sizeof(gpointer), NULL);
        umockdev_ioctl_data_set_ptr(pointer, 0, urbData);
        umockdev_ioctl_data_unref(pointer);
        umockdev_ioctl_data_unref(urbData);
        break;
    }
    case USBDEVFS_DISCARDURB:
        /* Every URB is answered when it is submitted: none is left to discard. */
        error = EINVAL;
        break;
    default:
        error = ENOTTY;
        break;
    }
    g_mutex_unlock(&lock);
    if (error)
        result = -1;
    umockdev_ioctl_client_complete(client, result, error);
    return TRUE;
}

/* ---- The control file, the command, the options ---- */

static gboolean watchControls(gpointer unused)
{
    (void) unused;
    g_mutex_lock(&lock);
    for (guint i = 0; i < devices->len; ++i) {
        Device *d = devices->pdata[i];
        char *content = NULL;
        if (!d->control || !g_file_get_contents(d->control, &content, NULL, NULL))
            continue;
        char word[16] = {0};
        sscanf(content, "%15s", word);
        g_free(content);
        if (strcmp(word, d->controlWord) == 0)
            continue;
        g_strlcpy(d->controlWord, word, sizeof d->controlWord);
        if (strcmp(word, "pulled") == 0)
            leave(d);
        else if (strcmp(word, "plugged") == 0 || strcmp(word, "plugged-dfu") == 0)
            appear(d, strcmp(word, "plugged-dfu") == 0);
    }
    g_mutex_unlock(&lock);
    return G_SOURCE_CONTINUE;
}

static void commandEnded(GPid pid, gint status, gpointer unused)
{
    (void) unused;
    g_spawn_close_pid(pid);
    commandPid = 0;
    commandStatus = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    g_main_loop_quit(loop);
}

static gboolean forwardSignal(gpointer signal)
{
    if (commandPid)
        kill(commandPid, GPOINTER_TO_INT(signal));
    return G_SOURCE_CONTINUE;
}

static const struct {
    const char *word;
    Scenario scenario;
} scenarios[] = {
    {"reset-reenumerates", RESET_REENUMERATES}, {"reset-ok", RESET_OK}, {"manifestation-tolerant", MANIFEST_TOLERANT},
    {"stall", STALL}, {"errwrite", ERR_WRITE}, {"pulled", PULLED}, {"no-return", NO_RETURN},
    {"late-return", LATE_RETURN}, {"busy", BUSY}, {"stays-old", STAYS_OLD},
};

/* port=N,name=V1_2_3,serial=S,scenario=W,at=N,after=MS,offbus=MS,lag=MS,record=DIR,control=FILE,closed,dfu,
 * swap=SERIAL@N, vendor=HEX,product=HEX (another maker's DFU device) */
static Device *parseDevice(const char *text, int index)
{
    Device *d = g_new0(Device, 1);
    d->port = index + 1;
    d->vendor = 0x2675;
    d->product = 0x0001;
    g_strlcpy(d->name, "V1_2_3", sizeof d->name);
    g_snprintf(d->serial, sizeof d->serial, "%07d", index + 1);
    d->image = g_byte_array_new();
    d->at = 2;
    d->after = 7000;
    char **items = g_strsplit(text, ",", -1);
    for (char **item = items; *item; ++item) {
        char *value = strchr(*item, '=');
        if (value)
            *value++ = '\0';
        const char *key = *item;
        if (!strcmp(key, "port"))
            d->port = atoi(value);
        else if (!strcmp(key, "name"))
            g_strlcpy(d->name, value, sizeof d->name);
        else if (!strcmp(key, "serial"))
            g_strlcpy(d->serial, value, sizeof d->serial);
        else if (!strcmp(key, "at"))
            d->at = atoi(value);
        else if (!strcmp(key, "after"))
            d->after = atoi(value);
        else if (!strcmp(key, "record"))
            d->record = g_strdup(value);
        else if (!strcmp(key, "control"))
            d->control = g_strdup(value);
        else if (!strcmp(key, "closed"))
            d->closed = TRUE;
        else if (!strcmp(key, "dfu"))
            d->startsInDfu = TRUE;
        else if (!strcmp(key, "offbus"))
            d->offBus = atoi(value);
        else if (!strcmp(key, "lag"))
            d->lag = atoi(value);
        else if (!strcmp(key, "swap") && value && strchr(value, '@')) {
            *strchr(value, '@') = '\0';
            g_strlcpy(d->swapSerial, value, sizeof d->swapSerial);
            d->swapAt = atoi(value + strlen(value) + 1);
        }
        else if (!strcmp(key, "vendor") || !strcmp(key, "product")) {
            *(!strcmp(key, "vendor") ? &d->vendor : &d->product) = (guint16) strtoul(value, NULL, 16);
            d->foreign = TRUE;
        } else if (!strcmp(key, "scenario")) {
            gboolean known = FALSE;
            for (size_t i = 0; i < G_N_ELEMENTS(scenarios); ++i) {
                if (value && !strcmp(value, scenarios[i].word)) {
                    d->scenario = scenarios[i].scenario;
                    known = TRUE;
                }
            }
            if (!known)
                g_printerr("tessel-emulator: unknown scenario %s\n", value ? value : "");
            if (!known)
                exit(64);
        } else {
            g_printerr("tessel-emulator: unknown device option %s\n", key);
            exit(64);
        }
    }
    g_strfreev(items);
    return d;
}

int main(int argc, char **argv)
{
    /* Uevents reach the tools only when the emulator itself runs under the preload
     * library. The command gets the environment it was given. */
    if (!getenv("TESSEL_EMULATOR_PRELOADED")) {
        const char *before = getenv("LD_PRELOAD");
        setenv("TESSEL_EMULATOR_LD_PRELOAD", before ? before : "", 1);
        char *preload = g_strdup_printf("libumockdev-preload.so.0%s%s", before ? ":" : "", before ? before : "");
        setenv("LD_PRELOAD", preload, 1);
        setenv("TESSEL_EMULATOR_PRELOADED", "1", 1);
        execv("/proc/self/exe", argv);
        g_printerr("tessel-emulator: cannot run under umockdev's preload library: %s\n", strerror(errno));
        return 69;
    }
    const char *before = getenv("TESSEL_EMULATOR_LD_PRELOAD");
    /* The timer slack passes to the tools: the preload library sleeps a little after every ioctl. */
    prctl(PR_SET_TIMERSLACK, 1);

    devices = g_ptr_array_new();
    const char *announce = NULL;
    int first = 1;
    for (; first < argc && strcmp(argv[first], "--") != 0; ++first) {
        if (!strcmp(argv[first], "--device") && first + 1 < argc)
            g_ptr_array_add(devices, parseDevice(argv[++first], (int) devices->len));
        else if (!strcmp(argv[first], "--announce") && first + 1 < argc)
            announce = argv[++first];
        else {
            g_printerr("usage: tessel-emulator [--device DEVICE]... [--announce FILE] -- COMMAND [ARG]...\n");
            return 64;
        }
    }
    if (first + 1 >= argc) {
        g_printerr("usage: tessel-emulator [--device DEVICE]... [--announce FILE] -- COMMAND [ARG]...\n");
        return 64;
    }
    if (devices->len == 0)
        g_ptr_array_add(devices, parseDevice("", 0));

    gboolean anyClosed = FALSE;
    for (guint i = 0; i < devices->len; ++i)
        anyClosed = anyClosed || ((Device *) devices->pdata[i])->closed || ((Device *) devices->pdata[i])->lag > 0;
    /* A tool that runs as another user must reach the testbed: not in a private TMPDIR. */
    const char *tmpdir = getenv("TMPDIR");
    char *commandTmpdir = tmpdir ? g_strdup(tmpdir) : NULL;
    if (anyClosed && getuid() == 0)
        setenv("TMPDIR", "/tmp", 1);
    testbed = umockdev_testbed_new();
    if (commandTmpdir)
        setenv("TMPDIR", commandTmpdir, 1);
    else
        unsetenv("TMPDIR");
    g_mutex_lock(&lock);
    /* A control file may hold a device back until it is plugged in later. */
    g_mutex_unlock(&lock);
    watchControls(NULL);
    g_mutex_lock(&lock);
    for (guint i = 0; i < devices->len; ++i) {
        Device *d = devices->pdata[i];
        if (strcmp(d->controlWord, "pulled") != 0)
            appear(d, d->startsInDfu);
    }
    g_mutex_unlock(&lock);
    if (announce)
        g_file_set_contents(announce, umockdev_testbed_get_root_dir(testbed), -1, NULL);

    if (before && *before)
        setenv("LD_PRELOAD", before, 1);
    else
        unsetenv("LD_PRELOAD");
    unsetenv("TESSEL_EMULATOR_PRELOADED");
    unsetenv("TESSEL_EMULATOR_LD_PRELOAD");
    if (anyClosed && getuid() == 0)
        setenv("DFU_UTIL_UMOCKDEV_USER", "65534", 1);

    loop = g_main_loop_new(NULL, FALSE);
    GError *error = NULL;
    if (!g_spawn_async(NULL, argv + first + 1, NULL,
                       G_SPAWN_DO_NOT_REAP_CHILD | G_SPAWN_SEARCH_PATH | G_SPAWN_CHILD_INHERITS_STDIN, NULL, NULL,
                       &commandPid, &error)) {
        g_printerr("tessel-emulator: %s\n", error->message);
        return 127;
    }
    g_child_watch_add(commandPid, commandEnded, NULL);
    g_timeout_add(100, watchControls, NULL);
    g_unix_signal_add(SIGTERM, forwardSignal, GINT_TO_POINTER(SIGTERM));
    g_unix_signal_add(SIGINT, forwardSignal, GINT_TO_POINTER(SIGINT));
    g_unix_signal_add(SIGHUP, forwardSignal, GINT_TO_POINTER(SIGHUP));
    g_main_loop_run(loop);
    g_mutex_lock(&lock);
    g_object_unref(testbed); /* takes its folder with it */
    return commandStatus;
}
