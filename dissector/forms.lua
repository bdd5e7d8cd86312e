-- SPDX-License-Identifier: Apache-2.0

-- ---- the kinds of messages, element by element -----------------------------------------------

local BLOCK, FULL_PACKET, MOST_DATA, LAST_TYPE = 64, 336, 255, 26
local SESSION_MARKER = 16

local function read_list(r)
    list(r)
    finish(r)
end

local function read_connect(r)
    local header = record(r, "request-connect")
    if not header then
        return
    end
    local length = number(r, header, "text1_length")
    if length > left(r) then
        fail(r, 64, "the first text has a length of " .. length .. ", but there are only " .. count_of(left(r), "byte"))
        return
    end
    bytes_part(r, "text1", length)
    remainder(r, "text2")
end

local function read_plain(r)
    record(r, "request-32")
    finish(r)
end

local function read_plain_text(r)
    record(r, "request-32")
    remainder(r, "text")
end

local function read_plain_list(r)
    record(r, "request-32")
    if not r.fault then
        list(r)
    end
    finish(r)
end

local function read_callback(r)
    record(r, "request-36")
    finish(r)
end

local function read_with_list(r)
    record(r, "request-40")
    if not r.fault then
        list(r)
    end
    finish(r)
end

local function read_with_block(r)
    record(r, "request-40")
    if not r.fault then
        bytes_part(r, "block", BLOCK)
    end
    if not r.fault then
        list(r)
    end
    finish(r)
end

local function read_update(r)
    record(r, "request-40")
    if not r.fault then
        bytes_part(r, "block", BLOCK)
    end
    if not r.fault then
        bytes_part(r, "session", 4)
    end
    if not r.fault then
        list(r)
    end
    finish(r)
end

local request_forms = {
    [0] = read_connect, [1] = read_plain, [9] = read_plain, [8] = read_callback,
    [3] = read_with_list, [5] = read_with_list, [7] = read_with_list, [12] = read_with_list,
    [4] = read_with_block, [6] = read_with_block, [14] = read_with_block, [15] = read_update,
    [11] = read_plain_text, [16] = read_plain_text,
    [10] = read_plain_list, [24] = read_plain_list, [25] = read_plain_list,
}
for kind = 17, 23 do
    request_forms[kind] = read_with_list
end

local function read_request(r)
    if left(r) < 32 then
        read_plain(r) -- reports what is missing
        return
    end
    local kind = host32(r.bytes, r.at + 20, r.little)
    local form = request_forms[kind]
    if form then
        form(r)
        return
    end
    record(r, "request-32")
    fail(r, 20, "no request has the type " .. kind)
end

local function require_type(r, fits, what)
    if not fits then
        fail(r, 20, what)
    end
end

local function read_config(r)
    local kind = left(r) >= 32 and host32(r.bytes, r.at + 20, r.little) or 0
    read_request(r)
    require_type(r, kind >= 17 and kind <= 23, "not a configuration message: its type is not 17 to 23")
end

local function read_server_connect(r)
    local header = record(r, "request-40")
    if header then
        require_type(r, number(r, header, "type") == 0, "not a connect message: its type is not 0")
    end
    if not r.fault then
        bytes_part(r, "block", BLOCK)
    end
    finish(r)
end

local function read_server_disconnect(r)
    local header = record(r, "request-server-disconnect")
    if header then
        require_type(r, number(r, header, "type") == 1, "not a disconnect message: its type is not 1")
    end
    if not r.fault then
        bytes_part(r, "data", 4)
    end
    finish(r)
end

local function read_reply(r)
    record(r, "reply-24")
    optional_list(r)
    finish(r)
end

local function only_record(name)
    return function(r)
        record(r, name)
        finish(r)
    end
end

local function read_reply_callback(r)
    record(r, "reply-callback")
    if not r.fault then
        list(r)
    end
    finish(r)
end

local function read_reply_data(r)
    record(r, "reply-20")
    remainder(r, "data")
end

-- The type of a session packet; nil for other bytes.
local function session_header(r)
    local header = record(r, "session")
    if not header then
        return nil
    end
    if number(r, header, "marker") ~= SESSION_MARKER then
        fail(r, 0, "the first word is not 16")
    elseif number(r, header, "magic") ~= 0x414e then
        fail(r, 36, "the magic is not 0x414e")
    elseif number(r, header, "version") ~= 2 then
        fail(r, 52, "the version is not 2")
    end
    return not r.fault and number(r, header, "type") or nil
end

local function has_type_data(kind)
    return kind == 11 or kind == 16
end

local function read_type_data(r, layout)
    local at = r.at
    local made = record(r, layout)
    if not made then
        return
    end
    local length = number(r, made, "length")
    if length > MOST_DATA then
        fail(r, at + 4, "data of " .. length .. " bytes, but at most " .. MOST_DATA .. " are possible")
        return
    end
    bytes_part(r, "data", length)
    leftover(r, "unused", MOST_DATA - length)
end

