// SPDX-License-Identifier: MIT
// Writes the fuzzers' first inputs: the frames of the tests and of the simulator, and the files that a device
// ships. Usage: seeds SOURCE-DIRECTORY DIRECTORY; makes DIRECTORY/<fuzzer>/<name>.
#include <QCoreApplication>
#include <QDir>
#include <QFile>

#include "controllerstate.h"
#include "corefeed.h"
#include "datagrams.h"
#include "frame.h"
#include "framefaults.h"
#include "mapinput.h"
#include "mappingfile.h"
#include "mbapdecoder.h"
#include "rtudecoder.h"
#include "wirelayout.h"

using fuzz::Event;
using fuzz::Events;

namespace {

QDir target;
QString source;

QByteArray readFile(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        qFatal("cannot read %s", qUtf8Printable(path));
    }
    return file.readAll();
}

void seed(const char* fuzzer, const QString& name, const QByteArray& octets)
{
    const QString directory = QLatin1String("fuzz_") + QLatin1String(fuzzer);
    QFile file(target.filePath(directory + QLatin1Char('/') + name));
    if (!target.mkpath(directory) || !file.open(QIODevice::WriteOnly) ||
        file.write(octets) != octets.size()) {
        qFatal("cannot write %s", qUtf8Printable(file.fileName()));
    }
}

void seed(const QString& name, const Events& events)
{
    seed("datagrams", name, fuzz::writeEvents(events));
}

QByteArray frame(quint32 sequence, std::initializer_list<QByteArray> sections)
{
    Frame builder;
    for (const QByteArray& octets : sections) {
        builder.add(octets);
    }
    return builder.sequence(sequence).octets();
}

QByteArray coreSection()
{
    return section(0x80, coreItem(7, 3, 0, 4, hex("34 12")) + coreItem(7, 3, 1, 6, hex("78 56 34 12")) +
                             coreItem(7, 3, 2, 8, "5.3") + coreItem(7, 3, 3, 1, hex("01")) +
                             coreItem(7, 3, 4, 5, hex("fe ff")) + coreItem(7, 3, 5, 9, "71") +
                             coreItem(9, 9, 9, 9, ""));
}

void testFrames()
{
    const QByteArray all =
        frame(1, {devInfoSection(7, 42, "fr"), gpioSection(1, 2, 3, 0), snmpCfgSection(5, 4), netCfgSection(),
                  modbusCfgSection(), coreSection()});
    seed(QStringLiteral("all-sections"), {{Event::FromFirst, all}});
    for (quint8 mode = 1; mode <= 5; ++mode) {
        seed(QStringLiteral("snmp-%1").arg(mode),
             {{Event::FromFirst, frame(1, {snmpCfgSection(mode, mode)})}});
    }
    seed(QStringLiteral("network"), {{Event::FromFirst, frame(1, {netCfgSection(true, true)})},
                                     {Event::FromFirst, frame(2, {netCfgSection(true, false)})},
                                     {Event::FromFirst, frame(3, {netCfgSection(false, false)})}});
    seed(QStringLiteral("outputs"), {{Event::FromFirst, frame(1, {gpioSection(0, 1, 2, 3)})},
                                     {Event::BlinkFast, {}},
                                     {Event::BlinkSlow, {}},
                                     {Event::FromFirst, frame(2, {gpioSection(2, 3, 0, 9)})},
                                     {Event::BlinkFast, {}}});
    seed(QStringLiteral("loss-and-return"), {{Event::FromFirst, all},
                                             {Event::FromSecond, frame(2, {gpioSection(1, 0, 0, 0)})},
                                             {Event::PacketTimeout, {}},
                                             {Event::FromSecond, frame(2, {gpioSection(1, 0, 0, 0)})},
                                             {Event::FromSecond, frame(1, {gpioSection(1, 0, 0, 0)})}});
    seed(QStringLiteral("no-scripts"), {{Event::ScriptsChange, {}}, {Event::FromFirst, all}});
    seed(QStringLiteral("link-local"), {{Event::FromLinkLocal, all}});
    seed(QStringLiteral("updates"), {{Event::FromFirst, frame(5, {coreSection()})},
                                     {Event::FromFirst, frame(5, {coreSection()})},
                                     {Event::FromFirst, frame(4, {coreSection()})}});
    seed(QStringLiteral("wrong-length"),
         {{Event::FromFirst, frame(1, {section(0x20, QByteArray(9, '\1'), 9), gpioSection(1, 1, 1, 1)})}});
    seed(QStringLiteral("longest"), {{Event::FromFirst | Event::grown, frame(1, {gpioSection(1, 1, 1, 1)})}});
    seed(QStringLiteral("shortest"),
         {{Event::FromFirst, QByteArray(1, char(0xCE))},
          {Event::FromFirst, {}},
          {Event::FromFirst, sealed(hex("ce 01 | 08 00 | 08 00 | 00 00 | 01 00"))}});
    seed(QStringLiteral("over-network"), {{Event::overNetwork, all},
                                          {Event::overNetwork, {}},
                                          {Event::overNetwork, frame(2, {coreSection()})}});
}

