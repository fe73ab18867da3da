// SPDX-License-Identifier: MIT
// Both ends with real scripts: what the panel asks for is what runs, what it gives up is killed, and nothing
// else can be run.
#include <csignal>

#include <QDir>
#include <QFile>
#include <QLocalSocket>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

namespace {

const auto socketPath = QStringLiteral("/run/varnel-scripts.socket");
const auto scriptDir = QStringLiteral("/usr/local/bin/");
constexpr int patienceMs = 20000;

QByteArray read(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

void writeScript(const QString& name, const QByteArray& commands)
{
    QFile file(scriptDir + name);
    if (!file.open(QIODevice::WriteOnly) || file.write("#!/bin/sh\n" + commands) < 0) {
        qFatal("cannot write %s", qPrintable(name));
    }
    file.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
}

QStringList words(const char* text)
{
    return QString::fromLatin1(text).split(QLatin1Char('|'));
}

bool isAlive(const QByteArray& pid)
{
    // A zombie still takes signals; its parent may be slow to reap it.
    const QByteArray status = read(QStringLiteral("/proc/%1/stat").arg(pid.trimmed().toInt()));
    return !status.isEmpty() && !status.contains(") Z ");
}

} // namespace

class tst_ScriptService : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();
    void argumentsArriveAsTheyAre_data();
    void argumentsArriveAsTheyAre();
    void statusComesBack_data();
    void statusComesBack();
    void missingScript();
    void notExecutable();
    void nameOutsideTheList_data();
    void nameOutsideTheList();
    void whoeverGivesUpKillsTheScript();
    void backgroundChildLivesOn();
    void scriptsWaitForEachOther();
    void badRequests_data();
    void badRequests();
    void noService();
    void noSocketFromSystemd();

private:
    /// The path by which the panel would run the script `name`.
    QString request(const QString& name)
    {
        QString path = requests.filePath(name);
        QFile::link(QStringLiteral(REQUEST_PROGRAM), path);
        return path;
    }
    void stopService()
    {
        service.kill();
        service.waitForFinished(patienceMs);
        QFile::remove(socketPath);
    }
    int run(const QString& name, const QStringList& arguments = {})
    {
        return QProcess::execute(request(name), arguments);
    }

    QTemporaryDir requests;
    QTemporaryDir notes;
    QProcess service;
};

void tst_ScriptService::init()
{
    service.setProcessChannelMode(QProcess::MergedChannels);
    service.start(QStringLiteral("systemd-socket-activate"),
                  {QStringLiteral("--listen=") + socketPath, QStringLiteral(SERVICE_PROGRAM),
                   QStringLiteral("/usr/local/bin")});
    QVERIFY(service.waitForReadyRead(patienceMs)); // "Listening on ..."
    QVERIFY(QFile::exists(socketPath));
}

void tst_ScriptService::cleanup()
{
    stopService();
    const QStringList scripts = QDir(scriptDir).entryList(QDir::Files);
    for (const QString& script : scripts) {
        QFile::remove(scriptDir + script);
    }
}

void tst_ScriptService::argumentsArriveAsTheyAre_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::newRow("none") << QStringList();
    QTest::newRow("plain") << words("add|192.168.7.2|502");
    QTest::newRow("blanks, quotes, line end") << words("a b|\"c'|d\ne|$HOME `id`|*");
    QTest::newRow("empty ones") << words("|x|");
    QTest::newRow("leading dash") << words("-rf|--help");
    QTest::newRow("100 KiB of JSON") << QStringList(QString(100 * 1024, QLatin1Char('7')));
}

void tst_ScriptService::argumentsArriveAsTheyAre()
{
    QFETCH(QStringList, arguments);
    const QString note = notes.filePath(QStringLiteral("arguments"));
    QFile::remove(note);
    writeScript(QStringLiteral("r7m.sh"), "printf '%s\\0' \"$0\" \"$@\" > " + note.toLatin1() + "\n");
    QCOMPARE(run(QStringLiteral("r7m.sh"), arguments), 0);
    QByteArray expected("/usr/local/bin/r7m.sh");
    expected.append('\0');
    for (const QString& argument : qAsConst(arguments)) {
        expected.append(argument.toUtf8()).append('\0');
    }
    QCOMPARE(read(note), expected);
}

