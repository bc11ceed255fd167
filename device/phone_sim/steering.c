// SPDX-License-Identifier: GPL-2.0
/* Steering files: short texts that user space reads and writes. */

#include <linux/debugfs.h>
#include <linux/fs.h>
#include <linux/mm.h>
#include <linux/slab.h>
#include <linux/string.h>

#include "phone_sim.h"

static int steering_show(struct seq_file *out, void *unused)
{
	const struct steering_file *steered = out->private;

	mutex_lock(&phone_sim_lock);
	steered->show(out);
	mutex_unlock(&phone_sim_lock);
	return 0;
}

static int steering_open(struct inode *inode, struct file *file)
{
	return single_open(file, steering_show, inode->i_private);
}

/* Each write is one command, at any position in the file. */
static ssize_t steering_write(struct file *file, const char __user *from, size_t count,
			      loff_t *position)
{
	const struct steering_file *steered = file_inode(file)->i_private;
	char *text;
	int error;

	if (count > PAGE_SIZE)
		return -EFBIG;
	text = memdup_user_nul(from, count);
	if (IS_ERR(text))
		return PTR_ERR(text);
	mutex_lock(&phone_sim_lock);
	error = steered->store(text);
	mutex_unlock(&phone_sim_lock);
	kfree(text);
	return error ? error : count;
}

static const struct file_operations steering_operations = {
	.owner = THIS_MODULE,
	.open = steering_open,
	.read = seq_read,
	.write = steering_write,
	.llseek = seq_lseek,
	.release = single_release,
};

void steering_add(struct dentry *folder, const struct steering_file *files, size_t count)
{
	size_t i;

	for (i = 0; i < count; i++)
		debugfs_create_file(files[i].name, 0644, folder, (void *)&files[i],
				    &steering_operations);
}
