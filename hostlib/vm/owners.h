// Records with one owner.
#pragma once

#include "hostlib/vm/vm.h"
#include "platform/owners.h"

using VmOwner = std::unique_ptr<struct vm, Closer<vm_close>>;
