// SPDX-License-Identifier: GPL-2.0
/* The Ethernet port's link file, /proc/avalanche/cpmac_link. Its text is the one that was
 * written to the steering file. */

#include <linux/kernel.h>
#include <linux/mm.h>
#include <linux/proc_fs.h>
#include <linux/string.h>

#include "phone_sim.h"

#define FOLDER "avalanche"

static char text[PAGE_SIZE + 1] = "ports = 1\neth0: link: UP\n";

static void show_text(struct seq_file *out)
{
	seq_puts(out, text);
}

static int store_text(char *given)
{
	strscpy(text, given, sizeof(text));
	return 0;
}

static const struct steering_file steering_files[] = {{"cpmac_link", show_text, store_text}};

static int show(struct seq_file *out, void *unused)
{
	mutex_lock(&phone_sim_lock);
	show_text(out);
	mutex_unlock(&phone_sim_lock);
	return 0;
}

int cpmac_link_start(struct dentry *steering)
{
	struct proc_dir_entry *folder = proc_mkdir(FOLDER, NULL);

	if (!folder)
		return -ENOMEM;
	if (!proc_create_single("cpmac_link", 0444, folder, show)) {
		proc_remove(folder);
		return -ENOMEM;
	}
	steering_add(steering, steering_files, ARRAY_SIZE(steering_files));
	return 0;
}

void cpmac_link_stop(void)
{
	remove_proc_subtree(FOLDER, NULL);
}