void tst_ScriptService::statusComesBack_data()
{
    QTest::addColumn<QByteArray>("commands");
    QTest::addColumn<int>("status");
    QTest::newRow("0") << QByteArray("exit 0") << 0;
    QTest::newRow("3") << QByteArray("exit 3") << 3;
    QTest::newRow("255") << QByteArray("exit 255") << 255;
    QTest::newRow("ended by a signal: 137") << QByteArray("kill -TERM $$") << 137;
}

void tst_ScriptService::statusComesBack()
{
    QFETCH(QByteArray, commands);
    QFETCH(int, status);
    writeScript(QStringLiteral("netcfg.sh"), commands);
    QCOMPARE(run(QStringLiteral("netcfg.sh")), status);
    QCOMPARE(run(QStringLiteral("netcfg.sh")), status); // the service is there for the next one
}

void tst_ScriptService::missingScript()
{
    QCOMPARE(run(QStringLiteral("modbuscfg.sh")), 127);
    QByteArray log;
    QTRY_VERIFY((log += service.readAll()).contains("no script /usr/local/bin/modbuscfg.sh, do nothing"));
}

void tst_ScriptService::notExecutable()
{
    // Not even root may run a file that nobody may execute.
    writeScript(QStringLiteral("r7m.sh"), "exit 0");
    QFile::setPermissions(scriptDir + QStringLiteral("r7m.sh"), QFile::ReadOwner);
    QCOMPARE(run(QStringLiteral("r7m.sh")), 127);
}

void tst_ScriptService::nameOutsideTheList_data()
{
    QTest::addColumn<QString>("name");
    QTest::newRow("usbdrive.sh, which systemd runs") << QStringLiteral("usbdrive.sh");
    QTest::newRow("without its end") << QStringLiteral("r7m");
    QTest::newRow("in capitals") << QStringLiteral("R7M.SH");
}

void tst_ScriptService::nameOutsideTheList()
{
    QFETCH(QString, name);
    writeScript(name, "touch " + notes.filePath(QStringLiteral("broken-in")).toLatin1());
    QCOMPARE(run(name), 126);
    QVERIFY(!QFile::exists(notes.filePath(QStringLiteral("broken-in"))));
}

void tst_ScriptService::whoeverGivesUpKillsTheScript()
{
    const QByteArray note = notes.filePath(QStringLiteral("pids")).toLatin1();
    writeScript(QStringLiteral("snmpctl.sh"),
                "sleep 600 &\necho \"$$ $!\" > " + note + ".new\nmv " + note + ".new " + note + "\nwait\n");
    QProcess asker;
    asker.start(request(QStringLiteral("snmpctl.sh")), QStringList());
    QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(QString::fromLatin1(note)), patienceMs);
    const QList<QByteArray> pids = read(QString::fromLatin1(note)).simplified().split(' ');
    QCOMPARE(pids.size(), 2);
    QVERIFY(isAlive(pids[0]));
    QVERIFY(isAlive(pids[1]));
    asker.kill();
    QVERIFY(asker.waitForFinished(patienceMs));
    QTRY_VERIFY_WITH_TIMEOUT(!isAlive(pids[0]) && !isAlive(pids[1]), patienceMs);
    writeScript(QStringLiteral("r7m.sh"), "exit 5");
    QCOMPARE(run(QStringLiteral("r7m.sh")), 5);
}

void tst_ScriptService::backgroundChildLivesOn()
{
    const QString note = notes.filePath(QStringLiteral("daemon"));
    writeScript(QStringLiteral("mbserverstart.sh"),
                "sleep 600 < /dev/null > /dev/null 2>&1 &\necho $! > " + note.toLatin1());
    QCOMPARE(run(QStringLiteral("mbserverstart.sh")), 0);
    const QByteArray pid = read(note);
    QVERIFY(isAlive(pid));
    stopService();
    QVERIFY(isAlive(pid));
    ::kill(pid.trimmed().toInt(), SIGKILL);
}

