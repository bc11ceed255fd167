// SPDX-License-Identifier: GPL-2.0
/*
 * The Ethernet switch esw0: an interface that drops all packets, and the private request for the
 * link states of its ports.
 */

#include <linux/debugfs.h>
#include <linux/etherdevice.h>
#include <linux/kernel.h>
#include <linux/netdevice.h>
#include <linux/sockios.h>
#include <linux/string.h>
#include <linux/uaccess.h>

#include "phone_sim.h"

#define PORTS 4
#define PORT_1_UP 0x80u

struct eswitch_record {
	char command[32];
	u32 word;
	u8 port;
	u8 gap1[3];
	u8 byte;
	u8 gap2[3];
	u32 status; /* a byte for each port, port 1 the least significant; its top bit is the link
		     */
};
static_assert(sizeof(struct eswitch_record) == 48);

static struct net_device *eswitch;
static u32 status = PORT_1_UP;
static u8 port_answered; /* instead of the one that was asked for; 0 = that one */
static struct failure failure;
static struct trace trace;

static int answer(unsigned int request, struct eswitch_record *record)
{
	const struct eswitch_record received = *record;
	int result = failure_take(&failure);

	if (!result && request != SIOCDEVPRIVATE)
		result = -EOPNOTSUPP;
	if (!result && strncmp(record->command, "eswitch_config", sizeof(record->command)) != 0)
		result = -EINVAL;
	if (!result && (record->port < 1 || record->port > PORTS))
		result = -EINVAL;
	trace_add(&trace, request, result, &received, sizeof(received));
	if (result)
		return result;
	record->status = status;
	if (port_answered)
		record->port = port_answered;
	return 0;
}

static int eswitch_request(struct net_device *device, struct ifreq *ifr, void __user *user,
			   int request)
{
	struct eswitch_record record;
	int result;

	if (copy_from_user(&record, user, sizeof(record)))
		return -EFAULT;
	mutex_lock(&phone_sim_lock);
	result = answer(request, &record);
	mutex_unlock(&phone_sim_lock);
	if (result)
		return result;
	return copy_to_user(user, &record, sizeof(record)) ? -EFAULT : 0;
}

static netdev_tx_t eswitch_send(struct sk_buff *packet, struct net_device *device)
{
	dev_kfree_skb(packet);
	return NETDEV_TX_OK;
}

static const struct net_device_ops eswitch_operations = {
	.ndo_start_xmit = eswitch_send,
	.ndo_siocdevprivate = eswitch_request,
	.ndo_set_mac_address = eth_mac_addr,
	.ndo_validate_addr = eth_validate_addr,
};

static void eswitch_setup(struct net_device *device)
{
	ether_setup(device);
	device->netdev_ops = &eswitch_operations;
	device->flags |= IFF_NOARP;
	device->features |= NETIF_F_NETNS_LOCAL;
	eth_hw_addr_random(device);
}

/* ---- Steering ---- */

static void show_status(struct seq_file *out)
{
	seq_printf(out, "0x%08x\n", status);
}

static int store_status(char *text)
{
	return kstrtou32(strim(text), 0, &status);
}

static void show_port(struct seq_file *out)
{
	seq_printf(out, "%u\n", port_answered);
}

static int store_port(char *text)
{
	return kstrtou8(strim(text), 0, &port_answered);
}

static void show_failure(struct seq_file *out)
{
	failure_show(&failure, out);
}

static int store_failure(char *text)
{
	return failure_store(&failure, text);
}

static void show_trace(struct seq_file *out)
{
	trace_show(&trace, out);
}

static int clear_trace(char *text)
{
	trace.seen = 0;
	return 0;
}

static const struct steering_file steering_files[] = {
	{"status", show_status, store_status},
	{"port", show_port, store_port},
	{"fail", show_failure, store_failure},
	{"trace", show_trace, clear_trace},
};

int eswitch_start(struct dentry *steering)
{
	int error;

	eswitch = alloc_netdev(0, "esw0", NET_NAME_PREDICTABLE, eswitch_setup);
	if (!eswitch)
		return -ENOMEM;
	error = register_netdev(eswitch);
	if (error) {
		free_netdev(eswitch);
		return error;
	}
	steering_add(debugfs_create_dir("eswitch", steering), steering_files,
		     ARRAY_SIZE(steering_files));
	return 0;
}

void eswitch_stop(void)
{
	unregister_netdev(eswitch);
	free_netdev(eswitch);
}
