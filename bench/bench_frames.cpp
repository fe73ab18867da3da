// SPDX-License-Identifier: MIT
// CPU time per frame: the controller link against a bare socket loop that computes a table CRC. Datagrams are
// put into the sockets first; the benchmark measures reading and handling them, as after a wake-up. To be run
// in the sandbox: without scripts, and with GPIO lines that no program uses. Options: --rounds N, --quick.
#include <array>
#include <memory>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <QApplication>
#include <QFile>
#include <QUdpSocket>
#include <QtDebug>

#include "figures.h"
#include "frame.h"
#include "kermit.h"
#include "mainwindow.h"
#include "udphandler.h"

using namespace VarnelBench;

namespace {

constexpr int batch = 50; ///< fewer of the largest frames than a socket of default size keeps
constexpr quint16 floorPort = 9900;
constexpr quint16 plainPort = 9901;
constexpr quint16 panelPort = 9876;

sockaddr_in loopback(quint16 port)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

void send(int socket, const QByteArray& datagram, quint16 port)
{
    const sockaddr_in address = loopback(port);
    if (::sendto(socket, datagram.constData(), static_cast<size_t>(datagram.size()), 0,
                 reinterpret_cast<const sockaddr*>(&address), sizeof address) != datagram.size()) {
        qFatal("cannot send");
    }
}

/// The least that a program on this toolkit does with frames.
class FloorLoop
{
public:
    FloorLoop()
    {
        if (!socket.bind(QHostAddress::LocalHost, floorPort)) {
            qFatal("cannot bind the floor's port");
        }
    }

    void readAll()
    {
        for (qint64 size = socket.pendingDatagramSize(); size >= 0; size = socket.pendingDatagramSize()) {
            QByteArray data(static_cast<int>(size), Qt::Uninitialized);
            QHostAddress sender;
            socket.readDatagram(data.data(), size, &sender);
            const auto* const octets = reinterpret_cast<const unsigned char*>(data.constData());
            sum += kermitByTable(octets, data.size());
        }
    }

    unsigned sum = 0;

private:
    QUdpSocket socket;
};

/// The same without a toolkit: many datagrams with one call, and the faster checksum.
class PlainLoop
{
public:
    PlainLoop()
        : socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0))
    {
        const sockaddr_in address = loopback(plainPort);
        if (::bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
            qFatal("cannot bind the plain loop's port");
        }
        for (std::size_t i = 0; i < count; ++i) {
            parts[i] = {buffers[i].data(), buffers[i].size()};
            headers[i].msg_hdr.msg_iov = &parts[i];
            headers[i].msg_hdr.msg_iovlen = 1;
        }
    }

    void readAll()
    {
        for (int n = receive(); n > 0; n = receive()) {
            for (std::size_t i = 0; i < static_cast<std::size_t>(n); ++i) {
                sum += kermitBySlices(buffers[i].data(), static_cast<int>(headers[i].msg_len));
            }
        }
    }

    unsigned sum = 0;

private:
    static constexpr std::size_t count = 32;

    int receive() { return ::recvmmsg(socket, headers.data(), count, MSG_DONTWAIT, nullptr); }

    int socket;
    std::array<std::array<unsigned char, 2048>, count> buffers{};
    std::array<iovec, count> parts{};
    std::array<mmsghdr, count> headers{};
};

/// Datagrams of all sockets of this network that the kernel dropped.
int lostDatagrams()
{
    QFile file(QStringLiteral("/proc/net/udp"));
    if (!file.open(QIODevice::ReadOnly)) {
        qFatal("cannot read /proc/net/udp");
    }
    int lost = 0;
    file.readLine();
    for (QByteArray line = file.readLine(); !line.isEmpty(); line = file.readLine()) {
        lost += line.simplified().split(' ').constLast().toInt();
    }
    return lost;
}

/// The readers, and the sender of their frames.
class Bench
{
public:
    using Build = std::function<QByteArray(quint32 sequence)>;

    explicit Bench(int rounds)
        : rounds(rounds)
        , sender(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0))
        , handler(new Varnel::UdpHandler(QStringLiteral("127.0.0.1"), panelPort, &window, nullptr))
    {
        Varnel::main_window = &window;
        handler->init();
        send(sender, Frame(++sequence).devInfo("en").octets(), panelPort);
        handler->processDatagrams(); // the first frame opens the page, once
    }

    ~Bench()
    {
        handler.reset();
        Varnel::main_window = nullptr;
        ::close(sender);
    }

    /// One figure for the frames that `build` makes.
    void figure(const std::string& what, const Build& build, double target = 0)
    {
        const auto sendTo = [&](quint16 port) {
            return [this, &build, port] {
                for (int i = 0; i < batch; ++i) {
                    send(sender, build(++sequence), port);
                }
            };
        };
        const std::vector<Work> works = {
            {"QUdpSocket, table CRC", [this] { floor.readAll(); }, 0, sendTo(floorPort)},
            {"recvmmsg, slicing by 8", [this] { plain.readAll(); }, 0, sendTo(plainPort)},
            {"panel", [this] { handler->processDatagrams(); }, target, sendTo(panelPort)},
        };
        const std::string title = what + ", " + std::to_string(build(1).size()) + " octets";
        std::vector<Series> measured = measureInTurn(works, rounds, batch);
        printFigure(title, "us a frame", measured);
        if (target > 0) {
            for (Series& one : measured) {
                one.target = 0;
                for (double& value : one.values) {
                    value = 1e6 / value;
                }
            }
            printFigure(title + ": in a second, none lost", "frames", measured, Floor::None);
        }
        if (lostDatagrams() != 0) {
            qFatal("datagrams were lost");
        }
    }

