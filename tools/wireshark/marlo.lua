-- SPDX-License-Identifier: Apache-2.0
-- Wireshark's view of a capture of the co-processor's device files (marlo-sim --capture FILE):
--     tshark -r FILE -X lua_script:tools/wireshark/marlo.lua
-- or for good: copy the files of this folder to the "Personal Lua Plugins" of Help > About
-- Wireshark > Folders. sim/capture/captured_frame.h describes what stands in front of each packet.
-- Nothing is believed: whatever the bytes are, what is wrong with them is shown.

-- It may be in a folder for plugins, and named on the command line as well.
if package.loaded.marlo_is_here then return end
package.loaded.marlo_is_here = true

-- Scripts in the folder for all users are not told theirs.
package.prepend_path(__DIR__ or debug.getinfo(1, "S").source:match("^@(.*)/"))
local M = require("marlo_messages")
local crc32 = require("marlo_crc32")
local command = require("marlo_commands")
local reader = require("marlo_reader")
local Message, capture = reader.Message, reader.capture
local TO_DAEMON, FROM_DAEMON = M.TO_DAEMON, M.FROM_DAEMON


local marlo = Proto("marlo", "Co-processor")
marlo.prefs.check_crc =
    Pref.bool("Check the CRCs", true, "It is what takes time with a large capture")

local F = reader.fields
marlo.fields, marlo.experts, marlo.init = F, reader.experts, reader.forget

local LAYOUT, HEADER_SIZE = 1, 8

local ANSWERS = {[M.DFU] = {}, [M.RMA] = {}}
for messages, ids in pairs(ANSWERS) do
    for _, message in pairs(messages) do
        if message.answer then ids[message.answer] = true end
    end
end

local function operation_text(m)
    local v = m.values
    local name = M.OPERATIONS[v.operation] or "operation " .. v.operation
    if v.code and v.code ~= 0 then return (" %s fails: code %d"):format(name, v.code) end
    if v.operation == M.ERASE and v.size then
        local range = m:known_name("ranges", v.offset, "range_name")
        return (" %s%s, offset %d, size %d"):format(name, range, v.offset, v.size)
    end
    if v.operation ~= M.GET_STATE or not v.state then
        return " " .. name .. (v.code and " done" or "")
    end
    return " " .. (M.STATES[v.state] or "state " .. v.state)
end

local function payload_text(m)
    local v, text = m.values, ""
    if v.operation then text = operation_text(m) end
    local tells_image = v.operation == M.GET_STATE and v.code == 0 and
        (v.state == 1 or v.state == 2)
    if v.operation and not tells_image then return text end
    local function add(value, format) text = text .. (value and format:format(value) or "") end
    add(v.memory, " memory %d")
    add(v.second, ", second id %d")
    add(v.image, " image %d")
    if v.image then text = text .. m:known_name("images", v.image, "image_name") end
    add(v.size, ", size %d")
    if v.state == 1 then return text end
    add(v.offset, ", offset %d")
    add(v.fragment or v.block, ", %d bytes")
    return text
end

-- What the messages of the DFU and the RMA channel have in common.
local function message(m, known, id)
    local layout = known[id]
    if not layout then
        m:complain("undecoded", "there is no message " .. id)
        m:bytes("undecoded")
        return "message " .. id
    end
    m:generated("message", layout.name)
    m:expect("direction", M.DIRECTIONS[layout.to], M.DIRECTIONS[m.direction])
    local function optional() return m:length() - m.at < 4 or m:words(layout.optional or {}) end
    if m:words(layout.words) and optional() then
        m.rest = m:length() - m.at
        if layout.rest then m:bytes(layout.rest) end
        m:done()
    end
    if layout.to == m.direction then
        if ANSWERS[known][id] then m:answers(id) end
        if layout.answer then m:asks(layout.answer, layout.echo) end
    end
    return layout.name .. payload_text(m)
end

local function dfu(m)
    local id = m:word("id")
    m:word("magic", M.DFU_MAGIC)
    m:word("length", m:length())
    local crc, item = m:word("crc")
    if not crc then return ("message of %d bytes"):format(m:length()) end
    m:check_crc(crc, item, function()
        return crc32(m:content(M.DFU_HEADER), crc32(m:content(0, 12) .. "\0\0\0\0"))
    end)
    if m.direction == TO_DAEMON and m:length() > M.LONGEST_TO_DAEMON then
        local text = "longer than %d bytes: it ends the daemon"
        m:complain("value", text:format(M.LONGEST_TO_DAEMON))
    end
    local text, v = message(m, M.DFU, id), m.values
    if v.code and v.code ~= 0 then m:complain("refused", "response code " .. v.code) end
    m:expect_named("operation")
    local has_state = v.operation == M.GET_STATE and v.code == 0
    if has_state then m:expect_named("state") end
    local waiting = has_state and M.DFU[M.WAITS_ON[v.state]]
    if waiting then m:asks(waiting.answer, waiting.echo) end
    if id == M.IMG_OFFSET_RESP and (m.rest or 0) ~= 0 then
        m:expect("bytes of the fragment", v.fragment, m.rest)
    end
    return text
