// SPDX-License-Identifier: MIT
#include "enginesetup.h"

#include <QByteArray>

namespace Varnel {

const std::vector<EngineVariable>& engineVariables()
{
    static const std::vector<EngineVariable> variables = {
        // The log goes to standard error, even if Qt was built to prefer the system journal.
        {"QT_FORCE_STDERR_LOGGING", "1"},
        // The CPU paints the page. Loading GL takes a third of the start-up time and half of the memory.
        {"QT_XCB_GL_INTEGRATION", "none"},
        // A controller's pages have no media. The engine would examine all media plug-ins at the first page,
        // and at each start if their registry cannot be stored.
        {"GST_PLUGIN_SYSTEM_PATH_1_0", ""},
        {"GST_REGISTRY_DISABLE", "yes"},
        {"GST_REGISTRY_FORK", "no"},
        // The panel has no screen reader and no session bus.
        {"QT_ACCESSIBILITY", "0"},
        {"NO_AT_BRIDGE", "1"},
        // Qt would check all network interfaces every 10 s and could mistake a change of address for the loss
        // of the network. This is the longest interval of a timer, 24 days; -1, "never", logs a warning.
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
