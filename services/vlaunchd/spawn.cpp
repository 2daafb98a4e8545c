#include "services/vlaunchd/spawn.h"

#include <fcntl.h>

int HeldProcess::prepare(const JobRequest &request, int output)
{
    const UniqueFd root(open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!root)
        return -1;
    ChildLaunch launch{.program = request.program, .arguments = {request.program}};
    launch.environment.emplace();
    launch.arguments.insert(launch.arguments.end(), request.arguments.begin(),
                            request.arguments.end());
    for (const auto &[name, value] : request.environment)
        launch.environment->emplace_back(name).append("=").append(value);
    launch.directory = root.get();
    launch.out = launch.err = output;
    launch.new_session = true;
    launch.held = true;
    return m_child.start(launch);
}

int HeldProcess::release()
{
    if (m_child.go() != 0)
        return -1;
    m_child.release();
    return 0;
}
