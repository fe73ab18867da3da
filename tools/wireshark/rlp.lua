-- SPDX-License-Identifier: MIT
-- Wireshark dissector of the RLP protocol between an R7M controller and its touch panel. It makes the panel's checks in
-- the panel's order, keeps what the panel keeps from frame to frame, and says why a frame is dropped in the words of
-- the panel's log; docs/rlp-protocol.md is the description. r7m-frame-check does the same with the panel's own decoder,
-- and a test holds the two against each other.

local rlp = Proto("rlp", "R7M Touch Panel Link")

local bxor = (bit and bit.bxor) or (bit32 and bit32.bxor) or load("return function(a, b) return a ~ b end")()

rlp.prefs.port = Pref.uint("UDP port", 9876, "The port on which the panel listens")
rlp.prefs.timeout = Pref.uint("Time-out (s)", 10, "Time without a frame after which the panel gives the link up (UdpTimeout)")

local HEADER_SIZE, CHECKSUM_SIZE, SMALLEST_OFFSET, PAYLOAD_HEADER_SIZE = 16, 2, 8, 14

-- Fields ------------------------------------------------------------------------------------------------------------

local outputs = { [0] = "off", "on", "slow blink", "fast blink" }
local hashes = { "MD5", "SHA" }
local ciphers = { "DES", "AES" }
local modes = { "V1", "V2", "V3NOAUTH", "V3NOPRIV", "V3PRIV" }

local kinds = {
    [0x10] = { name = "DevInfo", prefix = "devinfo", size = 28, mismatch = "DevInfo" },
    [0x20] = { name = "GpioState", prefix = "gpiostate", size = 8, mismatch = "DevInfo" }, -- as the panel says it
    [0x30] = { name = "NetCfg", prefix = "netcfg", size = 26, mismatch = "NetCfg" },
    [0x40] = { name = "SnmpCfg", prefix = "snmpcfg", size = 580, mismatch = "SnmpCfg" },
    [0x60] = { name = "ModbusCfg", prefix = "modbuscfg", size = 8, mismatch = "ModbusCfg" },
    [0x80] = { name = "Core", prefix = "core" },
}
local typeNames = {}
for code, kind in pairs(kinds) do
    typeNames[code] = kind.name
end

local fields = {}

