// SPDX-License-Identifier: MIT
#include "transferscene.h"

#include <algorithm>

TransferScene::TransferScene(VirtualScreen& virtualScreen)
    : screen(virtualScreen)
{
    const QStringList entries = drive.entries();
    for (const QString& entry : entries) {
        QFile::remove(drive.path(entry));
        QDir(drive.path(entry)).removeRecursively();
    }
    drive.plug();
    panel.setDisplay(screen.display());
    screen.move({400, 470});
}

SettingsFile TransferScene::quietSettings()
{
    return SettingsFile().set("Network/UdpTimeout", "3600").set("UI/ScreenSaverInterval", "3600000");
}

bool TransferScene::open(const QByteArray& html, const SettingsFile& settings)
{
    server.serve("/index.html", "<html><body style='margin:0;background:#00c000'>" + html + "</body></html>");
    return files.startAndListen(
               {"--http"_s, "192.168.7.3:80"_s, "--sections"_s, "none"_s, "--login"_s, {}}) &&
           start(settings) && connectController() && awaitPage();
}

void TransferScene::leadTo(const QString& path)
{
    server.answer("/go", "HTTP/1.1 302 Found\r\nContent-Length: 0\r\nConnection: close\r\nLocation: "
                         "http://192.168.7.3" +
                             path.toUtf8() + "\r\n\r\n");
}

QByteArray TransferScene::linkPage()
{
    return "<a href='/go' style='display:block;width:800px;height:480px'></a>";
}

QRect TransferScene::foreground() const
{
    const QImage picture = screen.grab();
    QRect covered;
    for (int y = 0; y < picture.height(); ++y) {
        const auto* const line = reinterpret_cast<const QRgb*>(picture.constScanLine(y));
        const auto isForeign = [](QRgb pixel) { return (pixel | 0xff000000U) != pageColor; };
        const auto* const end = line + picture.width();
        const auto* const first = std::find_if(line, end, isForeign);
        if (first != end) {
            const auto* last = end - 1;
            while (!isForeign(*last)) {
                --last;
            }
            covered |= QRect(QPoint(int(first - line), y), QPoint(int(last - line), y));
        }
    }
    return covered;
}

bool TransferScene::awaitForeground(const QRect& place) const
{
    const bool shown = awaitTrue([&] { return foreground() == place; });
    if (!shown) {
        qWarning() << "Covered:" << foreground() << "instead of" << place;
        VirtualScreen::keep(screen.grab(), "screen"_s);
    }
    return shown;
}

void TransferScene::keepPicture(const QString& name) const
{
    const QString directory = qEnvironmentVariable("VARNEL_TEST_SCREENSHOTS");
    if (!directory.isEmpty() && !screen.grab().save("%1/%2.png"_s.arg(directory, name))) {
        qWarning() << "Cannot keep the picture" << name;
    }
}

QByteArray generatedBody(int size)
{
    QByteArray body(size, '\0');
    for (int i = 0; i < size; ++i) {
        body[i] = static_cast<char>((i ^ (i >> 8) ^ (i >> 16)) & 0xff);
    }
    return body;
}

void TransferTest::initTestCase()
{
    QVERIFY(screen.start());
}

void TransferTest::init()
{
    scene = std::make_unique<TransferScene>(screen);
}

void TransferTest::cleanup()
{
    if (scene->panel.isRunning()) {
        QVERIFY(scene->isAlive());
        QCOMPARE(scene->panel.stop(), 0);
    }
    QCOMPARE(scene->panel.exitStatus(), 0);
    scene.reset();
}
