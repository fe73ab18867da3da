// SPDX-License-Identifier: MIT
#include "files.h"
#include "rows.h"
#include "simulatorprocess.h"

#include <QAuthenticator>
#include <QWebElement>
#include <QWebFrame>
#include <QWebPage>
#include <QWebView>
#include <QtTest>

namespace {

/// A page that collects the errors of its scripts and picks a file on request.
class WatchedPage : public QWebPage
{
    Q_OBJECT

public:
    QStringList complaints;
    QString fileToChoose;

protected:
    void javaScriptConsoleMessage(const QString& message, int line, const QString& source) override
    {
        complaints.append("%1:%2: %3"_s.arg(source).arg(line).arg(message));
    }

    QString chooseFile(QWebFrame*, const QString&) override { return fileToChoose; }
};

} // namespace

/// The control board in the engine that shows it on the panel, with real presses.
class tst_SimulatorBoard : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        uploads = std::make_unique<QTemporaryDir>();
        simulator = std::make_unique<SimulatorProcess>();
        QVERIFY(simulator->start("--sections none --map " VARNEL_SOURCE_DIR
                                 "/device/modbus.map --upload-dir "_s +
                                 uploads->path()));
        failures.clear();
        view = std::make_unique<QWebView>();
        page = std::make_unique<WatchedPage>();
        view->setPage(page.get());
        view->resize(800, 480);
        connect(page->networkAccessManager(), &QNetworkAccessManager::authenticationRequired, this,
                [](QNetworkReply*, QAuthenticator* authenticator) {
                    authenticator->setUser("admin"_s);
                    authenticator->setPassword("admin"_s);
                });
        connect(page->networkAccessManager(), &QNetworkAccessManager::finished, this,
                [this](QNetworkReply* reply) {
                    // A refresh that is under way when the page is left is cancelled by the engine.
                    const bool fine = reply->error() == QNetworkReply::NoError ||
                                      reply->error() == QNetworkReply::OperationCanceledError;
                    if (!fine) {
                        failures.append(reply->url().toString() + ": "_s + reply->errorString());
                    }
                });
        view->show();
        view->load(simulator->url("/index.html"_s));
        QTRY_VERIFY(!visibleKey("Slow"_s).isNull());
    }

    void cleanup()
    {
        const QStringList complaints = failures + page->complaints;
        view.reset();
        page.reset();
        simulator.reset();
        QCOMPARE(complaints, QStringList());
    }

    void keysAreWithinReach_data()
    {
        const Rows<int> row("atLeast");
        row("Signals", 20);
        row("Values", 23);
        row("Settings", 20);
        row("Files", 16);
        row("Link", 18);
    }

    /// A finger needs 44 pixels; nothing lies outside the screen, since the panel has no scroll bars.
    void keysAreWithinReach()
    {
        openSheet(QLatin1String(QTest::currentDataTag()));
        QTRY_VERIFY(page->mainFrame()->findAllElements(".sheet.on .key"_s).count() > 10);
        QList<QRect> places;
        const QWebElementCollection keys = page->mainFrame()->findAllElements(".sheet.on .key, #tabs a"_s);
        for (const QWebElement& key : keys) {
            const QRect place = key.geometry();
            const QString what = key.toPlainText();
            QVERIFY2(place.width() >= 44 && place.height() >= 44, qPrintable(what));
            QVERIFY2(QRect(0, 0, 800, 480).contains(place), qPrintable(what));
            for (const QRect& other : qAsConst(places)) {
                QVERIFY2(!other.intersects(place), qPrintable(what));
            }
            places.append(place);
        }
        QFETCH(int, atLeast);
        QVERIFY2(places.size() >= atLeast, qPrintable(QString::number(places.size())));
    }

    void pressChangesState_data()
    {
        const Rows<QString, QByteArray> row("sheet", "action");
        row("Fast", "Signals"_s, R"({"do":"set","gpiostate.good":"fast"})");
        row("Deutsch", "Signals"_s, R"({"devinfo.lang":"de","do":"set"})");
        row("DHCP", "Settings"_s, R"({"do":"set","netcfg.dhcp":"on","netcfg.varnel":"on"})");
        row("9.9.9.9", "Settings"_s, R"({"do":"set","netcfg.dns2":"9.9.9.9"})");
        row("V3 priv", "Settings"_s, R"({"do":"set","snmpcfg.version":"5"})");
        row("Port 1502", "Settings"_s,
            R"({"do":"set","modbuscfg.tcp_port":"1502","modbuscfg.tcp_status":"on"})");
        row("Silent 5 s", "Link"_s, R"({"do":"silence","seconds":"5"})");
        row("Reboot", "Link"_s, R"({"do":"reboot"})");
        row("Second controller", "Link"_s, R"({"count":"10","do":"second"})");
        row("Wrong checksum", "Link"_s, R"({"do":"fault","kind":"crc"})");
        row("All well again", "Link"_s, R"({"do":"well"})");
    }

    void pressChangesState()
    {
        QFETCH(QString, sheet);
        QFETCH(QByteArray, action);
        openSheet(sheet);
        press(QLatin1String(QTest::currentDataTag()));
        QTRY_COMPARE(QJsonDocument(lastAction()).toJson(QJsonDocument::Compact), action);
        QVERIFY(!simulator->events("action"_s).last().contains(QLatin1String("error")));
    }

    void pressedKeyIsMarked()
    {
        press("Slow"_s);
        QTRY_COMPARE(script("document.querySelector('#signals .key.on').textContent"_s).toString(), "Slow"_s);
        QTRY_COMPARE(script("document.querySelector('#signals img').className"_s).toString(), "slow"_s);
    }

    void valuesCanBeHeld()
    {
        openSheet("Values"_s);
        press("+"_s);
        QTRY_COMPARE(lastAction().value(QLatin1String("do")).toString(), "set"_s);
        QVERIFY(lastAction().contains(QLatin1String("core.100")));
        QTRY_COMPARE(page->mainFrame()->findAllElements(".value.held"_s).count(), 1);
        press("All run free"_s);
        QTRY_COMPARE(page->mainFrame()->findAllElements(".value.held"_s).count(), 0);
    }

    void uploadArrives()
    {
        const QTemporaryDir source;
        const QString name = "board upload.txt"_s;
        page->fileToChoose = source.filePath(name);
        writeFile(page->fileToChoose, "sent by touch");
        openSheet("Files"_s);
        press("Choose a file"_s);
        QTRY_COMPARE(script("document.getElementById('picked').textContent"_s).toString(), name);
        press("Upload"_s);
        QTRY_VERIFY(QFileInfo::exists(uploads->filePath(name)));
        QTRY_VERIFY(page->mainFrame()->toPlainText().contains("File received"_s));
        QVERIFY(page->mainFrame()->toPlainText().contains(name));
        QCOMPARE(contentOf(uploads->filePath(name)), QByteArray("sent by touch"));
        const QWebElement back = page->mainFrame()->findFirstElement("a.key"_s);
        QTest::mouseClick(view.get(), Qt::LeftButton, Qt::NoModifier, back.geometry().center());
        QTRY_VERIFY(!visibleKey("Choose a file"_s).isNull());
    }

