-- SPDX-License-Identifier: Apache-2.0
-- What the device files of the co-processor carry, for marlo.lua: the names of values, and of each
-- message its words. sim/dfu_packet.h, misc_data_packet.h, rma_packet.h and control_request.h say
-- what they are for.
local TO_DAEMON, FROM_DAEMON = 1, 2
local ERASE, GET_STATE = 0, 1
local BOOT = 0xc0205609

local M = {TO_DAEMON = TO_DAEMON, FROM_DAEMON = FROM_DAEMON, ERASE = ERASE, GET_STATE = GET_STATE}

M.DIRECTIONS = {[0] = "none", [TO_DAEMON] = "to daemon", [FROM_DAEMON] = "from daemon"}
M.SOURCES = {[0] = "control device", "DFU channel", "misc data channel", "RMA channel"}
M.PROTOCOLS = {[0] = "CONTROL", "DFU", "MISC", "RMA"}
M.KINDS = {
    [0] = "packet", "command", "open", "close", "hang-up", "read error", "firmware",
}
M.ERRNOS = {
    "EPERM", "ENOENT", [4] = "EINTR", [5] = "EIO", [9] = "EBADF", [11] = "EAGAIN", [12] = "ENOMEM",
    [14] = "EFAULT", [16] = "EBUSY", [19] = "ENODEV", [22] = "EINVAL", [32] = "EPIPE",
    [71] = "EPROTO", [90] = "EMSGSIZE", [110] = "ETIMEDOUT",
}
function M.errno(result) return M.ERRNOS[-result] or "error " .. -result end

M.MODES = {[0] = "HOST", "FLASH"}
M.BOOT_STATUSES = {"main firmware runs", "misc data begun", "misc data done"}
M.STATES = {[0] = "INIT", "INFO_REQ", "OFFSET_REQ", "SESSION_END_REQ", "CANCEL_UPDATE_REQ"}
M.OPERATIONS = {[ERASE] = "erase", [GET_STATE] = "get state"}
M.MISC_KINDS = {[0] = "start", "data", "last data", [4] = "CRC", [5] = "finish"}
M.MISC_TYPES = {[0] = "Bluetooth firmware", "Bluetooth settings"}
-- The words of a packet's header that its kind leaves no choice.
M.MISC_FIXED = {
    [0] = {sequence = 0}, [4] = {size = 4, sequence = 0}, [5] = {type = 0, size = 0, sequence = 0},
}
M.FIXED_IMAGES = {"flash.bin", "partition_1.bin"}

-- `words`: the payload, each word the name of a field, or the number that it must be; "unread" is
-- one that nobody looks at. `optional`: words that may be missing. `rest`: the field for what
-- follows them. `to`: the direction. `answer`: the message that must answer it, and repeat the
-- words `echo`.
M.DFU = {
    {name = "MG_UPDT_REQ", to = FROM_DAEMON, words = {1, 0, 0}, rest = "text", answer = 2},
    {name = "MG_UPDT_RESP", to = TO_DAEMON, words = {}, rest = "payload"},
    {name = "IMG_INFO_REQ", to = TO_DAEMON, words = {"image"}, answer = 4, echo = {"image"}},
    {name = "IMG_INFO_RESP", to = FROM_DAEMON, words = {"image", "size", 0}},
    {
        name = "IMG_OFFSET_REQ", to = TO_DAEMON, words = {"image", "offset", "fragment"},
        answer = 6, echo = {"image", "offset", "fragment"},
    },
    {
        name = "IMG_OFFSET_RESP", to = FROM_DAEMON, words = {"image", "offset", "fragment"},
        rest = "data",
    },
    {name = "CANCEL_UPDT_REQ", to = TO_DAEMON, words = {}, rest = "payload"},
    {name = "CANCEL_UPDT_RESP", to = TO_DAEMON, words = {}, rest = "payload"},
    {
        name = "IMG_UPDT_END_REQ", to = TO_DAEMON, words = {}, optional = {"image"},
        rest = "payload",
    },
    {name = "IMG_UPDT_END_RESP", to = TO_DAEMON, words = {}, rest = "payload"},
    {name = "SESSION_END_REQ", to = TO_DAEMON, words = {}, rest = "payload", answer = 12},
    {name = "SESSION_END_RESP", to = FROM_DAEMON, words = {0, 0, 0}},
    {
        name = "DFU_SPCL_OPERATION_REQ", to = FROM_DAEMON, words = {"operation", "offset", "size"},
        answer = 14, echo = {"operation"},
    },
    {
        name = "DFU_SPCL_OPERATION_RESP", to = TO_DAEMON,
        words = {"operation", "code", "unread", "state", "image", "offset", "fragment"},
    },
}
-- The request that the co-processor waits on in a state, and that need not be sent again.
M.WAITS_ON = {3, 5, 11}
M.DFU_MAGIC, M.DFU_HEADER, M.LONGEST_TO_DAEMON = 0x0A0B0C0D, 16, 44
M.IMG_OFFSET_RESP = 6

