// SPDX-License-Identifier: GPL-2.0
/* Requests that must fail: "5 3" makes the next three fail with errno 5. */

#include <linux/err.h>
#include <linux/kernel.h>

#include "phone_sim.h"

int failure_take(struct failure *failure)
{
	if (!failure->count)
		return 0;
	failure->count--;
	return -failure->error;
}

void failure_show(const struct failure *failure, struct seq_file *out)
{
	seq_printf(out, "%d %u\n", failure->count ? failure->error : 0, failure->count);
}

int failure_store(struct failure *failure, char *text)
{
	struct failure given;
	char rest;

	if (sscanf(text, "%d %u %c", &given.error, &given.count, &rest) != 2)
		return -EINVAL;
	/* Beyond MAX_ERRNO the C library would take the result for a success. */
	if (given.error < 1 || given.error > MAX_ERRNO)
		return -EINVAL;
	*failure = given;
	return 0;
}
