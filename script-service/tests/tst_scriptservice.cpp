// SPDX-License-Identifier: MIT
// Both ends with real scripts: what the panel asks for is what runs, what it gives up is killed, and nothing
// else can be run.
#include <csignal>
#include <memory>
#include <vector>

#include <QElapsedTimer>
#include <QLocalSocket>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include "files.h"
#include "program.h"
#include "rows.h"

namespace {

const auto socketPath = "/run/varnel-scripts.socket"_s;
const auto scriptDir = "/usr/local/bin/"_s;
constexpr int patienceMs = 20000;

void writeScript(const QString& name, const QByteArray& commands)
{
    writeFile(scriptDir + name, "#!/bin/sh\n" + commands);
    QFile::setPermissions(scriptDir + name, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
}

QStringList words(const char* text)
{
    return QString::fromLatin1(text).split(QLatin1Char('|'));
}

bool isAlive(const QByteArray& pid)
{
    // A zombie still takes signals; its parent may be slow to reap it.
    const QByteArray status = contentOf("/proc/%1/stat"_s.arg(pid.trimmed().toInt()));
    return !status.isEmpty() && !status.contains(") Z ");
}

} // namespace

class tst_ScriptService : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        service = std::make_unique<Program>("/usr/bin/systemd-socket-activate"_s);
        QVERIFY(service->start(
            {"--listen="_s + socketPath, VARNEL_PROGRAM_DIR "/varnel-script-service"_s, "/usr/local/bin"_s}));
        QVERIFY(said("Listening on %1 as 3."_s.arg(socketPath)));
        QVERIFY(QFile::exists(socketPath));
    }

    void cleanup()
    {
        stopService();
        const QStringList scripts = QDir(scriptDir).entryList(QDir::Files);
        for (const QString& script : scripts) {
            QFile::remove(scriptDir + script);
        }
    }

    void argumentsArriveAsTheyAre_data()
    {
        const Rows<QStringList> row("arguments");
        row("none", {});
        row("plain", words("add|192.168.7.2|502"));
        row("blanks, quotes, line end, others", words("a b|\"c'|d\ne|$HOME `id`|*|\x1b\xff"));
        row("empty ones", words("|x|"));
        row("leading dash", words("-rf|--help"));
        row("100 KiB of JSON", QStringList(QString(100 * 1024, QLatin1Char('7'))));
    }

    void argumentsArriveAsTheyAre()
    {
        QFETCH(QStringList, arguments);
        const QString note = notes.filePath("arguments"_s);
        QFile::remove(note);
        writeScript("r7m.sh"_s, "printf '%s\\0' \"$0\" \"$@\" > " + note.toLatin1() + "\n");
        QCOMPARE(run("r7m.sh"_s, arguments), 0);
        QByteArray expected("/usr/local/bin/r7m.sh");
        expected.append('\0');
        for (const QString& argument : qAsConst(arguments)) {
            expected.append(argument.toUtf8()).append('\0');
        }
        QCOMPARE(contentOf(note), expected);
    }

    void statusComesBack_data()
    {
        const Rows<QByteArray, int> row("commands", "status");
        row("0", "exit 0", 0);
        row("3", "exit 3", 3);
        row("255", "exit 255", 255);
        row("ended by a signal: 137", "kill -TERM $$", 137);
    }

    void statusComesBack()
    {
        QFETCH(QByteArray, commands);
        QFETCH(int, status);
        writeScript("netcfg.sh"_s, commands);
        QCOMPARE(run("netcfg.sh"_s), status);
        QCOMPARE(run("netcfg.sh"_s), status); // the service is there for the next one
    }

    void missingScript()
    {
        QCOMPARE(run("modbuscfg.sh"_s), 127);
        QVERIFY(said("no script /usr/local/bin/modbuscfg.sh, do nothing"_s));
    }

    void notExecutable()
    {
        // Not even root may run a file that nobody may execute.
        writeScript("r7m.sh"_s, "exit 0");
        QFile::setPermissions(scriptDir + "r7m.sh"_s, QFile::ReadOwner);
        QCOMPARE(run("r7m.sh"_s), 127);
    }

    void nameOutsideTheList()
    {
        writeScript("usbdrive.sh"_s, "touch " + notes.filePath("broken-in"_s).toLatin1()); // systemd runs it
        QCOMPARE(run("usbdrive.sh"_s), 126);
        QVERIFY(!QFile::exists(notes.filePath("broken-in"_s)));
    }

    void whoeverGivesUpKillsTheScript_data()
    {
        const Rows<QByteArray> row("child");
        row("in the script's group", "sh -c");
        row("under timeout, in a group of its own", "timeout 600 sh -c");
        row("in a session of its own", "setsid --fork sh -c");
        row("in a session of its own, deaf to signals",
            "setsid --fork sh -c 'trap \"\" TERM HUP INT; sh -c \"$0\"'");
    }

    void whoeverGivesUpKillsTheScript()
    {
        QFETCH(QByteArray, child);
        const QByteArray note = notes.filePath("pids"_s).toLatin1();
        QFile::remove(QString::fromLatin1(note));
        writeScript("snmpctl.sh"_s, "self=$$\nexport self\n" + child + " 'echo \"$self $$\" > " + note +
                                        ".new; mv " + note + ".new " + note + "; sleep 600' &\nsleep 600\n");
        QProcess asker;
        asker.start(request("snmpctl.sh"_s), QStringList());
        QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(QString::fromLatin1(note)), patienceMs);
        const QList<QByteArray> pids = contentOf(QString::fromLatin1(note)).simplified().split(' ');
        QCOMPARE(pids.size(), 2);
        QVERIFY(isAlive(pids[0]));
        QVERIFY(isAlive(pids[1]));
        service->log().skip();
        asker.kill();
        QVERIFY(asker.waitForFinished(patienceMs));
        QTRY_VERIFY_WITH_TIMEOUT(!isAlive(pids[0]) && !isAlive(pids[1]), patienceMs);
        QVERIFY(said("killing snmpctl.sh with all it has started: the panel no longer waits for it"_s));
        writeScript("r7m.sh"_s, "exit 5");
        QCOMPARE(run("r7m.sh"_s), 5);
    }

    void backgroundChildLivesOn()
    {
        const QString note = notes.filePath("daemon"_s);
        writeScript("mbserverstart.sh"_s,
                    "sleep 600 < /dev/null > /dev/null 2>&1 &\necho $! > " + note.toLatin1());
        QCOMPARE(run("mbserverstart.sh"_s), 0);
        const QByteArray pid = contentOf(note);
        QVERIFY(isAlive(pid));
        stopService();
        QVERIFY(isAlive(pid));
        ::kill(pid.trimmed().toInt(), SIGKILL);
    }

    void scriptsWaitForEachOther()
    {
        const QString gate = notes.filePath("gate"_s);
        const QString note = notes.filePath("order"_s);
        QCOMPARE(QProcess::execute("mkfifo"_s, {gate}), 0);
        writeScript("snmpcfg.sh"_s,
                    "read -r word < " + gate.toLatin1() + "\necho \"$word\" >> " + note.toLatin1());
        writeScript("snmptrap.sh"_s, "echo second >> " + note.toLatin1());
        QProcess first;
        first.start(request("snmpcfg.sh"_s), QStringList());
        QFile fifo(gate);
        QVERIFY(fifo.open(QIODevice::WriteOnly)); // returns when the first script reads
        QProcess second;
        second.start(request("snmptrap.sh"_s), QStringList());
        QVERIFY(second.waitForStarted(patienceMs));
        fifo.write("first\n");
        fifo.close();
        QVERIFY(first.waitForFinished(patienceMs));
        QVERIFY(second.waitForFinished(patienceMs));
        QCOMPARE(contentOf(note), QByteArray("first\nsecond\n"));
    }

    void whatEarlierScriptsLeftSurvivesAKill()
    {
        const QString note = notes.filePath("earlier"_s);
        writeScript("netcfg.sh"_s, "setsid --fork sh -c 'echo $$ > " + note.toLatin1() +
                                       "; exec sleep 600' < /dev/null > /dev/null 2>&1");
        QCOMPARE(run("netcfg.sh"_s), 0);
        QTRY_VERIFY(contentOf(note).endsWith('\n'));
        const QByteArray pid = contentOf(note);
        const QString begun = notes.filePath("begun"_s);
        writeScript("r7m.sh"_s, "touch " + begun.toLatin1() + "\nsleep 600");
        QProcess asker;
        asker.start(request("r7m.sh"_s), QStringList());
        QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(begun), patienceMs);
        asker.kill();
        QVERIFY(asker.waitForFinished(patienceMs));
        writeScript("r7m.sh"_s, "exit 6");
        QCOMPARE(run("r7m.sh"_s), 6);
        QVERIFY(isAlive(pid));
        ::kill(pid.trimmed().toInt(), SIGKILL);
    }

    void noDescriptorReachesAScript()
    {
        const QString note = notes.filePath("descriptors"_s);
        writeScript("r7m.sh"_s, "exec ls /proc/self/fd > " + note.toLatin1());
        QLocalSocket other; // a connection that sends meanwhile
        other.connectToServer(socketPath);
        QVERIFY(other.waitForConnected(patienceMs));
        QCOMPARE(run("r7m.sh"_s), 0);
        QCOMPARE(contentOf(note).simplified(), QByteArray("0 1 2 3")); // 3 is the directory that ls reads
    }

    void scriptsThatOthersCanChangeAreNotRun_data()
    {
        const Rows<QString, QString, QString> row("commands", "undo", "where");
        row("file", "chmod o+w /usr/local/bin/r7m.sh"_s, "true"_s, "/usr/local/bin/r7m.sh"_s);
        row("directory", "chmod o+w /usr/local/bin"_s, "chmod o-w /usr/local/bin"_s, "/usr/local/bin"_s);
        row("behind a link",
            "mkdir -m 0777 /run/elsewhere; mv /usr/local/bin/r7m.sh /run/elsewhere; "
            "ln -s /run/elsewhere/r7m.sh /usr/local/bin"_s,
            "rm -r /run/elsewhere /usr/local/bin/r7m.sh"_s, "/run/elsewhere"_s);
    }

    void scriptsThatOthersCanChangeAreNotRun()
    {
        QFETCH(QString, commands);
        QFETCH(QString, undo);
        QFETCH(QString, where);
        writeScript("r7m.sh"_s, "exit 0");
        QCOMPARE(QProcess::execute("sh"_s, {"-c"_s, commands}), 0);
        const int status = run("r7m.sh"_s, {"secret"_s});
        QCOMPARE(QProcess::execute("sh"_s, {"-c"_s, undo}), 0);
        QCOMPARE(status, 126);
        QVERIFY(said("refused r7m.sh: others than root can write to "_s + where));
        QVERIFY(service->log().lines().filter("secret"_s).isEmpty());
    }

    void slowSendersHoldNobodyUp()
    {
        writeScript("r7m.sh"_s, "exit 4");
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
        QCOMPARE(run("r7m.sh"_s), 4);
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
        QVERIFY(said("refused a request: there are too many at the same time"_s));
        QVERIFY(said("refused a request: it did not end in time"_s));
    }

    void badRequests_data()
    {
        const Rows<QByteArray> row("octets");
        row("nothing", {});
        row("3 MiB", "r7m.sh" + QByteArray(1, '\0') + QByteArray(3 * 1024 * 1024, 'x'));
    }

    void badRequests()
    {
        QFETCH(QByteArray, octets);
        const QString note = notes.filePath("ran"_s);
        writeScript("r7m.sh"_s, "touch " + note.toLatin1());
        QLocalSocket socket;
        socket.connectToServer(socketPath);
        QVERIFY(socket.waitForConnected(patienceMs));
        socket.write(octets);
        while (socket.bytesToWrite() > 0 && socket.waitForBytesWritten(patienceMs)) {
        }
        socket.abort();
        writeScript("netcfg.sh"_s, "exit 7");
        QCOMPARE(run("netcfg.sh"_s), 7); // served after the bad one
        QVERIFY(!QFile::exists(note));
    }

    void noService()
    {
        stopService();
        const ProgramRun asked = runProgram(request("r7m.sh"_s), {});
        QCOMPARE(asked.status, 126);
        QVERIFY(asked.errors.contains("no script service at /run/varnel-scripts.socket"));
    }

    void noSocketFromSystemd()
    {
        const auto status = [](const QStringList& arguments) {
            return runProgram("varnel-script-service"_s, arguments).status;
        };
        QCOMPARE(status({"/usr/local/bin"_s}), 1);
        QCOMPARE(status({"bin"_s}), 2);
        QCOMPARE(status({}), 2);
    }

private:
    /// The path by which the panel would run the script `name`.
    QString request(const QString& name)
    {
        QString path = requests.filePath(name);
        QFile::link(VARNEL_PROGRAM_DIR "/varnel-script-request"_s, path);
        return path;
    }

    void stopService()
    {
        service.reset();
        QFile::remove(socketPath);
    }

    /// The service says so, behind what it said before.
    bool said(const QString& text)
    {
        return service->log().await(QRegularExpression(QRegularExpression::escape(text) + QLatin1Char('$')));
    }
    int run(const QString& name, const QStringList& arguments = {})
    {
        return QProcess::execute(request(name), arguments);
    }

    QTemporaryDir requests;
    QTemporaryDir notes;
    std::unique_ptr<Program> service;
};

QTEST_GUILESS_MAIN(tst_ScriptService)
#include "tst_scriptservice.moc"
