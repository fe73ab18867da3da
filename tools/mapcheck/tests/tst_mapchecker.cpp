// SPDX-License-Identifier: MIT
#include <QtTest>

#include "logrecorder.h"
#include "mapchecker.h"
#include "mapdefects.h"
#include "mappingfile.h"
#include "rows.h"

namespace {

const char* const severities[] = {"warning", "error"};

QStringList findingsOf(const QByteArray& text)
{
    const LogRecorder log;
    Varnel::ModbusInterface bridge;
    std::ignore = loadMapping(&bridge, text);
    QStringList lines;
    const MapChecker checker(text, &bridge);
    for (const Finding& finding : checker.findings()) {
        lines << "%1: %2: %3"_s.arg(finding.line)
                     .arg(QLatin1String(severities[int(finding.severity)]), finding.text);
    }
    return lines;
}

} // namespace

/// The checker's findings in mappings with one defect each, and in hostile texts.
class tst_MapChecker : public QObject
{
    Q_OBJECT

private slots:
    void defects_data()
    {
        const Rows<QByteArray, QStringList> row("mapping", "findings");
        for (const MapDefect& defect : mapDefects()) {
            row(defect.name.constData(), defect.mapping, defect.findings);
        }
        row("none", mapData("fault-free.map"), {});
        row("the sample: none", contentOf(VARNEL_SOURCE_DIR "/device/modbus.map"_s), {});
    }

    void defects()
    {
        QFETCH(QByteArray, mapping);
        QTEST(findingsOf(mapping), "findings");
    }

    void hostileTexts_data()
    {
        const Rows<QByteArray> row("text");
        row("10 000 deep: one error", QByteArray(10000, '[') + QByteArray(10000, ']'));
        row("a NUL: an error", QByteArray("{\"ci\": {}, \0}", 13));
        row("wrong kinds everywhere: errors",
            R"({"info": 1, "ci": {"types": [], "classes": {"c": 1, "d": {"id": [], "fields": 3}}},
            "registers": [1, null, [], {}, {"id": {}, "name": [], "mb_type": 1, "ci_class": {}, "ci_field": 2,
            "ci_index": "x", "ci_type": null, "default": {}}, {"id": 1, "name": "", "mb_type": "", "ci_class": "c",
            "ci_field": "", "ci_index": 0, "ci_type": ""}],
            "tables": [1, {}, {"name": 1, "mode": 1, "address": "x", "registers": {}},
            {"name": "", "mode": "r", "address": -1, "registers": [null, {}, "1", 1.5, -2147483648]}]})");
        row("sections of wrong kinds: errors", R"({"ci": [], "registers": {}, "tables": 1})");
    }

    void hostileTexts()
    {
        QFETCH(QByteArray, text);
        const QStringList findings = findingsOf(text);
        QVERIFY(!findings.filter(": error: "_s).isEmpty());
    }
};

QTEST_GUILESS_MAIN(tst_MapChecker)

#include "tst_mapchecker.moc"
