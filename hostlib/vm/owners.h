// Libraries and records with one owner.
#pragma once

#include "hostlib/vm/vm.h"
#include "hostlib/vm/vmlib.h"
#include "platform/owners.h"

using VmOwner = std::unique_ptr<struct vm, Closer<vm_close>>;
using VmlibOwner = std::unique_ptr<struct vmlib, Closer<vmlib_close>>;
