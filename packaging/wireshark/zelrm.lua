-- Wireshark's view of the analyzer's protocols: the PC protocol on UDP 9035 and TCP 9034 with the HL7 text of results,
-- and the local protocol between the service and ZELApp. docs/protocols.md says how to install and use it.
--
-- It runs on Lua 5.2 and, from Wireshark 4.4 on, 5.4: the operators for bits that one of them has the other has not.

local UDP_PORT, TCP_PORT = 9035, 9034
local PC_HEADER, LOCAL_HEADER, LOCAL_TRAILER, IMAGE_HEADER = 7, 6, 3, 40
local ACKNOWLEDGE_SECONDS = 2.3 -- then the analyzer gives a result up

local pc = Proto("zelrm", "ZELRmUp PC Protocol")
local zelapp = Proto("zelrm_local", "ZELRmUp Local Protocol")

-- What the numbers mean

local COMMANDS = {
    [0x0A01] = "Scan", [0x0A02] = "Scan answer", [0x0A03] = "Register", [0x0A04] = "Registered",
    [0x0A05] = "Unregister", [0x0A06] = "Unregistered", [0x0A13] = "Notice", [0x0A14] = "Notice acknowledged",
    [0x0A19] = "Update offer", [0x0A1A] = "Update accepted", [0x0A1B] = "Image request", [0x0A1C] = "Image data",
    [0x0A1D] = "Image received", [0x0A1E] = "Information request", [0x0A1F] = "Information",
    [0x0AFF] = "Error notice", [0x7B01] = "Result",
}
-- What those mean that both sides send.
local MEANINGS = {
    PC = {[0x0A13] = "Sign of life", [0x0A14] = "Change notice acknowledged", [0x0A1E] = "Device information request",
          [0x0A1F] = "Update information", [0x7B01] = "Result acknowledged"},
    analyzer = {[0x0A13] = "Change notice", [0x0A14] = "Sign of life acknowledged",
                [0x0A1E] = "Update information request", [0x0A1F] = "Device information", [0x7B01] = "Result"},
}
local CODES = {
    PC = {[0x0013] = "the PC cancels the update", [0x0014] = "the PC cancels the update",
          [0x0015] = "the PC cancels the update"},
    analyzer = {[0x0007] = "the administrator's password is wrong", [0x000C] = "not now, the analyzer is analyzing",
                [0x000E] = "not now, the analyzer is updating",
                [0x0017] = "the update is impossible now, or the image is unknown or did not arrive whole"},
}
local ACTIVITIES = {[1] = "analyzing", [3] = "updating", [4] = "other"}
local REGISTERED = {[0] = "another one or none", [1] = "the one that asks"}
local OFFERED = {[0x08] = "SYS", [0x10] = "APP", [0x20] = "DSP", [0x40] = "XML"}
local KINDS = {B = "boot loader", K = "kernel", R = "root file system", A = "APP", Q = "QTE", D = "DSP", X = "XML",
               S = "SYS"}

local IDS = {
    [0x0500] = "Service started", [0x0510] = "Send a result", [0x0513] = "The PC has the result",
    [0x0514] = "The PC does not have the result", [0x0520] = "Address changed", [0x0530] = "PC connection",
    [0x0561] = "Start an update", [0x0562] = "Update status", [0x0563] = "The PC offers an update",
    [0x0564] = "Answer to the offer",
}
local FROM_ZELAPP = {[0x0510] = true, [0x0520] = true, [0x0561] = true, [0x0564] = true}
local MODES = {[1] = "only report what would be done"}
local METHODS = {"USB stick", "the PC is asked", "update server", "the PC pushes", [6] = "QC material"}
local STATUSES = {"nothing to update", "failed", "will start", "progress", "done"}
local FAILURES = {
    [0x00204012] = "update server: no file, download failed, or not reached",
    [0x00204013] = "PC lost, update cancelled, or its push stalled",
    [0x00204014] = "the stick could not be mounted", [0x00204015] = "no update file on the stick, or copying failed",
    [0x00204016] = "writing an image failed", [0x00204017] = "the boot partition could not be switched",
    [0x00204018] = "the files on the stick do not belong together",
}
local CATALOGUE = {[0] = "boot loader", "kernel", "root file system", "APP", "QTE", "DSP", "XML", "SYS"}
local POSSIBLE = {[0] = "possible", [1] = "impossible"}

