-- SPDX-License-Identifier: Apache-2.0

-- ---- frames: the prefix of the service, and requests matched with answers ------------------------

local PREFIX, PREFIX_VERSION = 48, 1
local UNKNOWN_TYPE = 4294967295
local STATUS, USERNAME = 2, 257

local exchanges = {} -- by start of the service, connection and number: the frames of request and answer

function aaa.init()
    exchanges = {}
end

-- As log lines have it; nil without one.
local function login_id(tvb)
    local id = tostring(tvb(32, 8):bytes()):lower():gsub("^0+", "")
    return id ~= "" and ("0"):rep(8 - #id) .. id or nil
end

local function show_prefix(tvb, tree)
    local node = tree:add(tvb(0, PREFIX), "Client and connection")
    node:add(fields["prefix.version"], tvb(0, 1))
    node:add(fields["direction"], tvb(1, 1))
    node:add(fields["masked"], tvb(2, 1))
    node:add(fields["byte_order"], tvb(3, 1))
    node:add(fields["peer.pid"], tvb(8, 4))
    node:add(fields["peer.uid"], tvb(12, 4))
    node:add(fields["peer.gid"], tvb(16, 4))
    if tvb(20, 4):uint() ~= UNKNOWN_TYPE then
        node:add(fields["type"], tvb(20, 4))
    end
    node:add(fields["connection"], tvb(24, 8))
    node:add(fields["exchange"], tvb(40, 4))
    node:add(fields["run"], tvb(44, 4))
    local id = login_id(tvb)
    if id then
        node:add(fields["login_id"], tvb(32, 8), id)
    end
end

local function pairs_of(r)
    for _, part in ipairs(r.parts) do
        if part.list then
            return part.pairs
        end
    end
    return {}
end

local function value_of(r, kind)
    for _, one in ipairs(pairs_of(r)) do
        if one.kind == kind then
            return one.value
        end
    end
end

local function status_of_header(r)
    for _, part in ipairs(r.parts) do
        for _, field in ipairs(part.record and part.layout or {}) do
            if field.meaning == "result" then
                local at = part.at + field.offset
                return field.form == "network" and network32(r.bytes, at) or host32(r.bytes, at, r.little)
            end
        end
    end
end

-- One line about the message.
local function summary(r, is_answer, tree)
    local request = requests[r.request]
    local text = request and request ~= "" and request or "message"
    if not is_answer then
        local user = value_of(r, USERNAME)
        return text .. (user and #user > 1 and " " .. escaped((user:gsub("%z$", ""))) or "")
    end
    local verdict = value_of(r, STATUS)
    local result = status_of_header(r)
    if verdict and #verdict == 4 then
        local number = network32(verdict, 0)
        text = text .. ": " .. (values[STATUS][number] or number)
        if number ~= 1 then
            tree:add_proto_expert_info(experts.refused)
        end
    elseif result and result ~= 0 then
        text = text .. ": " .. (results[result] or string.format("0x%x", result))
        tree:add_proto_expert_info(experts.error)
    else
        text = text .. ": done"
    end
    return text
end

local function match(pinfo, tvb, tree, is_answer)
    local key = tvb:raw(44, 4) .. tvb:raw(24, 8) .. tvb:raw(40, 4)
    local exchange = exchanges[key]
    if not exchange then
        exchange = {}
        exchanges[key] = exchange
    end
    if not pinfo.visited then
        if is_answer then
            exchange.answer = exchange.answer or pinfo.number
            exchange.login = exchange.login or login_id(tvb)
        else
            exchange.request = exchange.request or pinfo.number
            exchange.time = exchange.time or pinfo.rel_ts
        end
    end
    if not is_answer then
        if exchange.answer then
            tree:add(fields.response_in, tvb(40, 4), exchange.answer):set_generated()
            -- Most logins get their id when their first request has been read.
            if exchange.login and not login_id(tvb) then
                tree:add(fields.login_id, tvb(32, 8), exchange.login):set_generated()
            end
        end
    elseif exchange.request then
        tree:add(fields.response_to, tvb(40, 4), exchange.request):set_generated()
        -- Times since 1970 are numbers that hold no nanoseconds.
        local micros = math.max(0, math.floor((pinfo.rel_ts - exchange.time) * 1e6 + 0.5))
        local whole = math.floor(micros / 1e6)
        local item = tree:add(fields.time, tvb(40, 4), NSTime(whole, (micros - whole * 1e6) * 1000))
        item:set_text(string.format("Time since the request: %d.%06d seconds", whole, micros - whole * 1e6))
        item:set_generated()
    else
        tree:add_proto_expert_info(experts.alone)
    end
end

local function read_message(bytes, little, direction, kind, request)
    local named = kinds[kind]
    if named then
        return read_as(named, bytes, little)
    elseif direction == 0 then
        return read_as(kind_named[is_session(bytes, little) and "session-request" or "request"], bytes, little)
    elseif direction == 1 then
        return read_as(kind_of_answer(bytes, little, request), bytes, little)
    end
    return read_any(bytes, little)
end

-- The type of a message that the prefix does not tell.
local function type_of(r)
    for _, part in ipairs(r.parts) do
        for _, field in ipairs(part.record and part.layout or {}) do
            if field.meaning == "request" then
                return host32(r.bytes, part.at + field.offset, r.little)
            end
        end
    end
    return UNKNOWN_TYPE
end

local this_dissector

function aaa.dissector(tvb, pinfo, root)
    pinfo.cols.protocol = "AAA"
    local tree = root:add(aaa, tvb())
    local length = tvb:len()
    if length < PREFIX or tvb(0, 1):uint() ~= PREFIX_VERSION then
        pinfo.cols.info = "damaged frame"
        tree:add_proto_expert_info(experts.prefix, length < PREFIX
            and "the frame has " .. count_of(length, "byte") .. ", its prefix needs " .. PREFIX
            or "the prefix has the version " .. tvb(0, 1):uint() .. ", known is " .. PREFIX_VERSION)
        return length
    end
    local at = tvb(4, 2):uint()
    if at < PREFIX or at > length then
        pinfo.cols.info = "damaged frame"
        tree:add_proto_expert_info(experts.prefix, "the prefix has a length of " .. at)
        return length
    end
    this_dissector = this_dissector or Dissector.get("aaa")
    local is_named = root:referenced(this_dissector) -- by the list of details, a filter, a column
    if is_named then
        show_prefix(tvb, tree)
    end
    if tvb:reported_len() > length then
        tree:add_proto_expert_info(experts.cut)
    end
    local direction, little = tvb(1, 1):uint(), tvb(3, 1):uint() ~= 2
    local is_answer = direction == 1
    if direction < 2 then
        match(pinfo, tvb, tree, is_answer)
    end
    local client = "pid " .. tvb(8, 4):uint() .. " uid " .. tvb(12, 4):uint()
    pinfo.cols.src = is_answer and "aaad" or client
    pinfo.cols.dst = is_answer and client or "aaad"
    if at == length then
        pinfo.cols.info = "empty message"
        return length
    end
    local r = read_message(tvb:raw(at, length - at), little, direction, tvb(6, 1):uint(), tvb(20, 4):uint())
    r.request = tvb(20, 4):uint()
    if r.request == UNKNOWN_TYPE then
        r.request = type_of(r)
    end
    local last = r.parts[#r.parts]
    if r.fault or r.has_unknown or (last and last.bytes == "trailing") or (is_named and needs_all(tree)) then
        show_parts(r, tree, tvb(at, length - at):tvb())
    elseif is_named then
        show_named_values(r, tree, tvb(at, length - at):tvb())
    end
    local text = summary(r, is_answer, tree)
    tree:append_text(", " .. text)
    pinfo.cols.info = text .. (r.fault and " [damaged: " .. r.fault.what .. "]" or "")
    return length
end

DissectorTable.get("wtap_encap"):add(wtap.USER0, aaa)

-- ---- RADIUS and TACACS+ in TLS -------------------------------------------------------------------
--
-- Wireshark knows both, but not that TLS can carry them.

-- They are found at their usual ports.
local carried = {
    {pref = "tacacs_tls_ports", table = "tcp.port", port = 49, ports = ""},
    {pref = "radius_tls_ports", table = "udp.port", port = 1812, ports = ""},
}

local function numbers_in(ports)
    local all = {}
    for first, last in ports:gmatch("(%d+)%-?(%d*)") do
        first = tonumber(first)
        for port = first, math.min(tonumber(last) or first, 65535) do
            all[#all + 1] = port
        end
    end
    return all
end

local function use_ports()
    local in_tls, in_tcp, tls = DissectorTable.get("tls.port"), DissectorTable.get("tcp.port"), Dissector.get("tls")
    for _, one in ipairs(carried) do
        one.dissector = one.dissector or DissectorTable.get(one.table):get_dissector(one.port)
        local dissector = one.dissector
        local ports = tostring(aaa.prefs[one.pref])
        for _, port in ipairs(ports ~= one.ports and numbers_in(one.ports) or {}) do
            in_tls:remove(port, dissector)
            in_tcp:remove(port, tls)
        end
        for _, port in ipairs(ports ~= one.ports and numbers_in(ports) or {}) do
            in_tls:add(port, dissector)
            in_tcp:add(port, tls)
        end
        one.ports = ports
    end
end

use_ports()
aaa.prefs_changed = use_ports
