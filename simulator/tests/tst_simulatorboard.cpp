// SPDX-License-Identifier: MIT
#include "simulatorprocess.h"

#include <QAuthenticator>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QWebElement>
#include <QWebFrame>
#include <QWebPage>
#include <QWebView>
#include <QtTest>

#include <memory>

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
        complaints.append(QStringLiteral("%1:%2: %3").arg(source).arg(line).arg(message));
    }

    QString chooseFile(QWebFrame*, const QString&) override { return fileToChoose; }
};

} // namespace

/// The control board in the engine that shows it on the panel, with real presses.
class tst_SimulatorBoard : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();
    void keysAreWithinReach_data();
    void keysAreWithinReach();
    void pressChangesState_data();
    void pressChangesState();
    void pressedKeyIsMarked();
    void valuesCanBeHeld();
    void downloadLinksLeadSomewhere();
    void uploadArrives();

private:
    [[nodiscard]] QVariant script(const QString& code) const
    {
        return view->page()->mainFrame()->evaluateJavaScript(code);
    }
    [[nodiscard]] QRect visibleKey(const QString& text) const;
    void press(const QString& text);
    void openSheet(const QString& name);
    QJsonObject lastAction();

    std::unique_ptr<SimulatorProcess> simulator;
    std::unique_ptr<QTemporaryDir> uploads;
    std::unique_ptr<QWebView> view;
    std::unique_ptr<WatchedPage> page;
    QStringList failures;
};

void tst_SimulatorBoard::init()
{
    uploads = std::make_unique<QTemporaryDir>();
    simulator = std::make_unique<SimulatorProcess>();
    QVERIFY(simulator->start({QStringLiteral("--map"), QStringLiteral(VARNEL_SOURCE_DIR "/device/modbus.map"),
                              QStringLiteral("--upload-dir"), uploads->path(), QStringLiteral("--sections"),
                              QStringLiteral("none")}));
    failures.clear();
    view = std::make_unique<QWebView>();
    page = std::make_unique<WatchedPage>();
    view->setPage(page.get());
    view->resize(800, 480);
    connect(page->networkAccessManager(), &QNetworkAccessManager::authenticationRequired, this,
            [](QNetworkReply*, QAuthenticator* authenticator) {
                authenticator->setUser(QStringLiteral("admin"));
                authenticator->setPassword(QStringLiteral("admin"));
            });
    connect(page->networkAccessManager(), &QNetworkAccessManager::finished, this,
            [this](QNetworkReply* reply) {
                // A refresh that is under way when the page is left is cancelled by the engine.
                const bool fine = reply->error() == QNetworkReply::NoError ||
                                  reply->error() == QNetworkReply::OperationCanceledError;
                if (!fine) {
                    failures.append(reply->url().toString() + QStringLiteral(": ") + reply->errorString());
                }
            });
    view->show();
    view->load(simulator->url(QStringLiteral("/index.html")));
    QTRY_VERIFY(!visibleKey(QStringLiteral("Slow")).isNull());
}

void tst_SimulatorBoard::cleanup()
{
    const QStringList complaints = failures + page->complaints;
    view.reset();
    page.reset();
    simulator.reset();
    QCOMPARE(complaints, QStringList());
}

/// Where the first visible key (or tab) with this text is; a null rectangle when there is none.
QRect tst_SimulatorBoard::visibleKey(const QString& text) const
{
    const QWebElementCollection keys =
        page->mainFrame()->findAllElements(QStringLiteral(".sheet.on .key, #tabs a"));
    for (const QWebElement& key : keys) {
        const QString label = key.tagName() == QLatin1String("INPUT") ? key.attribute(QStringLiteral("value"))
                                                                      : key.toPlainText().trimmed();
        if (label == text) {
            return key.geometry();
        }
    }
    return {};
}

void tst_SimulatorBoard::press(const QString& text)
{
    const QRect place = visibleKey(text);
    QVERIFY2(!place.isNull(), qPrintable(text));
    QTest::mouseClick(view.get(), Qt::LeftButton, Qt::NoModifier, place.center());
}

void tst_SimulatorBoard::openSheet(const QString& name)
{
    press(name);
    QTRY_COMPARE(page->mainFrame()->findFirstElement(QStringLiteral("#tabs a.on")).toPlainText(), name);
}

QJsonObject tst_SimulatorBoard::lastAction()
{
    const QList<QJsonObject> actions = simulator->events(QStringLiteral("action"));
    return actions.isEmpty() ? QJsonObject() : actions.last().value(QLatin1String("action")).toObject();
}

void tst_SimulatorBoard::keysAreWithinReach_data()
{
    QTest::addColumn<int>("atLeast");
    QTest::newRow("Signals") << 20;
    QTest::newRow("Values") << 23;
    QTest::newRow("Settings") << 20;
    QTest::newRow("Files") << 16;
    QTest::newRow("Link") << 18;
}

