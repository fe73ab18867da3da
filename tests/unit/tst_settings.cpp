// SPDX-License-Identifier: MIT
#include <functional>

#include <sys/stat.h>

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <QTest>

#include "logrecorder.h"
#include "settings.h"
#include "settingsaccess.h"
#include "withoutfileoverride.h"

using namespace Varnel;

Q_DECLARE_METATYPE(std::function<bool()>)

/// Defaults and the settings file, at its real path.
class tst_Settings : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();
    void defaults_data();
    void defaults();
    void valuesOfTheCommandLine();
    void missingFile_data();
    void missingFile();
    void filesWithoutKeys_data();
    void filesWithoutKeys();
    void unreadableFile();
    void noRegularFile_data();
    void noRegularFile();
    void oneValue_data();
    void oneValue();
    void keysAreFoundByTheirExactName_data();
    void keysAreFoundByTheirExactName();
    void allKeysAtOnce();
    void everyGetterReadsItsKey();
    void loadTwiceKeepsWhatIsGone();
    void authorization_data();
    void authorization();

private:
    QHash<QString, QVariant> defaultValues; ///< of every key, "group/key"
};

namespace {

const QString settingsPath = QStringLiteral("/usr/local/etc/varnel-browser.ini");

void write(const QByteArray& contents)
{
    QFile file(settingsPath);
    if (!file.open(QIODevice::WriteOnly) || file.write(contents) != contents.size()) {
        qFatal("cannot write the settings file");
    }
    file.close();
    // QSettings remembers a file by its time and size; two tests within one tick of the clock are not alike.
    static qint64 seconds = 0;
    if (!file.open(QIODevice::ReadWrite) ||
        !file.setFileTime(QDateTime::fromSecsSinceEpoch(++seconds), QFileDevice::FileModificationTime)) {
        qFatal("cannot date the settings file");
    }
}

/// "group/key" = value as a settings file.
QByteArray fileWith(const QString& name, const QByteArray& value)
{
    const QStringList parts = name.split(QLatin1Char('/'));
    return '[' + parts.at(0).toLatin1() + "]\n" + parts.at(1).toLatin1() + '=' + value + '\n';
}

} // namespace

void tst_Settings::initTestCase()
{
    QCOMPARE(Settings::path(), settingsPath);
    QVERIFY2(!QFile::exists(settingsPath),
             "this test writes to the panel's own paths: run it in the sandbox");
    defaultValues = settingsNow();
}

void tst_Settings::init()
{
    loadSettings(defaultValues);
    QCOMPARE(settingsNow(), defaultValues);
}

void tst_Settings::cleanup()
{
    QFile::remove(settingsPath);
    QDir().rmdir(settingsPath);
    QVERIFY(!QFile::exists(settingsPath));
}

void tst_Settings::defaults_data()
{
    QTest::addColumn<QVariant>("wanted");
    const auto text = [](const char* name, const char* value) {
        QTest::newRow(name) << QVariant(QString::fromLatin1(value));
    };
    text("WebSite/Login", "");
    text("WebSite/Password", "");
    QTest::newRow("WebCache/Size") << QVariant(quint64(0));
    text("WebCache/Path", "/tmp/varnel-browser-cache");
    text("Files/Directory", "/usbmnt");
    text("Files/UsbDriveFile", "/tmp/usbdrive");
    text("Files/ScriptDir", "/usr/local/bin");
    text("Files/TmpCfgDir", "/tmp/etc");
    QTest::newRow("GPIO/LedGreenPin") << QVariant(quint32(224));
    QTest::newRow("GPIO/LedYellowPin") << QVariant(quint32(225));
    QTest::newRow("GPIO/LedRedPin") << QVariant(quint32(228));
    QTest::newRow("GPIO/BuzzerPin") << QVariant(quint32(230));
    QTest::newRow("GPIO/LedGreenHigh") << QVariant(false);
    QTest::newRow("GPIO/LedYellowHigh") << QVariant(false);
    QTest::newRow("GPIO/LedRedHigh") << QVariant(false);
    QTest::newRow("GPIO/BuzzerHigh") << QVariant(true);
    text("Network/UdpInterface", "eth1");
    text("Network/UdpBindAddress", "");
    QTest::newRow("Network/UdpPort") << QVariant::fromValue(quint16(9876));
    QTest::newRow("Network/UdpTimeout") << QVariant::fromValue(quint16(10));
    text("Network/FrontInterface", "usb0");
    QTest::newRow("Network/RetryTimeout") << QVariant::fromValue(quint16(15));
    QTest::newRow("Network/PageTimeout") << QVariant::fromValue(quint16(0));
    QTest::newRow("Network/ProbeAgain") << QVariant(false);
    text("ModbusServer/ModbusMode", "tcp");
    text("ModbusServer/ModbusInterface", "0.0.0.0:502:10");
    text("ModbusServer/ModbusMap", "/usr/local/etc/modbus.map");
    QTest::newRow("UI/HideCursor") << QVariant(true);
    QTest::newRow("UI/ScreenSaverInterval") << QVariant(qint32(15000));
    text("UI/MsgWaitingForNetworkConfiguration", "Waiting for network configuration...");
    text("UI/MsgConnecting", "Connection in progress...");
    text("UI/MsgConnectionError", "Connection error: automatic retry in a few seconds");
    text("UI/MsgLoading", "Please wait while loading... (%1%)");
    text("UI/MsgError", "Error");
    text("UI/MsgUSBDriveNotMounted", "USB drive not detected.");
    text("UI/MsgFailedToOpenFile", "Error opening file '%1' for writing.");
    text("UI/MsgNoFileSelected", "No file has been selected.");
    text("UI/MsgDownloadInProgress", "Download in progress");
    text("UI/MsgDownloadComplete", "Download complete");
    text("UI/TextDownload", "Download");
    text("UI/TextUpload", "Upload");
    text("UI/TextOK", "OK");
    text("UI/TextCancel", "Cancel");
    text("UI/TextFilename", "Filename:");
    text("UI/ErrorImagePath", "/usr/local/share");
}