-- Fields of the HL7 text that the service fills. The others are shown as zelrm.hl7.field.
local HL7 = {
    MSH = {[2] = "Encoding characters", [3] = "Sending application", [4] = "Sending facility",
           [5] = "Receiving application", [6] = "Receiving facility", [7] = "Time of the message", [9] = "Message type",
           [10] = "Control ID", [11] = "Processing ID", [12] = "HL7 version", [15] = "Accept acknowledgement",
           [16] = "Application acknowledgement", [18] = "Character set", [21] = "Profile"},
    PID = {[3] = "Patient or control", [5] = "Name", [7] = "Birth date", [8] = "Sex", [21] = "Client",
           [35] = "Species"},
    SPM = {[1] = "Number", [4] = "Specimen type", [11] = "Role"},
    SAC = {[32] = "Hemolysis index", [34] = "Lipemia index", [36] = "Icterus index", [43] = "Reagent version"},
    INV = {[1] = "Control material", [12] = "Expiry date", [16] = "Lot of the control material"},
    OBR = {[2] = "Placer order number", [4] = "Panel", [16] = "Ordering provider"},
    ORC = {[1] = "Order control", [2] = "Placer order number", [9] = "Time of the order"},
    OBX = {[1] = "Number", [3] = "Observation", [4] = "Analyte", [5] = "Value", [6] = "Unit", [7] = "Reference range",
           [11] = "Status", [13] = "Errors, flags and ranges", [16] = "Operator", [18] = "Equipment",
           [19] = "Time of the measurement"},
    SID = {[2] = "Lot of the panel"},
}

-- Fields

local HEX, DEC = base.HEX, base.DEC
local is_text = {} -- fields that hold text, padded with zero bytes

-- Makes a protocol's fields from a table of {type, label, base, values, mask} by the end of their names.
local function define(proto, prefix, list)
    list.answer_in = {"framenum", "Answer in", base.NONE, frametype.RESPONSE}
    list.request_in = {"framenum", "Request in", base.NONE, frametype.REQUEST}
    list.time = {"relative_time", "Time since the request"}
    local fields = {}
    for key, row in pairs(list) do
        local kind, label = row[1] == "text" and "string" or row[1], row[2]
        if kind:match("^uint") then
            fields[key] = ProtoField[kind](prefix .. key, label, row[3] or DEC, row[4], row[5])
        elseif kind == "bool" or kind == "framenum" then
            fields[key] = ProtoField[kind](prefix .. key, label, row[3], row[4], row[5])
        else
            fields[key] = ProtoField[kind](prefix .. key, label)
        end
        is_text[fields[key]] = row[1] == "text"
    end
    proto.fields = fields
    return fields
end

-- Items of an information packet and of a change notice, in the order in which they follow their mask:
-- bit, name, label, and the name and width of the field.
local ITEMS = {
    {0x0001, "activity", "Activity", "activity", 1}, {0x0002, "peer", "Peer ID", "peer_number", 1},
    {0x0004, "tcp_port", "TCP port", "tcp_port", 2}, {0x0008, "address", "Address", "address", 4},
    {0x0010, "serial", "Serial number", "serial", 10}, {0x0020, "sys", "Version of SYS", "sys_version", 16},
    {0x0040, "app", "Version of APP", "app_version", 16}, {0x0080, "dsp", "Version of DSP", "dsp_version", 16},
    {0x0100, "xml", "Version of XML", "xml_version", 16},
    {0x0200, "xml_again", "Version of XML again", "xml_version_again", 16}, {0x0400, "new_pc", "New PC"},
    {0x0800, "zero", "Zero", "unused", 2}, {0x1000, "registration", "Registration", "registered", 1},
    {0x2000, "serial_check", "Serial number to be checked"},
}

