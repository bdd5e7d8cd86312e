-- SPDX-License-Identifier: Apache-2.0

-- ---- showing: parts to the tree ----------------------------------------------------------------

local function add_meaning(item, range, text)
    if text then
        item:append_text(" (" .. escaped(text) .. ")")
        item:add(fields.meaning, range, escaped(text)):set_generated()
    end
end

local function show_record(r, part, tree, tvb, title)
    local node = tree:add(tvb(part.at, part.size), title or ("Record " .. part.record))
    for i, field in ipairs(part.layout) do
        local range = tvb(part.at + field.offset, field.size)
        local proto_field = record_fields[part.record or "list"][i]
        if field.form == "host" then
            local item = r.little and node:add_le(proto_field, range) or node:add(proto_field, range)
            if field.meaning then
                add_meaning(item, range, meaning_of_field(field.meaning, host32(r.bytes, part.at + field.offset, r.little), r.request))
            end
        elseif field.form == "network" then
            local item = node:add(proto_field, range)
            if field.meaning then
                add_meaning(item, range, meaning_of_field(field.meaning, network32(r.bytes, part.at + field.offset), r.request))
            end
        elseif field.form == "text" then
            local at = part.at + field.offset
            node:add(proto_field, range, escaped((r.bytes:sub(at + 1, at + field.size):match("^[^%z]*"))))
        else
            node:add(proto_field, range)
        end
    end
    return node
end

local function show_bytes(r, part, tree, tvb)
    if part.size == 0 then
        return
    end
    local range = tvb(part.at, part.size)
    local bytes = r.bytes:sub(part.at + 1, part.at + part.size)
    local item
    if part.leftover and not aaa.prefs.secrets and not only_zeros(bytes) then
        item = tree:add(fields.hidden, range, part.bytes)
        item:append_text(": " .. MASK)
    else
        local named = fields["bytes." .. part.bytes]
        item = tree:add(named or fields.bytes, range)
        if not named then
            item:prepend_text(part.bytes .. ", ")
        end
    end
    if part.bytes == "trailing" then
        item:add_proto_expert_info(experts.trailing)
    end
end

-- The value in its form; returns what the pair's own line shows.
local function show_value(pair_of, mask, node, range, little)
    local kind, value = pair_of.kind, pair_of.value
    local field = attribute_fields[kind]
    if is_secret(kind) and #value > 0 and not aaa.prefs.secrets then
        node:add(field and attributes[kind].format ~= "integer" and attributes[kind].format ~= "address" and
                     field or fields["value.hidden"], range, MASK)
        return MASK
    end
    local form = form_of(kind, value)
    if form == "number" then
        node:add(field or fields["value.number"], range)
        return tostring(network32(value, 0))
    elseif form == "address" then
        node:add(field, range)
        return table.concat({value:byte(1, 4)}, ".")
    elseif form == "text" then
        local safe, was_masked = value, false
        if not aaa.prefs.secrets then
            safe, was_masked = shown_text(mask, kind, value)
        end
        local text = escaped((safe:gsub("%z$", "")))
        local has_text_field = field and attributes[kind].format == "string"
        local item = node:add(has_text_field and field or fields["value.text"], range, text)
        return '"' .. text .. '"', was_masked
    end
    if field and attributes[kind].format == "binary" then
        if attributes[kind].secret then
            node:add(field, range, escaped(value))
        else
            node:add(field, range)
        end
    else
        node:add(fields["value.hex"], range)
    end
    local hex = #value <= 16 and tostring(range:bytes()):lower() or count_of(#value, "byte")
    return hex
end

