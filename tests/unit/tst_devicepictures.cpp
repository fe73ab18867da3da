// SPDX-License-Identifier: MIT
// The panel's own pictures: every language has both, they fill the screen, and the strip where the panel
// prints device name and release in black is empty and light.
#include <QDir>
#include <QImage>
#include <QtTest>

namespace {

constexpr int stripHeight = 60;

/// True when every pixel of the bottom strip is as light as black text on it needs.
bool stripIsLight(const QImage& picture)
{
    for (int y = picture.height() - stripHeight; y < picture.height(); ++y) {
        for (int x = 0; x < picture.width(); ++x) {
            if (qGray(picture.pixel(x, y)) < 220) {
                return false;
            }
        }
    }
    return true;
}

} // namespace

class tst_DevicePictures : public QObject
{
    Q_OBJECT

private slots:
    void pictures_data();
    void pictures();
};

void tst_DevicePictures::pictures_data()
{
    QTest::addColumn<QString>("file");
    for (const char* language : {"default", "en", "fr", "de", "es", "it"}) {
        for (const char* name : {"error", "front"}) {
            const QString file =
                QStringLiteral("%1/%2.png").arg(QLatin1String(language), QLatin1String(name));
            QTest::newRow(qPrintable(file + QStringLiteral(": full screen, light strip"))) << file;
        }
    }
}

void tst_DevicePictures::pictures()
{
    QFETCH(const QString, file);
    const QImage picture(QDir(QFINDTESTDATA("../../device/share")).filePath(file));
    QCOMPARE(picture.size(), QSize(800, 480));
    QVERIFY(stripIsLight(picture));
    QVERIFY(!picture.hasAlphaChannel());
}

QTEST_APPLESS_MAIN(tst_DevicePictures)
#include "tst_devicepictures.moc"