private:
    [[nodiscard]] QVariant script(const QString& code) const
    {
        return view->page()->mainFrame()->evaluateJavaScript(code);
    }

    /// Where the first visible key (or tab) with this text is; a null rectangle when there is none.
    [[nodiscard]] QRect visibleKey(const QString& text) const
    {
        const QWebElementCollection keys = page->mainFrame()->findAllElements(".sheet.on .key, #tabs a"_s);
        for (const QWebElement& key : keys) {
            const QString label = key.tagName() == QLatin1String("INPUT") ? key.attribute("value"_s)
                                                                          : key.toPlainText().trimmed();
            if (label == text) {
                return key.geometry();
            }
        }
        return {};
    }

    void press(const QString& text)
    {
        const QRect place = visibleKey(text);
        QVERIFY2(!place.isNull(), qPrintable(text));
        QTest::mouseClick(view.get(), Qt::LeftButton, Qt::NoModifier, place.center());
    }

    void openSheet(const QString& name)
    {
        press(name);
        QTRY_COMPARE(page->mainFrame()->findFirstElement("#tabs a.on"_s).toPlainText(), name);
    }

    QJsonObject lastAction()
    {
        const QList<QJsonObject> actions = simulator->events("action"_s);
        return actions.isEmpty() ? QJsonObject() : actions.last().value(QLatin1String("action")).toObject();
    }

    std::unique_ptr<SimulatorProcess> simulator;
    std::unique_ptr<QTemporaryDir> uploads;
    std::unique_ptr<QWebView> view;
    std::unique_ptr<WatchedPage> page;
    QStringList failures;
};

QTEST_MAIN(tst_SimulatorBoard)
#include "tst_simulatorboard.moc"
