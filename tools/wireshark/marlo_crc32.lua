-- SPDX-License-Identifier: Apache-2.0
-- CRC-32 of the bytes of a string, or of what came before and them, given the CRC of what came
-- before. Four bytes at a time: a capture has megabytes of them.

-- Its numbers are signed in one of the libraries that there are.
local bxor = (bit32 or bit).bxor

local TABLES = {{}, {}, {}, {}}
for first = 0, 255 do
    local value = first
    for _ = 1, 8 do
        local odd = value % 2
        value = (value - odd) / 2
        if odd == 1 then value = bxor(value, 0xEDB88320) % 2^32 end
    end
    TABLES[1][first] = value
end
for nth = 2, 4 do
    for first = 0, 255 do
        local before = TABLES[nth - 1][first]
        local low = before % 256
        TABLES[nth][first] = bxor((before - low) / 256, TABLES[1][low]) % 2^32
    end
end

return function(bytes, before)
    local one, two, three, four = TABLES[1], TABLES[2], TABLES[3], TABLES[4]
    local crc = 0xffffffff - (before or 0)
    local last, byte = #bytes, bytes.byte
    for at = 1, last - 3, 4 do
        local a, b, c, d = byte(bytes, at, at + 3)
        local rest = bxor(crc, a + b * 0x100 + c * 0x10000 + d * 0x1000000) % 2^32
        a = rest % 256
        rest = (rest - a) / 256
        b = rest % 256
        rest = (rest - b) / 256
        c = rest % 256
        crc = bxor(four[a], three[b], two[c], one[(rest - c) / 256]) % 2^32
    end
    for at = last - last % 4 + 1, last do
        local low = crc % 256
        crc = bxor((crc - low) / 256, one[bxor(low, byte(bytes, at)) % 256]) % 2^32
    end
    return 0xffffffff - crc
end
