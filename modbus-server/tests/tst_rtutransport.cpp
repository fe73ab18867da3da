// SPDX-License-Identifier: MIT
#include "literals.h"
#include "rows.h"
#include "rtutransport.h"

#include <QSignalSpy>
#include <QTest>

#include <cstdlib>
#include <fcntl.h>
#include <unistd.h>

using namespace Varnel;

namespace {

/// The far end of a serial line: the master side of a pseudo terminal. Closing it unplugs the line.
class Line
{
public:
    Line()
        : descriptor(::posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK))
    {
        if (::grantpt(descriptor) != 0 || ::unlockpt(descriptor) != 0) {
            qFatal("no pseudo terminal");
        }
    }
    ~Line() { unplug(); }
    Q_DISABLE_COPY_MOVE(Line)

    QString port() const { return QString::fromLocal8Bit(::ptsname(descriptor)); }
    bool send(const QByteArray& octets) const
    {
        return ::write(descriptor, octets.constData(), static_cast<size_t>(octets.size())) == octets.size();
    }
    /// Everything heard since the last call.
    QByteArray heard() const
    {
        char octets[512];
        const ssize_t size = ::read(descriptor, octets, sizeof octets);
        return {octets, size > 0 ? static_cast<int>(size) : 0};
    }
    void unplug()
    {
        if (descriptor >= 0) {
            ::close(descriptor);
        }
        descriptor = -1;
    }

private:
    int descriptor;
};

RtuEndpoint endpointOn(const QString& port)
{
    RtuEndpoint endpoint;
    endpoint.deviceId = 5;
    endpoint.port = port;
    endpoint.baud = 115200; // no parity: pseudo terminals have none to set
    return endpoint;
}

} // namespace

class tst_RtuTransport : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        transport.reset();
        line = std::make_unique<Line>();
        transport = std::make_unique<RtuTransport>(endpointOn(line->port()),
                                                   [](const QByteArray& pdu) { return pdu; });
        const Outcome<> opened = transport->open();
        QVERIFY2(opened, qPrintable(opened.refusal.text));
    }

    void answersItsOwnRequests()
    {
        const QByteArray pdu = QByteArray::fromHex("03 0064 0001");
        QCOMPARE(transport->clientCount(), 1);
        for (int round = 0; round < 3; ++round) {
            QVERIFY(line->send(rtuFrame(6, pdu))); // another device's
            exchange(pdu);
        }
    }

    void answersAfterSilence()
    {
        exchange(QByteArray::fromHex("07"));
        // Half a request is forgotten after silence, and the next one is heard.
        const QByteArray read = QByteArray::fromHex("04 0000 0001");
        QVERIFY(line->send(rtuFrame(5, read).left(3)));
        exchange(read);
    }

    void survivesALineThatTakesNoAnswers()
    {
        const QByteArray pdu = QByteArray::fromHex("03 0064 0001");
        for (int round = 0; round < 5000; ++round) {
            if (!line->send(rtuFrame(5, pdu))) {
                QCoreApplication::processEvents();
            }
        }
        // Old answers may be lost, but once they are read the line works.
        QTRY_VERIFY(line->heard().isEmpty());
        exchange(QByteArray::fromHex("04 0001 0001"));
    }

    void reportsTheLossOfThePort()
    {
        QSignalSpy failed(transport.get(), &Transport::failed);
        line->unplug();
        QTRY_COMPARE(failed.count(), 1);
        QCOMPARE(failed.at(0).at(0).toString(), "the port is gone"_s);
        QCOMPARE(transport->clientCount(), 0);
    }

    void refusesWhatIsNoSerialPort_data()
    {
        const Rows<QString> row("port");
        row("missing", "/dev/no-such-port"_s);
        row("null device", "/dev/null"_s);
        row("directory", "/tmp"_s);
    }

    void refusesWhatIsNoSerialPort()
    {
        QFETCH(QString, port);
        RtuTransport wrong(endpointOn(port), [](const QByteArray& pdu) { return pdu; });
        const QSignalSpy failed(&wrong, &Transport::failed);
        QVERIFY(!wrong.open().refusal.text.isEmpty());
        QCOMPARE(wrong.clientCount(), 0);
        QCOMPARE(failed.count(), 0); // open() has said it already
    }

private:
    /// Sends a request; its answer, the same text here, ends what is heard.
    void exchange(const QByteArray& pdu) const
    {
        QVERIFY(line->send(rtuFrame(5, pdu)));
        QByteArray heard;
        QTRY_VERIFY((heard += line->heard()).endsWith(rtuFrame(5, pdu)));
    }

    std::unique_ptr<Line> line;
    std::unique_ptr<RtuTransport> transport;
};

QTEST_GUILESS_MAIN(tst_RtuTransport)
#include "tst_rtutransport.moc"