local function declare(name, field)
    fields[name] = field
    rlp.fields[#rlp.fields + 1] = field
end

-- The fields of a section in the order of the wire: name, kind of value, title, words for the values.
local layouts = {
    [0x10] = {
        { "type", "u16", "Device type" },
        { "hwmajor", "u16", "Hardware version, major" },
        { "hwminor", "u16", "Hardware version, minor" },
        { "swmajor", "u16", "Software version, major" },
        { "swminor", "u16", "Software version, minor" },
        { "swbuild", "u16", "Software build" },
        { "serial", "u32", "Serial number" },
        { "lang", "text8", "Language" },
    },
    [0x20] = {
        { "good", "u8", "Green LED", outputs },
        { "warning", "u8", "Yellow LED", outputs },
        { "critical", "u8", "Red LED", outputs },
        { "buzzer", "u8", "Buzzer", outputs },
    },
    [0x30] = {
        { "varnel", "bool8", "Controller manages the panel's network" },
        { "dhcp", "bool8", "Address by DHCP" },
        { "ip", "ipv4", "Address" },
        { "mask", "ipv4", "Netmask" },
        { "gateway", "ipv4", "Gateway" },
        { "dns1", "ipv4", "First name server" },
        { "dns2", "ipv4", "Second name server" },
    },
    [0x40] = {
        { "version", "u8", "Security of the agent", modes },
        { "options", "u8", "Options" },
        { "nopriv_hash", "u8", "Hash of V3NOPRIV", hashes },
        { "priv_hash", "u8", "Hash of V3PRIV", hashes },
        { "priv_algo", "u8", "Cipher of V3PRIV", ciphers },
        { "cli_mode", "u8", "Security of the traps", modes },
        { "cli_hash", "u8", "Hash of the traps", hashes },
        { "cli_algo", "u8", "Cipher of the traps", ciphers },
        { "ro_user", "text32", "User of V3NOAUTH" },
        { "nopriv_user", "text32", "User of V3NOPRIV" },
        { "nopriv_pwd", "text32", "Authentication password of V3NOPRIV" },
        { "priv_user", "text32", "User of V3PRIV" },
        { "priv_pwd", "text32", "Authentication password of V3PRIV" },
        { "priv_key", "text32", "Privacy key of V3PRIV" },
        { "oid", "text32", "Subtree for V1 and V2" },
        { "ro_oid", "text32", "Subtree for V3NOAUTH" },
        { "nopriv_oid", "text32", "Subtree for V3NOPRIV" },
        { "priv_oid", "text32", "Subtree for V3PRIV" },
        { "r7m_context", "text32", "Context at the controller's agent" },
        { "r7m_community", "text32", "Community at the controller's agent" },
        { "cli_engineid", "text32", "Engine id for V3 traps" },
        { "cli_community", "text32", "Community for V1 and V2 traps" },
        { "cli_user", "text32", "User for V3 traps" },
        { "cli_pwd", "text32", "Authentication password for V3 traps" },
        { "cli_key", "text32", "Privacy key for V3 traps" },
        { "port", "u16", "UDP port of the agent" },
        { "port_trap", "u16", "UDP port of the trap destinations" },
        { "trap_addr1", "ipv4", "Trap destination 1" },
        { "trap_addr2", "ipv4", "Trap destination 2" },
        { "trap_addr3", "ipv4", "Trap destination 3" },
        { "trap_addr4", "ipv4", "Trap destination 4" },
        { "trap_addr5", "ipv4", "Trap destination 5" },
    },
    [0x60] = {
        { "tcp_status", "bool16", "Modbus TCP on" },
        { "tcp_port", "u16", "TCP port" },
    },
}

local function latin1(range)
    local text = range:raw():match("^[^%z]*")
    return (text:gsub("[\128-\255]", function(c)
        local code = c:byte()
        return string.char(0xC0 + math.floor(code / 64), 0x80 + code % 64)
    end))
end

local function addText(tree, field, range)
    tree:add(field, range, latin1(range))
end

local function addLittle(tree, field, range)
    tree:add_le(field, range)
end

local valueKinds = {
    u8 = { width = 1, make = function(abbr, title, words) return ProtoField.uint8(abbr, title, base.DEC, words) end, add = addLittle },
    u16 = { width = 2, make = function(abbr, title) return ProtoField.uint16(abbr, title, base.DEC) end, add = addLittle },
    u32 = { width = 4, make = function(abbr, title) return ProtoField.uint32(abbr, title, base.DEC) end, add = addLittle },
    bool8 = { width = 1, make = function(abbr, title) return ProtoField.bool(abbr, title) end, add = addLittle },
    bool16 = { width = 2, make = function(abbr, title) return ProtoField.bool(abbr, title) end, add = addLittle },
    ipv4 = { width = 4, make = function(abbr, title) return ProtoField.ipv4(abbr, title) end,
        add = function(tree, field, range) tree:add(field, range) end },
    text8 = { width = 8, make = function(abbr, title) return ProtoField.string(abbr, title) end, add = addText },
    text32 = { width = 32, make = function(abbr, title) return ProtoField.string(abbr, title) end, add = addText },
}

declare("magic", ProtoField.uint8("rlp.magic", "Magic", base.HEX))
declare("version", ProtoField.uint8("rlp.version", "Version", base.DEC))
declare("payload_length", ProtoField.uint16("rlp.payload_length", "Payload length", base.DEC))
declare("section_offset", ProtoField.uint16("rlp.section_offset", "Section offset", base.DEC))
declare("section_count", ProtoField.uint16("rlp.section_count", "Section count", base.DEC))
declare("seqno", ProtoField.uint32("rlp.seqno", "Sequence number", base.DEC))
declare("continuity", ProtoField.uint32("rlp.continuity", "Continuity word", base.HEX))
declare("checksum", ProtoField.uint16("rlp.checksum", "Checksum", base.HEX))
declare("accepted", ProtoField.bool("rlp.accepted", "Accepted by the panel"))
declare("log", ProtoField.string("rlp.log", "Panel's log"))
declare("section", ProtoField.none("rlp.section", "Section"))
declare("section.type", ProtoField.uint16("rlp.section.type", "Section type", base.HEX, typeNames))
declare("section.length", ProtoField.uint16("rlp.section.length", "Section length", base.DEC))
declare("section.decoded", ProtoField.bool("rlp.section.decoded", "Used by the panel"))
declare("core.item", ProtoField.none("rlp.core.item", "Item"))
declare("core.class", ProtoField.uint16("rlp.core.class", "Class", base.DEC))
declare("core.field", ProtoField.uint16("rlp.core.field", "Field", base.DEC))
declare("core.instance", ProtoField.uint8("rlp.core.instance", "Instance", base.DEC))
declare("core.type", ProtoField.uint8("rlp.core.type", "Type code", base.DEC))
declare("core.datalen", ProtoField.uint16("rlp.core.datalen", "Octets of the value", base.DEC))
declare("core.value", ProtoField.bytes("rlp.core.value", "Value, least significant octet first"))
for code, layout in pairs(layouts) do
    for _, entry in ipairs(layout) do
        local name = kinds[code].prefix .. "." .. entry[1]
        declare(name, valueKinds[entry[2]].make("rlp." .. name, entry[3], entry[4]))
    end
end

-- Expert information: one for each line of the panel's log ------------------------------------------------------------

local experts = {}

local function reason(name, words, severity)
    local expert = ProtoExpert.new("rlp.reason." .. name, words, expert.group.PROTOCOL, severity)
    experts[name] = expert
    rlp.experts[#rlp.experts + 1] = expert
end

local dropped, refused, noted = expert.severity.ERROR, expert.severity.WARN, expert.severity.NOTE
reason("magic", "Not a RLP magic number. Drop frame", dropped)
reason("sender", "Packet received from an unknown sender", dropped)
reason("checksum", "Invalid checksum. Drop frame", dropped)
reason("version", "Unknown RLP version", dropped)
reason("payload_length", "Payload length mismatch. Drop frame", dropped)
reason("section_offset", "Section offset out of range. Drop frame", dropped)
reason("section_count", "Section count mismatch section payload length. Drop frame", dropped)
reason("no_section", "No section to process. Drop frame", dropped)
reason("continuity", "Out of the continuum. Drop frame", dropped)
reason("repeated", "Repeated packet. Drop frame", dropped)
reason("back", "Back in the sequence, probable reboot of the RxM", noted)
reason("link_lost", "No packet received within the window", refused)
reason("too_short", "Payload too short. Drop remaining bytes", refused)
reason("overrun", "Section length exceed frame length. Skip section", refused)
reason("unknown_section", "Unknown section type. Skip section", refused)
reason("section_length", "Section length mismatch", refused)
reason("section_short", "Too short", refused)
reason("section_size", "Payload size mismatch", refused)
reason("decode", "Decode error", refused)
reason("core_item", "Core item runs past the section's end", refused)

-- The panel's decoder --------------------------------------------------------------------------------------------------

local crcTable = {}
for octet = 0, 255 do
    local crc = octet
    for _ = 1, 8 do
        local half = math.floor(crc / 2)
        crc = crc % 2 == 1 and bxor(half, 0x8408) or half
    end
    crcTable[octet] = crc
end

local function crcKermit(text)
    local crc = 0
    for i = 1, #text do
        crc = bxor(math.floor(crc / 256), crcTable[bxor(crc % 256, text:byte(i))])
    end
    return crc
end

-- What the panel keeps from one frame to the next.
local state = {}
-- What it has made of each packet, by number: { accepted, lines = { { text, expert } }, sections = { ... } }.
local verdicts = {}

function rlp.init()
    state = { last = 0 }
    verdicts = {}
end

-- A frame in hand: little-endian reads that give 0 beyond the end, and what is said about it.
local function newFrame(octets)
    local frame = { octets = octets, size = #octets, lines = {}, sections = {} }
    function frame.number(at, width)
        if at < 0 or at + width > frame.size then
            return 0
        end
        local value = 0
        for i = width, 1, -1 do
            value = value * 256 + octets:byte(at + i)
        end
        return value
    end
    -- One line of the log; only lines with words, not those with numbers alone, are expert information.
    function frame.say(name, text)
        frame.lines[#frame.lines + 1] = { text = text, expert = name and experts[name] }
        return false
    end
    return frame
end

local function supervise(frame, now)
    if state.sender and now - state.accepted > rlp.prefs.timeout then
        frame.say("link_lost", string.format('No packet received within the  %d s window, unregister  "%s"',
            rlp.prefs.timeout, state.sender))
        state.sender, state.last = nil, 0
    end
end

-- The checks of a whole frame, in the panel's order; true when it is accepted.
local function checkFrame(frame, sender)
    local say, number = frame.say, frame.number
    if frame.size == 0 or number(0, 1) ~= 0xCE then
        return say("magic", "Not a RLP magic number. Drop frame")
    end
    if state.sender and sender ~= state.sender then
        return say("sender", string.format('Packet received from an unknown sender ( "%s" , attended  "%s" )', sender, state.sender))
    end
    local covered = frame.size < CHECKSUM_SIZE and frame.size or frame.size - CHECKSUM_SIZE
    local received, computed = number(frame.size - CHECKSUM_SIZE, 2), crcKermit(frame.octets:sub(1, covered))
    if received ~= computed or frame.size < CHECKSUM_SIZE then
        return say("checksum", string.format('Invalid checksum (0x "%x"  != 0x "%x" ). Drop frame', received, computed))
    end
    frame.size = frame.size - CHECKSUM_SIZE -- all later sizes are meant without the checksum
    if number(1, 1) ~= 1 then
        return say("version", "Unknown RLP version")
    end
    local length, offset, count, seqno = number(2, 2), number(4, 2), number(6, 2), number(8, 4)
    if length ~= frame.size - 2 then
        say("payload_length", "Payload length mismatch. Drop frame")
        return say(nil, string.format("%d", length))
    end
    if offset < SMALLEST_OFFSET or offset > length then
        say("section_offset", "Section offset out of range. Drop frame")
        say(nil, string.format("%d  <  %d", offset, SMALLEST_OFFSET))
        return say(nil, string.format("%d  >  %d", offset, length))
    end
    if count == 0 and length > SMALLEST_OFFSET then
        say("section_count", "Section count mismatch section payload length. Drop frame")
        return say(nil, string.format("%d  :  %d", count, length))
    end
    if count == 0 then
        say("no_section", "No section to process. Drop frame")
        return say(nil, string.format("%d", count))
    end
    if number(12, 4) == 0 then
        return say("continuity", "Out of the continuum. Drop frame")
    end
    if seqno == state.last then
        return say("repeated", string.format("Repeated packet. Drop frame ( %d  =  %d )", seqno, state.last))
    end
    if state.last > seqno then
        say("back", string.format("Back in the sequence, probable reboot of the RxM ( %d  <  %d )", seqno, state.last))
    end
    return true
end

-- The octets that the walk goes on by when the decoder does not say; 16 bits wide.
local function advanceOf(section, kind, budget)
    if kind and kind.prefix == "core" then
        return budget
    end
    return kind and section.length == kind.size and kind.size or (section.length + 4) % 65536
end

-- Whether the panel's decoder of this section takes what the walk hands it.
local function decode(frame, section, kind, advance)
    local handed = math.max(0, math.min(advance, frame.size - section.at))
    if kind.size and section.length ~= kind.size then
        handed = advance -- filled up, so that the decoder refuses it
    end
    if kind.size and section.length < kind.size then
        return frame.say("section_short", "Too short")
    end
    if handed ~= section.length then
        return frame.say("section_size", "Payload size mismatch")
    end
    return true
end

-- The items of a Core section: where each begins and how many octets its value has.
local function coreItems(frame, section)
    local items, at, last = {}, section.at + 4, section.at + section.length
    while last - at >= 8 do
        local length = frame.number(at + 6, 2)
        if length > last - at - 8 then
            frame.say("core_item", string.format("Core item at %d runs past the section's end", at - section.at))
            break
        end
        items[#items + 1] = { at = at, length = length }
        at = at + 8 + length
    end
    return items
end

local function walkSections(frame)
    local budget = frame.number(2, 2) - PAYLOAD_HEADER_SIZE
    local at, lastConsumed, decoded = frame.number(4, 2) + 2, nil, {}
    for _ = 1, frame.number(6, 2) do
        if budget < 4 or at > frame.size - 4 then
            frame.say("too_short", "Payload too short. Drop remaining bytes")
            return
        end
        local section = { at = at, type = frame.number(at, 2), length = frame.number(at + 2, 2), decoded = false }
        local kind = kinds[section.type]
        local isSkipped = section.length > budget or not kind
        if section.length > budget then
            frame.say("overrun", "Section length exceed frame length. Skip section")
        end
        if not kind then
            frame.say("unknown_section", "Unknown section type. Skip section")
        elseif kind.size and section.length ~= kind.size then
            frame.say("section_length", string.format("%s section length mismatch ( %d )", kind.mismatch, kind.size))
        end
        local advance = advanceOf(section, kind, budget)
        if not isSkipped then
            section.decoded = decode(frame, section, kind, advance)
            decoded[kind] = section.decoded
            if section.decoded then
                lastConsumed = section.length
                section.items = not kind.size and coreItems(frame, section)
            end
            advance = lastConsumed or (section.length + 4) % 65536
        end
        if not kind or not decoded[kind] then
            frame.say("decode", "Decode error")
        end
        frame.sections[#frame.sections + 1] = section
        budget, at = (budget - advance) % 65536, (at + advance) % 65536
    end
end

local function judge(octets, sender, now)
    local frame = newFrame(octets)
    supervise(frame, now)
    frame.accepted = checkFrame(frame, sender)
    if frame.accepted then
        walkSections(frame)
        state.last, state.sender, state.accepted = frame.number(8, 4), sender, now
    end
    return { accepted = frame.accepted, lines = frame.lines, sections = frame.sections }
end

-- The tree -------------------------------------------------------------------------------------------------------------

local headerFields = {
    { "magic", 0, 1 }, { "version", 1, 1 }, { "payload_length", 2, 2 }, { "section_offset", 4, 2 },
    { "section_count", 6, 2 }, { "seqno", 8, 4 }, { "continuity", 12, 4 },
}

local function addHeader(tree, tvb)
    for _, entry in ipairs(headerFields) do
        if entry[2] + entry[3] > tvb:len() - CHECKSUM_SIZE then
            break
        end
        tree:add_le(fields[entry[1]], tvb(entry[2], entry[3]))
    end
    if tvb:len() >= CHECKSUM_SIZE then
        tree:add_le(fields.checksum, tvb(tvb:len() - CHECKSUM_SIZE, CHECKSUM_SIZE))
    end
end

local function addCoreItem(tree, tvb, item)
    local branch = tree:add(fields["core.item"], tvb(item.at, 8 + item.length))
    branch:add_le(fields["core.class"], tvb(item.at, 2))
    branch:add_le(fields["core.field"], tvb(item.at + 2, 2))
    branch:add_le(fields["core.instance"], tvb(item.at + 4, 1))
    branch:add_le(fields["core.type"], tvb(item.at + 5, 1))
    branch:add_le(fields["core.datalen"], tvb(item.at + 6, 2))
    if item.length > 0 then
        branch:add(fields["core.value"], tvb(item.at + 8, item.length))
    end
end

local function addSection(tree, tvb, section)
    local length = section.decoded and section.length or 4
    local branch = tree:add(fields.section, tvb(section.at, length))
    branch:set_text((typeNames[section.type] or "Unknown section") .. (section.decoded and "" or ", refused"))
    branch:add_le(fields["section.type"], tvb(section.at, 2))
    branch:add_le(fields["section.length"], tvb(section.at + 2, 2))
    branch:add(fields["section.decoded"], section.decoded):set_generated()
    if not section.decoded then
        return
    end
    for _, item in ipairs(section.items or {}) do
        addCoreItem(branch, tvb, item)
    end
    local at = section.at + 4
    for _, entry in ipairs(layouts[section.type] or {}) do
        local kind = valueKinds[entry[2]]
        kind.add(branch, fields[kinds[section.type].prefix .. "." .. entry[1]], tvb(at, kind.width))
        at = at + kind.width
    end
end

local function summary(tvb, verdict)
    if not verdict.accepted then
        return "dropped: " .. verdict.lines[#verdict.lines].text
    end
    local names = {}
    for _, section in ipairs(verdict.sections) do
        names[#names + 1] = (typeNames[section.type] or "unknown") .. (section.decoded and "" or " (refused)")
    end
    return "Frame " .. tvb(8, 4):le_uint() .. ": " .. table.concat(names, ", ")
end

function rlp.dissector(tvb, pinfo, tree)
    if pinfo.match_uint ~= pinfo.dst_port then
        return 0 -- an answer to nobody: the panel sends nothing
    end
    local octets = tvb:len() > 0 and tvb:raw() or ""
    local verdict = verdicts[pinfo.number]
    if not verdict then
        verdict = judge(octets, tostring(pinfo.src), tonumber(tostring(pinfo.abs_ts)))
        verdicts[pinfo.number] = verdict
    end
    pinfo.cols.protocol = "RLP"
    pinfo.cols.info = summary(tvb, verdict)
    local root = tvb:len() > 0 and tree:add(rlp, tvb()) or tree:add(rlp)
    addHeader(root, tvb)
    root:add(fields.accepted, verdict.accepted):set_generated()
    for _, line in ipairs(verdict.lines) do
        local item = root:add(fields.log, line.text):set_generated()
        if line.expert then
            item:add_proto_expert_info(line.expert, line.text)
        end
    end
    for _, section in ipairs(verdict.sections) do
        addSection(root, tvb, section)
    end
    return tvb:len()
end

local ports = DissectorTable.get("udp.port")
local registered = nil

local function register()
    if registered ~= rlp.prefs.port then
        if registered then
            ports:remove(registered, rlp)
        end
        registered = rlp.prefs.port
        ports:add(registered, rlp)
    end
end

rlp.prefs_changed = register
register()
