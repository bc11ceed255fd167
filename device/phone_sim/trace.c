// SPDX-License-Identifier: GPL-2.0
/*
 * The last requests of a driver, one line each:
 *
 *   request 10021 result 0 bytes 25270000 01000000 17000000 30000000 00000000 00000000
 */

#include <linux/kernel.h>
#include <linux/minmax.h>

#include "phone_sim.h"

#define BYTES_PER_GROUP 4

void trace_add(struct trace *trace, unsigned int request, long result, const void *record,
	       size_t size)
{
	char *line = trace->lines[trace->seen++ % TRACE_LINES];
	size_t length =
		scnprintf(line, TRACE_WIDTH, "request %u result %ld bytes", request, result);
	size_t offset;

	for (offset = 0; offset < size; offset += BYTES_PER_GROUP)
		length += scnprintf(line + length, TRACE_WIDTH - length, " %*phN",
				    (int)min_t(size_t, BYTES_PER_GROUP, size - offset),
				    record + offset);
}

void trace_show(const struct trace *trace, struct seq_file *out)
{
	unsigned int kept = min(trace->seen, TRACE_LINES);
	unsigned int i;

	for (i = trace->seen - kept; i != trace->seen; i++)
		seq_printf(out, "%s\n", trace->lines[i % TRACE_LINES]);
}
