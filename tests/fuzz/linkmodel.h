// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

/// A second opinion on the controller link, for comparing it with the product after every datagram. It shares
/// no code with the panel: plain standard C++, no reader object, no table of section kinds, no records, and
/// the checksum bit by bit.
namespace model {

using Octets = std::string;

/// A script with its arguments, or a call of the window.
struct Call
{
    std::string name;
    std::vector<std::string> arguments;
};

struct Item
{
    unsigned ciClass = 0;
    unsigned ciField = 0;
    unsigned instance = 0;
    unsigned type = 0;
    Octets value; ///< as on the wire
};

/// The contents of one frame: the octets of each decoded section, by its type, and the items.
struct Frame
{
    std::map<unsigned, Octets> sections;
    std::optional<std::vector<Item>> items;
};

class Link
{
public:
    /// Takes a datagram. Returns an empty text when it is accepted, else the first words of the reason.
    std::string receive(const Octets& datagram, const std::string& sender);
    void packetTimeout();
    void blink(unsigned command);

    std::uint32_t lastSeqno = 0;
    std::optional<std::string> peer; ///< the registered controller
    std::string lastSender;          ///< the last one that was registered
    std::vector<Item> items;
    std::array<unsigned, 4> lines{1, 1, 1, 0}; ///< level of green, yellow, red, buzzer
    bool scriptsThere = true;
    Frame frame; ///< the last accepted one

    /// The expected effects outside, in order, since the last clear.
    std::vector<Call> scripts;
    std::vector<Call> windowCalls;

private:
    std::string reasonToDrop(const Octets& datagram, const std::string& sender) const;
    void walk(const Octets& octets);
    void take(unsigned type, const Octets& section, bool good);
    void takeItems(const Octets& octets);
    void applyOutputs(const Octets& section);
    void applySnmp(const Octets& section);
    void applyNetwork(const Octets& section);
    void applyModbus(const Octets& section);
    void addScript();
    void deleteScript();
    void script(const std::string& name, const std::vector<std::string>& arguments);

    std::array<unsigned, 4> commands{2, 2, 2, 0};
    unsigned deviceType = 0;
    unsigned build = 0;
    unsigned snmpPort = 161;
    unsigned trapPort = 162;
    bool modbusOn = false;
    unsigned modbusPort = 502;
    std::string language = "default";
    std::optional<Octets> network; ///< what the last section of each kind means, in octets to compare
    std::optional<Octets> snmp;
    std::optional<Octets> modbus;
};

} // namespace model
