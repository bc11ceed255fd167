// SPDX-License-Identifier: MIT
// A plugin of the user emulator, which has no ptrace: it stops a process after so many instructions, or after so
// many entries to or returns from a system call. StepRecord.h describes how it is told.
//
// The process stops by SIGSTOP, which the emulator sends to itself in the callback before the next instruction. A
// signal that comes then is handled at the end of the block of instructions that the emulator translated together, so
// tests that send one use -singlestep, which makes each instruction a block.

#include <signal.h>
#include <stddef.h>
#include <stdint.h>
#include <sys/mman.h>

#include "StepRecord.h"

// The part of the emulator's plugin interface, version 1, that is used here; Debian has no header of it.
#define PLUGIN_FUNCTION __attribute__((visibility("default")))
PLUGIN_FUNCTION extern int qemu_plugin_version;
PLUGIN_FUNCTION int qemu_plugin_install(uint64_t id, const void *info, int argc, char **argv);
void qemu_plugin_register_vcpu_tb_trans_cb(uint64_t id, void (*callback)(uint64_t id, void *block));
size_t qemu_plugin_tb_n_insns(const void *block);
void *qemu_plugin_tb_get_insn(const void *block, size_t index);
void qemu_plugin_register_vcpu_insn_exec_cb(void *instruction, void (*callback)(unsigned cpu, void *data), int flags,
                                            void *data);
void qemu_plugin_register_vcpu_syscall_cb(uint64_t id,
                                          void (*callback)(uint64_t id, unsigned cpu, int64_t number, uint64_t a1,
                                                           uint64_t a2, uint64_t a3, uint64_t a4, uint64_t a5,
                                                           uint64_t a6, uint64_t a7, uint64_t a8));
void qemu_plugin_register_vcpu_syscall_ret_cb(uint64_t id, void (*callback)(uint64_t id, unsigned cpu, int64_t number,
                                                                            int64_t result));

int qemu_plugin_version = 1;

static struct StepRecord *g_record;

static void OnInstruction(unsigned cpu, void *data) {
  (void)cpu, (void)data;
  if (g_record == NULL || g_record->nKind != kStepInstructions) return;
  // Continues when a number of steps has been set.
  while (g_record->nKind == kStepInstructions && g_record->nLeft == 0) raise(SIGSTOP);
  if (g_record->nKind != kStepInstructions) return;
  --g_record->nLeft;
  ++g_record->nTaken;
}

static void CountCall(void) {
  if (g_record == NULL || g_record->nKind != kStepCalls) return;
  if (g_record->nLeft > 1) {
    --g_record->nLeft;
    return;
  }
  g_record->nLeft = 0;
  while (g_record->nKind == kStepCalls && g_record->nLeft == 0) raise(SIGSTOP);
}

static void OnCall(uint64_t id, unsigned cpu, int64_t number, uint64_t a1, uint64_t a2, uint64_t a3, uint64_t a4,
                   uint64_t a5, uint64_t a6, uint64_t a7, uint64_t a8) {
  (void)id, (void)cpu, (void)number, (void)a3, (void)a4, (void)a5, (void)a6, (void)a7, (void)a8;
  CountCall();
  if ((int32_t)a1 != kStepCall) return;
  void *record = mmap(NULL, sizeof *g_record, PROT_READ | PROT_WRITE, MAP_SHARED, (int)a2, 0);
  if (record == MAP_FAILED) return;
  if (g_record != NULL) munmap(g_record, sizeof *g_record);
  g_record = record;
  g_record->bAttached = 1;
}

static void OnReturn(uint64_t id, unsigned cpu, int64_t number, int64_t result) {
  (void)id, (void)cpu, (void)number, (void)result;
  CountCall();
}

static void OnTranslation(uint64_t id, void *block) {
  (void)id;
  for (size_t i = 0; i < qemu_plugin_tb_n_insns(block); ++i)
    qemu_plugin_register_vcpu_insn_exec_cb(qemu_plugin_tb_get_insn(block, i), OnInstruction, 0, NULL);
}

int qemu_plugin_install(uint64_t id, const void *info, int argc, char **argv) {
  (void)info, (void)argc, (void)argv;
  qemu_plugin_register_vcpu_tb_trans_cb(id, OnTranslation);
  qemu_plugin_register_vcpu_syscall_cb(id, OnCall);
  qemu_plugin_register_vcpu_syscall_ret_cb(id, OnReturn);
  return 0;
}