local pc_fields = {
    command = {"uint16", "Command", HEX, COMMANDS}, tag = {"uint8", "Tag"}, sub_tag = {"uint8", "Sub-tag", HEX},
    version = {"uint8", "Version"}, length = {"uint16", "Length of the packet", DEC, nil, 0xFFFE},
    more = {"bool", "More packets of this image follow", 16, nil, 0x0001},
    from = {"string", "Sender"}, message = {"string", "Message"}, unused = {"bytes", "Unused"},
    data = {"bytes", "Data"}, udp_port = {"uint16", "The PC's UDP port"}, pc_address = {"ipv4", "The PC's address"},
    pc_name = {"text", "The PC's name"}, peer_id = {"text", "Peer ID"}, password = {"text", "Administrator's password"},
    tcp_port = {"uint16", "The analyzer's TCP port"}, address = {"ipv4", "The analyzer's address"},
    serial = {"text", "Serial number"}, model = {"text", "Model"}, busy = {"bool", "Registered or busy", 8, nil, 0x01},
    checksum = {"uint32", "Sum of all bytes before", HEX}, mask = {"uint16", "Items", HEX},
    activity = {"uint8", "Activity", DEC, ACTIVITIES}, peer_number = {"uint8", "Peer ID as a number"},
    registered = {"uint8", "Registered PC", DEC, REGISTERED}, sys_version = {"text", "Version of SYS"},
    app_version = {"text", "Version of APP"}, dsp_version = {"text", "Version of DSP"},
    xml_version = {"text", "Version of XML"}, xml_version_again = {"text", "Version of XML again"},
    offer = {"uint8", "Images offered", HEX}, accept = {"uint8", "Acceptance", HEX},
    image = {"uint32", "Image asked for", HEX, OFFERED}, image_magic = {"text", "Magic"},
    image_size = {"uint32", "Size of the image"}, image_version = {"text", "Version of the image"},
    image_tail = {"bytes", "Header tail"}, image_data = {"bytes", "Image data"},
    image_received = {"uint32", "Bytes of the image so far"},
    code = {"uint16", "Code", HEX}, code_text = {"string", "Meaning"},
    hl7 = {"string", "HL7 message"}, ["hl7.segment"] = {"string", "Segment"}, ["hl7.field"] = {"string", "Field"},
    ["hl7.component"] = {"string", "Component"},
}
for _, item in ipairs(ITEMS) do
    pc_fields["mask." .. item[2]] = {"bool", item[3], 16, nil, item[1]}
end
for bit, name in pairs(OFFERED) do
    pc_fields["offer." .. name:lower()] = {"bool", name, 8, nil, bit}
end
for segment, fields in pairs(HL7) do
    for position, label in pairs(fields) do
        pc_fields[("hl7.%s.%d"):format(segment:lower(), position)] = {"string", label}
    end
end
local f = define(pc, "zelrm.", pc_fields)

local l = define(zelapp, "zelrm_local.", {
    from = {"string", "Sender"}, start = {"uint8", "Start", HEX}, address = {"uint8", "Address", HEX},
    id = {"uint16", "Message id", HEX, IDS}, length = {"uint16", "Length of the payload"},
    crc = {"uint16", "CRC-16/ARC", HEX}, ["end"] = {"uint8", "End", HEX}, unused = {"bytes", "Unused"},
    data = {"bytes", "Data"}, register = {"uint8", "Status Registered after success"}, failure = {"bytes", "Failure"},
    connected = {"uint8", "PC connected"}, size = {"uint8", "Size of the next field"},
    pc_name = {"text", "The PC's name"}, pc_address = {"text", "The PC's address"}, peer_id = {"text", "Peer ID"},
    mode = {"uint8", "Mode", DEC, MODES}, method = {"uint8", "Method", DEC, METHODS},
    status = {"uint8", "Status", DEC, STATUSES},
    error = {"uint32", "Error", HEX, FAILURES}, group = {"uint8", "Group of the error", HEX},
    count = {"uint8", "Number of images"}, image = {"uint8", "Image", DEC, CATALOGUE},
    text_length = {"uint16", "Length of the version"}, image_version = {"text", "Version of the image"},
    percent = {"uint8", "Percent"}, offer = {"uint8", "Offer"}, answer = {"uint8", "Answer", DEC, POSSIBLE},
})

local function notes(proto, prefix, list)
    local experts = {}
    for key, row in pairs(list) do
        experts[key] = ProtoExpert.new(prefix .. "note." .. key, row[3], expert.group[row[1]], expert.severity[row[2]])
    end
    proto.experts = experts
    return experts
end