Simulator::FrameParts simulatedFrame(const Simulator::ControllerState& state, const QByteArray& core)
{
    Simulator::FrameParts parts;
    for (const Simulator::SectionLayout& layout : Simulator::sectionLayouts()) {
        parts.sections << state.section(QLatin1String(layout.name));
    }
    parts.sections << core;
    return parts;
}

/// The simulator's good frame, followed by each of its bad ones.
void simulatorFrames(const QByteArray& core)
{
    const Simulator::ControllerState state;
    Simulator::FrameParts good = simulatedFrame(state, core);
    const Event first{Event::FromFirst, Simulator::encodeFrame(good)};
    seed(QStringLiteral("simulator"), {first});
    for (const Simulator::FrameFault& fault : Simulator::frameFaults()) {
        Simulator::FrameParts parts = simulatedFrame(state, core);
        parts.sequence = 2;
        const QByteArray octets = fault.build(parts);
        if (octets.size() < 4096) {
            seed(QLatin1String("simulator-") + QLatin1String(fault.name),
                 {first, {Event::FromFirst, octets}});
        }
    }
}

/// The items of a Core section, with their values turned round as the panel keeps them.
QList<Varnel::core_tmp> itemsOf(const QByteArray& core)
{
    QList<Varnel::core_tmp> items;
    fuzz::Input input(reinterpret_cast<const uint8_t*>(core.constData()), size_t(core.size()));
    input.take(4);
    while (!input.isEmpty()) {
        Varnel::core_tmp item;
        item.ci_class = input.u16();
        item.ci_field = input.u16();
        item.instance = input.u8();
        item.ci_type = input.u8();
        item.datalen = input.u16();
        item.baData = input.take(item.datalen);
        std::reverse(item.baData.begin(), item.baData.end());
        items << item;
    }
    return items;
}

void mappings(const QByteArray& core)
{
    const QByteArray sample = readFile(source + QLatin1String("/device/modbus.map"));
    seed("modbusmap", QStringLiteral("sample"), sample + '\0' + fuzz::writeItems(itemsOf(core)));
    const QByteArray small =
        mappingText(registerText(1, "u16", "u16") + ',' + registerText(2, "u32", "u32", 1) + ',' +
                        registerText(3, "float", "float", 2) + ',' + registerText(4, "bool", "bool", 3) +
                        ',' + registerText(5, "s8", "s16", 4) + ',' + registerText(6, "u16", "string", 5),
                    tableText(100, "1, -2, 2, 3") + ',' + tableText(200, "4, 0, 5, 6, 1"));
    seed("modbusmap", QStringLiteral("small"), small + '\0' + fuzz::writeItems(itemsOf(coreSection())));
    seed("modbusmap", QStringLiteral("shared"),
         mappingText(registerText(1, "u16", "u16") + ',' + registerText(2, "u16", "u16"),
                     tableText(0, "2, 1") + ',' + tableText(9, "1, 1, 77, 0")) +
             '\0' + fuzz::writeItems({coreItem(0, 4, hex("12 34"))}));
    seed("modbusmap", QStringLiteral("long-gap"),
         mappingText(registerText(1, "u16", "u16"), tableText(0, "1, -70000, 1")) + '\0' +
             fuzz::writeItems({coreItem(0, 4, hex("12 34"))}));
    seed("modbusmap", QStringLiteral("no-tables"), R"({"ci": {}, "registers": []})");
    seed(
        "modbusmap", QStringLiteral("escapes"),
        R"({"info": {"mapping": "\u00e9\n\"", "date": 1e3}, "b": -0, "a": [1.5, 1234567890, true, null, {}]})");
}

void settingsFiles()
{
    const QByteArray sample = readFile(source + QLatin1String("/device/varnel-browser.ini"));
    seed("settings", QStringLiteral("sample"), sample);
    QList<QByteArray> lines = sample.split('\n');
    QByteArray all;
    for (const QByteArray& line : qAsConst(lines)) {
        const bool isSetting = line.startsWith(';') && line.contains('=') && !line.startsWith("; ");
        if (isSetting || line.startsWith('[')) {
            all += (isSetting ? line.mid(1) : line) + '\n';
        }
    }
    seed("settings", QStringLiteral("all-keys"), all);
    seed("settings", QStringLiteral("odd-values"),
         "[Network]\nUdpPort=70000\nUdpTimeout=x\n[UI]\nHideCursor=no\nMsgError=\"a;b\\x20ac\"\n"
         "[Files]\nDirectory=a, b\n[WebSite]\nUrl=\nLogin=caf\xe9\nPassword=@ByteArray(a\\0b)\n");
    seed("settings", QStringLiteral("serial"),
         "[ModbusServer]\nModbusMode=RTU\nModbusInterface=1:/dev/ttyS1:19200:8N1\n");
    seed("settings", QStringLiteral("general"), "UdpPort=1\n[General]\nUdpPort=2\n[network]\nudpport=3\n");
}

