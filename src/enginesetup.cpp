// SPDX-License-Identifier: MIT
#include "enginesetup.h"

#include <QByteArray>

namespace Varnel {

const std::vector<EngineVariable>& engineVariables()
{
    static const std::vector<EngineVariable> variables = {
        // The log belongs on standard error, also where Qt was built to prefer a system journal.
        {"QT_FORCE_STDERR_LOGGING", "1"},
        // The page is painted by the CPU: the GL stack would cost a third of the start and half of the
        // memory.
        {"QT_XCB_GL_INTEGRATION", "none"},
        // No media in a controller's pages: without this the engine looks through all media plug-ins at the
        // first page, and again at each start where their registry cannot be kept.
        {"GST_PLUGIN_SYSTEM_PATH_1_0", ""},
        {"GST_REGISTRY_DISABLE", "yes"},
        {"GST_REGISTRY_FORK", "no"},
        // Nobody reads the screen to a user of the panel, and there is no session bus to ask for it.
        {"QT_ACCESSIBILITY", "0"},
        {"NO_AT_BRIDGE", "1"},
        // Qt would look at all network interfaces every 10 s and could take an address that comes or goes for
        // the loss of the network; the panel follows its controller by its own frames. This is the longest
        // pause that a timer takes, 24 days: of -1, which means "never", the timer complains in the log.
        {"QT_BEARER_POLL_TIMEOUT", "2147483647"},
    };
    return variables;
}

void prepareEngine()
{
    for (const EngineVariable& variable : engineVariables()) {
        if (!qEnvironmentVariableIsSet(variable.name)) {
            qputenv(variable.name, QByteArray(variable.value));
        }
    }
}

} // namespace Varnel
