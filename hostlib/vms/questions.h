// The questions of vms.h without waiting: an exchange for whoever drives it, and what its end says.
// The calls of vms.h are these, waited for.
#pragma once

#include "tarvhv/cli2/exchange.h"

struct kv;

// What vms_status asks, and its result once the exchange has ended.
Exchange vms_status_question(const char *id);
struct kv *vms_status_of(const char *id, Exchange &ended);
// The same of vms_exit_status.
Exchange vms_exit_status_question(const char *id);
int vms_exit_status_of(const char *id, Exchange &ended);
