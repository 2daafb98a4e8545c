// What is left to do about a guest that was asked to power off and did not.
#pragma once

#include "app/model/TarvCTL.h"

#include <functional>

class WindowController;

// Shows that failure of a stop with the choice to wait, which leaves the guest to itself, or to
// stop by force; all other failures are left to the alert. The question stands on the window, or by
// itself when that has closed.
TarvCTL::FailurePresenter forceStopOffer(WindowController *window, std::function<void()> forceStop);
