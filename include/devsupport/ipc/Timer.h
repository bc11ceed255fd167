// SPDX-License-Identifier: MIT
/* Timers: numbered millisecond timers in arrays, whose callbacks run inside a real-time signal.
 *
 * A process has up to 64 timer arrays. An array has a fixed number of cells; each cell is armed and disarmed by its
 * index. Callbacks run in Timer_OnSignal, inside the signal, in whichever thread the system interrupts. A callback
 *  - may read and write lock-free atomics and volatile sig_atomic_t, and call what the C library names
 *    async-signal-safe (write, sem_post, ...);
 *  - may call Timer_IsActive, and Timer_Del with a valid index (of its own cell, too);
 *  - must call nothing else of this library, and nothing that allocates, locks or prints;
 *  - may meet itself (a repeating cell's next expiry in another thread) and may be interrupted by the callbacks of
 *    arrays with other signals.
 * errno is the same after the signal as before. Waiting system calls of the interrupted thread end with EINTR: the
 * signal is installed without restart.
 *
 * One thread at a time may arm, disarm or destroy within one array; different arrays are independent. All of this
 * may meet the handler at any moment, in the same thread or in another. */
#ifndef DEVSUPPORT_IPC_TIMER_H
#define DEVSUPPORT_IPC_TIMER_H

#include <devsupport/Api.h>
#include <signal.h>
#include <stdint.h>

DEVSUPPORT_BEGIN_API

/// What a cell calls when it expires, inside the signal (see above).
/// nAryIdx    in      index of the cell
typedef void (*TTimerFunc)(uint32_t nAryIdx);

/// Makes a timer array and installs Timer_OnSignal for its signal.
/// nCount     in      cells; stored in 8 bits: 300 makes an array of 44 cells (in a block for 300)
/// bOneShot   in      not 0: a cell expires once per arming; 0: it repeats until it is disarmed
/// pfnDefault in      callback of cells that are armed without one; NULL: they expire silently
/// nSignal    in      signal of the array's timers; below 1: the first real-time signal + 1
/// pwAryNo    out     the array's number, 0 to 63; 0xFFFF on failure
/// Returns    1 made; 0 without a free number or memory, or for a negative count or a signal that cannot be caught.
/// Prints     "sigaction: <error>" on standard error when the handler cannot be installed; otherwise nothing.
/// Threads    safe.
/// Signals    no.
/// Owner      the library; freed by Timer_DestroyAry. The handler stays installed for good, on failure too.
int Timer_CreateAry(int32_t nCount, int bOneShot, TTimerFunc pfnDefault, int nSignal, uint16_t *pwAryNo);

/// Arms a cell, replacing its timer when it is armed already. An expiry of the earlier arming that arrives late
/// disarms the cell again.
/// pwAryNo    in      number of an array that exists (without one: 0, silently)
/// nAryIdx    in      cell
/// dwPeriodMs in      time to the first expiry and between expiries, in ms; 0 arms a timer that never expires
/// pfn        in      callback of this arming; NULL: the array's default
/// Returns    1 armed, 0 on failure.
/// Prints     on failure, on standard error: "Timer_Set: nAryIdx=<n> out range, MaxAryCnt=<n>",
///            "Timer_Set: timer_create() failed! [<error>]" or "Timer_Set: timer_settime() failed! [<error>]".
/// Threads    one per array.
/// Signals    no.
/// Cost       two to three system calls, no allocation of ours.
int Timer_Set(const uint16_t *pwAryNo, uint32_t nAryIdx, uint32_t dwPeriodMs, TTimerFunc pfn);

/// Disarms a cell. With the handler in another thread, a callback that has begun may still be running.
/// pwAryNo    in      number of an array that exists (without one: 0, silently)
/// nAryIdx    in      cell
/// Returns    1 the cell is disarmed, or was; 0 on failure: an armed cell stays armed.
/// Prints     on failure, on standard error: "Timer_Del: nAryIdx=<n> out range, MaxAryCnt=<n>" or
///            "Timer_Del: timer_delete() failed! [<error>]".
/// Threads    one per array.
/// Signals    no; yes in callbacks, with a valid index.
int Timer_Del(const uint16_t *pwAryNo, uint32_t nAryIdx);

/// Returns whether a cell is armed.
/// pwAryNo    in      number of an array that exists (without one: 0)
/// nAryIdx    in      cell
/// Returns    1 armed, 0 not, or index out of range.
/// Prints     nothing.
/// Threads    safe while the array exists.
/// Signals    yes.
int Timer_IsActive(const uint16_t *pwAryNo, uint32_t nAryIdx);

/// Disarms all cells of an array. The array stays.
/// pwAryNo    in      number of an array; without one nothing happens
/// Returns    nothing; failures are ignored.
/// Prints     nothing.
/// Threads    one per array.
/// Signals    no.
void Timer_DelAll(const uint16_t *pwAryNo);

/// Disarms all cells of an array and frees it; its number is free for the next array.
/// pwAryNo    in      number of an array; without one nothing happens. The caller's number is not changed.
/// Returns    nothing.
/// Prints     nothing.
/// Threads    one per array, and only while no other thread can be inside Timer_OnSignal for this array: block the
///            array's signal in the other threads, so that its callbacks run in the thread that destroys it.
/// Signals    no; not in callbacks either.
void Timer_DestroyAry(const uint16_t *pwAryNo);

#ifdef SI_QUEUE /* strict C shows siginfo_t only with a feature macro such as _GNU_SOURCE */
/// The signal handler of all arrays: runs the callback of the cell that the signal's value names. Installed by
/// Timer_CreateAry; a signal queued by hand (sigqueue) is treated like an expiry. A value that names no array or no
/// cell of it is ignored; one of an earlier arming disarms the cell and calls nothing. A signal without a value
/// (kill) counts as value 0.
/// nSignal    in      not used
/// pInfo      in      its si_value holds the cell in bits 0-17, the array in 18-23, the generation in 24-31
/// pContext   in      not used
/// Returns    nothing, errno unchanged.
/// Prints     nothing.
/// Threads    safe.
/// Signals    yes; it is a signal handler.
void Timer_OnSignal(int nSignal, siginfo_t *pInfo, void *pContext);
#endif

DEVSUPPORT_END_API

#endif
