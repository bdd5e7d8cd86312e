-- SPDX-License-Identifier: Apache-2.0

-- ---- bytes and values -----------------------------------------------------------------------

local function network32(bytes, at)
    local a, b, c, d = bytes:byte(at + 1, at + 4)
    return ((a * 256 + b) * 256 + c) * 256 + d
end

local function host32(bytes, at, little)
    local a, b, c, d = bytes:byte(at + 1, at + 4)
    if little then
        a, b, c, d = d, c, b, a
    end
    return ((a * 256 + b) * 256 + c) * 256 + d
end

local function host16(bytes, at, little)
    local a, b = bytes:byte(at + 1, at + 2)
    return little and b * 256 + a or a * 256 + b
end

local function padding_of(length)
    return (4 - length % 4) % 4
end

local function only_zeros(bytes)
    return not bytes:find("[^%z]")
end

-- Every byte that is no printable ASCII as \xNN, \n, \t, \r or \\.
local escapes = {["\n"] = "\\n", ["\t"] = "\\t", ["\r"] = "\\r", ["\\"] = "\\\\"}
local function escaped(bytes)
    return (bytes:gsub("[%z\1-\31\\\127-\255]", function(c)
        return escapes[c] or string.format("\\x%02x", c:byte())
    end))
end

local function count_of(n, what)
    return n .. " " .. what .. (n == 1 and "" or "s")
end

local function travels_as_number(kind)
    local row = attributes[kind]
    return row and row.number or bare_numbers[kind]
end

local function is_secret(kind)
    local row = attributes[kind]
    return kind == 2070 or (row and row.secret) or false
end

-- How a value is shown: number, address, text or hex.
local function form_of(kind, value)
    local row = attributes[kind]
    if #value == 4 and travels_as_number(kind) then
        return row and row.format == "address" and "address" or "number"
    end
    return (#value == 0 or (row and row.format == "string")) and "text" or "hex"
end

-- The text as it may be shown, and whether something of it was left out: secrets, and what follows its end,
-- which was not written on purpose.
local function shown_text(mask, kind, bytes)
    local text = bytes:match("^[^%z]*")
    local rest = bytes:sub(#text + 1)
    local safe = text_without_secrets(mask, kind, text) .. (only_zeros(rest) and rest or "\0" .. MASK)
    return safe, safe ~= bytes
end

-- ---- names of numbers -----------------------------------------------------------------------

local function method_name(method)
    if method >= 1000 and method <= 4999 then
        return "server group " .. method
    end
    return methods[method]
end

local function methods_meaning(value, little)
    local name = value:match("^([!-~]+)%z$")
    if name then
        return "list " .. name
    end
    local names = {}
    for at = 0, #value - 4, 4 do
        local method = host32(value, at, little)
        names[#names + 1] = method_name(method) or tostring(method)
    end
    return #names > 0 and table.concat(names, ", ") or nil
end

-- Seconds since 1970 as UTC; a time after the year 9999 is garbage.
local function utc(value, little)
    local low = host32(value, little and 0 or 4, little)
    local high = host32(value, little and 4 or 0, little)
    local seconds = high * 4294967296 + low
    if seconds == 0 or seconds > 253402300799 then
        return nil
    end
    return os.date("!%Y-%m-%dT%H:%M:%SZ", seconds)
end

local AUTHEN_METHOD, METHODLIST, STARTTIME, STOPTIME = 39, 17, 23, 24

local function meaning_of_value(kind, value, little)
    if kind == METHODLIST then
        return methods_meaning(value, little)
    end
    if (kind == STARTTIME or kind == STOPTIME) and #value == 8 then
        return utc(value, little)
    end
    if #value ~= 4 or not travels_as_number(kind) then
        return nil
    end
    local number = network32(value, 0)
    if kind == AUTHEN_METHOD then
        return method_name(number)
    end
    return values[kind] and values[kind][number]
end

local function meaning_of_field(meaning, value, request)
    if meaning == "request" then
        return requests[value]
    elseif meaning == "result" then
        return results[value]
    elseif request == 3 or request == 4 then
        return string.format("variant bits 0x%x of the authentication option", value)
    elseif request == 5 or request == 6 then
        return author_options[value]
    elseif request == 7 or request == 14 or request == 15 then
        return acct_options[value]
    end
end

local function flag_names(flags)
    local names = {}
    for _, flag in ipairs(flag_bits) do
        if bit.band(flags, flag.bit) ~= 0 then
            names[#names + 1] = flag.name
            flags = bit.band(flags, bit.bnot(flag.bit))
        end
    end
    if flags ~= 0 then
        names[#names + 1] = "0x" .. bit.tohex(flags):gsub("^0+", "")
    end
    return table.concat(names, ", ")
end