void tst_Settings::defaults()
{
    QFETCH(QVariant, wanted);
    const QString name = QString::fromLatin1(QTest::currentDataTag());
    QVERIFY(defaultValues.contains(name));
    QCOMPARE(byGetters().value(name), wanted);
    QCOMPARE(byGetters().value(name).userType(), wanted.userType());
}

void tst_Settings::valuesOfTheCommandLine()
{
    QVERIFY(!Settings::isLogVerbose());
    QCOMPARE(Settings::getInfoDevice(), QStringLiteral("DeviceUndef"));
    QCOMPARE(Settings::getInfoRelease(), QStringLiteral("ReleaseUndef"));
    QVERIFY(Settings::hasGPIOPort());

    // The file has no keys for them.
    write("[General]\nlogVerbose=true\nVerbose=true\ninfoDevice=a\nDevice=a\nRelease=b\n"
          "[Log]\nVerbose=true\n[Info]\nDevice=a\nRelease=b\n");
    QVERIFY(Settings::load());
    QVERIFY(!Settings::isLogVerbose());
    QCOMPARE(Settings::getInfoDevice(), QStringLiteral("DeviceUndef"));
    QCOMPARE(Settings::getInfoRelease(), QStringLiteral("ReleaseUndef"));

    Settings::setLogVerbose(true);
    Settings::setInfoDevice(QStringLiteral("X %1"));
    Settings::setInfoRelease(QStringLiteral("Y"));
    QVERIFY(Settings::isLogVerbose());
    QCOMPARE(Settings::getInfoDevice(), QStringLiteral("X %1"));
    QCOMPARE(Settings::getInfoRelease(), QStringLiteral("Y"));
    Settings::setLogVerbose(false);
    QVERIFY(!Settings::isLogVerbose());
}

void tst_Settings::missingFile_data()
{
    QTest::addColumn<bool>("dangling");
    QTest::newRow("no file: defaults") << false;
    QTest::newRow("a link to nowhere: defaults") << true;
}

void tst_Settings::missingFile()
{
    QFETCH(bool, dangling);
    if (dangling) {
        QVERIFY(QFile::link(QStringLiteral("/nowhere/at/all"), settingsPath));
    }
    const LogRecorder log;
    QVERIFY(!Settings::load());
    QCOMPARE(log.lines().size(), 1);
    const QRegularExpression line(
        QStringLiteral("^\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d{3} - Settings file "
                       "'/usr/local/etc/varnel-browser.ini' does not exist, using default values$"));
    QVERIFY2(line.match(log.texts().value(0)).hasMatch(), qPrintable(log.texts().value(0)));
    QCOMPARE(byGetters(), defaultValues);
}

