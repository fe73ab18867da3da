// SPDX-License-Identifier: MIT
#include "linkmodel.h"

#include <cstddef>

namespace model {

namespace {

unsigned octet(const Octets& text, std::size_t at)
{
    return at < text.size() ? static_cast<unsigned char>(text[at]) : 0;
}

/// Numbers that are not there as a whole count as 0.
unsigned word(const Octets& text, std::size_t at)
{
    return at + 2 <= text.size() ? octet(text, at) + 256 * octet(text, at + 1) : 0;
}

std::uint32_t longWord(const Octets& text, std::size_t at)
{
    return at + 4 <= text.size() ? word(text, at) + 65536U * word(text, at + 2) : 0;
}

std::string number(unsigned value)
{
    return std::to_string(value);
}

std::string address(const Octets& text, std::size_t at)
{
    return number(octet(text, at)) + '.' + number(octet(text, at + 1)) + '.' + number(octet(text, at + 2)) +
           '.' + number(octet(text, at + 3));
}

/// A text field of `width` octets as UTF-8: up to its NUL, each octet one Latin-1 character.
std::string textOf(const Octets& text, std::size_t at, std::size_t width)
{
    std::string result;
    for (std::size_t i = at; i < at + width && octet(text, i) != 0; ++i) {
        const unsigned character = octet(text, i);
        if (character < 0x80) {
            result += static_cast<char>(character);
        } else {
            result += static_cast<char>(0xC0 + character / 64);
            result += static_cast<char>(0x80 + character % 64);
        }
    }
    return result;
}

unsigned kermit(const Octets& text, std::size_t length)
{
    unsigned crc = 0;
    for (std::size_t i = 0; i < length; ++i) {
        crc ^= octet(text, i);
        for (int bit = 0; bit < 8; ++bit) {
            crc = crc % 2 == 1 ? crc / 2 ^ 0x8408U : crc / 2;
        }
    }
    return crc;
}

/// The section length that a type asks for; 0 for a type of any length, nothing for a type that is not known.
std::optional<unsigned> sizeOf(unsigned type)
{
    switch (type) {
    case 0x10:
        return 28;
    case 0x20:
        return 8;
    case 0x30:
        return 26;
    case 0x40:
        return 580;
    case 0x60:
        return 8;
    case 0x80:
        return 0;
    default:
        return std::nullopt;
    }
}

unsigned wrapped(unsigned value)
{
    return value % 65536;
}

} // namespace

std::string Link::reasonToDrop(const Octets& datagram, const std::string& sender) const
{
    const std::size_t size = datagram.size();
    if (size == 0 || octet(datagram, 0) != 0xCE) {
        return "Not a RLP magic number. Drop frame";
    }
    if (peer && *peer != sender) {
        return "Packet received from an unknown sender (";
    }
    if (size < 2 || word(datagram, size - 2) != kermit(datagram, size - 2)) {
        return "Invalid checksum (0x";
    }
    const Octets octets = datagram.substr(0, size - 2);
    if (octet(octets, 1) != 1) {
        return "Unknown RLP version";
    }
    const unsigned payload = word(octets, 2);
    if (payload + 4 != size) {
        return "Payload length mismatch. Drop frame";
    }
    if (word(octets, 4) < 8 || word(octets, 4) > payload) {
        return "Section offset out of range. Drop frame";
    }
    if (word(octets, 6) == 0) {
        return payload > 8 ? "Section count mismatch section payload length. Drop frame"
                           : "No section to process. Drop frame";
    }
    if (longWord(octets, 12) == 0) {
        return "Out of the continuum. Drop frame";
    }
    return longWord(octets, 8) == lastSeqno ? "Repeated packet. Drop frame" : "";
}

std::string Link::receive(const Octets& datagram, const std::string& sender)
{
    std::string reason = reasonToDrop(datagram, sender);
    if (!reason.empty()) {
        return reason;
    }
    walk(datagram.substr(0, datagram.size() - 2));
    lastSeqno = longWord(datagram, 8);
    lastSender = peer.value_or(sender);
    const auto& sections = frame.sections;
    if (const auto info = sections.find(0x10); info != sections.end()) {
        deviceType = word(info->second, 4);
        build = word(info->second, 14);
        if (const std::string text = textOf(info->second, 20, 8); !text.empty()) {
            windowCalls.push_back({"setLanguage", {text}});
            language = text;
        }
    }
    if (const auto outputs = sections.find(0x20); outputs != sections.end()) {
        applyOutputs(outputs->second);
    }
    if (const auto config = sections.find(0x40); config != sections.end()) {
        applySnmp(config->second);
    }
    if (const auto config = sections.find(0x30); config != sections.end()) {
        applyNetwork(config->second);
    }
    if (frame.items) {
        script("mbserverupdate.sh", {});
    }
    if (const auto config = sections.find(0x60); config != sections.end()) {
        applyModbus(config->second);
    }
    if (!peer) {
        peer = sender;
        addScript();
        const std::string url = "http://" + sender + "/index.html";
        windowCalls.push_back({"setDefaultUrl", {url}});
        windowCalls.push_back({"openUrlForce", {url, "1"}});
    }
    return {};
}

void Link::walk(const Octets& octets)
{
    frame = {};
    unsigned left = word(octets, 2) - 14;
    unsigned at = wrapped(word(octets, 4) + 2);
    std::optional<unsigned> lastConsumed;
    for (unsigned count = word(octets, 6); count > 0 && left >= 4 && at + 4 <= octets.size(); --count) {
        const unsigned type = word(octets, at);
        const unsigned length = word(octets, at + 2);
        const std::optional<unsigned> size = sizeOf(type);
        unsigned step = wrapped(length + 4);
        if (size && (*size == 0 || *size == length)) {
            step = *size == 0 ? left : *size;
        }
        if (size && length <= left) {
            const Octets section = octets.substr(at, step);
            const bool good = section.size() == length && (*size == 0 || *size == length);
            take(type, section, good);
            lastConsumed = good ? length : lastConsumed;
            step = lastConsumed.value_or(wrapped(length + 4));
        }
        left = wrapped(left + 65536 - step);
        at = wrapped(at + step);
    }
}

/// If there are several sections of one kind, the last one counts, even a bad one.
void Link::take(unsigned type, const Octets& section, bool good)
{
    if (type == 0x80) {
        frame.items.reset();
        if (good) {
            takeItems(section);
        }
    } else {
        frame.sections.erase(type);
        if (good) {
            frame.sections[type] = section;
        }
    }
}

void Link::takeItems(const Octets& octets)
{
    items.clear();
    std::size_t at = 4;
    while (at + 8 <= octets.size()) {
        const std::size_t size = word(octets, at + 6);
        if (at + 8 + size > octets.size()) {
            break;
        }
        items.push_back({word(octets, at), word(octets, at + 2), octet(octets, at + 4), octet(octets, at + 5),
                         octets.substr(at + 8, size)});
        at += 8 + size;
    }
    frame.items = items;
}

void Link::applyOutputs(const Octets& section)
{
    for (std::size_t i = 0; i < lines.size(); ++i) {
        const unsigned command = octet(section, 4 + i);
        if (command != commands[i] || command < 2) {
            lines[i] = command != 0 ? 1 : 0;
        }
        commands[i] = command;
    }
}

void Link::applySnmp(const Octets& section)
{
    Octets meaning = section.substr(4, 1) + section.substr(6, 6);
    for (std::size_t at = 12; at < 556; at += 32) {
        meaning += textOf(section, at, 32) + '\0';
    }
    meaning += section.substr(556);
    if (snmp != meaning && scriptsThere) {
        script("snmpctl.sh", {"init"});
        script("snmpcfg.sh", {});
        script("snmptrap.sh", {"init", address(section, 560), number(word(section, 558))});
        for (std::size_t at = 560; at < 580; at += 4) {
            if (address(section, at) != "127.0.0.1") {
                script("snmptrap.sh", {"add", address(section, at), number(word(section, 558))});
            }
        }
        script("snmpctl.sh", {"apply"});
    }
    snmp = meaning;
    snmpPort = word(section, 556);
    trapPort = word(section, 558);
}

void Link::applyNetwork(const Octets& section)
{
    const bool wanted = octet(section, 4) != 0;
    const bool dhcp = octet(section, 5) != 0;
    const Octets meaning = Octets(wanted ? "1" : "0") + (dhcp ? "1" : "0") + section.substr(6);
    if (network != meaning && wanted) {
        deleteScript();
        if (dhcp) {
            script("netcfg.sh", {"dhcp"});
        } else {
            script("netcfg.sh", {"static", address(section, 6), address(section, 10), address(section, 14),
                                 address(section, 18), address(section, 22)});
        }
        addScript();
    }
    network = meaning;
}

void Link::applyModbus(const Octets& section)
{
    modbusOn = word(section, 4) != 0;
    modbusPort = word(section, 6);
    const Octets meaning = (modbusOn ? "1" : "0") + number(modbusPort);
    if (modbus != meaning) {
        script("modbuscfg.sh", {modbusOn ? "1" : "0", number(modbusPort)});
    }
    modbus = meaning;
}

void Link::addScript()
{
    script("r7m.sh", {"add", lastSender, number(deviceType), number(snmpPort), number(trapPort),
                      modbusOn ? "1" : "0", number(modbusPort), number(build)});
}

void Link::deleteScript()
{
    script("r7m.sh",
           {"delete", lastSender, number(deviceType), number(snmpPort), number(trapPort), number(build)});
}

void Link::script(const std::string& name, const std::vector<std::string>& arguments)
{
    scripts.push_back({name, arguments});
}

void Link::packetTimeout()
{
    peer.reset();
    lastSeqno = 0;
    deleteScript();
    windowCalls.push_back({"displayError", {language}});
    for (std::size_t i = 0; i < 3; ++i) {
        lines[i] = 1;
        commands[i] = 3;
    }
}

void Link::blink(unsigned command)
{
    for (std::size_t i = 0; i < lines.size(); ++i) {
        if (commands[i] == command) {
            lines[i] = 1 - lines[i];
        }
    }
}

} // namespace model