void tst_ScriptService::scriptsWaitForEachOther()
{
    const QString gate = notes.filePath(QStringLiteral("gate"));
    const QString note = notes.filePath(QStringLiteral("order"));
    QCOMPARE(QProcess::execute(QStringLiteral("mkfifo"), {gate}), 0);
    writeScript(QStringLiteral("snmpcfg.sh"),
                "read -r word < " + gate.toLatin1() + "\necho \"$word\" >> " + note.toLatin1());
    writeScript(QStringLiteral("snmptrap.sh"), "echo second >> " + note.toLatin1());
    QProcess first;
    first.start(request(QStringLiteral("snmpcfg.sh")), QStringList());
    QFile fifo(gate);
    QVERIFY(fifo.open(QIODevice::WriteOnly)); // returns when the first script reads
    QProcess second;
    second.start(request(QStringLiteral("snmptrap.sh")), QStringList());
    QVERIFY(second.waitForStarted(patienceMs));
    fifo.write("first\n");
    fifo.close();
    QVERIFY(first.waitForFinished(patienceMs));
    QVERIFY(second.waitForFinished(patienceMs));
    QCOMPARE(read(note), QByteArray("first\nsecond\n"));
}

void tst_ScriptService::badRequests_data()
{
    QTest::addColumn<QByteArray>("octets");
    QTest::newRow("nothing") << QByteArray();
    QTest::newRow("no end of the word") << QByteArray("r7m.sh");
    QTest::newRow("one NUL") << QByteArray(1, '\0');
    QTest::newRow("path upwards") << QByteArray("../../../bin/sh", 16);
    QTest::newRow("absolute path") << QByteArray("/usr/local/bin/r7m.sh", 22);
    QTest::newRow("name with a blank behind") << QByteArray("r7m.sh ", 8);
    QTest::newRow("3 MiB") << "r7m.sh" + QByteArray(1, '\0') + QByteArray(3 * 1024 * 1024, 'x');
}

void tst_ScriptService::badRequests()
{
    QFETCH(QByteArray, octets);
    const QString note = notes.filePath(QStringLiteral("ran"));
    writeScript(QStringLiteral("r7m.sh"), "touch " + note.toLatin1());
    QLocalSocket socket;
    socket.connectToServer(socketPath);
    QVERIFY(socket.waitForConnected(patienceMs));
    socket.write(octets);
    while (socket.bytesToWrite() > 0 && socket.waitForBytesWritten(patienceMs)) {
    }
    socket.abort();
    writeScript(QStringLiteral("netcfg.sh"), "exit 7");
    QCOMPARE(run(QStringLiteral("netcfg.sh")), 7); // served after the bad one
    QVERIFY(!QFile::exists(note));
}

void tst_ScriptService::noService()
{
    stopService();
    QProcess asker;
    asker.start(request(QStringLiteral("r7m.sh")), QStringList());
    QVERIFY(asker.waitForFinished(patienceMs));
    QCOMPARE(asker.exitCode(), 126);
    QVERIFY(asker.readAllStandardError().contains("no script service at /run/varnel-scripts.socket"));
}

void tst_ScriptService::noSocketFromSystemd()
{
    QCOMPARE(QProcess::execute(QStringLiteral(SERVICE_PROGRAM), {QStringLiteral("/usr/local/bin")}), 1);
    QCOMPARE(QProcess::execute(QStringLiteral(SERVICE_PROGRAM), {QStringLiteral("bin")}), 2);
    QCOMPARE(QProcess::execute(QStringLiteral(SERVICE_PROGRAM), {}), 2);
}

QTEST_GUILESS_MAIN(tst_ScriptService)
#include "tst_scriptservice.moc"
