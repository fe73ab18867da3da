// SPDX-License-Identifier: MIT
#include <memory>

#include <QBuffer>
#include <QDialog>
#include <QImage>
#include <QPixmapCache>
#include <QRandomGenerator>
#include <QTest>
#include <QWebSettings>

#include "dialogdriver.h"
#include "enginecaches.h"
#include "panelview.h"
#include "webserver.h"

using namespace Varnel;

namespace {

/// A picture that cannot be packed: 300 KiB, packed and unpacked.
WebServer::Answer keepablePicture()
{
    QImage picture(277, 277, QImage::Format_RGB32);
    QRandomGenerator generator(1);
    for (int y = 0; y < picture.height(); ++y) {
        for (int x = 0; x < picture.width(); ++x) {
            picture.setPixel(x, y, generator.generate());
        }
    }
    WebServer::Answer answer;
    answer.headers = "Content-Type: image/png\r\nCache-Control: max-age=3600\r\n";
    QBuffer buffer(&answer.body);
    buffer.open(QIODevice::WriteOnly);
    picture.save(&buffer, "PNG");
    return answer;
}

} // namespace

/// The engine's cache of earlier pages, tested by its repeated requests.
class tst_EngineCaches : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        QWebSettings::clearMemoryCaches();
        server = std::make_unique<WebServer>();
        server->serve("/page", "<html><body><img src='/picture.png'></body></html>");
        // Each of its addresses has a picture of its own.
        server->serve("/other", "<script>document.write('<img src=\"/noise.png' + location.search + '\">');"
                                "for (var i = 0, a; i < 300000; ++i) { a = [i, {b: i}]; }</script>");
        server->serve("/picture.png", keepablePicture());
        server->serve("/noise.png", keepablePicture());
    }

    void pictureIsKeptUntilManyPushItOut()
    {
        const PanelView panel;
        QCOMPARE(QWebSettings::maximumPagesInCache(), 0);
        panel.load(server->url("/page"));
        panel.load(server->url("/other"));
        panel.load(server->url("/page"));
        QCOMPARE(server->count("/page"), 2);
        QCOMPARE(server->count("/picture.png"), 1);

        constexpr int pages = 20; // four and a half megabytes; the old ones go with the script's garbage
        for (int i = 0; i < pages; ++i) {
            const QByteArray query = '?' + QByteArray::number(i);
            panel.load(server->url("/other" + query));
            QCOMPARE(server->count("/noise.png" + query), 1);
        }
        panel.load(server->url("/page"));
        QCOMPARE(server->count("/picture.png"), 2);
    }

    void lostControllersPicturesAreForgotten()
    {
        PanelView panel;
        panel.load(server->url("/page"));
        panel.window.displayError("en"_s);
        panel.waitForQuiet();
        QVERIFY(panel.showsErrorPage());
        panel.load(server->url("/page"));
        QCOMPARE(server->count("/picture.png"), 2); // the next controller's may have the same name
    }

    void oldIconsAreForgotten()
    {
        PanelView panel;
        QPixmap icon(64, 64); // 16 KiB
        icon.fill(Qt::red);
        const auto kept = [](int number) { return QPixmapCache::find(QString::number(number), nullptr); };
        for (int i = 0; i < 100; ++i) {
            QVERIFY(QPixmapCache::insert(QString::number(i), icon));
        }
        QVERIFY(kept(99));
        QVERIFY(!kept(0)); // more than the limit has come since
        panel.window.displayError("en"_s);
        QVERIFY(!kept(99));
    }

    void scriptThatWaitsForItsUserGoesOn()
    {
        server->serve("/page", "<script>function sum(n) { var s = 0;"
                               "for (var i = 0; i <= n; ++i) { s += i; if (i == 5000) { alert(i); } }"
                               "return s; } sum(4000); document.title = sum(10000);</script>");
        const PanelView panel;
        DialogDriver user;
        user.onWaiting(QString(), [](QDialog* dialog) {
            clearEngineCaches(); // this also drops compiled code, and some of it is running
            dialog->accept();
        });
        panel.load(server->url("/page"));
        QCOMPARE(user.seen().size(), 1);
        QCOMPARE(panel.frame()->title(), "50005000"_s);
    }

private:
    std::unique_ptr<WebServer> server;
};

QTEST_MAIN(tst_EngineCaches)
#include "tst_enginecaches.moc"
