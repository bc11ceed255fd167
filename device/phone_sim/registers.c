// SPDX-License-Identifier: GPL-2.0
/*
 * The registers of the line interfaces. As steering file, one line for each register that was set:
 *
 *   direct 1 23 0x30
 */

#include <linux/errno.h>
#include <linux/kernel.h>
#include <linux/list.h>
#include <linux/slab.h>
#include <linux/string.h>

#include "phone_sim.h"

/* More than any test sets. The limit protects the kernel's memory from garbage of user space. */
#define MAX_REGISTERS 4096

struct entry {
	struct list_head node;
	enum register_bank bank;
	s32 channel;
	s32 number;
	s32 value;
};

static LIST_HEAD(entries); /* sorted by bank, channel and number */
static unsigned int entry_count;

static const char *const bank_names[] = {[DIRECT] = "direct", [INDIRECT] = "indirect"};

static int compare(const struct entry *entry, enum register_bank bank, s32 channel, s32 number)
{
	if (entry->bank != bank)
		return entry->bank < bank ? -1 : 1;
	if (entry->channel != channel)
		return entry->channel < channel ? -1 : 1;
	if (entry->number != number)
		return entry->number < number ? -1 : 1;
	return 0;
}

/* The register's entry, or the node before which its entry belongs. */
static struct entry *find(enum register_bank bank, s32 channel, s32 number,
			  struct list_head **place)
{
	struct entry *entry;

	list_for_each_entry (entry, &entries, node) {
		int order = compare(entry, bank, channel, number);

		*place = &entry->node;
		if (order == 0)
			return entry;
		if (order > 0)
			return NULL;
	}
	*place = &entries;
	return NULL;
}

s32 registers_get(enum register_bank bank, s32 channel, s32 number)
{
	struct list_head *place;
	const struct entry *entry = find(bank, channel, number, &place);

	return entry ? entry->value : 0;
}

int registers_set(enum register_bank bank, s32 channel, s32 number, s32 value)
{
	struct list_head *place;
	struct entry *entry = find(bank, channel, number, &place);

	if (entry) {
		entry->value = value;
		return 0;
	}
	if (entry_count == MAX_REGISTERS)
		return -ENOSPC;
	entry = kmalloc(sizeof(*entry), GFP_KERNEL);
	if (!entry)
		return -ENOMEM;
	*entry = (struct entry){.bank = bank, .channel = channel, .number = number, .value = value};
	list_add_tail(&entry->node, place);
	entry_count++;
	return 0;
}

void registers_show(struct seq_file *out)
{
	const struct entry *entry;

	list_for_each_entry (entry, &entries, node)
		seq_printf(out, "%s %d %d 0x%x\n", bank_names[entry->bank], entry->channel,
			   entry->number, entry->value);
}

static int store_line(const char *line)
{
	char name[16];
	s32 channel, number, value;
	char rest;
	int bank;

	if (sscanf(line, "%15s %d %d %i %c", name, &channel, &number, &value, &rest) != 4)
		return -EINVAL;
	bank = match_string(bank_names, ARRAY_SIZE(bank_names), name);
	return bank < 0 ? -EINVAL : registers_set(bank, channel, number, value);
}

/* An empty text forgets all registers. */
int registers_store(char *text)
{
	char *line;
	int error = 0;

	text = strim(text);
	if (!*text) {
		registers_forget();
		return 0;
	}
	while (!error && (line = strsep(&text, "\n")) != NULL)
		error = store_line(line);
	return error;
}

void registers_forget(void)
{
	struct entry *entry, *next;

	list_for_each_entry_safe (entry, next, &entries, node)
		kfree(entry);
	INIT_LIST_HEAD(&entries);
	entry_count = 0;
}
