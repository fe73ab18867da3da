// SPDX-License-Identifier: MIT
#include "frame.h"
#include "literals.h"
#include "requesthandler.h"
#include "rows.h"

#include <QTest>

using namespace Varnel;
using namespace std::chrono_literals;

/// Registers, ages and the answers to requests, PDU by PDU.
class tst_RequestHandler : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        // 0x64 to 0x67, a gap, 0x69; the last register of all.
        store = RegisterStore();
        store.configure({{100, 4}, {105, 1}, {65535, 1}, {40000, 0}});
        QVERIFY(store.publish({{100, {0, 1, 0x1234, 0x5678}}, {65535, {0xFFFE}}}, start));
    }

    void answers_data()
    {
        const Rows<QByteArray, QByteArray> row("request", "response");
        // function, address, quantity -> function, octet count, words
        row("3, whole table", "03 0064 0004", "03 08 0000 0001 1234 5678");
        row("4, one register", "04 0066 0001", "04 02 1234");
        row("3, last register", "03 FFFF 0001", "03 02 FFFE");
        row("3, table never updated: 0", "03 0069 0001", "03 02 0000");
        row("1, bits: not 0 is set, first register in bit 0", "01 0064 0004", "01 01 0E");
        row("2, bits", "02 0065 0002", "02 01 03");

        row("3, before the table: 02", "03 0063 0001", "83 02");
        row("3, across the end: 02", "03 0067 0002", "83 02");
        row("4, across a gap between tables: 02", "04 0064 0006", "84 02");
        row("1, outside: 02", "01 0068 0001", "81 02");
        row("2, outside: 02", "02 0000 07D0", "82 02");
        row("3, past the address space: 02", "03 FFFF 0002", "83 02");
        row("4, table of length 0: 02", "04 9C40 0001", "84 02");

        row("3, none: 03", "03 0064 0000", "83 03");
        row("3, 126 words: 03", "03 0064 007E", "83 03");
        row("3, 65535 words: 03", "03 0064 FFFF", "83 03");
        row("2, 2001 bits: 03", "02 0064 07D1", "82 03");
        row("3, quantity is judged before the address", "03 0000 0000", "83 03");
        row("3, cut: 03", "03 0064 00", "83 03");
        row("3, without data: 03", "03", "83 03");
        row("3, too long: 03", "03 0064 0004 00", "83 03");

        row("6, write register: 01", "06 0064 0001", "86 01");
        row("no octet: no answer", "", "");
    }

    void answers()
    {
        QFETCH(QByteArray, request);
        QFETCH(QByteArray, response);
        QCOMPARE(answerRequest(hex(request), store, start).toHex(), hex(response).toHex());
    }

    void everyFunctionCodeIsAnswered()
    {
        for (int function = 0; function < 256; ++function) {
            for (int size = 0; size < 8; ++size) {
                const QByteArray request = static_cast<char>(function) + QByteArray(size, '\xff');
                const QByteArray response = answerRequest(request, store, start);
                QCOMPARE(response.size(), 2);
                QCOMPARE(static_cast<quint8>(response.at(0)), quint8(function | 0x80));
                QCOMPARE(response.at(1), char(function >= 1 && function <= 4 ? 3 : 1));
            }
        }
    }

    void longestAnswersFillAPdu()
    {
        store.configure({{0, 65536}});
        const std::vector<quint16> words(2000, 0xABCD);
        QVERIFY(store.publish({{0, words}}, start));
        QCOMPARE(answerRequest(hex("03 0000 007D"), store, start),
                 hex("03 FA") + QByteArray(hex("ABCD")).repeated(125));
        QCOMPARE(answerRequest(hex("01 0000 07D0"), store, start), hex("01 FA") + QByteArray(250, '\xff'));
        QCOMPARE(answerRequest(hex("01 07CF 0009"), store, start), hex("01 02 01 00"));
    }

    void updateIsPublishedWholeOrNotAtAll()
    {
        const auto publish = [this](quint16 address, size_t count) {
            return store.publish({{100, {9, 9}}, {address, std::vector<quint16>(count, 8)}}, start).refusal;
        };
        QCOMPARE(publish(104, 1).text, "1 words from address 104 are not all in a table"_s); // in a gap
        QCOMPARE(publish(103, 2).text, "2 words from address 103 are not all in a table"_s);
        QCOMPARE(publish(103, 2).kind, "BadUpdate"_s);
        QCOMPARE(answerRequest(hex("03 0064 0002"), store, start), hex("03 04 0000 0001"));
        QCOMPARE(publish(300, 0).kind, QString()); // no word outside
        QCOMPARE(publish(103, 1).kind, QString());
        QCOMPARE(answerRequest(hex("03 0064 0004"), store, start), hex("03 08 0009 0009 1234 0008"));
    }

    void laterRunsAndOverlappingTablesShareRegisters()
    {
        store.configure({{10, 4}, {12, 4}});
        QCOMPARE(store.size(), 6);
        QVERIFY(store.publish({{10, {1, 2, 3, 4}}, {12, {5, 6, 7, 8}}}, start));
        QCOMPARE(answerRequest(hex("03 000A 0006"), store, start),
                 hex("03 0C 0001 0002 0005 0006 0007 0008"));
    }

    void newTablesStartAtZero()
    {
        store.configure({{102, 2}});
        QCOMPARE(answerRequest(hex("03 0066 0002"), store, start), hex("03 04 0000 0000"));
        QCOMPARE(answerRequest(hex("03 0064 0001"), store, start), hex("83 02"));
        store.clear();
        QCOMPARE(answerRequest(hex("03 0066 0001"), store, start), hex("83 02"));
        QCOMPARE(store.size(), 0);
    }

    void oldRegistersAnswerException04()
    {
        QCOMPARE(answerRequest(hex("03 0066 0001"), store, start + 24h * 365),
                 hex("03 02 1234")); // by default
        store.setStaleAfter(10s);
        QCOMPARE(answerRequest(hex("03 0064 0001"), store, start + 9999ms), hex("03 02 0000"));
        QCOMPARE(answerRequest(hex("03 0064 0001"), store, start + 10s), hex("83 04"));
        QCOMPARE(answerRequest(hex("01 0064 0001"), store, start + 10s), hex("81 04"));
        // Refreshed, though with the same value; its neighbour was not, so a request for both is refused.
        QVERIFY(store.publish({{100, {0}}}, start + 11s));
        QCOMPARE(answerRequest(hex("03 0064 0001"), store, start + 12s), hex("03 02 0000"));
        QCOMPARE(answerRequest(hex("03 0064 0002"), store, start + 12s), hex("83 04"));
        // Never refreshed at all; and what does not exist stays exception 02.
        QCOMPARE(answerRequest(hex("03 0069 0001"), store, start), hex("83 04"));
        QCOMPARE(answerRequest(hex("03 0068 0001"), store, start), hex("83 02"));
    }

    void statusBlockTellsTheAge()
    {
        store = RegisterStore();
        store.setStatusBlock(200);
        store.configure({{100, 4}, {204, 1}});
        const auto status = [this](RegisterStore::Clock::time_point now) {
            store.refreshStatus(now);
            return answerRequest(hex("04 00C8 0004"), store, now);
        };
        QCOMPARE(status(start), hex("04 08 FFFF 0000 0000 0000")); // nothing has come
        QVERIFY(store.publish({{100, {7}}}, start));
        QCOMPARE(status(start), hex("04 08 0000 0000 0001 0001"));
        QCOMPARE(status(start + 9999ms), hex("04 08 0009 0000 0001 0001"));
        QCOMPARE(status(start + 10s), hex("04 08 000A 0000 0001 0000"));
        QCOMPARE(status(start + std::chrono::hours(100)), hex("04 08 FFFF 0000 0001 0000"));
        for (int i = 0; i < 0xFFFF; ++i) {
            QVERIFY(store.publish({}, start + 1s)); // the counter's low word passes its end
        }
        QCOMPARE(status(start + 1s), hex("04 08 0000 0001 0000 0001"));
        // The limit is that of the other registers, and the block is there when they are too old.
        store.setStaleAfter(3s);
        QCOMPARE(status(start + 3s), hex("04 08 0002 0001 0000 0001"));
        QCOMPARE(status(start + 4s), hex("04 08 0003 0001 0000 0000"));
        QCOMPARE(answerRequest(hex("03 0064 0001"), store, start + 4s), hex("83 04"));
        // No update writes there; new tables have no update yet; the counter continues.
        QCOMPARE(store.publish({{203, {1, 1}}}, start).refusal.kind, "BadUpdate"_s);
        QCOMPARE(store.size(), 5);
        store.configure({{100, 1}});
        QCOMPARE(status(start), hex("04 08 FFFF 0001 0000 0000"));
    }

private:
    const RegisterStore::Clock::time_point start{1000s};
    RegisterStore store;
};

QTEST_GUILESS_MAIN(tst_RequestHandler)
#include "tst_requesthandler.moc"