local function show_pair(r, one, mask, tree, tvb)
    local row = attributes[one.kind]
    local is_deleted = one.kind == 2070
    local size = PAIR_HEAD + one.length + one.padding
    local node = tree:add(tvb(one.at, size), is_deleted and "deleted pair" or row and row.name or ("unknown attribute " .. one.kind))
    if not row and not is_deleted then
        node:add_proto_expert_info(experts.unknown)
    end
    node:add(fields["pair.type"], tvb(one.at, 4))
    if row then
        node:add(fields["pair.attribute"], tvb(one.at, 4), row.name)
    end
    if is_deleted then
        node:add(fields["pair.deleted"], tvb(one.at, 4), true)
    end
    node:add(fields["pair.tag"], tvb(one.at + 4, 4))
    node:add(fields["pair.length"], tvb(one.at + 8, 4))
    local flags = node:add(fields["pair.flags"], tvb(one.at + 12, 4))
    if one.flags ~= 0 then
        local names = flag_names(one.flags)
        flags:append_text(" (" .. names .. ")")
        node:add(fields["pair.flag_names"], tvb(one.at + 12, 4), names)
    end
    local value_at = one.at + PAIR_HEAD
    local shown, was_masked = show_value(one, mask, node, tvb(value_at, one.length), r.little)
    local meaning
    if shown ~= MASK and not was_masked then
        meaning = meaning_of_value(one.kind, one.value, r.little)
    end
    if meaning then
        node:add(fields["pair.meaning"], tvb(value_at, one.length), escaped(meaning)):set_generated()
    end
    node:append_text(": " .. shown .. (meaning and " (" .. escaped(meaning) .. ")" or ""))
    if one.padding > 0 then
        local range = tvb(value_at + one.length, one.padding)
        local padding = r.bytes:sub(value_at + one.length + 1, value_at + one.length + one.padding)
        if is_secret(one.kind) and not aaa.prefs.secrets and not only_zeros(padding) then
            node:add(fields.hidden, range, "padding")
        else
            node:add(fields["pair.padding"], range)
        end
    end
end

local function show_list(r, part, tree, tvb)
    local stop = part.at + LIST_HEADER
    local last = part.pairs[#part.pairs]
    if last then
        stop = last.at + PAIR_HEAD + last.length + last.padding
    end
    local name = r.bytes:sub(part.at + 25, part.at + 55):match("^[^%z]*")
    local node = tree:add(tvb(part.at, stop - part.at),
        "List \"" .. escaped(name) .. "\", " .. count_of(part.live, "attribute"))
    show_record(r, part, node, tvb, "Header")
    local mask = new_command_mask()
    for _, one in ipairs(part.pairs) do
        show_pair(r, one, mask, node, tvb)
    end
end

-- A filter needs the fields that it names only; to add all of them takes most of the time.
local function needs_all(tree)
    if tree.visible then
        return true
    end
    for _, field in ipairs(general) do
        if tree:referenced(field) then
            return true
        end
    end
    return false
end

local function show_named_values(r, tree, tvb)
    for _, part in ipairs(r.parts) do
        local mask = new_command_mask()
        for _, one in ipairs(part.pairs or {}) do
            local field = attribute_fields[one.kind]
            if field and tree:referenced(field) then
                show_value(one, mask, tree, tvb(one.at + PAIR_HEAD, one.length), r.little)
            elseif command_attributes[one.kind] and not aaa.prefs.secrets then
                shown_text(mask, one.kind, one.value) -- it may announce a secret of one that follows
            end
        end
    end
end

local function show_parts(r, tree, tvb)
    tree:add(fields.kind, tvb(), r.kind):set_generated()
    for _, part in ipairs(r.parts) do
        if part.list then
            show_list(r, part, tree, tvb)
        elseif part.record then
            show_record(r, part, tree, tvb)
        else
            show_bytes(r, part, tree, tvb)
        end
    end
    if r.fault then
        local at = math.min(r.fault.at, r.size)
        local range = at < r.size and tvb(at, 1) or tvb()
        local item = tree:add(fields.fault, range, r.fault.what)
        item:set_generated()
        item:add_proto_expert_info(experts.fault, "byte " .. r.fault.at .. ": " .. r.fault.what)
        tree:add(fields["fault.offset"], range, r.fault.at):set_generated()
    end
end
