// The mark of a saved state that a guest has gone on from. The disks have changed since, so that no
// start may read such a state again; and the mark is needed since the state's name can't leave the
// record in the same instant in which the guest begins to run.
//
// It is a small file "state.used" beside the configuration, one line with the state's name, and is
// on the disk before the guest's first instruction.
#pragma once

struct vm;

// Marks a saved state, named as in the configuration. On success the mark outlives a loss of power.
// 0, or -1 with errno set.
int vm_mark_state_used(const struct vm *vm, const char *image);
// 1 when the mark names this state, 0 when there is none or it names another one; -1 with errno set
// when that can't be known: the state must not be read then.
int vm_state_used(const struct vm *vm, const char *image);
// Takes the mark away; also 0 when there is none. -1 with errno set.
int vm_unmark_state(const struct vm *vm);
