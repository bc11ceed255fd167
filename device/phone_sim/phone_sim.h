/* SPDX-License-Identifier: GPL-2.0 */
/*
 * The device's own hardware, simulated: what the parts of the module share.
 *
 * Each part is one driver of the device, and some steering files below
 * /sys/kernel/debug/phone_sim. Tests use these to set the driver's answers and to read the
 * requests that it received. One lock protects all parts.
 */
#ifndef PHONE_SIM_H
#define PHONE_SIM_H

#include <linux/mutex.h>
#include <linux/seq_file.h>
#include <linux/types.h>

struct dentry;

extern struct mutex phone_sim_lock;

/*
 * One steering file: show writes its text, store takes what was written to it, NUL-terminated. Both
 * run under the lock; store may change the text that it is given. Returns 0 or a negative errno,
 * which the writer gets.
 */
struct steering_file {
	const char *name;
	void (*show)(struct seq_file *out);
	int (*store)(char *text);
};

void steering_add(struct dentry *folder, const struct steering_file *files, size_t count);

/* The next count requests fail with this errno. */
struct failure {
	int error;
	unsigned int count;
};

/* The negative errno of the next request; 0 when it must not fail. */
int failure_take(struct failure *failure);
void failure_show(const struct failure *failure, struct seq_file *out);
int failure_store(struct failure *failure, char *text);

#define TRACE_LINES 64u
#define TRACE_WIDTH 192u

/* The last requests, one line each, with the bytes of the record as they came from user space. */
struct trace {
	char lines[TRACE_LINES][TRACE_WIDTH];
	unsigned int seen;
};

void trace_add(struct trace *trace, unsigned int request, long result, const void *record,
	       size_t size);
void trace_show(const struct trace *trace, struct seq_file *out);

/* The registers of the line interfaces: each number exists and reads 0 until it is set. */
enum register_bank { DIRECT, INDIRECT };

s32 registers_get(enum register_bank bank, s32 channel, s32 number);
int registers_set(enum register_bank bank, s32 channel, s32 number, s32 value);
void registers_show(struct seq_file *out);
int registers_store(char *text);
void registers_forget(void);

int analog_start(struct dentry *steering);
void analog_stop(void);
int eswitch_start(struct dentry *steering);
void eswitch_stop(void);
int cpmac_link_start(struct dentry *steering);
void cpmac_link_stop(void);

#endif
