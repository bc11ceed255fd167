// SPDX-License-Identifier: GPL-2.0
/* The device's own hardware, simulated: loads and unloads the three drivers. */

#include <linux/debugfs.h>
#include <linux/err.h>
#include <linux/module.h>

#include "phone_sim.h"

DEFINE_MUTEX(phone_sim_lock);

static struct dentry *steering;

static int __init phone_sim_start(void)
{
	int error;

	steering = debugfs_create_dir("phone_sim", NULL);
	if (IS_ERR(steering))
		return PTR_ERR(steering);
	error = analog_start(steering);
	if (error)
		goto no_analog;
	error = eswitch_start(steering);
	if (error)
		goto no_eswitch;
	error = cpmac_link_start(steering);
	if (error)
		goto no_cpmac_link;
	return 0;

no_cpmac_link:
	eswitch_stop();
no_eswitch:
	analog_stop();
no_analog:
	debugfs_remove_recursive(steering);
	return error;
}

/* The steering files are removed first, because they use the drivers. */
static void __exit phone_sim_stop(void)
{
	debugfs_remove_recursive(steering);
	cpmac_link_stop();
	eswitch_stop();
	analog_stop();
}

module_init(phone_sim_start);
module_exit(phone_sim_stop);

MODULE_DESCRIPTION(
	"Analog lines, Ethernet switch and link file of the telephone device, simulated");
MODULE_LICENSE("GPL");