local note = notes(pc, "zelrm.", {
    error = {"RESPONSE_CODE", "WARN", "Error notice"},
    no_acknowledgement = {"SEQUENCE", "WARN", "The PC did not acknowledge this result"},
    late = {"SEQUENCE", "WARN", "Acknowledged after the analyzer gave up: the result stays unmarked"},
    not_whole = {"SEQUENCE", "WARN", "The image is not whole"},
    short = {"MALFORMED", "ERROR", "The payload is too short"},
    length = {"MALFORMED", "ERROR", "The length is not the announced one"},
    checksum = {"CHECKSUM", "ERROR", "The sum is wrong"},
})
local local_note = notes(zelapp, "zelrm_local.", {
    failed = {"RESPONSE_CODE", "WARN", "Failed"},
    short = {"MALFORMED", "ERROR", "The payload is too short"},
    crc = {"CHECKSUM", "ERROR", "The CRC is wrong: the message is dropped"},
})

-- Reading a payload

local function unpadded(range)
    return range:raw():match("^[^\0]*")
end

local Reader = {}
Reader.__index = Reader

-- Reads `tvb` from its beginning into `tree`; `rest` is the field for what is left over.
local function reader(tvb, tree, rest, short, little_endian)
    return setmetatable({tvb = tvb, at = 0, stop = tvb:len(), tree = tree, rest = rest, short = short,
                         little_endian = little_endian}, Reader)
end

function Reader:left()
    return self.stop - self.at
end

-- Shows the next bytes as this field and keeps them as `range` and `item`; false when there are too few.
function Reader:take(field, width)
    if self:left() < width then
        self.tree:add_proto_expert_info(self.short)
        return false
    elseif width > 0 then
        self.range = self.tvb(self.at, width)
        if is_text[field] then
            self.item = self.tree:add(field, self.range, unpadded(self.range))
        else
            self.item = self.tree[self.little_endian and "add_le" or "add"](self.tree, field, self.range)
        end
        self.at = self.at + width
    end
    return true
end

-- The same for a list of field, width, field, width, ...
function Reader:take_all(list)
    for i = 1, #list, 2 do
        if not self:take(list[i], list[i + 1]) then
            return false
        end
    end
    return true
end

-- Requests and their answers

local waiting, answers, requests, images, image_parts, analyzers

function pc.init()
    waiting, answers, requests, images, image_parts, analyzers = {}, {}, {}, {}, {}, {}
end

-- Several messages may share a frame, so a message is known by its frame and its place there.
local function key_of(tvb, pinfo)
    return pinfo.number .. "@" .. tvb:offset()
end

local function ask(name, key, pinfo)
    waiting[name] = {key = key, frame = pinfo.number, time = pinfo.rel_ts}
end

-- Whether somebody waits for an answer of this name. Several may answer a scan, so its name stays.
local function answer(name, key, pinfo, stays)
    local request = waiting[name]
    if request then
        local time = pinfo.rel_ts - request.time
        answers[request.key] = answers[request.key] or {frame = pinfo.number, time = time}
        requests[key] = {frame = request.frame, time = time}
        waiting[name] = stays and request or nil
    end
    return request ~= nil
end

local function show_links(tree, fields, key)
    if answers[key] then
        tree:add(fields.answer_in, answers[key].frame):set_generated()
    end
    if requests[key] then
        local seconds = math.floor(requests[key].time)
        local rest = math.floor((requests[key].time - seconds) * 1e9 + 0.5)
        tree:add(fields.request_in, requests[key].frame):set_generated()
        tree:add(fields.time, NSTime.new(seconds, rest)):set_generated()
    end
end

-- One frame may hold several messages.
local function append_info(pinfo, text)
    pinfo.cols.info:append((tostring(pinfo.cols.info):match("%S$") and ", " or "") .. text)
end

-- Who asks what, and which of the other's requests a packet answers. An answer to a "tag" has the tag of its request.
local ASKS = {
    PC = {[0x0A01] = "tag", [0x0A03] = "tag", [0x0A05] = "tag", [0x0A13] = "tag", [0x0A1E] = "tag", [0x0A19] = "plain",
          [0x0A1C] = "plain"},
    analyzer = {[0x0A13] = "plain", [0x0A1B] = "plain", [0x0A1E] = "plain", [0x7B01] = "plain"},
}
local ANSWERS = {
    PC = {[0x0A14] = {0x0A13}, [0x0A1C] = {0x0A1B}, [0x0A1F] = {0x0A1E}, [0x7B01] = {0x7B01}},
    analyzer = {[0x0A02] = {0x0A01}, [0x0A04] = {0x0A03}, [0x0A06] = {0x0A05}, [0x0A14] = {0x0A13},
                [0x0A1A] = {0x0A19}, [0x0A1D] = {0x0A1C}, [0x0A1F] = {0x0A1E}, [0x0AFF] = {0x0A03, 0x0A1C, 0x0A19}},
}

