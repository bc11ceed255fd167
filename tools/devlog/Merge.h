// SPDX-License-Identifier: MIT
// The messages of both rings in one order.
#pragma once

#include <cstddef>
#include <span>

#include "tools/devlog/Message.h"

namespace devlog {

/// Gives each message of one ring a day, because records have only a time of day. Assumes that the newest one is less
/// than a day old, and that less than 22 hours pass between two records.
/// messages  in,out  in the ring's order; sets `when`, in ms since today's midnight, negative before it
/// now       in      the time of day
void Place(std::span<Message> messages, DayTime now);

/// Puts the messages of both rings in the order of `when`. Each ring keeps its own order, even when the clock was
/// set; at equal times the log ring comes first.
/// order     out     room for all
/// Returns   how many there are.
std::size_t Merge(std::span<const Message> log, std::span<const Message> event, std::span<const Message *> order);

}  // namespace devlog