end

local function rma(m)
    local crc, item = m:word("crc")
    m:word("length", m:length())
    local id = m:word("id")
    if not id then return ("message of %d bytes"):format(m:length()) end
    m:check_crc(crc, item, function() return crc32(m:content(4)) end)
    local text, v = message(m, M.RMA, id), m.values
    if id == M.DATA_WRITE and m.rest then m:expect("bytes of the block", v.block, m.rest) end
    if id == M.DATA_READ_RESPONSE and m.rest and m.rest ~= v.block then
        m:complain("refused", ("%d of %d bytes"):format(m.rest, v.block))
    end
    if (v.outcome or 0) == 0 then return text end
    m:complain("refused", "outcome " .. v.outcome)
    return text .. ", not written"
end

-- Its first words may be anything: what it answers is known from the order alone.
local function misc_answer(m)
    m:words({"unread", "unread", "unread", "unread", "status", "limit"})
    m:done()
    m:answers("answer")
    local name, status, limit = m:answered(), m.values.status or 0, m.values.limit or 0
    local text = name and "answer to " .. name or "answer"
    if status ~= 0 then
        m:complain("refused", "status " .. status)
        return ("%s: refused, status %d"):format(text, status)
    end
    local tells_limit = name == M.MISC_KINDS[M.MISC_START] and limit ~= 0
    return text .. (tells_limit and (", packets of %d bytes"):format(limit) or "")
end

local function follow_data(m, resource)
    local v = m.values
    if v.sequence ~= resource.sequence + 1 then
        local text = "sequence: expected %d, got %d"
        m:note("sequence", text:format(resource.sequence + 1, v.sequence))
    end
    resource.sequence = v.sequence
    resource.done = resource.done + m:length() - M.MISC_HEADER
    if m.missing > 0 then
        resource.crc = nil
    elseif resource.crc and m.checks_crc then
        resource.crc = crc32(m:content(M.MISC_HEADER), resource.crc)
    end
end

local function follow_crc(m, resource)
    if resource.done == resource.size then
        capture.crcs[m.number] = resource.crc
    elseif resource.size then
        local text = "bytes sent: expected %d, got %d"
        m:note("value", text:format(resource.size, resource.done))
    end
end

-- From a start to the CRC, known when the frame is seen first. Another start is no fault: it begins
-- anew what was refused or broken off. Of what has no start neither size nor CRC are known.
local function follow_resource(m, kind)
    local v, resource = m.values, capture.resource
    if m.visited or m.failed then return end
    if kind == M.MISC_START then
        capture.resource = {type = v.type, size = v.size, done = 0, sequence = 0, crc = 0}
        return
    end
    if kind == M.MISC_FINISH then
        if resource then m:note("sequence", "no CRC of type " .. resource.type .. " before it") end
    elseif not resource or resource.type ~= v.type then
        m:note("sequence", ("no start of type %d before it"):format(v.type))
        resource = {type = v.type, done = 0, sequence = v.sequence - 1}
    end
    local is_data = kind == M.MISC_DATA or kind == M.MISC_LAST
    if is_data then follow_data(m, resource) end
    if kind == M.MISC_CRC then follow_crc(m, resource) end
    capture.resource = is_data and resource or nil
end

local function misc_payload(m, kind)
    local v = m.values
    if kind == M.MISC_START then return (", size %d"):format(v.size) end
    if kind == M.MISC_CRC then
        local crc, item = m:word("crc")
        m:check_crc(crc, item, function() end)
        return ""
    end
    m:expect("bytes of data", v.size, m:length() - m.at)
    m:bytes("data")
    return (", sequence %d, %d bytes"):format(v.sequence, v.size)
end

local function misc(m)
    if m.direction == TO_DAEMON then return misc_answer(m) end
    local v, kind = m.values, m:word("misc_kind")
    local fixed = M.MISC_FIXED[kind] or {}
    for _, name in ipairs({"type", "size", "sequence"}) do
        kind = kind and m:word(name, fixed[name]) and kind
    end
    if not kind then return ("packet of %d bytes"):format(m:length()) end
    local name = M.MISC_KINDS[kind] or "kind " .. kind
    m:asks("answer", nil, name)
    local text = name
    if kind ~= M.MISC_FINISH then
        m:expect_named("type")
        text = ("%s of type %d %s"):format(name, v.type, M.MISC_TYPES[v.type] or "")
    end
    if M.MISC_KINDS[kind] then
        follow_resource(m, kind)
        if kind ~= M.MISC_FINISH then text = text .. misc_payload(m, kind) end
    else
        m:complain("undecoded", "there is no kind " .. kind)
    end
    m:done()
    return text
