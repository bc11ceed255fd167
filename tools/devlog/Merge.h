// SPDX-License-Identifier: MIT
// The messages of both rings in one order.
#pragma once

#include <cstddef>
#include <span>

#include "tools/devlog/Message.h"

namespace devlog {

/// Gives each message of one ring a place in time, though its records have a time of day only: the newest one is
/// younger than a day, and between two neighbours lie less than 22 hours.
/// messages  in,out  in the ring's order; sets `when`, in ms since today's midnight, negative before it
/// now       in      the time of day
void Place(std::span<Message> messages, DayTime now);

/// Puts the messages of both rings in the order of their places. Each ring keeps its own order, whatever the clock
/// did meanwhile; the log ring comes first where both are equal.
/// order     out     room for all
/// Returns   how many there are.
std::size_t Merge(std::span<const Message> log, std::span<const Message> event, std::span<const Message *> order);

}  // namespace devlog
