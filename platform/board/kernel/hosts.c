/*
 * Two attributes of each SCSI host, which stands for one disk port:
 *   norv_port_thaw       1; 0 when the port does not come out of its frozen state
 *   norv_diskname_trans  name of the last disk on the port and a newline; nothing when there was none
 * Both can be written, the name exactly as it is to be read. A disk that is bound to its driver takes the name over.
 */
#include <linux/device.h>
#include <linux/kernfs.h>
#include <linux/notifier.h>
#include <scsi/scsi_device.h>
#include <scsi/scsi_host.h>

#include "norvboard.h"

#define HOSTS 64

/* By host number, under the board's lock. */
static struct {
    bool frozen;
    char disk[32];
} hosts[HOSTS];

static ssize_t norv_port_thaw_show(struct device *device, struct device_attribute *attribute, char *page)
{
    return sysfs_emit(page, "%d\n", !READ_ONCE(hosts[class_to_shost(device)->host_no].frozen));
}

static ssize_t norv_port_thaw_store(struct device *device, struct device_attribute *attribute, const char *page,
                                    size_t count)
{
    bool thaw;

    if (kstrtobool(page, &thaw) != 0)
        return -EINVAL;
    WRITE_ONCE(hosts[class_to_shost(device)->host_no].frozen, !thaw);
    return (ssize_t)count;
}
static DEVICE_ATTR_RW(norv_port_thaw);

static ssize_t norv_diskname_trans_show(struct device *device, struct device_attribute *attribute, char *page)
{
    ssize_t length;

    mutex_lock(&norv_board_lock);
    length = sysfs_emit(page, "%s", hosts[class_to_shost(device)->host_no].disk);
    mutex_unlock(&norv_board_lock);
    return length;
}

static ssize_t norv_diskname_trans_store(struct device *device, struct device_attribute *attribute, const char *page,
                                         size_t count)
{
    char *disk = hosts[class_to_shost(device)->host_no].disk;

    if (count >= sizeof hosts[0].disk)
        return -EINVAL;
    mutex_lock(&norv_board_lock);
    strscpy(disk, page, sizeof hosts[0].disk);
    mutex_unlock(&norv_board_lock);
    return (ssize_t)count;
}
static DEVICE_ATTR_RW(norv_diskname_trans);

static const struct device_attribute *const attributes[] = {&dev_attr_norv_port_thaw, &dev_attr_norv_diskname_trans};

static bool host_has(struct Scsi_Host *host, const struct device_attribute *attribute)
{
    struct kernfs_node *node = kernfs_find_and_get(host->shost_dev.kobj.sd, attribute->attr.name);

    if (node != NULL)
        kernfs_put(node);
    return node != NULL;
}

static int host_add(struct Scsi_Host *host)
{
    int result = 0;

    if (host->host_no >= HOSTS)
        return 0;
    for (size_t i = 0; i < ARRAY_SIZE(attributes) && result == 0; i++)
        if (!host_has(host, attributes[i]))
            result = device_create_file(&host->shost_dev, attributes[i]);
    return result;
}

static int disk_is(struct device *device, void *unused)
{
    return device->class != NULL && strcmp(device->class->name, "block") == 0;
}

static void disk_name_keep(struct scsi_device *device)
{
    struct device *disk = device_find_child(&device->sdev_gendev, NULL, disk_is);
    const unsigned int number = device->host->host_no;

    if (disk == NULL)
        return;
    if (number < HOSTS) {
        mutex_lock(&norv_board_lock);
        snprintf(hosts[number].disk, sizeof hosts[number].disk, "%s\n", dev_name(disk));
        mutex_unlock(&norv_board_lock);
    }
    put_device(disk);
}

/* A host that came later gets its attributes with its first disk. */
static int bus_changed(struct notifier_block *block, unsigned long action, void *data)
{
    struct device *device = data;

    if (action == BUS_NOTIFY_BOUND_DRIVER && scsi_is_sdev_device(device)) {
        (void)host_add(to_scsi_device(device)->host);
        disk_name_keep(to_scsi_device(device));
    }
    return NOTIFY_OK;
}

static struct notifier_block bus_notifier = {.notifier_call = bus_changed};
static struct bus_type *bus; /* of SCSI, known by its hosts alone */

int norv_hosts_add(void)
{
    int result = 0;

    for (unsigned int number = 0; number < HOSTS && result == 0; number++) {
        struct Scsi_Host *host = scsi_host_lookup(number);
        struct scsi_device *device;

        if (host == NULL)
            continue;
        bus = host->shost_gendev.bus;
        result = host_add(host);
        for (device = __scsi_iterate_devices(host, NULL); device != NULL; device = __scsi_iterate_devices(host, device))
            disk_name_keep(device);
        scsi_host_put(host);
    }
    if (result == 0 && bus != NULL)
        result = bus_register_notifier(bus, &bus_notifier);
    if (result != 0) {
        bus = NULL;
        norv_hosts_remove();
    }
    return result;
}

void norv_hosts_remove(void)
{
    if (bus != NULL)
        bus_unregister_notifier(bus, &bus_notifier);
    for (unsigned int number = 0; number < HOSTS; number++) {
        struct Scsi_Host *host = scsi_host_lookup(number);

        if (host == NULL)
            continue;
        for (size_t i = 0; i < ARRAY_SIZE(attributes); i++)
            device_remove_file(&host->shost_dev, attributes[i]);
        scsi_host_put(host);
    }
}