void tst_Settings::filesWithoutKeys_data()
{
    QTest::addColumn<QByteArray>("contents");
    QByteArray binary;
    for (int i = 0; i < 4096; ++i) {
        binary += static_cast<char>(i * 31 + i / 256);
    }
    QTest::newRow("empty") << QByteArray();
    QTest::newRow("comments") << QByteArray("; [Network]\n;UdpPort=1\n# nothing\n");
    QTest::newRow("a group without keys") << QByteArray("[Network]\n");
    QTest::newRow("keys without a group") << QByteArray("UdpPort=1\nUrl=x\n");
    QTest::newRow("lines without equals sign") << QByteArray("[Network]\nUdpPort\nUdpPort 1\n");
    QTest::newRow("prose") << QByteArray("This is not\na settings file.\n");
    QTest::newRow("binary") << binary;
    QTest::newRow("zeros") << QByteArray(10000, '\0');
    QTest::newRow("a JSON file") << QByteArray("{\"Network\": {\"UdpPort\": 1}}");
    QTest::newRow("UTF-16") << QByteArray("\xff\xfe[\0N\0e\0t\0", 10);
}

void tst_Settings::filesWithoutKeys()
{
    QFETCH(QByteArray, contents);
    write(contents);
    const LogRecorder log;
    QVERIFY(Settings::load());
    QVERIFY(log.lines().isEmpty());
    QCOMPARE(byGetters(), defaultValues);
}

void tst_Settings::unreadableFile()
{
    write("[Network]\nUdpPort=1\n");
    QVERIFY(QFile::setPermissions(settingsPath, QFileDevice::Permissions()));
    {
        const WithoutFileOverride asAnybody;
        QFile file(settingsPath);
        QVERIFY(!file.open(QIODevice::ReadOnly));
        const LogRecorder log;
        QVERIFY(Settings::load());
        QVERIFY(log.lines().isEmpty());
    }
    QCOMPARE(byGetters(), defaultValues);
}

void tst_Settings::noRegularFile_data()
{
    QTest::addColumn<std::function<bool()>>("make");
    const auto row = [](const char* name, const std::function<bool()>& make) { QTest::newRow(name) << make; };
    row("a directory", [] { return QDir().mkdir(settingsPath); });
    row("a pipe that nobody writes to", [] { return ::mkfifo(qPrintable(settingsPath), 0644) == 0; });
    row("a device without end", [] { return QFile::link(QStringLiteral("/dev/zero"), settingsPath); });
}

void tst_Settings::noRegularFile()
{
    QFETCH(std::function<bool()>, make);
    QVERIFY(make());
    const LogRecorder log;
    QVERIFY(Settings::load()); // it exists, and has no keys
    QVERIFY(log.lines().isEmpty());
    QCOMPARE(byGetters(), defaultValues);
}