private:
    int rounds;
    int sender;
    quint32 sequence = 0;
    FloorLoop floor;
    PlainLoop plain;
    Varnel::MainWindow window;
    std::unique_ptr<Varnel::UdpHandler> handler;
};

/// The body of a Core section with this number of items of two octets.
QByteArray coreItems(int count)
{
    QByteArray body;
    for (int i = 0; i < count; ++i) {
        body += hex("0100 0200") + static_cast<char>(i) + hex("04 0200 1f40");
    }
    return body;
}

/// The sections that a controller sends in every frame; these commands write to a GPIO line only when they
/// change.
Frame usual(quint32 sequence)
{
    return Frame(sequence).devInfo("en").gpioState(2, 3, 2, 3);
}

/// A section, or two, as a controller sends them.
struct Kind
{
    const char* name = nullptr;
    void (*add)(Frame* frame) = nullptr;
    double target = 0;
};

const Kind kinds[] = {
    {"DevInfo, GpioState", [](Frame* frame) { frame->devInfo("en").gpioState(2, 3, 2, 3); }, 1.3},
    {"DevInfo", [](Frame* frame) { frame->devInfo("en"); }},
    {"GpioState", [](Frame* frame) { frame->gpioState(2, 3, 2, 3); }},
    {"NetCfg, unchanged", [](Frame* frame) { frame->section(NetCfg, QByteArray(22, '\0')); }},
    {"SnmpCfg, unchanged", [](Frame* frame) { frame->section(SnmpCfg, QByteArray(576, '\0')); }},
    {"ModbusCfg, unchanged", [](Frame* frame) { frame->modbusCfg(1, 502); }},
};

/// As many sections of that kind as fit into a frame of `size` octets.
QByteArray filled(const Kind& kind, int size, quint32 sequence)
{
    const auto header = Frame(sequence).octets().size();
    Frame frame(sequence);
    kind.add(&frame);
    const int length = frame.octets().size() - header;
    for (int rest = size - header - length; rest >= length; rest -= length) {
        kind.add(&frame);
    }
    return frame.octets();
}

void benchAccepted(Bench* bench)
{
    for (const Kind& kind : kinds) {
        int before = 0;
        for (const int size : {60, 700, 1400}) {
            const int length = filled(kind, size, 1).size();
            if (length != before) {
                bench->figure(
                    std::string("accepted: ") + kind.name,
                    [&](quint32 sequence) { return filled(kind, size, sequence); }, kind.target);
            }
            before = length;
        }
    }
    for (const int items : {3, 67, 137}) {
        bench->figure("accepted: Core", [items](quint32 sequence) {
            return Frame(sequence).section(Core, coreItems(items)).octets();
        });
    }
    for (const int size : {640, 1340}) {
        bench->figure("accepted: DevInfo, GpioState, unknown section, logged", [size](quint32 sequence) {
            return usual(sequence).section(0x99, QByteArray(size, 'x')).octets();
        });
    }
    bench->figure("accepted: GpioState, LEDs on",
                  [](quint32 sequence) { return Frame(sequence).gpioState(1, 1, 1, 1).octets(); });
}

void benchDropped(Bench* bench)
{
    const auto changed = [](int fromEnd, char octet) {
        return [fromEnd, octet](quint32 sequence) {
            QByteArray data = usual(sequence).octets();
            data[fromEnd == 0 ? 0 : data.size() - fromEnd] = octet;
            return data;
        };
    };
    bench->figure("dropped: magic", changed(0, 'x'));
    bench->figure("dropped: checksum", changed(1, 'x'));
    bench->figure("dropped: version", [](quint32 sequence) { return usual(sequence).version(2).octets(); });
    bench->figure("dropped: payload length",
                  [](quint32 sequence) { return usual(sequence).payloadLength(9).octets(); });
    bench->figure("dropped: section offset",
                  [](quint32 sequence) { return usual(sequence).sectionOffset(7).octets(); });
    bench->figure("dropped: section count",
                  [](quint32 sequence) { return usual(sequence).sectionCount(0).octets(); });
    bench->figure("dropped: continuity",
                  [](quint32 sequence) { return usual(sequence).continuity(0).octets(); });
    // The first of them is accepted, all others repeat it.
    bench->figure("dropped: repeated", [](quint32) { return usual(0x7FFFFFFF).octets(); });
}

} // namespace

int main(int argc, char* argv[])
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    const QApplication application(argc, argv);
    dropLog();
    Bench bench(roundsFrom(argc, argv, 25));
    benchAccepted(&bench);
    benchDropped(&bench);
    return 0;
}
