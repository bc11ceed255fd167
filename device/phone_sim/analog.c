// SPDX-License-Identifier: GPL-2.0
/*
 * The analog driver of /dev/analog/0: reads and writes direct and indirect registers of four
 * channels and switches register debugging. It gives the same answers as the simulated driver of
 * the host.
 */

#include <linux/build_bug.h>
#include <linux/debugfs.h>
#include <linux/fs.h>
#include <linux/kernel.h>
#include <linux/miscdevice.h>
#include <linux/module.h>
#include <linux/string.h>
#include <linux/uaccess.h>

#include "phone_sim.h"

/* Plain small numbers without direction or size bits. */
#define ANALOG_GET_INDIRECT_REG 10018u
#define ANALOG_GET_DIRECT_REG 10019u
#define ANALOG_SET_INDIRECT_REG 10020u
#define ANALOG_SET_DIRECT_REG 10021u
#define ANALOG_SET_REG_DEBUG 10037u

#define CHANNELS 4

/* The switch has the opposite sense of what one would expect. */
#define DEBUG_ON 0
#define DEBUG_OFF 1

struct analog_record {
	u32 request;
	s32 channel;
	s32 number;
	s32 value;
	u32 reserved[2];
};
static_assert(sizeof(struct analog_record) == 24);

/* Wrong values for answers. */
enum distortable { CHANNEL, NUMBER, VALUE, RESULT, DISTORTABLES };

static const char *const distortable_names[] = {
	[CHANNEL] = "channel", [NUMBER] = "register", [VALUE] = "value", [RESULT] = "result"};

struct distortion {
	bool given[DISTORTABLES];
	s32 value[DISTORTABLES];
};

static bool debugging;
static struct failure failure;
static struct distortion distortion;
static struct trace trace;

static int get(enum register_bank bank, struct analog_record *record)
{
	if (record->channel < 0 || record->channel >= CHANNELS)
		return -ENXIO;
	record->value = registers_get(bank, record->channel, record->number);
	return 0;
}

static int set(enum register_bank bank, const struct analog_record *record)
{
	if (record->channel < 0 || record->channel >= CHANNELS)
		return -ENXIO;
	return registers_set(bank, record->channel, record->number, record->value);
}

static int switch_debug(const struct analog_record *record)
{
	if (record->channel != DEBUG_ON && record->channel != DEBUG_OFF)
		return -EINVAL;
	debugging = record->channel == DEBUG_ON;
	return 0;
}

static int serve(unsigned int request, struct analog_record *record)
{
	switch (request) {
	case ANALOG_GET_DIRECT_REG:
		return get(DIRECT, record);
	case ANALOG_SET_DIRECT_REG:
		return set(DIRECT, record);
	case ANALOG_GET_INDIRECT_REG:
		return get(INDIRECT, record);
	case ANALOG_SET_INDIRECT_REG:
		return set(INDIRECT, record);
	case ANALOG_SET_REG_DEBUG:
		return switch_debug(record);
	default:
		return -ENOTTY;
	}
}

static void distort(s32 *truth, enum distortable what)
{
	if (distortion.given[what])
		*truth = distortion.value[what];
}

/* Answers one request in the record that it came with. */
static int answer(unsigned int request, struct analog_record *record)
{
	const struct analog_record received = *record;
	int result = failure_take(&failure);

	if (!result)
		result = serve(request, record);
	trace_add(&trace, request, result, &received, sizeof(received));
	distort(&record->channel, CHANNEL);
	distort(&record->number, NUMBER);
	distort(&record->value, VALUE);
	if (result >= 0)
		distort(&result, RESULT);
	return result;
}

static long analog_ioctl(struct file *file, unsigned int request, unsigned long argument)
{
	struct analog_record __user *user = (struct analog_record __user *)argument;
	struct analog_record record;
	int result;

	if (copy_from_user(&record, user, sizeof(record)))
		return -EFAULT;
	mutex_lock(&phone_sim_lock);
	result = answer(request, &record);
	mutex_unlock(&phone_sim_lock);
	if (copy_to_user(user, &record, sizeof(record)))
		return -EFAULT;
	return result;
}

static const struct file_operations analog_operations = {
	.owner = THIS_MODULE,
	.unlocked_ioctl = analog_ioctl,
};

static struct miscdevice analog_device = {
	.minor = MISC_DYNAMIC_MINOR,
	.name = "analog!0",
	.nodename = "analog/0",
	.fops = &analog_operations,
};

/* ---- Steering files ---- */

static void show_debug(struct seq_file *out)
{
	seq_puts(out, debugging ? "on\n" : "off\n");
}

static int store_debug(char *text)
{
	return kstrtobool(text, &debugging);
}

static void show_failure(struct seq_file *out)
{
	failure_show(&failure, out);
}

static int store_failure(char *text)
{
	return failure_store(&failure, text);
}

static void show_answer(struct seq_file *out)
{
	const char *separator = "";
	int i;

	for (i = 0; i < DISTORTABLES; i++) {
		if (!distortion.given[i])
			continue;
		seq_printf(out, "%s%s=%d", separator, distortable_names[i], distortion.value[i]);
		separator = ",";
	}
	seq_putc(out, '\n');
}

/* "channel=7,register=9,value=0x1234,result=5", or some of them; an empty text
 * removes them. */
static int store_answer(char *text)
{
	struct distortion given = {};
	const char *name;
	char *field;
	int what;

	text = strim(text);
	while (text && *text) {
		field = strsep(&text, ",");
		name = strsep(&field, "=");
		what = match_string(distortable_names, DISTORTABLES, name);

		if (what < 0 || !field || kstrtoint(field, 0, &given.value[what]))
			return -EINVAL;
		given.given[what] = true;
	}
	/* A failure is set by its errno in another steering file. */
	if (given.value[RESULT] < 0)
		return -EINVAL;
	distortion = given;
	return 0;
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
	{"registers", registers_show, registers_store},
	{"debug", show_debug, store_debug},
	{"fail", show_failure, store_failure},
	{"answer", show_answer, store_answer},
	{"trace", show_trace, clear_trace},
};

int analog_start(struct dentry *steering)
{
	steering_add(debugfs_create_dir("analog", steering), steering_files,
		     ARRAY_SIZE(steering_files));
	return misc_register(&analog_device);
}

void analog_stop(void)
{
	misc_deregister(&analog_device);
	registers_forget();
}
