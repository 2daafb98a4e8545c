// Requests of the application to the launch service.
#pragma once

#include "app/model/TarvCTL.h"

class TarvCLI
{
public:
    // Has the launch service record that the agreement was accepted, once the administrator right
    // was obtained. Blocks on the user and the service: not for the main thread. False with an
    // error.
    static bool acceptEULA(TarvError *error);
    // Has the controller start the launch service where nobody listens; without one, no status of a
    // VM that does not run can be had. Blocks: not for the main thread. Whether one was started.
    static bool ensureLaunchService();
};
