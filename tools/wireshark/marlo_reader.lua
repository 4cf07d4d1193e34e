-- SPDX-License-Identifier: Apache-2.0
-- For marlo.lua: a message is read word by word into Wireshark's tree, with all that is wrong with
-- it, and requests and their answers find each other.
-- Where a folder is read, this may come before marlo.lua.
local here = __DIR__ or debug.getinfo(1, "S").source:match("^@(.*)/")
if here then package.prepend_path(here) end
local M = require("marlo_messages")

local F, TEXTS, NAMES, SIGNED = {}, {}, {}, {}
for _, row in ipairs(M.FIELDS) do
    local kind, name, text, values = table.unpack(row)
    TEXTS[name], NAMES[name], SIGNED[name] = text, values, kind == "int32"
    local abbreviation = "marlo." .. name
    if kind == "hex" then
        F[name] = ProtoField.uint32(abbreviation, text, base.HEX)
    elseif values then
        F[name] = ProtoField[kind](abbreviation, text, base.DEC, values)
    else
        F[name] = ProtoField[kind](abbreviation, text)
    end
end
local function frame_field(name, text, ...)
    F[name] = ProtoField.framenum("marlo." .. name, text, base.NONE, ...)
end
frame_field("request_in", "Request in", frametype.REQUEST)
frame_field("response_in", "Response in", frametype.RESPONSE)
frame_field("unanswered_in", "No response before")

local E = {}
for name, row in pairs({
    short = {"Ends early", "MALFORMED", "ERROR"},
    value = {"Not as it must be", "PROTOCOL", "ERROR"},
    crc = {"CRC is wrong", "CHECKSUM", "ERROR"}, undecoded = {"Not known", "UNDECODED", "ERROR"},
    sequence = {"Out of order", "SEQUENCE", "WARN"}, refused = {"Refused", "RESPONSE_CODE", "WARN"},
    unknown = {"No such value", "PROTOCOL", "WARN"},
    unanswered = {"Not answered", "SEQUENCE", "NOTE"},
    cut = {"Not captured to its end", "UNDECODED", "NOTE"},
}) do
    E[name] = ProtoExpert.new("marlo.expert." .. name, row[1], expert.group[row[2]],
                              expert.severity[row[3]])
end

-- What is known of a capture. It is found when a frame is seen for the first time, in their order;
-- later they come in any. `links`: of a frame to others; `notes`: what to complain of; `crcs`: the
-- right one; `pending`: the request that is open; `resource`: the misc data under way.
local capture = {}

local function forget()
    for _, name in ipairs({"images", "ranges", "pending", "links", "notes", "crcs"}) do
        capture[name] = {}
    end
    for id, name in pairs(M.FIXED_IMAGES) do capture.images[id] = name end
    capture.resource = nil
end
forget()

local function entry(of, number)
    of[number] = of[number] or {}
    return of[number]
end

-- A message: its bytes `tvb`, of which `missing` more were not captured; where we are `at` in them;
-- its `tree`; the `values` of its words; of its frame the `number`, the `time` in seconds,
-- `visited` (it has been seen before), `source`, `direction` and `result`; `checks_crc`: CRCs are to
-- be checked.
local Message = {}
Message.__index = Message

function Message.new(fields)
    fields.values = {}
    return setmetatable(fields, Message)
end

function Message.complain(m, what, text, item)
    (item or m.tree):add_proto_expert_info(E[what], text)
end

-- A complaint that is known when the frame is seen first, and made each time.
function Message.note(m, what, text)
    if not m.visited then table.insert(entry(capture.notes, m.number), {what, text}) end
end

function Message.expect(m, name, expected, got, item)
    if expected == got then return end
    local text = TEXTS[name] or name
    m:complain("value", ("%s: expected %s, got %s"):format(text, expected, got), item)
end

-- The value of a word, or another in its place, is one of those that have a name.
function Message.expect_named(m, name, value)
    value = value or m.values[name]
    if not value or not NAMES[name] or NAMES[name][value] then return end
    m:complain("unknown", ("%s: there is no %d"):format(TEXTS[name], value))
end

function Message.generated(m, name, value)
    m.tree:add(F[name], value):set_generated()
end

-- As it was before it was captured.
function Message.length(m) return m.tvb:len() + m.missing end

function Message.has(m, count, what)
    if count <= m.tvb:len() - m.at then return true end
    if m.missing == 0 then
        local text = ("ends after %d bytes, without: %s"):format(m.tvb:len(), TEXTS[what] or what)
        m:complain("short", text)
    end
    return false