-- With these the analyzer begins an update and forgets an image that it has in part.
local BEGINS_UPDATE = {[0x0A1A] = true, [0x0A1E] = true}

-- The PC's end of a message. A scan names where its answer goes to.
local function pc_end(message)
    local pinfo, from_pc = message.pinfo, message.from == "PC"
    if message.command == 0x0A01 and message.tvb:len() >= PC_HEADER + 6 then
        return tostring(message.tvb(PC_HEADER + 2, 4):ipv4()) .. ":" .. message.tvb(PC_HEADER, 2):uint()
    end
    return tostring(from_pc and pinfo.src or pinfo.dst) .. ":" .. (from_pc and pinfo.src_port or pinfo.dst_port)
end

local function link(message)
    local function name(from, command)
        local tag = ASKS[from][command] == "tag" and message.tvb(2, 1):uint() or ""
        return table.concat({from, command, pc_end(message), tag}, " ")
    end
    local other = message.from == "PC" and "analyzer" or "PC"
    for _, asked in ipairs(ANSWERS[message.from][message.command] or {}) do
        if answer(name(other, asked), message.key, message.pinfo, asked == 0x0A01) then
            break
        end
    end
    if ASKS[message.from][message.command] and not message.more then -- an image waits with its last packet
        ask(name(message.from, message.command), message.key, message.pinfo)
    end
    if BEGINS_UPDATE[message.command] and message.from == "analyzer" then
        images[pc_end(message)] = nil
    end
end

-- The PC protocol

local function has(mask, bit)
    return math.floor(mask / bit) % 2 == 1
end

-- Shows a mask with its bits and returns it; 0 when there is none.
local function show_mask(body)
    if not body:take(f.mask, 2) then
        return 0
    end
    for _, item in ipairs(ITEMS) do
        if has(body.range:uint(), item[1]) then
            body.item:add(f["mask." .. item[2]], body.range)
        end
    end
    return body.range:uint()
end

local function show_information(body)
    local mask = show_mask(body)
    for _, item in ipairs(ITEMS) do
        if has(mask, item[1]) and item[4] and not body:take(f[item[4]], item[5]) then
            return
        end
    end
    if has(mask, 0x1000) and body.range:uint() == 0 then
        body:take_all({f.pc_address, 4, f.pc_name, 10})
    end
end

local function show_notice(body, message)
    local mask = show_mask(body)
    if message.from == "PC" and has(mask, 0x2000) then
        body:take(f.serial, 15)
    elseif message.from == "analyzer" and has(mask, 0x0400) then
        body:take_all({f.pc_address, 4, f.pc_name, 10})
    elseif message.from == "analyzer" and has(mask, 0x0008) then
        body:take(f.address, 4)
    end
end

local function show_offer(body)
    if body:take(f.offer, 1) then
        for _, name in pairs(OFFERED) do
            body.item:add(f["offer." .. name:lower()], body.range)
        end
    end
end

local function show_image_request(body)
    body.little_endian = true
    body:take_all({f.image, 4, f.unused, 2})
end

-- Which image a magic stands for, nil for none.
local function image_name(magic)
    local model, kind = unpadded(magic):match("^Z([NV])6(%a)$")
    return KINDS[kind] and KINDS[kind] .. (model == "N" and ", Human" or ", Veterinary")
end

-- Which part of an image the packet is, known from the packets before it; kept, since a packet is shown again.
local function image_part(message, length)
    local name, part = pc_end(message), image_parts[message.key]
    if not part then
        local before = images[name]
        part = before and {size = before.size, received = before.received + length}
            or {first = true, received = math.max(length - IMAGE_HEADER, 0)}
        if part.first and length >= IMAGE_HEADER and image_name(message.tvb(PC_HEADER, 4)) then
            part.size = message.tvb(PC_HEADER + 4, 4):le_int()
        end
        images[name] = message.more and part or nil
        image_parts[message.key] = part
    end
    return part