-- A sender may send the whole record, which has room for every type, or only what the type needs. The
-- latter is recognised by a list that fills the rest exactly.
local function read_session_request(r)
    local kind = session_header(r)
    if not kind then
        return
    end
    if has_type_data(kind) then
        read_type_data(r, "session-data")
    elseif kind <= LAST_TYPE then
        record(r, kind == 0 and "session-connect" or kind == 2 and "session-large-reply" or "session-value")
    end
    local room = FULL_PACKET - math.min(FULL_PACKET, r.at)
    if not r.fault and left(r) >= room and not is_whole_list(r.bytes:sub(r.at + 1)) then
        leftover(r, "rest", room)
    end
    optional_list(r)
    finish(r)
end

local function response_layout(kind)
    if kind == 0 then
        return "session-reply-connect"
    elseif kind == 8 then
        return "session-reply-callback"
    end
    local has_status = (kind >= 3 and kind <= 7) or kind == 14 or kind == 15
    return has_status and "session-reply-status" or "session-reply-error"
end

local function read_session_response(r)
    local kind = session_header(r)
    if not kind then
        return
    end
    if kind > LAST_TYPE then
        fail(r, 8, "there is no response of type " .. kind)
    elseif has_type_data(kind) then
        read_type_data(r, "session-reply-data")
        if not r.fault then
            leftover(r, "rest", FULL_PACKET - math.min(FULL_PACKET, r.at))
        end
    else
        record(r, response_layout(kind))
    end
    optional_list(r)
    finish(r)
end

-- In the order in which they are tried.
local kinds = {
    {name = "list", read = read_list, detected = true},
    {name = "session-request", read = read_session_request, detected = true},
    {name = "session-response", read = read_session_response, detected = true},
    {name = "request", read = read_request, detected = true},
    {name = "config", read = read_config},
    {name = "server-connect", read = read_server_connect, detected = true},
    {name = "server-disconnect", read = read_server_disconnect, detected = true},
    {name = "reply-generic", read = read_reply, detected = true},
    {name = "reply-callback", read = read_reply_callback, detected = true},
    {name = "reply-config", read = only_record("reply-config"), detected = true},
    {name = "reply-connect", read = only_record("reply-connect"), detected = true},
    {name = "reply-accounting", read = only_record("reply-20"), detected = true},
    {name = "reply-async-authentication", read = read_reply},
    {name = "reply-async-authorization", read = only_record("reply-24-host-order")},
    {name = "reply-data", read = read_reply_data},
}
local kind_named = {}
for _, kind in ipairs(kinds) do
    kind_named[kind.name] = kind
end

local function is_session(bytes, little)
    return #bytes >= 4 and host32(bytes, 0, little) == SESSION_MARKER
end

-- The kind of an answer: its header does not say what it answers.
local function kind_of_answer(bytes, little, request)
    if is_session(bytes, little) then
        return kind_named["session-response"]
    end
    local size = #bytes
    local name = "reply-generic"
    if request == 0 and size == 32 then
        name = "reply-connect"
    elseif request == 4 and size == 24 then
        name = "reply-async-authentication"
    elseif request == 6 and size == 24 then
        name = "reply-async-authorization"
    elseif request == 8 and size >= 28 + LIST_HEADER then
        name = "reply-callback"
    elseif (request == 11 or request == 16) and size ~= 24 then
        name = "reply-data"
    elseif request >= 17 and request <= 23 and size == 28 then
        name = "reply-config"
    elseif size == 20 then
        name = "reply-accounting"
    end
    return kind_named[name]
end

local function read_as(kind, bytes, little)
    local r = new_reader(bytes, little)
    kind.read(r)
    r.kind = kind.name
    return r
end

-- A malformed list must not be taken for a request, whose texts may be anything.
local function looks_like_list(bytes)
    if #bytes < LIST_HEADER then
        return false
    end
    return network32(bytes, 0) == #bytes
        or (not only_zeros(bytes:sub(1, 4)) and bytes:byte(1) == 0 and only_zeros(bytes:sub(9, 24)) and bytes:byte(56) == 0)
end

-- The first kind that fits exactly, else the one that fits furthest.
local function read_any(bytes, little)
    local order = {}
    -- A key of 0 means a request: types with data have the same size in both directions.
    if #bytes >= 8 and is_session(bytes, little) and host32(bytes, 4, little) ~= 0 then
        order[1] = kind_named["session-response"]
    end
    for _, kind in ipairs(kinds) do
        if kind.detected and (not looks_like_list(bytes) or kind.name == "list") then
            order[#order + 1] = kind
        end
    end
    local best
    for _, kind in ipairs(order) do
        local r = read_as(kind, bytes, little)
        local last = r.parts[#r.parts]
        if not r.fault and last and last.bytes ~= "trailing" then
            return r
        end
        if not best or (best.fault and (not r.fault or r.fault.at > best.fault.at)) then
            best = r
        end
    end
    -- No kind fits, so blocks and texts may be anything.
    for _, part in ipairs(best.fault and best.parts or {}) do
        part.leftover = part.bytes ~= nil
    end
    return best
end
