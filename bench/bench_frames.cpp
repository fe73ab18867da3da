// SPDX-License-Identifier: MIT
// CPU time of a frame's checksum, and of a frame: the controller link against a bare socket loop that
// computes a table CRC. Datagrams are put into the sockets first; the benchmark measures reading and handling
// them, as after a wake-up. To be run in the sandbox: without scripts, and with GPIO lines that no program
// uses. Options: --rounds N,
// --quick.
#include <memory>

#include <QApplication>
#include <QtDebug>

#include "crc16.h"
#include "figures.h"
#include "floorloop.h"
#include "frame.h"
#include "kermit.h"
#include "mainwindow.h"
#include "rawcontroller.h"
#include "udphandler.h"

using namespace VarnelBench;

namespace {

const auto loopback = QStringLiteral("127.0.0.1");
constexpr quint16 floorPort = 9900;
constexpr quint16 panelPort = 9876;

using Build = std::function<QByteArray(quint32 sequence)>;

/// The readers, and the sender of their frames.
class Bench
{
public:
    explicit Bench(int rounds)
        : rounds(rounds)
        , handler(new Varnel::UdpHandler(loopback, panelPort, &window, nullptr))
    {
        if (!floor.bind(QHostAddress::LocalHost, floorPort)) {
            qFatal("cannot bind the floor's port");
        }
        Varnel::main_window = &window;
        handler->init();
        toPanel.send(Frame(++sequence).devInfo("en"));
        handler->processDatagrams(); // the first frame opens the page, once
    }

    ~Bench()
    {
        handler.reset();
        Varnel::main_window = nullptr;
    }

    /// One figure for the frames that `build` makes.
    void figure(const std::string& what, const Build& build, double target = 0)
    {
        constexpr int batch = 50; // fewer of the largest frames than a socket of default size keeps
        const auto sendTo = [&](RawController* receiver) {
            return [this, &build, receiver] {
                for (int i = 0; i < batch; ++i) {
                    receiver->send(build(++sequence));
                }
            };
        };
        int count = 0;
        unsigned sum = 0;
        const std::vector<Series> measured = measureInTurn(
            {{"`QUdpSocket`, table CRC", [&] { count += readFrames(&floor, &sum); }, 0, sendTo(&toFloor)},
             {"panel", [this] { handler->processDatagrams(); }, target, sendTo(&toPanel)}},
            rounds, batch);
        if (count != (rounds + 1) * batch) {
            qFatal("datagrams were lost");
        }
        printFigure(what + ", " + std::to_string(build(1).size()) + " octets", "us a frame", measured);
    }

private:
    int rounds;
    quint32 sequence = 0;
    QUdpSocket floor;
    RawController toFloor{loopback, loopback, floorPort};
    RawController toPanel{loopback, loopback, panelPort};
    Varnel::MainWindow window;
    std::unique_ptr<Varnel::UdpHandler> handler;
};

/// The sections that a controller sends in every frame; these commands write to a GPIO line only when they
/// change.
Frame usual(quint32 sequence)
{
    return Frame(sequence).devInfo("en").gpioState(2, 3, 2, 3);
}

void benchFrames(int rounds)
{
    Bench bench(rounds);
    bench.figure(
        "accepted: DevInfo, GpioState", [](quint32 sequence) { return usual(sequence).octets(); }, 1.3);
    QByteArray items;
    for (int i = 0; i < 137; ++i) {
        items += coreItem(1, 2, quint8(i), 4, hex("1f40"));
    }
    bench.figure("accepted: Core of 137 items",
                 [&items](quint32 sequence) { return Frame(sequence).section(Core, items).octets(); });
    bench.figure("dropped: checksum", [](quint32 sequence) { return usual(sequence).unsealed() + "xx"; });
}

void benchChecksum(int rounds)
{
    constexpr int repetitions = 2000;
    const QByteArray octets = Frame().section(SnmpCfg, QByteArray(1378, 'x')).octets();
    // Lets the compiler neither drop the computation nor do it once for all repetitions.
    const auto repeated = [&octets](auto checksum) {
        return [&octets, checksum] {
            unsigned sum = 0;
            for (int i = 0; i < repetitions; ++i) {
                const auto* data = reinterpret_cast<const unsigned char*>(octets.constData());
                asm volatile("" : "+r"(data) : : "memory");
                sum += checksum(data, octets.size());
            }
            asm volatile("" : : "r"(sum));
        };
    };
    const auto panel = [](const unsigned char* data, int length) -> unsigned {
        return Varnel::crc16(0x1021, 0, data, static_cast<quint16>(length));
    };
    printFigure("checksum over " + std::to_string(octets.size()) + " octets", "us",
                measureInTurn({{"slicing by 8", repeated(kermitBySlices)}, {"panel", repeated(panel), 1.0}},
                              rounds, repetitions));
}

} // namespace

int main(int argc, char* argv[])
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    const QApplication application(argc, argv);
    const int rounds = roundsFrom(argc, argv, 25);
    dropLog();
    benchFrames(rounds);
    benchChecksum(rounds);
    return 0;
}