end

local function show_image_header(body)
    if body:take(f.image_magic, 4) then
        body.item:append_text(" (" .. (image_name(body.range) or "unknown, or not the first packet") .. ")")
        body:take_all({f.image_size, 4, f.image_version, 16, f.image_tail, 16})
    end
end

local function show_image(body, message)
    local part = image_part(message, body:left())
    body.little_endian = true
    if part.first then
        show_image_header(body)
    end
    body:take(f.image_data, body:left())
    body.tree:add(f.image_received, part.received):set_generated()
    if not message.more and part.size and part.received ~= part.size then
        local text = ("The image is not whole: %d of %d bytes"):format(part.received, part.size)
        body.tree:add_proto_expert_info(note.not_whole, text)
    end
end

local function show_code(body, message)
    if body:take(f.code, 2) then
        local text = CODES[message.from][body.range:uint()] or "unknown, without effect"
        body.tree:add(f.code_text, body.range, text):set_generated()
        body.tree:add_proto_expert_info(note.error, ("Error notice 0x%04X: %s"):format(body.range:uint(), text))
        message.info = message.info .. ": " .. text
    end
end

-- The pieces of a range between separators, as {range, text}; empty ones have no range.
local function split(range, separator)
    local pieces, at, text = {}, 1, range:raw()
    repeat
        local stop = text:find(separator, at, true) or #text + 1
        pieces[#pieces + 1] = {range = stop > at and range(at - 1, stop - at) or nil, text = text:sub(at, stop - 1)}
        at = stop + 1
    until stop > #text
    return pieces
end

local function show_components(tree, place, value, encoding)
    local repetitions = split(value, encoding.repetition)
    for i, repetition in ipairs(repetitions) do
        local components = repetition.range and split(repetition.range, encoding.component) or {}
        for j, component in ipairs(components) do
            if component.range and #repetitions + #components > 2 then
                local which = #repetitions > 1 and ("%s(%d).%d"):format(place, i, j) or place .. "." .. j
                local item = tree:add_packet_field(f["hl7.component"], component.range, ENC_UTF_8)
                item:set_text(which .. ": " .. component.text)
            end
        end
    end
end

local function show_segment(tree, range, encoding)
    local fields = split(range, encoding.field)
    local name = fields[1].text
    local segment = tree:add(f["hl7.segment"], range, name)
    for i = 2, #fields do
        local position = name == "MSH" and i or i - 1 -- MSH-1 is the first separator
        local value, place = fields[i].range, name .. "-" .. position
        if value then
            local field = f[("hl7.%s.%d"):format(name:lower(), position)] or f["hl7.field"]
            local item = segment:add_packet_field(field, value, ENC_UTF_8)
            item:prepend_text(place .. " ")
            if place ~= "MSH-2" then
                show_components(item, place, value, encoding)
            end
        end
    end
end

local function show_result(body, message)
    if message.from == "PC" then
        return
    elseif body:left() == 0 then
        message.info = message.info .. " without text: its tables could not be read"
        return
    end
    local text = body.tvb(body.at):raw()
    body:take(f.hl7, body:left())
    body.item:set_text("HL7 message, " .. #text .. " bytes")
    local field, component, repetition = text:match("^MSH(.)(.)(.)")
    local encoding = {field = field or "|", component = component or "^", repetition = repetition or "~"}
    for _, segment in ipairs(split(body.range, "\r")) do
        if segment.range then
            show_segment(body.item, segment.range, encoding)
        end
    end
end

-- How a command's payload is shown: a list of fields and widths, or a function.
local BODIES = {
    [0x0A01] = {f.udp_port, 2, f.pc_address, 4, f.unused, 4},
    [0x0A02] = {f.serial, 15, f.busy, 1, f.tcp_port, 2, f.address, 4, f.unused, 10, f.pc_address, 4, f.pc_name, 10,
                f.unused, 14, f.model, 8, f.checksum, 4},
    [0x0A03] = {f.password, 8, f.udp_port, 2, f.pc_address, 4, f.pc_name, 10, f.peer_id, 1},
    [0x0A04] = {f.peer_id, 1}, [0x0A13] = show_notice, [0x0A19] = show_offer, [0x0A1A] = {f.accept, 1},
    [0x0A1B] = show_image_request, [0x0A1C] = show_image, [0x0A1E] = show_mask, [0x0A1F] = show_information,
    [0x0AFF] = show_code, [0x7B01] = show_result,
}

local function check_sum(tree, tvb)
    local sum = 0
    for i = 0, tvb:len() - 5 do
        sum = sum + tvb(i, 1):uint()
    end
    if sum ~= tvb(tvb:len() - 4, 4):uint() then
        tree:add_proto_expert_info(note.checksum, ("The sum is wrong: it should be 0x%08x"):format(sum))
    end
end

local function check_acknowledgement(tree, message)
    local given = answers[message.key]
    if given and given.time > ACKNOWLEDGE_SECONDS then
        tree:add_proto_expert_info(note.late)
    elseif not given and message.pinfo.visited then -- until all was seen once, the answer may still come
        tree:add_proto_expert_info(note.no_acknowledgement)
    end
end

local function show_body(body, message)
    local how = BODIES[message.command]
    if type(how) == "function" then
        how(body, message)
    elseif how then
        body:take_all(how)
    end
    body:take(body.rest, body:left())
end

local function show_packet(tvb, pinfo, tree, from)
    local message = {tvb = tvb, pinfo = pinfo, from = from, key = key_of(tvb, pinfo), command = tvb(0, 2):uint(),
                     more = tvb(6, 1):uint() % 2 == 1}
    message.info = MEANINGS[from][message.command] or COMMANDS[message.command] or "Unknown command"
    if not pinfo.visited then
        link(message)
    end
    local item = tree:add(pc, tvb(), "ZELRmUp PC Protocol, " .. message.info)
    item:add(f.from, tvb(0, 2), from):set_generated()
    item:add(f.message, tvb(0, 2), message.info):set_generated()
    local body = reader(tvb, item, f.data, note.short)
    body:take_all({f.command, 2, f.tag, 1, f.sub_tag, 1, f.version, 1, f.length, 2})
    item:add(f.more, body.range)
    show_body(body, message)
    show_links(item, f, message.key)
    if math.floor(tvb(5, 2):uint() / 2) ~= tvb:reported_len() then
        item:add_proto_expert_info(note.length)
    elseif message.command == 0x0A02 then
        check_sum(item, tvb)
    elseif message.command == 0x7B01 and from == "analyzer" then
        check_acknowledgement(item, message)
    end
    append_info(pinfo, message.info)
    return tvb:len()
end

-- A PC may use port 9035 as well; then the analyzer is known by what only an analyzer sends.
local function sender(tvb, pinfo, over_tcp)
    local own_port = over_tcp and TCP_PORT or UDP_PORT
    if pinfo.src_port ~= own_port then
        return "PC"
    elseif over_tcp or tvb(0, 2):uint() == 0x0A02 then
        analyzers[tostring(pinfo.src)] = true
    end
    return (pinfo.dst_port ~= own_port or analyzers[tostring(pinfo.src)]) and "analyzer" or "PC"
end

-- Whether a packet can begin here: a capture may begin in the middle of one.
local function plausible(tvb)
    return tvb:len() < PC_HEADER or COMMANDS[tvb(0, 2):uint()] ~= nil or tvb(4, 1):uint() == 1
end

function pc.dissector(tvb, pinfo, tree)
    local over_tcp = pinfo.port_type == 2
    if not plausible(tvb) or not over_tcp and tvb:len() < PC_HEADER then
        return 0
    end
    pinfo.cols.protocol, pinfo.cols.info = "ZELRM", ""
    if not over_tcp then
        return show_packet(tvb, pinfo, tree, sender(tvb, pinfo, false))
    end
    local function length(buffer, _, offset)
        return math.max(PC_HEADER, math.floor(buffer(offset + 5, 2):uint() / 2))
    end
    dissect_tcp_pdus(tvb, tree, PC_HEADER, length, function(buffer, info, branch)
        return show_packet(buffer, info, branch, sender(buffer, info, true))
    end)
    return tvb:len()
end

-- The local protocol

local STATUS_ENTRIES = {[3] = {l.image, 1, l.text_length, 2, l.image_version, 16}, [4] = {l.image, 1, l.percent, 1}}

local function show_status(body)
    if not body:take(l.status, 1) then
        return
    end
    local status = body.range:uint()
    if status == 2 and body:take(l.error, 4) then
        local text = FAILURES[body.range:le_uint()] or "unknown"
        body.tree:add_proto_expert_info(local_note.failed, "The update failed: " .. text)
        body:take(l.group, 1)
    elseif STATUS_ENTRIES[status] and body:take(l.count, 1) then
        for _ = 1, body.range:uint() do
            if not body:take_all(STATUS_ENTRIES[status]) then
                return
            end
        end
    end
end

local function show_failure(body)
    body:take(l.failure, 6)
    body.tree:add_proto_expert_info(local_note.failed, "The PC does not have the result; it stays unmarked")
end

local LOCAL_BODIES = {
    [0x0510] = {l.unused, 1, l.register, 1}, [0x0514] = show_failure,
    [0x0530] = {l.connected, 1, l.size, 1, l.pc_name, 20, l.size, 1, l.pc_address, 20, l.peer_id, 1, l.size, 1,
                l.unused, 20, l.size, 1, l.unused, 21},
    [0x0561] = {l.mode, 1, l.method, 1}, [0x0562] = show_status, [0x0563] = {l.offer, 1}, [0x0564] = {l.answer, 1},
}
local LOCAL_ANSWERS = {[0x0513] = 0x0510, [0x0514] = 0x0510, [0x0562] = 0x0561, [0x0564] = 0x0563}
local LOCAL_ASKS = {[0x0510] = true, [0x0561] = true, [0x0563] = true}

local bxor = bit32 and bit32.bxor or load("return function(a, b) return a ~ b end")()

local function crc16(range)
    local crc = 0
    for i = 0, range:len() - 1 do
        crc = bxor(crc, range(i, 1):uint())
        for _ = 1, 8 do
            local low = crc % 2
            crc = low == 1 and bxor((crc - low) / 2, 0xA001) or (crc - low) / 2
        end
    end
    return crc
end

local function link_local(id, key, pinfo)
    local ends = math.min(pinfo.src_port, pinfo.dst_port) .. " " .. math.max(pinfo.src_port, pinfo.dst_port)
    if LOCAL_ANSWERS[id] then
        answer(LOCAL_ANSWERS[id] .. " " .. ends, key, pinfo)
    end
    if LOCAL_ASKS[id] then
        ask(id .. " " .. ends, key, pinfo)
    end
end

local function show_local(tvb, pinfo, tree)
    local key, id = key_of(tvb, pinfo), tvb(2, 2):le_uint()
    local name = IDS[id] or "Unknown message"
    if not pinfo.visited then
        link_local(id, key, pinfo)
    end
    local item = tree:add(zelapp, tvb(), "ZELRmUp Local Protocol, " .. name)
    item:add(l.from, tvb(2, 2), FROM_ZELAPP[id] and "ZELApp" or "service"):set_generated()
    local body = reader(tvb, item, l.data, local_note.short, true)
    body:take_all({l.start, 1, l.address, 1, l.id, 2, l.length, 2})
    body.stop = tvb:len() - LOCAL_TRAILER
    local how = LOCAL_BODIES[id]
    if type(how) == "function" then
        how(body)
    elseif how then
        body:take_all(how)
    end
    body:take(body.rest, body:left())
    body.stop = tvb:len()
    body:take(l.crc, 2)
    if crc16(tvb(1, tvb:len() - 1 - LOCAL_TRAILER)) ~= body.range:le_uint() then
        item:add_proto_expert_info(local_note.crc)
    end
    body:take(l["end"], 1)
    show_links(item, l, key)
    append_info(pinfo, name)
    return tvb:len()
end

function zelapp.dissector(tvb, pinfo, tree)
    if tvb:len() >= 2 and tvb(0, 2):uint() ~= 0x02B2 then
        return 0
    end
    pinfo.cols.protocol, pinfo.cols.info = "ZELRM local", ""
    dissect_tcp_pdus(tvb, tree, LOCAL_HEADER, function(buffer, _, offset)
        return buffer(offset + 4, 2):le_uint() + LOCAL_HEADER + LOCAL_TRAILER
    end, show_local)
    return tvb:len()
end

DissectorTable.get("udp.port"):add(UDP_PORT, pc)
DissectorTable.get("tcp.port"):add(TCP_PORT, pc)
DissectorTable.get("tcp.port"):add_for_decode_as(zelapp)
