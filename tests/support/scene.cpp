// SPDX-License-Identifier: MIT
#include "scene.h"

#include <QTest>

Scene::Scene()
{
    SettingsFile::remove();
    server.serve("/index.html", "<html><body>controller</body></html>");
}

bool Scene::start(const SettingsFile& settings, const QStringList& arguments)
{
    return settings.write() && scripts.installAll() && panel.startAndBind(arguments);
}

bool Scene::sendFrame(const char* language, quint8 good)
{
    return controller.send(Frame(++sequence).devInfo(language).gpioState(good, 0, 0, 0));
}

bool Scene::connectController(const char* language)
{
    const int before = server.count("/index.html");
    return server.listen() && sendFrame(language) && server.awaitCount("/index.html", before + 1);
}

bool Scene::isAlive()
{
    const auto lampShows = [](const QString& value) {
        return QTest::qWaitFor([&value] { return StandInSys::value(StandInSys::green) == value; }, 20000);
    };
    return sendFrame("en", 0) && lampShows("0"_s) && sendFrame("en", 1) && lampShows("1"_s);
}
