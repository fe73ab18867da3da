// SPDX-License-Identifier: MIT
#include "fieldreader.h"
#include "frame.h"
#include "literals.h"
#include "rows.h"

using Varnel::FieldReader;

/// Reads of little-endian fields, and what happens past the end.
class tst_FieldReader : public QObject
{
    Q_OBJECT

private slots:
    void valuesAreLittleEndian()
    {
        const QByteArray octets = hex("ce | 01 02 | 80 ff fe fd | c0 a8 01 0a");
        FieldReader reader(octets);
        QCOMPARE(reader.u8(0), quint8(0xCE));
        QCOMPARE(reader.u16(1), quint16(0x0201)); // none of them at a multiple of its size
        QCOMPARE(reader.u32(3), quint32(0xFDFEFF80));
        QCOMPARE(reader.ipv4(7), quint32(0xC0A8010A)); // 192.168.1.10, network order
        QVERIFY(reader.ok());
    }

    void readsUpToTheLastOctet_data()
    {
        const Rows<int, int, bool> add("width", "offset", "inside");
        for (const int width : {1, 2, 4}) {
            const auto row = [&add, width](const char* where, int offset, bool inside) {
                add(qPrintable("%1 octets %2"_s.arg(width).arg(QLatin1String(where))), width, offset, inside);
            };
            row("at the start: read", 0, true);
            row("that end with the data: read", 6 - width, true);
            row("one too far: 0", 7 - width, false);
            row("at the largest offset: 0", std::numeric_limits<int>::max(), false);
            row("before the start: 0", -1, false);
            row("at the smallest offset: 0", std::numeric_limits<int>::min(), false);
        }
    }

    void readsUpToTheLastOctet()
    {
        QFETCH(int, width);
        QFETCH(int, offset);
        QFETCH(bool, inside);
        const QByteArray octets = hex("11 11 11 11 11 11");
        FieldReader reader(octets);
        const quint32 value = width == 1   ? reader.u8(offset)
                              : width == 2 ? reader.u16(offset)
                                           : reader.u32(offset);
        QCOMPARE(value, inside ? 0x11111111U >> unsigned(32 - 8 * width) : 0U);
        QCOMPARE(reader.ok(), inside);
    }

    void oneReadPastTheEndIsRemembered()
    {
        const QByteArray octets = hex("01 02 03");
        FieldReader reader(octets);
        QCOMPARE(reader.u32(0), 0U);
        QCOMPARE(reader.u16(1), quint16(0x0302));
        QVERIFY(!reader.ok());

        const QByteArray nothing;
        FieldReader ofNothing(nothing);
        QVERIFY(ofNothing.ok());
        QCOMPARE(ofNothing.u8(0), quint8(0));
        QVERIFY(!ofNothing.ok());
    }

    void texts_data()
    {
        const Rows<int, int, QString, bool> row("offset", "width", "text", "inside");
        const QString none;
        row("NUL inside: up to it", 0, 4, "fr"_s, true);
        row("no NUL: full width", 4, 3, "abc"_s, true);
        row("beyond ASCII: Latin-1", 7, 1, "\u00e9"_s, true);
        row("NUL first: empty", 2, 2, none, true);
        row("no width: empty", 8, 0, none, true);
        row("one octet past the end: nothing of it", 4, 5, none, false);
        row("past the end: nothing", 9, 1, none, false);
        row("before the start: nothing", -1, 2, none, false);
        row("negative width: nothing", 0, -1, none, false);
        row("far past the end: nothing", std::numeric_limits<int>::max(), 8, none, false);
    }

    void texts()
    {
        QFETCH(int, offset);
        QFETCH(int, width);
        const QByteArray octets = hex("66 72 00 00 | 61 62 63 e9");
        FieldReader reader(octets);
        QTEST(reader.latin1(offset, width), "text");
        QTEST(reader.ok(), "inside");
    }
};

QTEST_GUILESS_MAIN(tst_FieldReader)
#include "tst_fieldreader.moc"
