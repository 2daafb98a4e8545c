// Owners of the trees that the policy library hands out.
#pragma once

#include "policy/owners.h"

using KvTree = KvOwner;
using JsonTree = JsonOwner;
