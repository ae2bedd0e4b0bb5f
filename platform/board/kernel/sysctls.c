/* /proc/sys/kernel/norv_*: what the appliance's kernel knows of the board. All can be set; a write is noted. */
#include <linux/netdevice.h>
#include <linux/rtnetlink.h>
#include <linux/sysctl.h>

#include "norvboard.h"

#define PORTS 32 /* entries of norv_unsupported_sfp_notify */
#define MACS 4

static char hw_version[64] = "NS0400", hw_revision[16] = "r1", serial[32] = "NS04002400001";
static char macs[MACS][16]; /* 12 hexadecimal digits */
static int internal_netif_num = 1, swap_flag, install_flag, vender_format_version = 1;
static int sfp_notify[PORTS];

static int text_handle(struct ctl_table *table, int write, void *buffer, size_t *length, loff_t *at)
{
    int result;

    mutex_lock(&norv_board_lock);
    result = proc_dostring(table, write, buffer, length, at);
    if (result == 0 && write != 0)
        board_note(&norv_board, "%s %s", table->procname, (const char *)table->data);
    mutex_unlock(&norv_board_lock);
    return result;
}

static int number_handle(struct ctl_table *table, int write, void *buffer, size_t *length, loff_t *at)
{
    int result;

    mutex_lock(&norv_board_lock);
    result = proc_dointvec(table, write, buffer, length, at);
    if (result == 0 && write != 0)
        board_note(&norv_board, "%s %d", table->procname, *(const int *)table->data);
    mutex_unlock(&norv_board_lock);
    return result;
}

/* Read as one value per port, by number; written as a value and the port that it is for. */
static int sfp_handle(struct ctl_table *table, int write, void *buffer, size_t *length, loff_t *at)
{
    char text[PORTS * 12 + 1];
    struct ctl_table view = {.procname = table->procname, .data = text, .maxlen = sizeof text, .mode = table->mode};
    int written = 0, result, value, port;

    mutex_lock(&norv_board_lock);
    for (int i = 0; i < PORTS; i++)
        written += scnprintf(text + written, sizeof text - (size_t)written, i == 0 ? "%d" : " %d", sfp_notify[i]);
    result = proc_dostring(&view, write, buffer, length, at);
    if (result == 0 && write != 0) {
        if (sscanf(text, "%d %d", &value, &port) == 2 && port >= 0 && port < PORTS) {
            sfp_notify[port] = value;
            board_note(&norv_board, "%s %d %d", table->procname, value, port);
        } else {
            result = -EINVAL;
        }
    }
    mutex_unlock(&norv_board_lock);
    return result;
}

#define TEXT(name, text)                                                                                               \
    {                                                                                                                  \
        .procname = (name), .data = (text), .maxlen = sizeof(text), .mode = 0644, .proc_handler = text_handle          \
    }
#define NUMBER(name, number)                                                                                           \
    {                                                                                                                  \
        .procname = (name), .data = &(number), .maxlen = sizeof(number), .mode = 0644, .proc_handler = number_handle   \
    }

static struct ctl_table files[] = {
    TEXT("norv_hw_version", hw_version),
    TEXT("norv_hw_revision", hw_revision),
    TEXT("norv_serial", serial),
    TEXT("norv_mac_address1", macs[0]),
    TEXT("norv_mac_address2", macs[1]),
    TEXT("norv_mac_address3", macs[2]),
    TEXT("norv_mac_address4", macs[3]),
    NUMBER("norv_internal_netif_num", internal_netif_num),
    NUMBER("norv_swap_flag", swap_flag),
    NUMBER("norv_install_flag", install_flag),
    NUMBER("norv_vender_format_version", vender_format_version),
    {.procname = "norv_unsupported_sfp_notify", .mode = 0644, .proc_handler = sfp_handle},
    {},
};
static struct ctl_table_header *header;

/* The board was made with the network ports that the machine has. */
static void ports_read(void)
{
    int count = 0;

    for (int i = 0; i < MACS; i++) {
        char name[IFNAMSIZ];
        struct net_device *port;

        snprintf(name, sizeof name, "eth%d", i);
        port = dev_get_by_name(&init_net, name);
        if (port == NULL)
            continue;
        snprintf(macs[count++], sizeof macs[0], "%*phN", ETH_ALEN, port->dev_addr);
        dev_put(port);
    }
    if (count > 0)
        internal_netif_num = count;
}

int norv_sysctls_add(void)
{
    ports_read();
    header = register_sysctl("kernel", files);
    return header != NULL ? 0 : -ENOMEM;
}

void norv_sysctls_remove(void)
{
    unregister_sysctl_table(header);
}