end

-- The next word, added to the tree; nil: it is not there.
function Message.word(m, name, expected, tree)
    if not m:has(4, name) then return nil end
    local range = m.tvb(m.at, 4)
    m.at = m.at + 4
    local value = SIGNED[name] and range:le_int() or range:le_uint()
    local item = (tree or m.tree):add_le(F[name], range)
    if expected then
        m:expect(name == "fixed" and "word at " .. m.at - 4 or name, expected, value, item)
    end
    m.values[name] = m.values[name] or value
    return value, item
end

function Message.words(m, list)
    for _, name in ipairs(list) do
        local fixed = type(name) == "number"
        if not m:word(fixed and "fixed" or name, fixed and name or nil) then return false end
    end
    return true
end

-- So many of the next bytes, or all that remain.
function Message.bytes(m, name, count, tree)
    count = count or m.tvb:len() - m.at
    if count == 0 or not m:has(count, name) then return nil end
    local range = m.tvb(m.at, count)
    m.at = m.at + count
    return range, (tree or m.tree):add(F[name], range)
end

-- Nothing may follow.
function Message.done(m)
    if m.at >= m.tvb:len() then return end
    m:complain("undecoded", ("%d bytes more than it has"):format(m.tvb:len() - m.at))
    m:bytes("undecoded")
end

function Message.content(m, from, count)
    if from >= m.tvb:len() then return "" end
    return m.tvb:raw(from, count or m.tvb:len() - from)
end

-- The CRC in the message, with its item, against that of `of()`.
function Message.check_crc(m, found, item, of)
    if not found or not m.checks_crc or m.missing > 0 then return end
    capture.crcs[m.number] = capture.crcs[m.number] or of()
    local right = capture.crcs[m.number]
    if not right then return end
    if found == right then return item:append_text(" (right)") end
    m:complain("crc", ("CRC: expected 0x%08x, got 0x%08x"):format(right, found), item)
end

-- Requests and answers find each other. One is open at a time on each side of a channel.

function Message.give_up(m, direction)
    local slot = m.source * 4 + direction
    if m.visited or not capture.pending[slot] then return end
    entry(capture.links, capture.pending[slot].number).unanswered = m.number
    capture.pending[slot] = nil
end

-- `what`: what its answer is to be called an answer to.
function Message.asks(m, answer, echo, what)
    if m.visited or m.failed then return end
    local direction = 3 - m.direction
    m:give_up(direction)
    capture.pending[m.source * 4 + direction] = {
        number = m.number, time = m.time, answer = answer, echo = echo or {}, values = m.values,
        what = what,
    }
end

function Message.answers(m, id)
    if m.visited or m.failed then return end
    local slot = m.source * 4 + m.direction
    local open = capture.pending[slot]
    if not open or open.answer ~= id then return m:note("sequence", "nobody has asked for it") end
    capture.pending[slot] = nil
    entry(capture.links, open.number).response = m.number
    local link = entry(capture.links, m.number)
    link.request, link.time, link.what = open.number, m.time - open.time, open.what
    for _, name in ipairs(open.echo) do
        local asked, got = open.values[name], m.values[name]
        if asked and got and asked ~= got then
            m:note("value", ("%s: asked for %d, got %d"):format(name, asked, got))
        end
    end
end

-- What the message answers; nil: nothing.
function Message.answered(m) return (capture.links[m.number] or {}).what end

function Message.show_links(m)
    for _, complaint in ipairs(capture.notes[m.number] or {}) do
        m:complain(table.unpack(complaint))
    end
    local link = capture.links[m.number] or {}
    if link.request then
        local seconds, rest = math.modf(link.time)
        m:generated("request_in", link.request)
        m:generated("response_time", NSTime.new(seconds, math.floor(rest * 1e9 + 0.5)))
    end
    if link.response then m:generated("response_in", link.response) end
    if link.unanswered then
        m:generated("unanswered_in", link.unanswered)
        m:complain("unanswered", "not answered before frame " .. link.unanswered)
    end
end

-- " APPS", and a field for it; nothing without a name.
function Message.known_name(m, known, key, field)
    local name = capture[known][key]
    if not name then return "" end
    m:generated(field, name)
    return " " .. name
end

return {Message = Message, fields = F, experts = E, capture = capture, forget = forget}
