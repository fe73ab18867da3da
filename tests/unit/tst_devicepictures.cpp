// SPDX-License-Identifier: MIT
// The panel's own pictures: every language has both, they fill the screen, and the strip where the panel
// prints device name and release in black is empty and light.
#include <QDir>
#include <QImage>
#include <QtTest>

#include "literals.h"

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
    void pictures()
    {
        const QDir directory(QFINDTESTDATA("../../device/share"));
        for (const char* language : {"default", "en", "fr", "de", "es", "it"}) {
            for (const char* name : {"error", "front"}) {
                const QString file = "%1/%2.png"_s.arg(QLatin1String(language), QLatin1String(name));
                const QImage picture(directory.filePath(file));
                QVERIFY2(picture.size() == QSize(800, 480), qPrintable(file));
                QVERIFY2(stripIsLight(picture), qPrintable(file));
                QVERIFY2(!picture.hasAlphaChannel(), qPrintable(file));
            }
        }
    }
};

QTEST_APPLESS_MAIN(tst_DevicePictures)
#include "tst_devicepictures.moc"
