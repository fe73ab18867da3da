// SPDX-License-Identifier: MIT
// The requests that the service accepts, and its messages when it refuses one.
#include <QTest>

#include "plain.h"
#include "protocol.h"
#include "rows.h"

using ScriptService::ScriptRequest;

namespace {

QByteArray nul(int count = 1)
{
    return QByteArray(count, '\0');
}

} // namespace

class tst_ScriptProtocol : public QObject
{
    Q_OBJECT

private slots:
    void acceptsTheMostWords()
    {
        const ScriptRequest request = ScriptService::parse(("snmpcfg.sh" + nul(64)).toStdString());
        QCOMPARE(QByteArray::fromStdString(request.refusal), QByteArray());
        QCOMPARE(request.words.size(), std::size_t(64));
    }

    void refuses_data()
    {
        const Rows<QByteArray, QByteArray> row("octets", "refusal");
        row("nothing", {}, "refused a request: it is empty");
        row("one NUL", nul(), "refused : no script of the panel");
        row("no end", "r7m.sh", "refused r7m.sh: the request is cut off");
        row("no end of the last word", "r7m.sh" + nul() + "add", "refused r7m.sh: the request is cut off");
        row("path upwards", "../../../bin/sh" + nul(), "refused ../../../bin/sh: no script of the panel");
        row("absolute path", "/usr/local/bin/r7m.sh" + nul(),
            "refused /usr/local/bin/r7m.sh: no script of the panel");
        row("blank behind", "r7m.sh " + nul(), "refused r7m.sh : no script of the panel");
        row("beginning of a name", "r7m" + nul(), "refused r7m: no script of the panel");
        row("capitals", "R7M.SH" + nul(), "refused R7M.SH: no script of the panel");
        row("control characters", "r7m\x1b[2J\n\xe9.sh" + nul(),
            "refused r7m?[2J??.sh: no script of the panel");
        row("long name", QByteArray(60, 'a') + nul(),
            "refused aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa...: no script of the panel");
        row("secrets behind the name are not told", "snmpcfg.sh" + nul() + "secret",
            "refused snmpcfg.sh: the request is cut off");
        row("65 words", "snmpcfg.sh" + nul(65), "refused snmpcfg.sh: it has too many arguments");
        row("too long", "r7m.sh" + nul() + QByteArray(2 * 1024 * 1024, 'x') + nul(),
            "refused r7m.sh: the request is too long");
    }

    void refuses()
    {
        QFETCH(QByteArray, octets);
        const ScriptRequest request = ScriptService::parse(octets.toStdString());
        QVERIFY(request.words.empty());
        QTEST(QByteArray::fromStdString(request.refusal), "refusal");
    }

    void printable_data()
    {
        const Rows<QByteArray, QByteArray> row("text", "shown");
        row("plain", "a b~", "a b~");
        row("control", QByteArray("a\tb\r\n\x1b\x7f", 7), "a?b????");
        row("NUL and high octets", QByteArray("\0\xc3\xa9", 3), "???");
        row("longest", QByteArray(200, 'x'), QByteArray(200, 'x'));
        row("longer", QByteArray(201, 'x'), QByteArray(200, 'x') + "...");
    }

    void printable()
    {
        QFETCH(QByteArray, text);
        QTEST(QByteArray::fromStdString(Varnel::printable(text.toStdString())), "shown");
    }
};

QTEST_APPLESS_MAIN(tst_ScriptProtocol)
#include "tst_scriptprotocol.moc"