M.RMA = {
    [0] = {
        name = "CONNECT", to = TO_DAEMON, answer = 1, echo = {"memory", "client"},
        words = {"unread", "memory", "second", "size", "unread", "unread", "client"},
    },
    [1] = {
        name = "CONNECT response", to = FROM_DAEMON,
        words = {"client", 0, "memory", 3, 4096, 4096},
    },
    [2] = {name = "DISCONNECT", to = TO_DAEMON, words = {"unread", "memory"}, answer = 3},
    [3] = {
        name = "DISCONNECT response", to = FROM_DAEMON, words = {"unread", "client", "memory", 0},
    },
    [256] = {
        name = "DATA_READ", to = TO_DAEMON, answer = 257, echo = {"word", "memory", "block"},
        words = {"word", "memory", "offset", "block", "unread"},
    },
    [257] = {
        name = "DATA_READ response", to = FROM_DAEMON, rest = "data",
        words = {"word", "client", "memory", "block", 0},
    },
    [512] = {
        name = "DATA_WRITE", to = TO_DAEMON, rest = "data", answer = 513,
        echo = {"word", "memory", "block"}, words = {"word", "memory", "offset", "block", "unread"},
    },
    [513] = {
        name = "DATA_WRITE response", to = FROM_DAEMON,
        words = {"word", "client", "memory", "block", "outcome"},
    },
}
M.DATA_READ_RESPONSE, M.DATA_WRITE = 257, 512

M.MISC_START, M.MISC_DATA, M.MISC_LAST, M.MISC_CRC, M.MISC_FINISH = 0, 1, 2, 4, 5
M.MISC_HEADER = 16

-- Request, cmd, name; the field of the value and the other words where they are not zero.
M.COMMANDS = {
    {0x80205603, 0, "SPI free"}, {0x80205604, 0, "SPI busy"},
    {0xc0205605, 20, "reset", value = "address", count = 1},
    {0xc0205608, 3, "query version", reply = true},
    {BOOT, 0, "soft reset"}, {BOOT, 1, "TWM exit"}, {BOOT, 3, "load"}, {BOOT, 4, "unload"},
    {BOOT, 5, "set boot mode", value = "mode"}, {BOOT, 6, "get boot mode"},
    {BOOT, 7, "save dump"}, {BOOT, 8, "boot status", value = "boot_status"},
}
M.RESET_WORD, M.VERSION_RECORD = 0x08000000, 308

-- What can be filtered by, as marlo.NAME: type, name, description, and the words for its values.
M.FIELDS = {
    {"uint8", "version", "Layout"}, {"uint8", "kind", "Kind", M.KINDS},
    {"uint8", "source", "Source", M.SOURCES}, {"uint8", "direction", "Direction", M.DIRECTIONS},
    {"int32", "result", "Result"}, {"string", "firmware", "Firmware"},
    {"string", "message", "Message"}, {"uint32", "id", "Id of the message"},
    {"hex", "magic", "Magic"}, {"uint32", "length", "Length of the message"},
    {"hex", "crc", "CRC-32"}, {"uint32", "fixed", "Fixed word"},
    {"uint32", "unread", "Word that nobody reads"}, {"uint32", "image", "Image"},
    {"string", "image_name", "Name of the image"}, {"uint32", "size", "Size"},
    {"uint32", "offset", "Offset"}, {"string", "range_name", "Name of the range"},
    {"uint32", "fragment", "Size of the fragment"}, {"string", "text", "Text"},
    {"uint32", "operation", "Operation", M.OPERATIONS}, {"uint32", "code", "Response code"},
    {"uint32", "state", "State", M.STATES}, {"uint32", "misc_kind", "Packet", M.MISC_KINDS},
    {"uint32", "type", "Type", M.MISC_TYPES}, {"uint32", "sequence", "Sequence"},
    {"int32", "status", "Status"}, {"uint32", "limit", "Largest packet"},
    {"uint32", "word", "Request word"}, {"uint32", "memory", "Memory"},
    {"uint32", "second", "Second id"}, {"uint32", "client", "Client's word"},
    {"uint32", "block", "Size of the block"}, {"uint32", "outcome", "Outcome"},
    {"bytes", "data", "Data"}, {"bytes", "payload", "Payload that nobody reads"},
    {"bytes", "undecoded", "Undecoded"}, {"hex", "request", "Request"},
    {"string", "command", "Command"}, {"uint32", "block_size", "Size of the request's block"},
    {"hex", "value", "Value"}, {"hex", "address", "Address"},
    {"int32", "mode", "Boot mode", M.MODES},
    {"int32", "boot_status", "Boot status", M.BOOT_STATUSES}, {"uint32", "cmd", "cmd"},
    {"uint32", "count", "Count"}, {"hex", "reply", "Address of the reply"},
    {"uint32", "access", "Access", {"written", "read"}}, {"uint32", "access_size", "Size"},
    {"uint32", "done", "Done", {[0] = "no", "yes"}}, {"hex", "reset_word", "Data word"},
    {"hex", "kapi", "KAPI version"}, {"string", "apps", "Apps version"},
    {"string", "dsp", "DSP version"}, {"string", "bt", "Bluetooth version"},
    {"relative_time", "response_time", "Time to the response"},
}

return M
