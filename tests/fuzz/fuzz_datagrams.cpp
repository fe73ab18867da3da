// SPDX-License-Identifier: MIT
// A row of datagrams, time-outs and blinks through the real controller link, and through an independent
// model.
#include <array>
#include <memory>

#include <fcntl.h>
#include <unistd.h>

#include <QApplication>
#include <QTemporaryDir>
#include <QUdpSocket>

#include "datagrams.h"
#include "exposeddecoder.h"
#include "linkmodel.h"
#include "mainwindow.h"
#include "mappingfile.h"
#include "registerupdate.h"
#include "scopedsetting.h"
#include "standins.h"
#include "udphandler.h"

using namespace Varnel;
using fuzz::require;
using fuzz::requireSame;

namespace {

const char* const senders[] = {"192.168.7.2", "192.168.7.3", "10.0.0.1", "fe80::1%eth1"};

/// The link with the state that the panel keeps to itself.
class ExposedLink : public UdpHandler
{
public:
    using RlpDecoder::hasPacketSender;
    using RlpDecoder::lastSeqno;
    using RlpDecoder::m_itemList;
    using RlpDecoder::packetSender;
    using UdpHandler::UdpHandler;
};

/// The levels of the four output lines, where there is a sysfs to write to: in the sandbox.
class Lines
{
public:
    Lines()
    {
        const char* const files[] = {"/sys/class/gpio/gpio224/value", "/sys/class/gpio/gpio225/value",
                                     "/sys/class/gpio/gpio228/value", "/sys/class/gpio/gpio230/value"};
        for (size_t i = 0; i < descriptors.size(); ++i) {
            descriptors[i] = ::open(files[i], O_RDONLY | O_CLOEXEC);
        }
    }

    void compare(const std::array<unsigned, 4>& wanted) const
    {
        for (size_t i = 0; i < descriptors.size(); ++i) {
            if (descriptors[i] >= 0) {
                char text[4] = {};
                const auto size = ::pread(descriptors[i], text, sizeof text, 0);
                require(size == 1 && text[0] == (wanted[i] != 0 ? '1' : '0'), "output lines as commanded");
            }
        }
    }

private:
    std::array<int, 4> descriptors{};
};

/// The objects that exist as long as the process.
struct Stage
{
    QTemporaryDir directory;
    MappingFile mapping{
        mappingText(registerText(1, "u16", "u16") + ',' + registerText(2, "u32", "u32", 1) + ',' +
                        registerText(3, "float", "float", 2) + ',' + registerText(4, "bool", "bool", 3) +
                        ',' + registerText(5, "s8", "s16", 4) + ',' + registerText(6, "u16", "string", 5),
                    tableText(100, "1, -2, 2, 3") + ',' + tableText(200, "4, 5, 6, 1"))};
    ScopedSetting<QString> map{"ModbusServer", "ModbusMap", mapping.path()};
    ScopedSetting<QString> configuration{"Files", "TmpCfgDir", directory.path()};
    ScopedSetting<QString> scripts{"Files", "ScriptDir", directory.filePath(QStringLiteral("no scripts"))};
    MainWindow window;
    QUdpSocket socket;
    Lines lines;
};

Stage* stage = nullptr;

QString text(const std::string& octets)
{
    return QString::fromStdString(octets);
}

/// Calls as they were and as they are to be, name by name. Where the model leaves arguments out, any will do.
void compareCalls(const QVector<standins::Call>& actual, const std::vector<model::Call>& wanted,
                  const char* promise)
{
    require(size_t(actual.size()) == wanted.size(), promise);
    for (size_t i = 0; i < wanted.size(); ++i) {
        const standins::Call& call = actual.at(int(i));
        requireSame(call.name, text(wanted[i].name), promise);
        for (size_t j = 0; j < wanted[i].arguments.size(); ++j) {
            requireSame(call.arguments.value(int(j)), text(wanted[i].arguments[j]), promise);
        }
        for (const QString& argument : call.arguments) {
            require(!argument.contains(QChar(u'\0')), "no argument of a script is cut by a NUL");
        }
    }
}

bool isServerScript(const standins::Call& call)
{
    return call.name.startsWith(QLatin1String("mbserver"));
}

class Run
{
public:
    Run()
    {
        link = std::make_unique<ExposedLink>(QStringLiteral("127.0.0.1"), short(0), &stage->window, nullptr);
        standins::scriptsThere = true;
        link->init();
        standins::scripts.clear();
        standins::windowCalls.clear();
        stage->window.setLanguage(QStringLiteral("default"));
        standins::windowCalls.clear();
    }

