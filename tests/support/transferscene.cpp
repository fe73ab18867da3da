// SPDX-License-Identifier: MIT
#include "transferscene.h"

#include <QDir>
#include <QFile>
#include <QTest>

namespace {

const auto markerFile = QStringLiteral("/tmp/usbdrive");
const auto fileServer = QStringLiteral("http://192.168.7.3");

bool writeFile(const QString& path, const QByteArray& octets)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(octets) == octets.size();
}

} // namespace

TransferScene::TransferScene(VirtualScreen& virtualScreen)
    : screen(virtualScreen)
{
    const QStringList entries = driveEntries();
    for (const QString& entry : entries) {
        QFile::remove(drive(entry));
        QDir(drive(entry)).removeRecursively();
    }
    plug();
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
    return files.startAndListen({QStringLiteral("--http"), QStringLiteral("192.168.7.3:80"),
                                 QStringLiteral("--sections"), QStringLiteral("none"),
                                 QStringLiteral("--login"), QString()}) &&
           start(settings) && connectController() && awaitPage();
}

void TransferScene::leadTo(const QString& path)
{
    server.answer("/go", "HTTP/1.1 302 Found\r\nContent-Length: 0\r\nConnection: close\r\nLocation: " +
                             (fileServer + path).toUtf8() + "\r\n\r\n");
}

QByteArray TransferScene::linkPage()
{
    return "<a href='/go' style='display:block;width:800px;height:480px'></a>";
}

void TransferScene::plug()
{
    if (!writeFile(markerFile, {})) {
        qWarning() << "Cannot write" << markerFile;
    }
}

void TransferScene::pull()
{
    QFile::remove(markerFile);
}

QStringList TransferScene::driveEntries()
{
    return QDir(QStringLiteral("/usbmnt"))
        .entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot, QDir::Name);
}

QByteArray TransferScene::readDrive(const QString& name)
{
    QFile file(drive(name));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

bool TransferScene::writeDrive(const QString& name, const QByteArray& octets)
{
    return writeFile(drive(name), octets);
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
    const bool shown = QTest::qWaitFor([&] { return foreground() == place; }, 20000);
    if (!shown) {
        const QString path = QStringLiteral("%1/%2.png")
                                 .arg(qEnvironmentVariable("VARNEL_TEST_PICTURES", QStringLiteral("/tmp")),
                                      QString::fromLatin1(QTest::currentTestFunction()));
        screen.grab().save(path);
        qWarning() << "Covered:" << foreground() << "instead of" << place << "- see" << path;
    }
    return shown;
}

void TransferScene::keepPicture(const QString& name) const
{
    const QString directory = qEnvironmentVariable("VARNEL_TEST_SCREENSHOTS");
    if (!directory.isEmpty() &&
        !screen.grab().save(directory + QLatin1Char('/') + name + QStringLiteral(".png"))) {
        qWarning() << "Cannot keep the picture" << name;
    }
}

QStringList TransferScene::remounts() const
{
    QStringList result;
    const QList<QStringList> runs = scripts.runsOf(QStringLiteral("usbremount.sh"));
    for (const QStringList& run : runs) {
        result += run.join(QLatin1Char(' '));
    }
    return result;
}

QByteArray generatedBody(int size)
{
    QByteArray body(size, '\0');
    for (int i = 0; i < size; ++i) {
        body[i] = static_cast<char>((i ^ (i >> 8) ^ (i >> 16)) & 0xff);
    }
    return body;
}