/// A finger needs 44 pixels; nothing lies outside the screen, since the panel has no scroll bars.
void tst_SimulatorBoard::keysAreWithinReach()
{
    openSheet(QLatin1String(QTest::currentDataTag()));
    QTRY_VERIFY(page->mainFrame()->findAllElements(QStringLiteral(".sheet.on .key")).count() > 10);
    QList<QRect> places;
    const QWebElementCollection keys =
        page->mainFrame()->findAllElements(QStringLiteral(".sheet.on .key, #tabs a"));
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

void tst_SimulatorBoard::pressChangesState_data()
{
    QTest::addColumn<QString>("sheet");
    QTest::addColumn<QString>("key");
    QTest::addColumn<QByteArray>("action");

    const auto row = [](const char* sheet, const char* key, const char* action) {
        QTest::newRow(key) << QString(QLatin1String(sheet)) << QString::fromUtf8(key) << QByteArray(action);
    };
    row("Signals", "Fast", R"({"do":"set","gpiostate.good":"fast"})");
    row("Signals", "Deutsch", R"({"devinfo.lang":"de","do":"set"})");
    row("Settings", "DHCP", R"({"do":"set","netcfg.dhcp":"on","netcfg.varnel":"on"})");
    row("Settings", "9.9.9.9", R"({"do":"set","netcfg.dns2":"9.9.9.9"})");
    row("Settings", "V3 priv", R"({"do":"set","snmpcfg.version":"5"})");
    row("Settings", "Port 1502", R"({"do":"set","modbuscfg.tcp_port":"1502","modbuscfg.tcp_status":"on"})");
    row("Link", "Silent 5 s", R"({"do":"silence","seconds":"5"})");
    row("Link", "Reboot", R"({"do":"reboot"})");
    row("Link", "Second controller", R"({"count":"10","do":"second"})");
    row("Link", "Wrong checksum", R"({"do":"fault","kind":"crc"})");
    row("Link", "All well again", R"({"do":"well"})");
}

void tst_SimulatorBoard::pressChangesState()
{
    QFETCH(QString, sheet);
    QFETCH(QString, key);
    QFETCH(QByteArray, action);
    openSheet(sheet);
    press(key);
    QTRY_COMPARE(QJsonDocument(lastAction()).toJson(QJsonDocument::Compact), action);
    QVERIFY(!simulator->events(QStringLiteral("action")).last().contains(QLatin1String("error")));
}

void tst_SimulatorBoard::pressedKeyIsMarked()
{
    press(QStringLiteral("Slow"));
    QTRY_COMPARE(script(QStringLiteral("document.querySelector('#signals .key.on').textContent")).toString(),
                 QStringLiteral("Slow"));
    QTRY_COMPARE(script(QStringLiteral("document.querySelector('#signals img').className")).toString(),
                 QStringLiteral("slow"));
}

void tst_SimulatorBoard::valuesCanBeHeld()
{
    openSheet(QStringLiteral("Values"));
    press(QStringLiteral("+"));
    QTRY_COMPARE(lastAction().value(QLatin1String("do")).toString(), QStringLiteral("set"));
    QVERIFY(lastAction().contains(QLatin1String("core.100")));
    QTRY_COMPARE(page->mainFrame()->findAllElements(QStringLiteral(".value.held")).count(), 1);
    press(QStringLiteral("All run free"));
    QTRY_COMPARE(page->mainFrame()->findAllElements(QStringLiteral(".value.held")).count(), 0);
}

void tst_SimulatorBoard::downloadLinksLeadSomewhere()
{
    openSheet(QStringLiteral("Files"));
    QTRY_VERIFY(!visibleKey(QStringLiteral("Report")).isNull());
    page->setForwardUnsupportedContent(true);
    QString offered;
    connect(page.get(), &QWebPage::unsupportedContent, this, [&offered](QNetworkReply* reply) {
        offered = QString::fromUtf8(reply->rawHeader("Content-Disposition"));
    });
    press(QStringLiteral("Report"));
    QTRY_COMPARE(offered, QStringLiteral("attachment; filename=report.txt"));
}

void tst_SimulatorBoard::uploadArrives()
{
    QTemporaryFile file(QDir::tempPath() + QStringLiteral("/board upload XXXXXX.txt"));
    QVERIFY(file.open());
    file.write("sent by touch");
    file.close();
    page->fileToChoose = file.fileName();
    openSheet(QStringLiteral("Files"));
    press(QStringLiteral("Choose a file"));
    const QString name = QFileInfo(file.fileName()).fileName();
    QTRY_COMPARE(script(QStringLiteral("document.getElementById('picked').textContent")).toString(), name);
    press(QStringLiteral("Upload"));
    QTRY_VERIFY(QFileInfo::exists(uploads->filePath(name)));
    QTRY_VERIFY(page->mainFrame()->toPlainText().contains(QStringLiteral("File received")));
    QVERIFY(page->mainFrame()->toPlainText().contains(name));
    QFile stored(uploads->filePath(name));
    QVERIFY(stored.open(QIODevice::ReadOnly));
    QCOMPARE(stored.readAll(), QByteArray("sent by touch"));
    const QWebElement back = page->mainFrame()->findFirstElement(QStringLiteral("a.key"));
    QTest::mouseClick(view.get(), Qt::LeftButton, Qt::NoModifier, back.geometry().center());
    QTRY_VERIFY(!visibleKey(QStringLiteral("Choose a file")).isNull());
}

QTEST_MAIN(tst_SimulatorBoard)
#include "tst_simulatorboard.moc"