void tst_Settings::oneValue_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QByteArray>("value");
    QTest::addColumn<QVariant>("wanted");
    const auto text = [](const char* row, const QByteArray& value, const QString& wanted) {
        QTest::newRow(row) << QStringLiteral("WebSite/Url") << value << QVariant(wanted);
    };
    text("text: as it is", "http://192.168.7.2/index.html", QStringLiteral("http://192.168.7.2/index.html"));
    text("text, empty: becomes empty", "", QString());
    text("text, blanks around: trimmed", "   a b   ", QStringLiteral("a b"));
    text("text, quoted: without quotes", "\" a, b; c \"", QStringLiteral(" a, b; c "));
    text("text, escaped quote and line end", "\"a \\\"b\\\" \\n\"", QStringLiteral("a \"b\" \n"));
    text("text, comma without quotes: a list is no text", "a, b", QString());
    text("text, equals sign: kept", "http://c/?a=b", QStringLiteral("http://c/?a=b"));
    text("text, semicolon: begins a comment", "a;b", QStringLiteral("a"));
    text("text, per cent: kept", "%1 %2F 100%", QStringLiteral("%1 %2F 100%"));
    text("text, hexadecimal escape", "Caf\\xe9", QStringLiteral("Caf\u00e9"));
    text("text, Latin-1 octet", "Caf\xe9", QStringLiteral("Caf\u00e9"));
    text("text, 10000 letters: whole", QByteArray(10000, 'x'), QString(10000, QLatin1Char('x')));
    text("text, carriage return at the end: not part of it", "a\r", QStringLiteral("a"));

    const auto port = [](const char* row, const QByteArray& value, int wanted) {
        QTest::newRow(row) << QStringLiteral("Network/UdpPort") << value
                           << QVariant::fromValue(static_cast<quint16>(wanted));
    };
    port("port 5000", "5000", 5000);
    port("port 65535: largest", "65535", 65535);
    port("port 65536: its low 16 bits", "65536", 0);
    port("port 70000: its low 16 bits", "70000", 4464);
    port("port negative: 0", "-1", 0);
    port("port empty: 0", "", 0);
    port("port in words: 0", "many", 0);
    port("port with a unit: 0", "10 s", 0);
    port("port with a fraction: 0", "10.5", 0);
    port("port in hexadecimal: 0", "0x10", 0);
    port("port with a leading zero: decimal", "0010", 10);
    port("port beyond 64 bits: 0", "99999999999999999999999", 0);

    const auto pin = [](const char* row, const QByteArray& value, quint32 wanted) {
        QTest::newRow(row) << QStringLiteral("GPIO/LedRedPin") << value << QVariant(wanted);
    };
    pin("pin 300: kept in 32 bits", "300", 300);
    pin("pin 4294967295: largest", "4294967295", 4294967295U);
    pin("pin negative: 0", "-5", 0);

    const auto interval = [](const char* row, const QByteArray& value, qint32 wanted) {
        QTest::newRow(row) << QStringLiteral("UI/ScreenSaverInterval") << value << QVariant(wanted);
    };
    interval("interval negative: kept", "-1", -1);
    interval("interval smallest: kept", "-2147483648", std::numeric_limits<qint32>::min());
    interval("interval in words: 0", "never", 0);

    const auto size = [](const char* row, const QByteArray& value, quint64 wanted) {
        QTest::newRow(row) << QStringLiteral("WebCache/Size") << value << QVariant(wanted);
    };
    size("size beyond 32 bits: kept", "5000000000", 5000000000U);
    size("size largest: kept", "18446744073709551615", std::numeric_limits<quint64>::max());
    size("size in words: 0", "big", 0);

    const auto flag = [](const char* row, const QByteArray& value, bool wanted) {
        QTest::newRow(row) << QStringLiteral("UI/HideCursor") << value << QVariant(wanted);
    };
    flag("flag false", "false", false);
    flag("flag FALSE: any case", "FALSE", false);
    flag("flag False: any case", "False", false);
    flag("flag 0: false", "0", false);
    flag("flag empty: false", "", false);
    flag("flag true", "true", true);
    flag("flag 1: true", "1", true);
    flag("flag no: true", "no", true);
    flag("flag off: true", "off", true);
    flag("flag 00: true", "00", true);
    flag("flag -1: true", "-1", true);
}

void tst_Settings::oneValue()
{
    QFETCH(QString, name);
    QFETCH(QByteArray, value);
    QFETCH(QVariant, wanted);
    write(fileWith(name, value));
    const LogRecorder log;
    QVERIFY(Settings::load());
    QVERIFY(log.lines().isEmpty());
    QHash<QString, QVariant> all = defaultValues;
    all.insert(name, wanted);
    QCOMPARE(byGetters().value(name), wanted);
    QCOMPARE(byGetters(), all); // nothing else has changed
}

void tst_Settings::keysAreFoundByTheirExactName_data()
{
    QTest::addColumn<QByteArray>("contents");
    QTest::addColumn<int>("port");
    QTest::newRow("right group") << QByteArray("[Network]\nUdpPort=1\n") << 1;
    QTest::newRow("wrong group: ignored") << QByteArray("[WebSite]\nUdpPort=1\n") << 9876;
    QTest::newRow("group in lower case: ignored") << QByteArray("[network]\nUdpPort=1\n") << 9876;
    QTest::newRow("key in lower case: ignored") << QByteArray("[Network]\nudpport=1\n") << 9876;
    QTest::newRow("key with more letters: ignored") << QByteArray("[Network]\nUdpPort2=1\n") << 9876;
    QTest::newRow("blanks around the key") << QByteArray("[Network]\n  UdpPort  =  1\n") << 1;
    QTest::newRow("twice: the last counts") << QByteArray("[Network]\nUdpPort=1\nUdpPort=2\n") << 2;
    QTest::newRow("group twice: both are read")
        << QByteArray("[Network]\nUdpPort=1\n[UI]\nTextOK=x\n[Network]\nUdpTimeout=3\n") << 1;
    QTest::newRow("written as a path: the same key")
        << QByteArray("[General]\nUdpPort=2\n[Network]\nUdpPort=1\n") << 1;
    QTest::newRow("Windows line ends") << QByteArray("[Network]\r\nUdpPort=1\r\n") << 1;
    QTest::newRow("UTF-8 mark in front") << QByteArray("\xef\xbb\xbf[Network]\nUdpPort=1\n") << 1;
    QTest::newRow("no line end at the end") << QByteArray("[Network]\nUdpPort=1") << 1;
    QTest::newRow("after a broken line: read") << QByteArray("[Network]\nnonsense\nUdpPort=1\n") << 1;
}