    ~Run()
    {
        ExposedLink* const stopped = link.release();
        stopped->stop(); // deletes the link later, as at the end of the program
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }

    Q_DISABLE_COPY_MOVE(Run)

    void happen(const fuzz::Event& event)
    {
        fuzz::QuietLog::clear();
        switch (event.kind) {
        case fuzz::Event::PacketTimeout:
            link->packetTimeout();
            expected.packetTimeout();
            break;
        case fuzz::Event::BlinkFast:
            link->blinkFastTimeout();
            expected.blink(3);
            break;
        case fuzz::Event::BlinkSlow:
            link->blinkSlowTimeout();
            expected.blink(2);
            break;
        case fuzz::Event::ScriptsChange:
            standins::scriptsThere = !standins::scriptsThere;
            expected.scriptsThere = standins::scriptsThere;
            break;
        default:
            receive(event);
        }
        compare();
    }

private:
    void receive(const fuzz::Event& event)
    {
        const QByteArray& data = event.datagram;
        const char* const sender = event.overNetwork ? "127.0.0.1" : senders[event.kind];
        decodeApart(data);
        if (event.overNetwork) {
            const quint16 port = link->findChild<QUdpSocket*>()->localPort();
            require(stage->socket.writeDatagram(data, QHostAddress(QHostAddress::LocalHost), port) ==
                        data.size(),
                    "the harness can send");
            link->processDatagrams();
        } else {
            QByteArray own = fuzz::copied(data);
            QHostAddress address(QString::fromLatin1(sender));
            link->handleData(&own, &address);
        }
        const std::string reason = expected.receive(data.toStdString(), sender);
        if (reason.empty()) {
            require(decoded, "what the link accepts, a decoder in the same state accepts");
            compareRecords();
        } else {
            require(fuzz::QuietLog::lines().value(0).startsWith(text(reason)),
                    "a dropped frame is explained by the first check that fails");
        }
    }

    /// The same datagram through a decoder of its own, whose records can be seen.
    void decodeApart(const QByteArray& datagram)
    {
        ExposedDecoder decoder;
        decoder.lastSeqno = link->lastSeqno;
        RlpDecoder::Header header;
        QByteArray data = fuzz::copied(datagram);
        records = {};
        decoded = decoder.checkFrame(&data, {}, &header);
        if (decoded) {
            decoder.walkSections(data, header, &records);
        }
        fuzz::QuietLog::clear();
    }

    void compareRecords() const
    {
        const auto& sections = expected.frame.sections;
        const std::pair<bool, unsigned> flags[] = {
            {records.hasDevInfo, 0x10}, {records.hasGpioState, 0x20}, {records.hasNetCfg, 0x30},
            {records.hasSnmpCfg, 0x40}, {records.hasModbusCfg, 0x60},
        };
        for (const auto& [has, type] : flags) {
            require(has == (sections.count(type) != 0), "exactly the whole sections are decoded");
        }
        require(records.hasCore == expected.frame.items.has_value(), "a Core section is decoded when whole");
        if (records.hasDevInfo) {
            compareDevInfo(QByteArray::fromStdString(sections.at(0x10)));
        }
        if (records.hasSnmpCfg) {
            compareSnmp(QByteArray::fromStdString(sections.at(0x40)));
        }
    }

