// SPDX-License-Identifier: MIT
#pragma once

#include "program.h"
#include "rawcontroller.h"
#include "recordingscripts.h"
#include "settingsfile.h"
#include "standinsys.h"
#include "webserver.h"

/// The panel and its surroundings, created for one test: stand-in files, recording scripts, a controller at
/// 192.168.7.2 that sends frames by hand, and its web server.
class Scene
{
public:
    /// Removes the settings file; nothing runs yet. The web server serves a short "/index.html".
    Scene()
    {
        SettingsFile::remove();
        server.serve("/index.html", "<html><body>controller</body></html>");
    }

    /// Writes the settings, puts all scripts in place and starts the panel; true once it listens.
    [[nodiscard]] bool start(const SettingsFile& settings = {}, const QStringList& arguments = {})
    {
        return settings.write() && scripts.installAll() && panel.startAndBind(arguments);
    }
    /// Sends a frame with the next sequence number, a DevInfo and a GpioState section.
    [[nodiscard]] bool sendFrame(const char* language = "en", quint8 good = 1)
    {
        return controller.send(Frame(++sequence).devInfo(language).gpioState(good, 0, 0, 0));
    }
    /// Starts the web server if it does not listen yet, sends a first frame, and waits until the page has
    /// been asked for.
    [[nodiscard]] bool connectController(const char* language = "en")
    {
        const int before = server.count("/index.html");
        return server.listen() && sendFrame(language) && server.awaitCount("/index.html", before + 1);
    }
    /// Proves that the panel still serves: sends a frame that switches the green LED off and on again and
    /// waits until it is.
    [[nodiscard]] bool isAlive()
    {
        const auto lampFollows = [this](quint8 state) {
            return sendFrame("en", state) && awaitTrue([state] {
                       return StandInSys::value(StandInSys::green) == QString::number(state);
                   });
        };
        return lampFollows(0) && lampFollows(1);
    }

    StandInSys sys;
    RecordingScripts scripts;
    WebServer server{QHostAddress()};
    RawController controller;
    Panel panel;
    quint32 sequence = 0;
};