end

-- The frames.

local CHANNELS = {dfu, misc, rma}

local function packet(m)
    if m.direction == FROM_DAEMON and m.result < 0 then
        m.failed = true
        m:complain("refused", M.errno(m.result))
    end
    if m.tvb:len() == m.at then
        if m.direction == TO_DAEMON then return "nothing to read" end
        m:complain("short", "a packet of 0 bytes")
        return "empty packet"
    end
    local channel = CHANNELS[m.source]
    if not channel then
        m:complain("undecoded", "a packet on the control device")
        return "packet"
    end
    local text = channel(m)
    return m.failed and text .. ", not taken: " .. M.errno(m.result) or text
end

local function opening(m)
    if m.result == 0 then return "opened" end
    m:complain("refused", M.errno(m.result))
    return "cannot be opened: " .. M.errno(m.result)
end

local function ending(text)
    return function(m)
        m:give_up(TO_DAEMON)
        m:give_up(FROM_DAEMON)
        return text
    end
end

local function read_error(m)
    m:complain("refused", M.errno(m.result))
    return "read fails: " .. M.errno(m.result)
end

local function firmware(m)
    local text = m:content(m.at)
    local _, item = m:bytes("firmware")
    local counts = {image = 0, range = 0}
    for line in text:gmatch("[^\n]+") do
        local what, number, _, name = line:match("^(%l+) (%d+) (%d+) (.*)$")
        if counts[what] then
            counts[what] = counts[what] + 1
            capture[what .. "s"][tonumber(number)] = name
        else
            m:complain("undecoded", "neither an image nor a range: " .. line, item)
        end
    end
    return ("firmware of %d images, %d ranges to erase"):format(counts.image, counts.range)
end

local KINDS = {
    [0] = packet, command, opening, ending("closed"), ending("hangs up"), read_error, firmware,
}

-- In front of each frame; returns its kind.
local function header(m)
    if not m:has(HEADER_SIZE, "its header") then return nil end
    local tree = m.tree:add(marlo, m.tvb(0, HEADER_SIZE), "What happened")
    local function byte(name)
        local range = m.tvb(m.at, 1)
        m.at = m.at + 1
        tree:add(F[name], range)
        return range:uint()
    end
    local version, kind = byte("version"), byte("kind")
    m.source, m.direction = byte("source"), byte("direction")
    m.result = m.tvb(m.at, 4):le_int()
    tree:add_le(F.result, m.tvb(m.at, 4))
    m.at = HEADER_SIZE
    if version == LAYOUT and KINDS[kind] and M.SOURCES[m.source] and M.DIRECTIONS[m.direction] then
        return kind
    end
    m:complain("undecoded", "there is no such layout, kind, source or direction")
    m:bytes("undecoded")
    return nil
end

local ENDS = {[TO_DAEMON] = {"co-processor", "daemon"}, [FROM_DAEMON] = {"daemon", "co-processor"}}

local function body(m, kind, frame)
    -- From here on offsets are those of the message.
    if m.at < m.tvb:len() then m.tvb, m.at = m.tvb(m.at):tvb(), 0 end
    local text = KINDS[kind](m)
    m:done()
    m:show_links()
    frame:append_text(", " .. M.SOURCES[m.source] .. ": " .. text)
    return text
end

function marlo.dissector(tvb, pinfo, tree)
    local frame = tvb:len() > 0 and tree:add(marlo, tvb()) or tree:add(marlo)
    local m = Message.new({
        tvb = tvb, at = 0, missing = tvb:reported_len() - tvb:len(), tree = frame,
        number = pinfo.number, time = pinfo.rel_ts, visited = pinfo.visited,
        checks_crc = marlo.prefs.check_crc,
    })
    if m.missing > 0 then
        local text = ("%d of %d bytes were not captured"):format(m.missing, tvb:reported_len())
        m:complain("cut", text)
    end
    local kind = header(m)
    pinfo.cols.protocol = M.PROTOCOLS[kind and m.source] or "MARLO"
    local ends = kind and ENDS[m.direction]
    if ends then pinfo.cols.src, pinfo.cols.dst = ends[1], ends[2] end
    pinfo.cols.info = kind and body(m, kind, frame):gsub("%c", "?") or "not known"
end

DissectorTable.get("wtap_encap"):add((wtap_encaps or wtap).USER0, marlo)
