// SPDX-License-Identifier: MIT
// Both ends with real scripts: what the panel asks for is what runs, what it gives up is killed, and nothing
// else can be run.
#include <csignal>
#include <memory>
#include <vector>

#include <QDir>
#include <QElapsedTimer>
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
    void whoeverGivesUpKillsTheScript_data();
    void whoeverGivesUpKillsTheScript();
    void backgroundChildLivesOn();
    void scriptsWaitForEachOther();
    void whatEarlierScriptsLeftSurvivesAKill();
    void noDescriptorReachesAScript();
    void scriptsThatOthersCanChangeAreNotRun_data();
    void scriptsThatOthersCanChangeAreNotRun();
    void slowSendersHoldNobodyUp();
    void badRequests_data();
    void badRequests();
    void noService();
    void noSocketFromSystemd();

private:
    /// The path by which the panel would run the script `name`.
    QString request(const QString& name)
    {
        QString path = requests.filePath(name);
        QFile::link(QStringLiteral(VARNEL_PROGRAM_DIR "/varnel-script-request"), path);
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
                  {QStringLiteral("--listen=") + socketPath,
                   QStringLiteral(VARNEL_PROGRAM_DIR "/varnel-script-service"),
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

void tst_ScriptService::whoeverGivesUpKillsTheScript_data()
{
    QTest::addColumn<QByteArray>("child");
    QTest::newRow("in the script's group") << QByteArray("sh -c");
    QTest::newRow("under timeout, in a group of its own") << QByteArray("timeout 600 sh -c");
    QTest::newRow("in a session of its own") << QByteArray("setsid --fork sh -c");
    QTest::newRow("in a session of its own, deaf to signals")
        << QByteArray("setsid --fork sh -c 'trap \"\" TERM HUP INT; sh -c \"$0\"'");
}

void tst_ScriptService::whoeverGivesUpKillsTheScript()
{
    QFETCH(QByteArray, child);
    const QByteArray note = notes.filePath(QStringLiteral("pids")).toLatin1();
    QFile::remove(QString::fromLatin1(note));
    writeScript(QStringLiteral("snmpctl.sh"), "self=$$\nexport self\n" + child + " 'echo \"$self $$\" > " +
                                                  note + ".new; mv " + note + ".new " + note +
                                                  "; sleep 600' &\nsleep 600\n");
    QProcess asker;
    asker.start(request(QStringLiteral("snmpctl.sh")), QStringList());
    QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(QString::fromLatin1(note)), patienceMs);
    const QList<QByteArray> pids = read(QString::fromLatin1(note)).simplified().split(' ');
    QCOMPARE(pids.size(), 2);
    QVERIFY(isAlive(pids[0]));
    QVERIFY(isAlive(pids[1]));
    service.readAll();
    asker.kill();
    QVERIFY(asker.waitForFinished(patienceMs));
    QTRY_VERIFY_WITH_TIMEOUT(!isAlive(pids[0]) && !isAlive(pids[1]), patienceMs);
    QByteArray log;
    QTRY_VERIFY2(
        (log += service.readAll())
            .contains("killing snmpctl.sh with all it has started: the panel no longer waits for it\n"),
        log);
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

void tst_ScriptService::whatEarlierScriptsLeftSurvivesAKill()
{
    const QString note = notes.filePath(QStringLiteral("earlier"));
    writeScript(QStringLiteral("netcfg.sh"), "setsid --fork sh -c 'echo $$ > " + note.toLatin1() +
                                                 "; exec sleep 600' < /dev/null > /dev/null 2>&1");
    QCOMPARE(run(QStringLiteral("netcfg.sh")), 0);
    QTRY_VERIFY(read(note).endsWith('\n'));
    const QByteArray pid = read(note);
    const QString begun = notes.filePath(QStringLiteral("begun"));
    writeScript(QStringLiteral("r7m.sh"), "touch " + begun.toLatin1() + "\nsleep 600");
    QProcess asker;
    asker.start(request(QStringLiteral("r7m.sh")), QStringList());
    QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(begun), patienceMs);
    asker.kill();
    QVERIFY(asker.waitForFinished(patienceMs));
    writeScript(QStringLiteral("r7m.sh"), "exit 6");
    QCOMPARE(run(QStringLiteral("r7m.sh")), 6);
    QVERIFY(isAlive(pid));
    ::kill(pid.trimmed().toInt(), SIGKILL);
}

void tst_ScriptService::noDescriptorReachesAScript()
{
    const QString note = notes.filePath(QStringLiteral("descriptors"));
    writeScript(QStringLiteral("r7m.sh"), "exec ls /proc/self/fd > " + note.toLatin1());
    QLocalSocket other; // a connection that sends meanwhile
    other.connectToServer(socketPath);
    QVERIFY(other.waitForConnected(patienceMs));
    QCOMPARE(run(QStringLiteral("r7m.sh")), 0);
    QCOMPARE(read(note).simplified(),
             QByteArray("0 1 2 3")); // 3 is the directory that ls reads
}

void tst_ScriptService::scriptsThatOthersCanChangeAreNotRun_data()
{
    QTest::addColumn<QByteArray>("commands");
    QTest::addColumn<QByteArray>("undo");
    QTest::addColumn<QByteArray>("where");
    QTest::newRow("file") << QByteArray("chmod o+w /usr/local/bin/r7m.sh") << QByteArray("true")
                          << QByteArray("/usr/local/bin/r7m.sh");
    QTest::newRow("directory") << QByteArray("chmod o+w /usr/local/bin")
                               << QByteArray("chmod o-w /usr/local/bin") << QByteArray("/usr/local/bin");
    QTest::newRow("behind a link")
        << QByteArray("mkdir -m 0777 /run/elsewhere; mv /usr/local/bin/r7m.sh /run/elsewhere/r7m.sh; "
                      "ln -s /run/elsewhere/r7m.sh /usr/local/bin/r7m.sh")
        << QByteArray("rm -r /run/elsewhere /usr/local/bin/r7m.sh") << QByteArray("/run/elsewhere");
}

void tst_ScriptService::scriptsThatOthersCanChangeAreNotRun()
{
    QFETCH(QByteArray, commands);
    QFETCH(QByteArray, undo);
    QFETCH(QByteArray, where);
    writeScript(QStringLiteral("r7m.sh"), "exit 0");
    const auto shell = [](const QByteArray& text) {
        return QProcess::execute(QStringLiteral("sh"), {QStringLiteral("-c"), QString::fromLatin1(text)});
    };
    QCOMPARE(shell(commands), 0);
    const int status = run(QStringLiteral("r7m.sh"), {QStringLiteral("secret")});
    QCOMPARE(shell(undo), 0);
    QCOMPARE(status, 126);
    QByteArray log;
    QTRY_VERIFY(
        (log += service.readAll()).contains("refused r7m.sh: others than root can write to " + where + '\n'));
    QVERIFY(!log.contains("secret"));
}

void tst_ScriptService::slowSendersHoldNobodyUp()
{
    writeScript(QStringLiteral("r7m.sh"), "exit 4");
    std::vector<std::unique_ptr<QLocalSocket>> slow;
    for (int i = 0; i < 20; ++i) { // more than there are places
        slow.push_back(std::make_unique<QLocalSocket>());
        slow.back()->connectToServer(socketPath);
        QVERIFY(slow.back()->waitForConnected(patienceMs));
        slow.back()->write("r7m");
        QVERIFY(slow.back()->flush());
    }
    QElapsedTimer timer;
    timer.start();
    QCOMPARE(run(QStringLiteral("r7m.sh")), 4);
    QVERIFY2(timer.elapsed() < 3000, qPrintable(QString::number(timer.elapsed())));
    // A sender that never stops has the same time limit for all its data.
    QLocalSocket& last = *slow.back();
    const auto isOver = [&last] {
        last.write("x");
        last.flush();
        return last.state() == QLocalSocket::UnconnectedState;
    };
    QTRY_VERIFY_WITH_TIMEOUT(isOver(), patienceMs);
    QVERIFY2(timer.elapsed() < 9000, qPrintable(QString::number(timer.elapsed())));
    QByteArray log;
    QTRY_VERIFY((log += service.readAll()).contains("refused a request: it did not end in time\n"));
    QVERIFY(log.contains("refused a request: there are too many at the same time\n"));
}

void tst_ScriptService::badRequests_data()
{
    QTest::addColumn<QByteArray>("octets");
    QTest::newRow("nothing") << QByteArray();
    QTest::newRow("path upwards") << QByteArray("../../../bin/sh", 16);
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
    QCOMPARE(QProcess::execute(QStringLiteral(VARNEL_PROGRAM_DIR "/varnel-script-service"),
                               {QStringLiteral("/usr/local/bin")}),
             1);
    QCOMPARE(QProcess::execute(QStringLiteral(VARNEL_PROGRAM_DIR "/varnel-script-service"),
                               {QStringLiteral("bin")}),
             2);
    QCOMPARE(QProcess::execute(QStringLiteral(VARNEL_PROGRAM_DIR "/varnel-script-service"), {}), 2);
}

QTEST_GUILESS_MAIN(tst_ScriptService)
#include "tst_scriptservice.moc"
