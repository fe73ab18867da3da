// SPDX-License-Identifier: MIT
// The fault campaign: each fault while frames, page loads and Modbus reads go on. What the user sees, how
// long it takes until all works again, and that a signal ends the panel in order meanwhile.

#include <cstdio>
#include <tuple>

#include <QTest>

#include "fault.h"

namespace {

Faults allFaults()
{
    Faults all;
    for (const auto& part : {controllerFaults(), serverFaults(), networkFaults(), scriptFaults(),
                             storageFaults(), clockFaults()}) {
        all.insert(all.end(), part.begin(), part.end());
    }
    return all;
}

/// The first line of the log that says what is wrong; empty when the panel has nothing to say.
QString reason(const Fault& fault, FaultBench& bench)
{
    const QRegularExpression pattern(QString::fromUtf8(fault.line));
    const QString line =
        pattern.pattern().isEmpty() ? QString() : bench.panel.log().lines().filter(pattern).value(0);
    return QString(line).replace("<now>"_s, "<time>"_s); // as the documentation of the log has it
}

/// A line for scripts/faults: fields separated by tabulators.
void report(const char* kind, const Fault& fault, double seconds, const QString& line)
{
    std::ignore = std::printf("\n%s\t%s\t%.1f\t%s\t%s\t%s\n", kind, fault.name, seconds, fault.sees,
                              fault.lost, qPrintable(line));
    std::ignore = std::fflush(stdout);
}

} // namespace

class tst_Faults : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { QVERIFY(screen.start()); }

    void recovers_data() { addRows(); }

    void recovers()
    {
        QFETCH(int, number);
        const Fault& fault = faults.at(static_cast<std::size_t>(number));
        FaultBench bench(screen);
        QVERIFY(bringIn(fault, bench));
        QVERIFY(fault.end(bench));
        bench.mark();
        QVERIFY(fault.push(bench));
        bench.mark();
        const double seconds = bench.awaitWorking(fault.recoveryLimit);
        QVERIFY(seconds >= 0);
        QVERIFY(bench.answersTouch());
        QCOMPARE(bench.panel.stop(), 0);
        report("recovery", fault, seconds, reason(fault, bench));
    }

    void endsInOrder_data() { addRows(); }

    void endsInOrder()
    {
        QFETCH(int, number);
        const Fault& fault = faults.at(static_cast<std::size_t>(number));
        FaultBench bench(screen);
        QVERIFY(bringIn(fault, bench));
        bench.panel.log().skip();
        QElapsedTimer timer;
        timer.start();
        bench.panel.signal(SIGTERM);
        QVERIFY(bench.panel.awaitEnd(fault.endLimit + patience));
        const double seconds = static_cast<double>(timer.elapsed()) / 1000;
        QCOMPARE(bench.panel.exitStatus(), 0);
        QVERIFY(bench.panel.log().await("UDP stop"_s));
        QVERIFY2(seconds <= static_cast<double>(fault.endLimit.count()),
                 qPrintable(QString::number(seconds)));
        QVERIFY(fault.end(bench));
        report("end", fault, seconds, reason(fault, bench));
    }

private:
    void addRows() const
    {
        QTest::addColumn<int>("number");
        for (std::size_t i = 0; i < faults.size(); ++i) {
            QTest::newRow(faults[i].name) << static_cast<int>(i);
        }
    }

    /// Starts everything, puts the fault in and waits until it is seen and logged.
    bool bringIn(const Fault& fault, FaultBench& bench)
    {
        if (!fault.prepare(bench) || !bench.start(fault.served)) {
            return false;
        }
        bench.panel.log().skip();
        if (!fault.inject(bench) || !fault.observe(bench)) {
            return false;
        }
        return *fault.line == '\0' || awaitTrue([&] { return !reason(fault, bench).isEmpty(); });
    }

    const Faults faults = allFaults();
    VirtualScreen screen;
};

QTEST_GUILESS_MAIN(tst_Faults)
#include "tst_faults.moc"