    /// The numbers and texts of a record, put back on the wire, are the section's.
    void compareDevInfo(const QByteArray& section) const
    {
        const devinfo_s& info = records.devinfo;
        QByteArray wire;
        for (const quint16 number :
             {info.type, info.hwmajor, info.hwminor, info.swmajor, info.swminor, info.swbuild}) {
            wire += littleEndian16(number);
        }
        wire += littleEndian32(info.serial);
        require(section.mid(4, 16) == wire, "DevInfo holds the octets of its section");
    }

    void compareSnmp(const QByteArray& section) const
    {
        const snmpcfg_s& c = *records.snmpcfg;
        QByteArray wire;
        for (const quint8 octet : {c.version, c.options, c.nopriv_hash, c.priv_hash, c.priv_algo, c.cli_mode,
                                   c.cli_hash, c.cli_algo}) {
            wire += char(octet);
        }
        require(section.mid(4, 8) == wire, "SnmpCfg holds the octets of its section");
        int at = 12;
        for (const QString& field :
             {c.ro_user, c.nopriv_user, c.nopriv_pwd, c.priv_user, c.priv_pwd, c.priv_key, c.oid, c.ro_oid,
              c.nopriv_oid, c.priv_oid, c.r7m_context, c.r7m_community, c.cli_engineid, c.cli_community,
              c.cli_user, c.cli_pwd, c.cli_key}) {
            const QByteArray octets = section.mid(at, 32);
            const int end = octets.indexOf('\0');
            require(field.toLatin1() == (end < 0 ? octets : octets.left(end)), "SnmpCfg holds its texts");
            at += 32;
        }
        require(c.port == quint8(section[556]) + 256 * quint8(section[557]), "SnmpCfg holds its port");
    }

    void compare()
    {
        require(link->lastSeqno == expected.lastSeqno, "sequence number");
        require(link->hasPacketSender == expected.peer.has_value(), "registration");
        requireSame(link->packetSender.toString(), text(expected.lastSender), "registered sender");
        compareItems();
        compareCalls(standins::scripts, expected.scripts, "scripts, in order");
        compareCalls(standins::windowCalls, expected.windowCalls, "calls of the window, in order");
        stage->lines.compare(expected.lines);
        for (const standins::Call& call : standins::scripts) {
            require(!isServerScript(call) || bool(parseUpdate(call.arguments.value(0).toUtf8())),
                    "the Modbus server understands the update");
        }
        standins::scripts.clear();
        standins::windowCalls.clear();
        expected.scripts.clear();
        expected.windowCalls.clear();
    }

    void compareItems() const
    {
        require(size_t(link->m_itemList.size()) == expected.items.size(), "as many Core items");
        for (size_t i = 0; i < expected.items.size(); ++i) {
            const core_tmp& item = link->m_itemList.at(int(i));
            const model::Item& wanted = expected.items[i];
            require(item.ci_class == wanted.ciClass && item.ci_field == wanted.ciField &&
                        item.instance == wanted.instance && item.ci_type == wanted.type &&
                        item.datalen == wanted.value.size(),
                    "Core item");
            require(std::equal(item.baData.crbegin(), item.baData.crend(), wanted.value.cbegin(),
                               wanted.value.cend()),
                    "the value of a Core item is that of the wire, turned round");
        }
    }

    std::unique_ptr<ExposedLink> link;
    model::Link expected;
    RlpFrame records;
    bool decoded = false;
};

} // namespace

// NOLINTNEXTLINE(readability-non-const-parameter)
extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    fuzz::QuietLog::install();
    new QApplication(*argc, *argv); // lives as long as the process
    stage = new Stage;
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    Run run;
    for (const fuzz::Event& event : fuzz::readEvents(data, size)) {
        run.happen(event);
    }
    return 0;
}
