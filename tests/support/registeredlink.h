// SPDX-License-Identifier: MIT
#pragma once

#include "frame.h"
#include "panellink.h"

/// A link whose controller is registered, by a frame without configuration.
class RegisteredLink : public PanelLink
{
public:
    explicit RegisteredLink(const ScriptDirectory& scripts)
    {
        receiveSections({gpioSection(1, 1, 1, 0)});
        scripts.clear();
        clear();
    }
};
