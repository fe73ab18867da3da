// SPDX-License-Identifier: MIT
#include <functional>

#include <sys/stat.h>

#include <QDateTime>
#include <QDir>
#include <QFile>

#include "logrecorder.h"
#include "rows.h"
#include "settings.h"
#include "settingsaccess.h"
#include "withoutfileoverride.h"

using namespace Varnel;

Q_DECLARE_METATYPE(std::function<bool()>)

namespace {

const QString settingsPath = "/usr/local/etc/varnel-browser.ini"_s;

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

/// Defaults and the settings file, at its real path.
class tst_Settings : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        QCOMPARE(Settings::path(), settingsPath);
        QVERIFY2(!QFile::exists(settingsPath),
                 "this test writes to the panel's own paths: run it in the sandbox");
        defaultValues = settingsNow();
        QCOMPARE(byGetters(), defaultValues); // the list of keys and the list of getters are the same
    }

    void init()
    {
        loadSettings(defaultValues);
        QCOMPARE(settingsNow(), defaultValues);
    }

    void cleanup()
    {
        QFile::remove(settingsPath);
        QDir().rmdir(settingsPath);
        QVERIFY(!QFile::exists(settingsPath));
    }

    void valuesOfTheCommandLine()
    {
        // The file has no keys for them.
        write("[General]\nlogVerbose=true\nVerbose=true\ninfoDevice=a\nDevice=a\nRelease=b\n"
              "[Log]\nVerbose=true\n[Info]\nDevice=a\nRelease=b\n");
        QVERIFY(Settings::load());
        QVERIFY(!Settings::isLogVerbose());
        QCOMPARE(Settings::getInfoDevice(), "DeviceUndef"_s);
        QCOMPARE(Settings::getInfoRelease(), "ReleaseUndef"_s);
        QVERIFY(Settings::hasGPIOPort());

        Settings::setLogVerbose(true);
        Settings::setInfoDevice("X %1"_s);
        Settings::setInfoRelease("Y"_s);
        QVERIFY(Settings::isLogVerbose());
        QCOMPARE(Settings::getInfoDevice(), "X %1"_s);
        QCOMPARE(Settings::getInfoRelease(), "Y"_s);
        Settings::setLogVerbose(false);
        QVERIFY(!Settings::isLogVerbose());
    }

    void missingFile()
    {
        for (const bool dangling : {false, true}) {
            QVERIFY(!dangling || QFile::link("/nowhere/at/all"_s, settingsPath));
            const LogRecorder log;
            QVERIFY(!Settings::load());
            QCOMPARE(log.lines().size(), 1);
            QCOMPARE(withoutStamps(log.texts()),
                     QStringList("TIME - Settings file '/usr/local/etc/varnel-browser.ini' does not exist, "
                                 "using default values"_s));
            QCOMPARE(byGetters(), defaultValues);
        }
    }

    void filesWithoutKeys_data()
    {
        const Rows<std::function<bool()>> special("make");
        special("a directory", [] { return QDir().mkdir(settingsPath); });
        special("a pipe that nobody writes to", [] { return ::mkfifo(qPrintable(settingsPath), 0644) == 0; });
        special("a device without end", [] { return QFile::link("/dev/zero"_s, settingsPath); });

        const auto row = [&special](const char* name, const QByteArray& contents) {
            special(name, [contents] {
                write(contents);
                return true;
            });
        };
        QByteArray binary;
        for (int i = 0; i < 4096; ++i) {
            binary += static_cast<char>(i * 31 + i / 256);
        }
        row("empty", {});
        row("comments", "; [Network]\n;UdpPort=1\n# nothing\n");
        row("a group without keys", "[Network]\n");
        row("keys without a group", "UdpPort=1\nUrl=x\n");
        row("lines without equals sign", "[Network]\nUdpPort\nUdpPort 1\n");
        row("binary", binary);
        row("a JSON file", "{\"Network\": {\"UdpPort\": 1}}");
        row("UTF-16", QByteArray("\xff\xfe[\0N\0e\0t\0", 10));
    }

    void filesWithoutKeys()
    {
        QFETCH(std::function<bool()>, make);
        QVERIFY(make());
        const LogRecorder log;
        QVERIFY(Settings::load()); // it exists
        QVERIFY(log.lines().isEmpty());
        QCOMPARE(byGetters(), defaultValues);
    }

    void unreadableFile()
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

    void oneValue_data()
    {
        const Rows<QString, QByteArray, QVariant> add("name", "value", "wanted");
        const auto rowOf = [&add](const QString& key) {
            return [&add, key](const char* what, const QByteArray& value, const QVariant& wanted) {
                add(qPrintable(key + ", "_s + QLatin1String(what)), key, value, wanted);
            };
        };
        const auto text = rowOf("WebSite/Url"_s);
        text("text: as it is", "http://192.168.7.2/index.html", "http://192.168.7.2/index.html"_s);
        text("empty: becomes empty", "", QString());
        text("blanks around: trimmed", "   a b   ", "a b"_s);
        text("quoted: without quotes", "\" a, b; c \"", " a, b; c "_s);
        text("escaped quote and line end", "\"a \\\"b\\\" \\n\"", "a \"b\" \n"_s);
        text("comma without quotes: a list is no text", "a, b", QString());
        text("semicolon: begins a comment", "a;b", "a"_s);
        text("per cent: kept", "%1 %2F 100%", "%1 %2F 100%"_s);
        text("hexadecimal escape", "Caf\\xe9", "Caf\u00e9"_s);
        text("Latin-1 octet", "Caf\xe9", "Caf\u00e9"_s);
        text("10000 letters: whole", QByteArray(10000, 'x'), QString(10000, QLatin1Char('x')));
        const auto port = rowOf("Network/UdpPort"_s);
        port("5000", "5000", 5000);
        port("65535: largest", "65535", 65535);
        port("70000: its low 16 bits", "70000", 4464);
        port("negative: 0", "-1", 0);
        port("empty: 0", "", 0);
        port("with a unit: 0", "10 s", 0);
        port("with a fraction: 0", "10.5", 0);
        port("in hexadecimal: 0", "0x10", 0);
        port("with a leading zero: decimal", "0010", 10);
        port("beyond 64 bits: 0", "99999999999999999999999", 0);
        const auto pin = rowOf("GPIO/LedRedPin"_s);
        pin("300: kept in 32 bits", "300", 300);
        pin("4294967295: largest", "4294967295", 4294967295U);
        pin("negative: 0", "-5", 0);
        const auto interval = rowOf("UI/ScreenSaverInterval"_s);
        interval("negative: kept", "-1", -1);
        interval("smallest: kept", "-2147483648", std::numeric_limits<qint32>::min());
        interval("in words: 0", "never", 0);
        const auto size = rowOf("WebCache/Size"_s);
        size("beyond 32 bits: kept", "5000000000", quint64(5000000000));
        size("largest: kept", "18446744073709551615", std::numeric_limits<quint64>::max());
        size("in words: 0", "big", 0);
        const auto flag = rowOf("UI/HideCursor"_s);
        flag("false", "false", false);
        flag("FALSE: any case", "FALSE", false);
        flag("0: false", "0", false);
        flag("empty: false", "", false);
        flag("true", "true", true);
        flag("1: true", "1", true);
        flag("no: true", "no", true);
        flag("off: true", "off", true);
    }

    void oneValue()
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

    void keysAreFoundByTheirExactName_data()
    {
        const Rows<QByteArray, int> row("contents", "port");
        row("wrong group: ignored", "[WebSite]\nUdpPort=1\n", 9876);
        row("group in lower case: ignored", "[network]\nUdpPort=1\n", 9876);
        row("key in lower case: ignored", "[Network]\nudpport=1\n", 9876);
        row("blanks around the key", "[Network]\n  UdpPort  =  1\n", 1);
        row("twice: the last counts", "[Network]\nUdpPort=1\nUdpPort=2\n", 2);
        row("group twice: both are read", "[Network]\nUdpPort=1\n[UI]\nTextOK=x\n[Network]\nUdpTimeout=3\n",
            1);
        row("written as a path: the same key", "[General]\nUdpPort=2\n[Network]\nUdpPort=1\n", 1);
        row("Windows line ends", "[Network]\r\nUdpPort=1\r\n", 1);
        row("UTF-8 mark in front", "\xef\xbb\xbf[Network]\nUdpPort=1\n", 1);
        row("no line end at the end", "[Network]\nUdpPort=1", 1);
        row("after a broken line: read", "[Network]\nnonsense\nUdpPort=1\n", 1);
    }

    void keysAreFoundByTheirExactName()
    {
        QFETCH(QByteArray, contents);
        write(contents);
        QVERIFY(Settings::load());
        QTEST(int(Settings::getNetUdpPort()), "port");
    }

    void allKeysAtOnce()
    {
        // Every key gets a value of its own; flags are turned round.
        QHash<QString, QVariant> wanted;
        int number = 100;
        QStringList groups; // in the order in which they are read
        for (const Settings::Entry& entry : Settings::entries()) {
            ++number;
            if (groups.isEmpty() || groups.constLast() != QLatin1String(entry.group)) {
                groups << QLatin1String(entry.group);
            }
            const int type = entry.value().userType();
            QVariant value(number);
            if (type == QMetaType::Bool) {
                value = !entry.value().toBool();
            } else if (type == QMetaType::QString) {
                value = "text %1"_s.arg(number);
            }
            value.convert(type);
            wanted.insert(nameOf(entry), value);
        }
        writeSettings(settingsPath, wanted);
        QVERIFY(Settings::load());
        QCOMPARE(groups, "WebSite WebCache Files ModbusServer Network GPIO UI"_words);
        const QHash<QString, QVariant> got = byGetters();
        for (auto value = wanted.cbegin(); value != wanted.cend(); ++value) {
            QVERIFY2(got.value(value.key()) == value.value(), qPrintable(value.key()));
        }
    }

    void loadTwiceKeepsWhatIsGone()
    {
        write("[Network]\nUdpPort=1\nUdpTimeout=2\n");
        QVERIFY(Settings::load());
        write("[Network]\nUdpTimeout=3\n");
        QVERIFY(Settings::load());
        QCOMPARE(Settings::getNetUdpPort(), quint16(1)); // a key that is missing leaves the value alone
        QCOMPARE(Settings::getNetUdpTimeout(), quint16(3));
    }

    void authorization_data()
    {
        const Rows<QString, QString, QByteArray> row("login", "password", "header");
        row("user and pass", "user"_s, "pass"_s, "Basic dXNlcjpwYXNz");
        row("both empty: a lone colon", {}, {}, "Basic Og==");
        row("colon and blank in the password", "user"_s, "a:b c"_s, "Basic dXNlcjphOmIgYw==");
        row("e acute: in the local encoding", "user"_s, "\u00e9"_s, "Basic dXNlcjrDqQ==");
    }

    void authorization()
    {
        QFETCH(QString, login);
        QFETCH(QString, password);
        const QString loginName = "WebSite/Login"_s;
        loadSettings({{loginName, login}, {"WebSite/Password"_s, password}});
        QTEST(Settings::getHttpAuthorizationBytes(), "header");
        loadSettings({{loginName, "other"_s}}); // the header is made new for each call
        QVERIFY(Settings::getHttpAuthorizationBytes().startsWith("Basic b3RoZXI6"));
    }

private:
    QHash<QString, QVariant> defaultValues; ///< of every key, "group/key"
};

QTEST_GUILESS_MAIN(tst_Settings)
#include "tst_settings.moc"
