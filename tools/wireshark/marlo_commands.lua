-- SPDX-License-Identifier: Apache-2.0
-- For marlo.lua: the commands of the control device.
-- Where a folder is read, this may come before marlo.lua.
local here = __DIR__ or debug.getinfo(1, "S").source:match("^@(.*)/")
if here then package.prepend_path(here) end
local M = require("marlo_messages")
local F = require("marlo_reader").fields

local function text_field(tree, name, range)
    local text = range:string():match("^[^\0]*")
    tree:add(F[name], range, text)
    return text
end

local function version_text(tree, range)
    local kapi = range(4, 4):le_uint()
    tree:add_le(F.kapi, range(4, 4))
    local apps = text_field(tree, "apps", range(8, 100))
    text_field(tree, "dsp", range(108, 100))
    text_field(tree, "bt", range(208, 100))
    return (": KAPI %d.%d.%d, %s"):format(math.floor(kapi / 2^24), math.floor(kapi / 2^16) % 256,
                                          kapi % 2^16, apps)
end

-- Each access to the daemon's memory; returns what the info column tells of it.
local function accesses(m, row)
    local text = ""
    while m.at < m.tvb:len() do
        if not m:words({"access", "address"}) then return text end
        local size, fine = m:word("access_size"), m:word("done")
        if not fine then return text end
        local range, item = nil, nil
        if fine ~= 0 then range, item = m:bytes("data", size) end
        if range and row.reply and size == M.VERSION_RECORD then
            text = version_text(item, range)
        end
        if range and row.count and size == 4 then
            m:expect("data word", M.RESET_WORD, range:le_uint(), item:add_le(F.reset_word, range))
        end
        if fine == 0 then m:complain("refused", "not the daemon's memory") end
    end
    return text
end

local function find_command(request, cmd)
    for _, row in ipairs(M.COMMANDS) do
        if row[1] == request and row[2] == cmd then return row end
    end
end

-- The eight words of a request, each as the command has it; false: they are not all there.
local function request_words(m, row)
    return m:word(row.value or "value", not row.value and 0 or nil) and
        m:words({0, 0, 0, 0, "cmd"}) and m:word("count", row.count or 0) and
        m:word("reply", not row.reply and 0 or nil)
end

local function outcome_text(m, row, told)
    local v = m.values
    if m.result < 0 then
        m:complain("refused", M.errno(m.result))
        return " fails: " .. M.errno(m.result)
    end
    if row[3] == "get boot mode" then
        m:expect_named("mode", m.result)
        return ": " .. (M.MODES[m.result] or m.result)
    end
    if m.result > 0 then
        m:complain("refused", ("result: expected 0, got %d"):format(m.result))
        return (" returns %d"):format(m.result)
    end
    if v.mode then return " " .. (M.MODES[v.mode] or v.mode) end
    if not v.boot_status then return told end
    return (" %d %s"):format(v.boot_status, M.BOOT_STATUSES[v.boot_status] or "")
end

return function(m)
    local request, size = m:word("request"), m:word("block_size")
    if not size then return "command" end
    local cmd = 0
    if size ~= 0 then
        m:expect("size of the block", 32, size)
        if not m:has(32, "block of the request") then return "command" end
        cmd = m.tvb(m.at + 20, 4):le_uint()
    end
    local row = find_command(request, cmd)
    if not row then
        row = {request, cmd, ("request 0x%08x, cmd %d"):format(request, cmd)}
        m:complain("undecoded", "there is no " .. row[3])
    end
    m:generated("command", row[3])
    if size ~= 0 and not request_words(m, row) then return row[3] end
    if row.value then m:expect_named(row.value) end
    return row[3] .. outcome_text(m, row, accesses(m, row))
end