void scriptRequests()
{
    const QByteArray end(1, '\0');
    seed("scriptrequest", QStringLiteral("name"), "mbserverstop.sh" + end);
    seed("scriptrequest", QStringLiteral("arguments"),
         "r7m.sh" + end + "add" + end + "192.168.7.2" + end + "the panel" + end);
    seed("scriptrequest", QStringLiteral("no-end"), "netcfg.sh" + end + "dhcp");
    seed("scriptrequest", QStringLiteral("other"), "usbdrive.sh" + end + "add" + end);
    seed("scriptrequest", QStringLiteral("many"), "snmpcfg.sh" + QByteArray(64, '\0'));
}

void downloads()
{
    seed("downloadname", QStringLiteral("header"),
         "attachment; filename=report.pdf\nhttp://a/b\nfreport.pdf\n");
    seed("downloadname", QStringLiteral("url"),
         "\nhttp://192.168.7.2/logs/log.txt?x=1#y\nflog.txt\nflog-1.txt\n");
    seed("downloadname", QStringLiteral("no-name"), "attachment\nhttp://192.168.7.2/\n");
    seed("downloadname", QStringLiteral("way-up"), "filename=../../etc/passwd\n\n");
    seed("downloadname", QStringLiteral("dots"), "filename=..;filename=.\nhttp://a/%2e%2e\n");
    seed("downloadname", QStringLiteral("two-names"),
         "attachment;filename=\"a\";; filename=b.tar.gz ;x\n\n@b.tar.gz\n");
    seed("downloadname", QStringLiteral("letters"),
         "filename=\xc3\xa9t\xc3\xa9.txt\n\nf\xc3\xa9t\xc3\xa9.txt\n");
    seed("downloadname", QStringLiteral("latin"), "filename=\xe9t\xe9\nhttp://a/%E9%00%2F\n");
    seed("downloadname", QStringLiteral("link"), "filename=link\n\nalink\nalink-1.\n");
    seed("downloadname", QStringLiteral("long"), "filename=" + QByteArray(260, 'n') + ".txt\n\n");
}

void serverInputs()
{
    const QByteArray init =
        R"("tables":[{"address":0,"mode":"r","length":10},{"address":100,"mode":"r","length":5}]})";
    seed(
        "modbusserver", QStringLiteral("init-tcp"),
        R"(0{"cmd":"init","delay":500,"protocol":"tcp","tcp":{"listen":"0.0.0.0","port":502,"clients":10},)" +
            init);
    seed(
        "modbusserver", QStringLiteral("init-rtu"),
        R"(0{"cmd":"init","delay":500,"protocol":"rtu","rtu":{"devid":1,"port":"/dev/ttyS1","baud":19200,"mode":"8N1"},)" +
            init);
    seed(
        "modbusserver", QStringLiteral("update"),
        R"(1{"cmd":"setconfig","data":[{"address":100,"values":[0,1,4660,22136]},{"address":0,"values":[]}]})");
    const QByteArray requests[] = {hex("03 0000 0002"), hex("04 0064 007d"), hex("01 0000 000a"),
                                   hex("02 ffdc 0024"), hex("06 0000 0001"), hex("03 0028 0001"),
                                   hex("2b 0e 01 00"),  hex("03 0190 0001")};
    QByteArray stream = "2";
    QByteArray line = "3";
    int number = 0;
    for (const QByteArray& pdu : requests) {
        seed("modbusserver", QStringLiteral("request-%1").arg(++number), '4' + pdu);
        stream += Varnel::mbapResponse({quint16(number), 1, {}}, pdu);
        const QByteArray serial = Varnel::rtuFrame(1, pdu);
        line += char(3) + serial.left(3) + char(serial.size() - 3) + serial.mid(3) + '\0';
    }
    seed("modbusserver", QStringLiteral("tcp-stream"), stream);
    seed("modbusserver", QStringLiteral("serial-line"), line);
}

} // namespace

int main(int argc, char** argv)
{
    const QCoreApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    if (arguments.size() != 3) {
        qCritical("Usage: seeds SOURCE-DIRECTORY DIRECTORY");
        return 2;
    }
    source = arguments.at(1);
    target.setPath(arguments.at(2));
    const auto points = Simulator::readCoreMap(source + QLatin1String("/device/modbus.map"));
    if (!points) {
        qCritical("%s", qPrintable(points.refusal.text));
        return 1;
    }
    Simulator::CoreFeed feed;
    feed.setPoints(*points.value);
    feed.advance();
    testFrames();
    simulatorFrames(feed.section());
    mappings(feed.section());
    settingsFiles();
    downloads();
    scriptRequests();
    serverInputs();
    return 0;
}
