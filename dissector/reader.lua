-- SPDX-License-Identifier: Apache-2.0

-- ---- reading: bytes to parts, up to the first fault ---------------------------------------------
--
-- A reader has the bytes, the place where it is, the parts so far and the first fault. Nothing is
-- read beyond the bytes, whatever lengths they hold.

local LIST_HEADER, PAIR_HEAD = 56, 16
local MOST_PAIRS = 65279

local function new_reader(bytes, little)
    return {bytes = bytes, at = 0, size = #bytes, little = little, parts = {}}
end

local function left(r)
    return r.size - r.at
end

local function fail(r, at, what)
    if not r.fault then
        r.fault = {at = at, what = what}
    end
end

local function has(r, size, what)
    if not r.fault and left(r) < size then
        fail(r, r.at, what .. " needs " .. count_of(size, "byte") .. ", there are " .. left(r))
    end
    return not r.fault
end

local function add_part(r, part)
    r.parts[#r.parts + 1] = part
    return part
end

local function record(r, name)
    local layout = layouts[name]
    if not has(r, layout.size, "the record " .. name) then
        return nil
    end
    local part = add_part(r, {record = name, layout = layout, at = r.at, size = layout.size})
    r.at = r.at + layout.size
    return part
end

local function bytes_part(r, name, size, is_leftover)
    if has(r, size, name) then
        add_part(r, {bytes = name, at = r.at, size = size, leftover = is_leftover})
        r.at = r.at + size
    end
end

-- Bytes that the sender did not write.
local function leftover(r, name, size)
    if not r.fault and size ~= 0 then
        bytes_part(r, name, size, true)
    end
end

local function remainder(r, name)
    if not r.fault then
        bytes_part(r, name, left(r))
    end
end

local function number(r, part, name)
    for _, field in ipairs(part.layout) do
        if field.name == name then
            local at = part.at + field.offset
            if field.form == "network" then
                return network32(r.bytes, at)
            end
            return field.size == 2 and host16(r.bytes, at, r.little) or host32(r.bytes, at, r.little)
        end
    end
end

-- One pair, which must not extend beyond `stop`.
local function pair(r, stop)
    if stop - r.at < PAIR_HEAD then
        fail(r, r.at, "a pair's head needs " .. count_of(PAIR_HEAD, "byte") .. ", there are " .. stop - r.at)
        return nil
    end
    local made = {at = r.at, kind = network32(r.bytes, r.at), tag = network32(r.bytes, r.at + 4),
                  length = network32(r.bytes, r.at + 8), flags = network32(r.bytes, r.at + 12)}
    local room = stop - r.at - PAIR_HEAD
    local padding = padding_of(made.length)
    if made.length + padding > room then
        fail(r, r.at + 8, "the value of a pair of type " .. made.kind .. " has a length of " .. made.length ..
                 ", but there are only " .. count_of(room, "byte"))
        return nil
    end
    r.at = r.at + PAIR_HEAD + made.length + padding
    made.padding = padding
    made.value = r.bytes:sub(made.at + PAIR_HEAD + 1, made.at + PAIR_HEAD + made.length)
    return made
end

local function check_list_header(r, begin, total)
    local available = r.size - begin
    if total < LIST_HEADER or total > available or total % 4 ~= 0 then
        fail(r, begin, "total length " .. total ..
                 (total < LIST_HEADER and ", at least " .. LIST_HEADER .. " is needed"
                  or total % 4 ~= 0 and " is not a multiple of 4"
                  or ", but there are only " .. count_of(available, "byte")))
    end
    if not r.bytes:sub(begin + 25, begin + 55):find("%z") then
        fail(r, begin + 24, "the name of the list is not terminated")
    end
end

local function check_count(r, begin, list)
    local counted = host16(r.bytes, begin + 6, false) ~= 0
    local last = list.pairs[#list.pairs]
    if counted ~= (list.live ~= 0) then
        fail(r, begin + 6, counted and "the count is not zero, but there is no live pair"
                 or "the count is zero, but not the number of live pairs, " .. list.live)
    elseif last and last.kind == 2070 then
        fail(r, last.at, "the last pair is a deleted one")
    elseif list.live > MOST_PAIRS then
        fail(r, begin + 6, list.live .. " live pairs, more than the " .. MOST_PAIRS .. " that receivers accept")
    end
end

-- After a fault in the header the pairs are still read: they are bounded by the bytes that exist.
local function list(r)
    if not has(r, LIST_HEADER, "a list's header") then
        return
    end
    local begin = r.at
    local made = {list = true, at = begin, layout = layouts["list"], size = LIST_HEADER, pairs = {}, live = 0}
    local total = network32(r.bytes, begin)
    check_list_header(r, begin, total)
    r.at = begin + LIST_HEADER
    local stop = math.min(r.size, begin + math.max(total, LIST_HEADER))
    while r.at < stop do
        local next_pair = pair(r, stop)
        if not next_pair then
            break
        end
        made.pairs[#made.pairs + 1] = next_pair
        r.has_unknown = r.has_unknown or not attributes[next_pair.kind] and next_pair.kind ~= 2070
        made.live = made.live + (next_pair.kind == 2070 and 0 or 1)
    end
    if not r.fault then
        check_count(r, begin, made)
    end
    add_part(r, made)
end

local function is_whole_list(bytes)
    if #bytes < LIST_HEADER or network32(bytes, 0) ~= #bytes then
        return false
    end
    local r = new_reader(bytes)
    list(r)
    return not r.fault
end

local function optional_list(r)
    if not r.fault and left(r) ~= 0 then
        list(r)
    end
end

-- Only a list has its own length, and readers ignore the bytes after it.
local function finish(r)
    local last = r.parts[#r.parts]
    if not r.fault and last and last.list then
        leftover(r, "trailing", left(r))
    elseif left(r) ~= 0 then
        fail(r, r.at, count_of(left(r), "byte") .. " too many")
    end
end
