-- SPDX-License-Identifier: Apache-2.0

-- ---- fields: what filters can name -----------------------------------------------------------

local aaa = Proto("aaa", "AAA messages")
aaa.prefs.secrets = Pref.bool("Show secrets", false,
    "Show passwords and other secret values. The pane of bytes shows them in any case, unless the capture was made without them.")
aaa.prefs.tacacs_tls_ports = Pref.range("Ports of TACACS+ over TLS", "300", "TCP ports of servers that speak TACACS+ in TLS", 65535)
aaa.prefs.radius_tls_ports = Pref.range("Ports of RADIUS over TLS", "2083", "TCP ports of servers that speak RADIUS in TLS", 65535)

local fields = {}      -- of frames and messages
local record_fields = {} -- by layout, in the order of its fields
local attribute_fields = {} -- by type
local registered = {}

local general = {} -- all but those of attributes and of the prefix
local function register(field)
    registered[#registered + 1] = field
    return field
end

local function add_fields()
    local function text(name, title)
        fields[name] = register(ProtoField.string("aaa." .. name, title))
    end
    local DEC, HEX = base.DEC, base.HEX
    local function of(name, title, kind, form)
        fields[name] = register(ProtoField[kind]("aaa." .. name, title, form))
    end
    of("prefix.version", "Version of the prefix", "uint8", DEC)
    fields["direction"] = register(ProtoField.uint8("aaa.direction", "Direction", DEC,
        {[0] = "request", [1] = "answer", [2] = "not known"}))
    fields["masked"] = register(ProtoField.bool("aaa.masked", "Secrets replaced by asterisks", 8, nil, 1))
    fields["byte_order"] = register(ProtoField.uint8("aaa.byte_order", "Byte order of the machine", DEC,
        {[1] = "little-endian", [2] = "big-endian"}))
    of("peer.pid", "Process of the client", "uint32", DEC)
    of("peer.uid", "User of the client", "uint32", DEC)
    of("peer.gid", "Group of the client", "uint32", DEC)
    fields["type"] = register(ProtoField.uint32("aaa.type", "Message type", DEC, requests))
    of("connection", "Connection", "uint64", DEC)
    of("run", "Start of the service", "uint32", HEX)
    of("exchange", "Number of the request on its connection", "uint32", DEC)
    text("login_id", "Login")
    text("kind", "Kind")
    fields["response_in"] = register(ProtoField.framenum("aaa.response_in", "Answer in", base.NONE, frametype.RESPONSE))
    fields["response_to"] = register(ProtoField.framenum("aaa.response_to", "Request in", base.NONE, frametype.REQUEST))
    fields["time"] = register(ProtoField.relative_time("aaa.time", "Time since the request"))
    text("meaning", "Meaning")
    fields["bytes"] = register(ProtoField.bytes("aaa.bytes", "Bytes"))
    for name, title in pairs({block = "Block of an asynchronous request", text1 = "First text", text2 = "Second text", text = "Text",
                              session = "Identifier of the session", data = "Data"}) do
        fields["bytes." .. name] = register(ProtoField.bytes("aaa.bytes." .. name, title))
    end
    text("hidden", "Not shown")
    of("pair.type", "Type", "uint32", DEC)
    text("pair.attribute", "Attribute")
    fields["pair.deleted"] = register(ProtoField.bool("aaa.pair.deleted", "Deleted"))
    of("pair.tag", "Tag", "uint32", DEC)
    of("pair.length", "Length", "uint32", DEC)
    of("pair.flags", "Flags", "uint32", HEX)
    text("pair.flag_names", "Names of flags")
    text("pair.meaning", "Meaning")
    fields["pair.padding"] = register(ProtoField.bytes("aaa.pair.padding", "Padding"))
    of("value.number", "Value", "uint32", DEC)
    text("value.text", "Value")
    fields["value.hex"] = register(ProtoField.bytes("aaa.value.hex", "Value"))
    text("value.hidden", "Value, not shown")
    fields["fault"] = register(ProtoField.string("aaa.fault", "Damage"))
    fields["fault.offset"] = register(ProtoField.uint32("aaa.fault.offset", "Damage at byte", DEC))
end

-- Records of one family share the fields of one name: aaa.request.type.
local number_kinds = {[1] = "uint8", [2] = "uint16", [4] = "uint32", [8] = "uint64"}
local function add_record_fields()
    local widest, names = {}, {}
    for name, layout in pairs(layouts) do
        local family = name:match("^%a+")
        for _, field in ipairs(layout) do
            local key = family .. "." .. field.name
            local is_number = field.form == "host" or field.form == "network"
            local seen = widest[key]
            if not seen then
                widest[key] = {size = is_number and field.size or 0, form = field.form, number = is_number}
                names[#names + 1] = key
            elseif is_number then
                seen.size = math.max(seen.size, field.size)
            end
        end
    end
    table.sort(names)
    local made = {}
    for _, key in ipairs(names) do
        local one = widest[key]
        local kind = one.number and number_kinds[one.size] or one.form == "text" and "string" or "bytes"
        local title = key:match("%.(.*)$"):gsub("_", " ")
        made[key] = register(kind == "string" and ProtoField.string("aaa." .. key, title)
            or kind == "bytes" and ProtoField.bytes("aaa." .. key, title)
            or ProtoField[kind]("aaa." .. key, title, base.DEC))
    end
    for name, layout in pairs(layouts) do
        record_fields[name] = {}
        for i, field in ipairs(layout) do
            record_fields[name][i] = made[name:match("^%a+") .. "." .. field.name]
        end
    end
end

-- A field for every attribute, of the type of its format: aaa.attr.username.
local function add_attribute_fields()
    for kind = 0, 2070 do
        local row = attributes[kind]
        if row then
            local filter = "aaa.attr." .. row.filter
            local field
            if row.format == "integer" then
                field = ProtoField.uint32(filter, row.name, base.DEC, values[kind])
            elseif row.format == "address" then
                field = ProtoField.ipv4(filter, row.name)
            elseif row.format == "string" or row.secret then
                field = ProtoField.string(filter, row.name)
            else
                field = ProtoField.bytes(filter, row.name)
            end
            attribute_fields[kind] = register(field)
        end
    end
end

add_fields()
add_record_fields()
local about_frames = {}
for _, name in ipairs({"prefix.version", "direction", "masked", "byte_order", "peer.pid", "peer.uid", "peer.gid", "type", "run", "connection",
                       "exchange", "login_id", "response_in", "response_to", "time"}) do
    about_frames[fields[name]] = true
end
for _, field in ipairs(registered) do
    if not about_frames[field] then
        general[#general + 1] = field
    end
end
add_attribute_fields()
aaa.fields = registered

local experts = {
    fault = ProtoExpert.new("aaa.expert.fault", "Damaged message", expert.group.MALFORMED, expert.severity.ERROR),
    prefix = ProtoExpert.new("aaa.expert.prefix", "Damaged frame", expert.group.MALFORMED, expert.severity.ERROR),
    cut = ProtoExpert.new("aaa.expert.cut", "The capture does not hold the whole frame", expert.group.MALFORMED, expert.severity.WARN),
    trailing = ProtoExpert.new("aaa.expert.trailing", "Bytes after the message", expert.group.PROTOCOL, expert.severity.WARN),
    error = ProtoExpert.new("aaa.expert.error", "The request was not processed", expert.group.RESPONSE_CODE, expert.severity.NOTE),
    refused = ProtoExpert.new("aaa.expert.refused", "The service refuses", expert.group.RESPONSE_CODE, expert.severity.CHAT),
    unknown = ProtoExpert.new("aaa.expert.unknown", "Attribute outside the dictionary", expert.group.UNDECODED, expert.severity.NOTE),
    alone = ProtoExpert.new("aaa.expert.alone", "The request is not in the capture", expert.group.SEQUENCE, expert.severity.NOTE),
}
aaa.experts = experts