void tst_Settings::keysAreFoundByTheirExactName()
{
    QFETCH(QByteArray, contents);
    write(contents);
    QVERIFY(Settings::load());
    QTEST(int(Settings::getNetUdpPort()), "port");
}

void tst_Settings::allKeysAtOnce()
{
    // Every key gets a value of its own; flags are turned round.
    QHash<QString, QVariant> wanted;
    int number = 100;
    for (const Settings::Entry& entry : Settings::entries()) {
        ++number;
        const int type = entry.value().userType();
        QVariant value(number);
        if (type == QMetaType::Bool) {
            value = !entry.value().toBool();
        } else if (type == QMetaType::QString) {
            value = QStringLiteral("text %1").arg(number);
        }
        value.convert(type);
        wanted.insert(nameOf(entry), value);
    }
    writeSettings(settingsPath, wanted);
    QVERIFY(Settings::load());
    const QHash<QString, QVariant> got = byGetters();
    for (auto value = wanted.cbegin(); value != wanted.cend(); ++value) {
        QVERIFY2(got.value(value.key()) == value.value(), qPrintable(value.key()));
    }
    QCOMPARE(got.size(), wanted.size());
}

void tst_Settings::everyGetterReadsItsKey()
{
    // The list of keys and the list of getters are the same, in the order in which they are read.
    QCOMPARE(byGetters().size(), int(Settings::entries().size()));
    const QHash<QString, QVariant> got = byGetters();
    QStringList groups;
    for (const Settings::Entry& entry : Settings::entries()) {
        QVERIFY2(got.contains(nameOf(entry)), qPrintable(nameOf(entry)));
        if (groups.isEmpty() || groups.constLast() != QLatin1String(entry.group)) {
            groups << QLatin1String(entry.group);
        }
    }
    QCOMPARE(groups.join(QLatin1Char(' ')),
             QStringLiteral("WebSite WebCache Files ModbusServer Network GPIO UI"));
}

void tst_Settings::loadTwiceKeepsWhatIsGone()
{
    write("[Network]\nUdpPort=1\nUdpTimeout=2\n");
    QVERIFY(Settings::load());
    write("[Network]\nUdpTimeout=3\n");
    QVERIFY(Settings::load());
    QCOMPARE(Settings::getNetUdpPort(), quint16(1)); // a key that is missing leaves the value alone
    QCOMPARE(Settings::getNetUdpTimeout(), quint16(3));
}

void tst_Settings::authorization_data()
{
    QTest::addColumn<QString>("login");
    QTest::addColumn<QString>("password");
    QTest::addColumn<QByteArray>("header");
    const auto row = [](const char* name, const QString& login, const QString& password,
                        const char* credentials) {
        QTest::newRow(name) << login << password << "Basic " + QByteArray(credentials);
    };
    row("user and pass", QStringLiteral("user"), QStringLiteral("pass"), "dXNlcjpwYXNz");
    row("both empty: a lone colon", QString(), QString(), "Og==");
    row("login alone", QStringLiteral("user"), QString(), "dXNlcjo=");
    row("password alone", QString(), QStringLiteral("pass"), "OnBhc3M=");
    row("colon and blank in the password", QStringLiteral("user"), QStringLiteral("a:b c"),
        "dXNlcjphOmIgYw==");
    row("e acute: in the local encoding", QStringLiteral("user"), QStringLiteral("\u00e9"), "dXNlcjrDqQ==");
}

void tst_Settings::authorization()
{
    QFETCH(QString, login);
    QFETCH(QString, password);
    const QString loginName = QStringLiteral("WebSite/Login");
    loadSettings({{loginName, login}, {QStringLiteral("WebSite/Password"), password}});
    QTEST(Settings::getHttpAuthorizationBytes(), "header");
    loadSettings({{loginName, QStringLiteral("other")}}); // the header is made new for each call
    QVERIFY(Settings::getHttpAuthorizationBytes().startsWith("Basic b3RoZXI6"));
}

QTEST_GUILESS_MAIN(tst_Settings)
#include "tst_settings.moc"
