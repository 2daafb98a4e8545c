// The real parts of the application, put together.
#pragma once

#include "app/shell/AppDelegate.h"

AppParts applicationParts();
