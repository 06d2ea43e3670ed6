-- Wireshark dissector for the device link of the signal-generation board (UDP port 2001), and for the
-- marks in the captures of the board made of software (EtherType 0x88b5, at the end).
--
-- A datagram to the board is an envelope around one command frame; a datagram from the board is an
-- acknowledgement, a data reply, or both. What a command looks like stands in the table `commands`:
-- a new command is a row there and a field or two in `f`.
--
-- Decisions where the bytes alone leave a choice:
--   * A frame-template download (8c 91) is FT3 when the low nibble of its second header byte is 9
--     and the two bytes that hold the frame length of an Ethernet template are 0: FT3 always has
--     zero bytes there, and no Ethernet frame is empty. The second header byte alone does not do:
--     09 and 19 are also the port selectors of ports 3 and 7.
--   * An FT3 template is extended when its header length exceeds its dataset length by 4 and basic
--     when by 2. Any other difference counts as basic and gets a note.
--   * A GOOSE signal control whose item count does not account for all its bytes, while the layout
--     without a count (frame offset, length, items to the end) does, has that layout.
--   * An offset of a GOOSE stream description whose first byte is 1 to 25 has two bytes, high byte
--     first: nothing that the board rewrites lies in the 26 bytes in front of the goosePdu.

local lumtar = Proto("lumtar", "Relay test set device link")
local board_port = 2001
local engine_buffer = 1600

local channel_names = {
    [0] = "Ia1", "Ia2", "Ib1", "Ib2", "Ic1", "Ic2", "In1", "In2",
    "Va1", "Va2", "Vb1", "Vb2", "Vc1", "Vc2", "Vn1", "Vn2",
}
local channel_kinds = { [0xff] = "no analog source" }
for code, name in pairs(channel_names) do
    channel_kinds[code] = name
end
local frame_kinds = { [0] = "SV", "GOOSE" }
local start_flags = { [0] = "stop", "start" }
local yes_no = { [0] = "no", "yes" }
local entry_codes = { [0] = "not mapped", [4] = "mapped" }
local entry_uses = { [0x1f] = "not used", [0x20] = "used" }
-- A sequence has up to five steps: a jump to any other ends it.
local jumps = {}
for step = 0, 255 do
    jumps[step] = step < 5 and tostring(step) or "end"
end
local states = { [0] = "idle", "armed", "running", "finished", "stopped" }
local causes = { [0] = "start", "time", "trigger", "binary input", "stop", "ring", "limit" }
local input_kinds = { [0] = "off", "on", "trigger" }
local checksum_states = { [0] = "Bad", "Good", "Unverified" }

local uint8, uint16, float = ProtoField.uint8, ProtoField.uint16, ProtoField.float
local ns = ProtoField.uint64
local text, bytes, framenum = ProtoField.string, ProtoField.bytes, ProtoField.framenum
local dec, hex = base.DEC, base.HEX

local f = {
    -- envelope
    marker = bytes("lumtar.marker", "Marker"),
    reserved = uint8("lumtar.reserved", "Reserved", hex),
    length = uint16("lumtar.length", "Length of padded frame and check bytes"),
    length_again = uint16("lumtar.length_again", "Length, second time"),
    padding = bytes("lumtar.padding", "Padding"),
    check_even = uint8("lumtar.checksum.even", "Check byte of even positions", hex),
    check_odd = uint8("lumtar.checksum.odd", "Check byte of odd positions", hex),
    check_expected = uint8("lumtar.checksum.calculated", "Calculated", hex),
    check_status = uint8("lumtar.checksum.status", "Status", dec, checksum_states),
    -- exchange
    response_in = framenum("lumtar.response_in", "Response in", base.NONE, frametype.RESPONSE),
    response_to = framenum("lumtar.response_to", "Response to", base.NONE, frametype.REQUEST),
    acknowledgement = bytes("lumtar.acknowledgement", "Acknowledgement"),
    reply_marker = bytes("lumtar.reply.marker", "Data reply marker"),
    reply_ignored = bytes("lumtar.reply.ignored", "Not interpreted"),
    reply_length = uint16("lumtar.reply.length", "Payload length"),
    reply_payload = bytes("lumtar.reply.payload", "Payload"),
    -- commands
    command = text("lumtar.command", "Command"),
    code = ProtoField.uint32("lumtar.code", "Code", hex),
    subcode = uint8("lumtar.subcode", "Subcode", hex),
    undecoded = bytes("lumtar.undecoded", "Undecoded bytes"),
    fixed = bytes("lumtar.fixed", "Fixed bytes"),
    step = uint8("lumtar.step", "Step"),
    channel = uint8("lumtar.channel", "Channel", dec, channel_names),
    scale_factor = float("lumtar.scale_factor", "Scale factor (V or A per count)"),
    peak_flag = uint8("lumtar.peak_flag", "Amplitude given as peak", dec, yes_no),
    frequency = float("lumtar.frequency", "Frequency (Hz)"),
    amplitude = float("lumtar.amplitude", "Amplitude (V or A, peak)"),
    phase = float("lumtar.phase", "Phase (degrees)"),
    phase_jump = float("lumtar.phase_jump", "Phase jump (degrees)"),
    start = uint8("lumtar.start", "Start flag", dec, start_flags),
    sample_interval = uint8("lumtar.sample_interval", "Sample interval (us)"),
    start_parameter = uint8("lumtar.start.parameter", "Parameter"),
    stream_kind = uint8("lumtar.stream_kind", "Stream and kind", hex),
    stream = uint8("lumtar.stream", "Stream number"),
    number = uint8("lumtar.number", "Stream number, second time"),
    frame_kind = uint8("lumtar.frame_kind", "Frame kind", dec, frame_kinds),
    protocol = uint8("lumtar.protocol", "Protocol"),
    smpcnt_offset = uint16("lumtar.smpcnt.offset", "Frame offset of smpCnt"),
    smpcnt_start = uint16("lumtar.smpcnt.start", "First smpCnt"),
    smpcnt_wrap = uint16("lumtar.smpcnt.wrap", "smpCnt wraps at"),
    dataset_offset = uint16("lumtar.dataset.offset", "Frame offset of the first dataset entry"),
    channel_count = uint8("lumtar.channel_count", "Number of channels"),
    channel_kind = uint8("lumtar.channel_kind", "Channel kind", dec, channel_kinds),
    sqnum_offset = uint16("lumtar.sqnum.offset", "Frame offset of sqNum"),
    t_offset = uint16("lumtar.t.offset", "Frame offset of t"),
    flag = uint8("lumtar.flag", "Flag"),
    conditions = uint8("lumtar.conditions", "Transition conditions", hex),
    conditions_input = uint8("lumtar.conditions.binary_input", "Binary input", dec, yes_no),
    step_time = uint16("lumtar.step_time", "Step time (ms)"),
    time_jump = uint8("lumtar.time_jump", "Step after the time", dec, jumps),
    trigger = uint8("lumtar.trigger", "Trigger"),
    trigger_jump = uint8("lumtar.trigger_jump", "Step after the trigger", dec, jumps),
    input = uint8("lumtar.input", "Binary input enabled", dec, yes_no),
    input_jump = uint8("lumtar.input_jump", "Step after the binary input", dec, jumps),
    option = uint8("lumtar.option", "Step option"),
    group = uint8("lumtar.group", "Group"),
    item_layout = text("lumtar.item_layout", "Layout"),
    item_count = uint8("lumtar.item_count", "Number of items"),
    item = text("lumtar.item", "Item"),
    item_offset = uint16("lumtar.item.offset", "Frame offset"),
    item_length = uint8("lumtar.item.length", "Data length"),
    item_data = bytes("lumtar.item.data", "Data"),
    block_offset = uint16("lumtar.block.offset", "Frame offset"),
    block_length = uint16("lumtar.block.length", "Data length"),
    port_selector = uint8("lumtar.port_selector", "Port selector", hex),
    port = uint8("lumtar.port", "Output port"),
    frame_length = uint16("lumtar.frame_length", "Length of the Ethernet frame"),
    which = uint8("lumtar.which", "Status to read back", hex),
    select1 = uint8("lumtar.select1", "First selector", hex),
    select2 = uint8("lumtar.select2", "Second selector", hex),
    dig_no = uint16("lumtar.dig_no", "Dig_NO"),
    goose_num = uint8("lumtar.goose_num", "GOOSE_NUM"),
    light = uint8("lumtar.light", "Light port and group", hex),
    light_port = uint8("lumtar.light.port", "Light port"),
    light_group = uint8("lumtar.light.group", "Light group"),
    appid = uint16("lumtar.appid", "APPID", base.HEX_DEC),
    logic_channel = uint16("lumtar.logic_channel", "First logic channel"),
    entry_count = uint16("lumtar.entry_count", "Number of dataset entries"),
    entry = uint8("lumtar.entry", "Entry code", dec, entry_codes),
    mapped = uint16("lumtar.mapped", "Mapped dataset position"),
    channel_entry = uint16("lumtar.channel_entry", "Channel entry", hex),
    entry_use = uint8("lumtar.channel_entry.use", "Use", hex, entry_uses),
    entry_value = uint8("lumtar.channel_entry.value", "Value"),
    property1 = uint8("lumtar.property1", "Property 1", hex),
    property2 = uint16("lumtar.property2", "Property 2", hex),
    property3 = uint8("lumtar.property3", "Property 3", hex),
    property4 = uint8("lumtar.property4", "Property 4", hex),
    -- status of the board made of software
    status_state = uint8("lumtar.status.state", "State", dec, states),
    status_step = uint8("lumtar.status.step", "Step"),
    status_time_in_step = ns("lumtar.status.time_in_step", "Time in the step (ns)"),
    status_time = ns("lumtar.status.time", "Time since the start of the sequence (ns)"),
    status_frames = ns("lumtar.status.frames", "Frames published since the start"),
    status_channels = bytes("lumtar.status.channels", "Active logic channels, lowest bit first"),
    status_channel = uint16("lumtar.status.channel", "Active logic channel"),
    status_problems = ProtoField.uint32("lumtar.status.problems", "Problems reported"),
    status_start = ProtoField.uint32("lumtar.status.start", "Number of the start"),
    status_late_p50 = ns("lumtar.status.late_p50", "Lateness of half of the instants (ns)"),
    status_late_p99 = ns("lumtar.status.late_p99", "Lateness of 99 of 100 instants (ns)"),
    status_late_max = ns("lumtar.status.late_max", "Largest lateness (ns)"),
    status_missed = ns("lumtar.status.missed", "Missed deadlines"),
    status_refused = ns("lumtar.status.refused", "Frames that an interface did not take"),
    changes_total = ProtoField.uint32("lumtar.changes.total", "Changes since the start"),
    changes_count = uint16("lumtar.changes.count", "Number of records"),
    changes_size = uint16("lumtar.changes.size", "Size of a record"),
    change = text("lumtar.change", "Change"),
    change_left = uint8("lumtar.change.left", "Step left"),
    change_entered = uint8("lumtar.change.entered", "Step entered", dec, jumps),
    change_cause = uint8("lumtar.change.cause", "Cause", dec, causes),
    change_disturbed = uint8("lumtar.change.disturbed", "Disturbed since the change before", hex),
    change_late_sent = uint8("lumtar.change.disturbed.late", "Instant sent late", dec, yes_no),
    change_refused = uint8("lumtar.change.disturbed.refused", "Frames were refused", dec, yes_no),
    change_lost = uint8("lumtar.change.disturbed.lost", "Inputs were lost", dec, yes_no),
    change_channel = uint16("lumtar.change.channel", "Logic channel"),
    change_late = ns("lumtar.change.late", "Lateness of the instant (ns)"),
    change_cause_time = ns("lumtar.change.cause_time", "Time of the cause (ns)"),
    change_time = ns("lumtar.change.time", "Time of the instant (ns)"),
    inputs_total = ProtoField.uint32("lumtar.inputs.total", "Inputs since the start"),
    inputs_count = uint16("lumtar.inputs.count", "Number of records"),
    inputs_size = uint16("lumtar.inputs.size", "Size of a record"),
    inputs_first = uint16("lumtar.inputs.first", "Number of the first of them"),
    inputs_input = text("lumtar.inputs.input", "Input"),
    inputs_kind = uint8("lumtar.inputs.kind", "Kind", dec, input_kinds),
    inputs_channel = uint16("lumtar.inputs.channel", "Logic channel"),
    inputs_time = ns("lumtar.inputs.time", "Time (ns)"),
    -- FT3
    ft3_layout = text("lumtar.ft3.layout", "Layout"),
    ft3_flag = uint8("lumtar.ft3.flag", "Flag byte", hex),
    ft3_flag_value = uint8("lumtar.ft3.flag.value", "Flag value"),
    header_length = uint8("lumtar.ft3.header_length", "Header length"),
    dataset_length = uint16("lumtar.ft3.dataset_length", "Dataset length"),
    ln_name = uint8("lumtar.ft3.ln_name", "LNName"),
    dataset_name = uint8("lumtar.ft3.dataset_name", "DataSetName"),
    ld_name = uint16("lumtar.ft3.ld_name", "LDName"),
    phs_a_artg = uint16("lumtar.ft3.phs_a_artg", "PhsA.Artg (rated phase current)"),
    neut_artg = uint16("lumtar.ft3.neut_artg", "Neut.Artg (rated neutral current)"),
    phs_a_vrtg = uint16("lumtar.ft3.phs_a_vrtg", "PhsA.Vrtg (rated phase voltage)"),
    delay = uint16("lumtar.ft3.delay", "Rated delay time"),
    smpcnt = uint16("lumtar.ft3.smpcnt", "SmpCnt"),
    channel_data = uint16("lumtar.ft3.channel", "Channel"),
    status_word1 = uint16("lumtar.ft3.status_word1", "StatusWord#1", hex),
    status_word2 = uint16("lumtar.ft3.status_word2", "StatusWord#2", hex),
    ext_word1 = uint16("lumtar.ft3.ext_word1", "Extended layout, first word", hex),
    ext_word2 = uint16("lumtar.ft3.ext_word2", "Extended layout, last word", hex),
}
lumtar.fields = f

local function report(name, message, group, severity)
    return ProtoExpert.new("lumtar.expert." .. name, message, expert.group[group],
        expert.severity[severity])
end

local e = {
    marker = report("marker", "Not the envelope of a command (a5 a5 a5 a5, 11 bytes at least)",
        "MALFORMED", "ERROR"),
    reserved = report("reserved", "The byte behind the marker is not 0", "PROTOCOL", "WARN"),
    length = report("length", "Wrong length", "MALFORMED", "ERROR"),
    odd = report("odd", "The frame has an odd number of bytes: padding is missing",
        "MALFORMED", "ERROR"),
    check = report("check", "Wrong check byte", "CHECKSUM", "ERROR"),
    long = report("long", "Longer than the engine's buffer of 1600 bytes", "PROTOCOL", "WARN"),
    cut = report("cut", "The capture holds only the beginning of the datagram",
        "UNDECODED", "NOTE"),
    unknown = report("unknown", "Unknown command", "UNDECODED", "WARN"),
    truncated = report("truncated", "The command ends before its last field",
        "MALFORMED", "ERROR"),
    undecoded = report("undecoded", "Bytes behind the last field", "UNDECODED", "WARN"),
    fixed = report("fixed", "Differs from the fixed value", "PROTOCOL", "WARN"),
    layout = report("layout", "The lengths do not tell the layout: basic assumed",
        "ASSUMPTION", "NOTE"),
    answer = report("answer", "Neither an acknowledgement nor a data reply",
        "PROTOCOL", "WARN"),
    reply = report("reply", "The data reply announces more payload than it holds",
        "MALFORMED", "ERROR"),
}
lumtar.experts = e

-- Walking through a command frame ---------------------------------------------------------------

local Frame = {}
Frame.__index = Frame

local function new_frame(range, pinfo)
    local frame = { range = range, size = range:len(), at = 0, truncated = false, pinfo = pinfo }
    return setmetatable(frame, Frame)
end

function Frame:remaining()
    return self.size - self.at
end

--- The next `size` bytes; nil, and the frame counts as truncated, when it has fewer.
function Frame:take(size)
    if self.truncated or size > self:remaining() then
        self.truncated = true
        return nil
    end
    self.at = self.at + size
    return self.range(self.at - size, size)
end

--- The next `size` bytes or as many as there are, when the frame counts as truncated; nil for none.
function Frame:take_up_to(size)
    local available = math.min(size, self:remaining())
    local range = available > 0 and self:take(available) or nil
    self.truncated = self.truncated or available < size
    return range
end

--- Whether nothing but the padding byte follows position `at`.
function Frame:ends_at(at)
    return at == self.size
        or at == self.size - 1 and at % 2 == 1 and self.range(at, 1):uint() == 0
end

local function be(range) return range:uint() end
local function le(range) return range:le_uint() end
local function real(range) return range:le_float() end

--- A row of a layout: {field, size = 1, reader = be, parts = {{field, lowest bit, width, add}}}.
local function decode_row(row, frame, tree, v)
    local range = frame:take(row[2] or 1)
    if not range then return end
    local name = row[1]
    v[name] = (row[3] or be)(range)
    local item = tree:add(f[name], range, v[name])
    for _, part in ipairs(row.parts or {}) do
        local value = math.floor(v[name] / 2 ^ part[2]) % 2 ^ part[3] + (part[4] or 0)
        v[part[1]] = value
        item:add(f[part[1]], range, value)
    end
end

--- Decodes a layout: each row is a table as above or a function(frame, tree, v).
local function decode(layout, frame, tree, v)
    for _, row in ipairs(layout) do
        if frame.truncated then return end
        if type(row) == "function" then
            row(frame, tree, v)
        else
            decode_row(row, frame, tree, v)
        end
    end
end

-- Variable parts of commands --------------------------------------------------------------------

local function fixed(expected)
    return function(frame, tree)
        local range = frame:take(#expected)
        if not range then return end
        local item = tree:add(f.fixed, range)
        if range:raw() ~= expected then item:add_proto_expert_info(e.fixed) end
    end
end

--- One row for each of the `count_field` elements.
local function repeated(count_field, rows)
    return function(frame, tree, v)
        for _ = 1, v[count_field] do
            decode(rows, frame, tree, v)
        end
    end
end

local function wide_offset(name)
    return function(frame, tree, v)
        local range = frame:take(1)
        if not range then return end
        if range:uint() >= 1 and range:uint() < 26 then
            frame.at = frame.at - 1
            range = frame:take(2)
            if not range then return end
        end
        v[name] = range:uint()
        tree:add(f[name], range, v[name])
    end
end

--- Behind the items that begin at `at`: `count` of them or, without a count, all that fit.
local function end_of_items(frame, at, count)
    local found = 0
    while found ~= count and at + 3 <= frame.size do
        at = at + 3 + frame.range(at + 2, 1):uint()
        found = found + 1
    end
    return (count == nil or found == count) and at or nil
end

--- The contents of a dataset entry as the board writes them: a Boolean, the bits of a bit string of
--- up to eight, else bytes.
local function item_value(data)
    local first = data(0, 1):uint()
    if data:len() == 1 and first <= 1 then return first == 1 and "true" or "false" end
    if data:len() == 2 and first >= 1 and first <= 7 and data(1, 1):uint() % 2 ^ first == 0 then
        local bits = {}
        for bit = 7, first, -1 do
            bits[#bits + 1] = ("%d"):format(math.floor(data(1, 1):uint() / 2 ^ bit) % 2)
        end
        return table.concat(bits)
    end
    return data:bytes():tohex(true, " ")
end

local items_shown = 8

local function goose_item(frame, tree, v)
    local head = frame:take(3)
    if not head then return end
    local offset, length = head(0, 2):le_uint(), head(2, 1):uint()
    local item = tree:add(f.item, head, "incomplete")
    item:add_le(f.item_offset, head(0, 2))
    item:add(f.item_length, head(2, 1))
    local data = length > 0 and frame:take(length)
    if frame.truncated then return end
    if data then item:add(f.item_data, data) end
    item:set_len(3 + length)
    local value = data and item_value(data) or "nothing"
    item:set_text(("Item: %s at frame offset %d"):format(value, offset))
    v.items = v.items + 1
    if v.items <= items_shown then
        v.values[v.items] = ("%d: %s"):format(offset, value)
    elseif v.items == items_shown + 1 then
        v.values[v.items] = "..."
    end
end

--- Whether what follows is a frame offset, a length and whole items rather than counted items.
local function has_no_item_count(frame)
    local at = frame.at
    if frame:remaining() < 4 then return false end
    local counted_end = end_of_items(frame, at + 1, frame.range(at, 1):uint())
    return not (counted_end and frame:ends_at(counted_end))
        and frame:ends_at(end_of_items(frame, at + 4))
end

local function goose_items(frame, tree, v)
    local uncounted = has_no_item_count(frame)
    tree:add(f.item_layout, uncounted and "without item count" or "with item count")
        :set_generated()
    decode(uncounted and { { "block_offset", 2, le }, { "block_length", 2, le } }
        or { { "item_count" } }, frame, tree, v)
    v.items, v.values = 0, {}
    while not frame.truncated and v.items ~= v.item_count
        and not (uncounted and frame:ends_at(frame.at)) do
        goose_item(frame, tree, v)
    end
end

local function entry_map(frame, tree, v)
    local map = frame:take_up_to(math.ceil(v.entry_count / 2))
    v.mapped = {}
    if not map then return end
    for position = 1, math.min(v.entry_count, 2 * map:len()) do
        local range = map(math.floor((position - 1) / 2), 1)
        local both = range:uint()
        local code = position % 2 == 1 and both % 16 or math.floor(both / 16)
        local item = tree:add(f.entry, range, code)
        item:prepend_text(("Dataset entry %d: "):format(position))
        if code == 4 then
            item:add(f.mapped, range, position)
            v.mapped[#v.mapped + 1] = tostring(position)
        end
    end
end

local ethernet = Dissector.get("eth_withoutfcs")
local inside_template = false

--- Hands the frame to Wireshark's own dissectors. They raise an error for a malformed frame after
--- they have marked it in the tree, and put the inner addresses into `pinfo`. A device link inside
--- a template is not followed.
local function ethernet_frame(frame, tree, v)
    local range = frame:take_up_to(v.frame_length)
    if not range then return end
    local pinfo = frame.pinfo
    local source, destination = pinfo.src, pinfo.dst
    inside_template = true
    pcall(ethernet.call, ethernet, range:tvb(), pinfo, tree)
    inside_template = false
    pinfo.src, pinfo.dst = source, destination
    v.destination = range:len() >= 6 and range(0, 6):bytes():tohex(true, ":") or "?"
end

-- Frame-template downloads ----------------------------------------------------------------------

local ethernet_template = {
    { "stream_kind", parts = { { "stream", 0, 6 }, { "frame_kind", 6, 2 } } },
    { "port_selector", parts = { { "port", 2, 3, 1 } } },
    fixed("\0"),
    { "frame_length", 2, le },
}

local ft3_header = {
    { "group" }, { "ft3_flag", parts = { { "ft3_flag_value", 4, 4 } } },
    { "header_length" }, fixed("\0"), { "dataset_length", 2 },
    { "ln_name" }, { "dataset_name" }, { "ld_name", 2 },
    { "phs_a_artg", 2 }, { "neut_artg", 2 }, { "phs_a_vrtg", 2 }, { "delay", 2 },
}
local status_words = { { "status_word1", 2 }, { "status_word2", 2 } }
local ft3_layouts = {
    basic = { first = { "smpcnt", 2 }, last = status_words },
    extended = {
        first = { "ext_word1", 2 },
        last = { status_words[1], status_words[2], { "smpcnt", 2 }, { "ext_word2", 2 } },
    },
}

local function ft3_template(frame, tree, v)
    decode(ft3_header, frame, tree, v)
    if frame.truncated then return end
    local difference = (v.header_length - v.dataset_length) % 256
    v.layout = difference == 4 and "extended" or "basic"
    local item = tree:add(f.ft3_layout, v.layout):set_generated()
    if difference ~= 2 and difference ~= 4 then item:add_proto_expert_info(e.layout) end

    local layout = ft3_layouts[v.layout]
    decode({ layout.first }, frame, tree, v)
    v.channel_count = math.max(0, math.floor(frame:remaining() / 2) - #layout.last)
    repeated("channel_count", { { "channel_data", 2 } })(frame, tree, v)
    decode(layout.last, frame, tree, v)
end

local function frame_template(frame, tree, v)
    v.ft3 = frame:remaining() >= 5 and frame.range(frame.at + 1, 1):uint() % 16 == 9
        and frame.range(frame.at + 3, 2):uint() == 0
    if v.ft3 then
        ft3_template(frame, tree, v)
        return
    end
    decode(ethernet_template, frame, tree, v)
    if not frame.truncated then ethernet_frame(frame, tree, v) end
end

-- Commands --------------------------------------------------------------------------------------

local function channel_signal_info(v)
    local unit = v.channel < 8 and "A" or v.channel < 16 and "V" or ""
    local jump = v.phase_jump and v.phase_jump ~= 0 and ("  jump %.6g°"):format(v.phase_jump) or ""
    return ("step %d  %s  %.5g %s peak %.6g Hz %.6g°%s"):format(v.step,
        channel_names[v.channel] or "channel " .. v.channel, v.amplitude, unit, v.frequency,
        v.phase, jump)
end

local function start_stop_info(v)
    return ("%s  sample interval %d us"):format(start_flags[v.start] or v.start, v.sample_interval)
end

local function frame_template_info(v)
    if v.ft3 then
        return ("FT3 %s  group %d  flag %d  %d channels"):format(v.layout, v.group,
            v.ft3_flag_value, v.channel_count)
    end
    return ("%s stream %d  port %d  %d bytes to %s"):format(frame_kinds[v.frame_kind] or "unknown",
        v.stream, v.port, v.frame_length, v.destination or "?")
end

local function step_condition_info(v)
    return ("step %d  conditions 0x%02x  %d ms -> %s  trigger %d -> %s  binary input %s -> %s")
        :format(v.step, v.conditions, v.step_time, jumps[v.time_jump], v.trigger,
            jumps[v.trigger_jump], yes_no[v.input] or v.input, jumps[v.input_jump])
end

local function goose_items_info(v)
    return ("step %d  stream %d  %s"):format(v.step, v.group,
        #v.values > 0 and table.concat(v.values, "  ") or "no items")
end

local function subscription_info(v)
    return ("group %d  light port %d group %d  APPID 0x%04x  entries %s of %d -> logic channel %d")
        :format(v.group, v.light_port, v.light_group, v.appid, table.concat(v.mapped, ","),
            v.entry_count, v.logic_channel)
end

--- An info line from a format and the names of the values that it takes.
local function line(format, ...)
    local names = { ... }
    return function(v)
        local values = {}
        for i, name in ipairs(names) do
            values[i] = v[name]
        end
        return format:format(table.unpack(values))
    end
end

local function optional_phase_jump(frame, tree, v)
    if frame:remaining() >= 4 then decode({ { "phase_jump", 4, real } }, frame, tree, v) end
end

local latest, response_to, response_in, which_of

--- Kept for the answer, which does not say what it answers.
local function keep_which(frame, _, v)
    if v.which then which_of[frame.pinfo.number] = v.which end
end

local one_flag = { { "flag" } }

-- By code; within 8c90 by subcode.
local commands = {
    [0x8c90] = {
        [0x01] = { "Channel signal", {
            { "step" }, { "channel" }, { "scale_factor", 4, real }, { "peak_flag" },
            { "frequency", 4, real }, { "amplitude", 4, real }, { "phase", 4, real },
            optional_phase_jump }, channel_signal_info },
        [0x02] = { "Reset message parameters", {} },
        [0x03] = { "Start and stop", {
            { "start" }, { "sample_interval" }, { "start_parameter" }, { "start_parameter" },
            { "start_parameter" }, { "start_parameter" } },
            start_stop_info },
        [0x04] = { "SV stream description", {
            { "stream_kind", parts = { { "stream", 0, 6 }, { "protocol", 6, 2 } } }, { "number" },
            { "smpcnt_offset", 2, le }, { "smpcnt_start", 2, le }, { "smpcnt_wrap", 2, le },
            { "dataset_offset", 2, le }, { "channel_count" },
            repeated("channel_count", { { "channel_kind" } }) },
            line("stream %d  %d channels at %d  smpCnt at %d, wraps at %d", "stream",
                "channel_count", "dataset_offset", "smpcnt_offset", "smpcnt_wrap") },
        [0x05] = { "GOOSE stream description", {
            { "stream" }, wide_offset("sqnum_offset"), wide_offset("t_offset") },
            line("stream %d  sqNum at %d  t at %d", "stream", "sqnum_offset", "t_offset") },
        [0x06] = { "Disable current state", one_flag, line("flag %d", "flag") },
        [0x07] = { "Step condition", {
            { "step" }, { "conditions", parts = { { "conditions_input", 3, 1 } } },
            { "step_time", 2, le }, { "time_jump" }, { "trigger" }, { "trigger_jump" },
            { "input" }, { "input_jump" } }, step_condition_info },
        [0x08] = { "State change", one_flag, line("flag %d", "flag") },
        [0x09] = { "GOOSE signal control", { { "step" }, { "group" }, goose_items },
            goose_items_info },
        [0x0a] = { "Step option", { { "step" }, { "option" } },
            line("step %d  option %d", "step", "option") },
    },
    [0x8c91] = { "Frame template", { frame_template }, frame_template_info },
    [0x8c92] = { "Status read-back", { { "which" }, keep_which }, line("which 0x%02x", "which") },
    [0x8c93] = { "Stop", {} },
    [0x8453] = { "FPGA reset", { { "select1" }, { "select2" } },
        line("selectors %02x %02x", "select1", "select2") },
    [0x8812] = { "DSP configuration", {
        fixed(("\0"):rep(14)), { "dig_no", 2, le }, fixed("\0\1\0\0"), { "goose_num" } },
        line("Dig_NO %d  GOOSE_NUM %d", "dig_no", "goose_num") },
    [0xac12] = { "GOOSE subscription", {
        { "group" },
        { "light", parts = { { "light_port", 5, 3, 1 }, { "light_group", 0, 5 } } },
        { "appid", 2, le }, { "logic_channel", 2, le }, { "entry_count", 2, le }, entry_map },
        subscription_info },
    [0x9c12] = { "SV combination", {
        { "group" }, { "light", parts = { { "light_port", 4, 4 }, { "light_group", 0, 4 } } },
        { "appid", 2, le }, { "protocol" }, { "logic_channel" }, { "channel_count" },
        repeated("channel_count", {
            { "channel_entry", 2, parts = { { "entry_use", 8, 8 }, { "entry_value", 0, 8 } } } }) },
        line("group %d  light port %d group %d  APPID 0x%04x  %d channels from logic channel %d",
            "group", "light_port", "light_group", "appid", "channel_count", "logic_channel") },
    [0xbc12] = { "SV channel", {
        { "logic_channel" }, { "property1" }, { "property2", 2 }, { "property3" },
        { "property4" }, fixed(("\0"):rep(38)) },
        line("logic channel %d  properties %02x %04x %02x %02x", "logic_channel", "property1",
            "property2", "property3", "property4") },
}

--- The row of `commands` for the frame, or nil. Takes the code and the subcode off the frame.
local function find_command(frame, tree)
    local range = frame:take(4)
    if not range then return nil end
    tree:add(f.code, range)
    local code = range(0, 2):uint()
    local found = code == range(2, 2):uint() and commands[code] or nil
    if not found or type(found[1]) == "string" then return found end
    range = frame:take(1)
    if not range then return nil end
    tree:add(f.subcode, range)
    return found[range:uint()]
end

--- What follows the last field: nothing, the padding byte, or bytes that nobody knows.
local function finish(frame, tree)
    if frame:remaining() == 0 then return end
    local padding = frame:ends_at(frame.at)
    local item = tree:add(padding and f.padding or f.undecoded, frame.range(frame.at))
    if not padding then item:add_proto_expert_info(e.undecoded) end
end

--- Dissects a command frame; returns its line for the Info column. `cut`: the capture has not got
--- all its bytes.
local function dissect_frame(range, pinfo, tree, cut)
    local frame, v = new_frame(range, pinfo), {}
    local command = find_command(frame, tree)
    if not command then
        local item = tree:add(f.undecoded, range)
        item:add_proto_expert_info(frame.truncated and e.truncated or e.unknown)
        return "Unknown command  " .. range(0, math.min(range:len(), 5)):bytes():tohex(true, " ")
    end

    local name, layout, info = command[1], command[2], command[3]
    tree:add(f.command, range(0, frame.at), name)
    decode(layout, frame, tree, v)
    if frame.truncated then
        tree:add_proto_expert_info(cut and e.cut or e.truncated)
        return name .. "  [truncated]"
    end
    finish(frame, tree)
    return info and name .. "  " .. info(v) or name
end

-- The envelope ----------------------------------------------------------------------------------

local function dissect_length(field, range, expected, tree)
    local item = tree:add_le(f[field], range)
    if range:le_uint() == expected then return true end
    item:add_proto_expert_info(e.length, ("Wrong length: the datagram has %d bytes of padded frame "
        .. "and check bytes"):format(expected))
    return false
end

--- Status of one check byte: 0 bad, 1 good.
local function dissect_check(field, range, expected, tree)
    local good = range:uint() == expected
    local item = tree:add(f[field], range)
    item:add(f.check_expected, range, expected):set_generated()
    item:add(f.check_status, range, good and 1 or 0):set_generated()
    if not good then
        item:add_proto_expert_info(e.check,
            ("Wrong check byte: 0x%02x expected"):format(expected))
    end
    return good
end

-- Wireshark's `bit` library; where a newer Lua has none, its operator, which an older cannot parse.
local bxor = bit and bit.bxor or load("return function(a, b) return a ~ b end")()

--- Exclusive-or of the bytes at even and of those at odd positions.
local function check_bytes(range)
    local sums = { [0] = 0, [1] = 0 }
    local data = range:raw()
    for i = 1, #data do
        sums[(i - 1) % 2] = bxor(sums[(i - 1) % 2], data:byte(i))
    end
    return sums[0], sums[1]
end

local function dissect_envelope(tvb, pinfo, tree)
    local size = tvb:reported_len()
    local cut = tvb:len() < size
    if size < 11 or tvb:len() < 9 or tvb(0, 4):uint() ~= 0xa5a5a5a5 then
        tree:add(f.undecoded, tvb()):add_proto_expert_info(cut and e.cut or e.marker)
        return ("No command  %d bytes"):format(size)
    end

    tree:add(f.marker, tvb(0, 4))
    local reserved = tree:add(f.reserved, tvb(4, 1))
    if tvb(4, 1):uint() ~= 0 then reserved:add_proto_expert_info(e.reserved) end
    local sound = dissect_length("length", tvb(5, 2), size - 9, tree)
    sound = dissect_length("length_again", tvb(7, 2), size - 9, tree) and sound
    if size % 2 == 0 then tree:add_proto_expert_info(e.odd) end
    if size > engine_buffer then tree:add_proto_expert_info(e.long) end

    local frame_size = math.min(size - 11, tvb:len() - 9)
    local info = "Empty frame"
    if frame_size > 0 then info = dissect_frame(tvb(9, frame_size), pinfo, tree, cut) end
    if cut then
        tree:add(f.check_status, 2):set_generated()
        return info
    end

    local even, odd = 0, 0
    if frame_size > 0 then even, odd = check_bytes(tvb(9, frame_size)) end
    local good_even = dissect_check("check_even", tvb(size - 2, 1), even, tree)
    local good_odd = dissect_check("check_odd", tvb(size - 1, 1), odd, tree)
    return info .. (sound and "" or "  [wrong length]")
        .. (good_even and good_odd and "" or "  [wrong check byte]")
end

-- Answers ---------------------------------------------------------------------------------------

-- The status of the board made of software, layout 3.

local function le64(range) return range:le_uint64() end
local function seconds(time) return time:tonumber() / 1e9 end

local state_layout = {
    { "status_state" }, { "status_step" }, fixed("\0\0"), { "status_time_in_step", 8, le64 },
    { "status_time", 8, le64 }, { "status_frames", 8, le64 },
    function(frame, tree)
        local range = frame:take(32)
        if not range then return end
        local item = tree:add(f.status_channels, range)
        for channel = 0, 255 do
            local byte = range(math.floor(channel / 8), 1)
            if math.floor(byte:uint() / 2 ^ (channel % 8)) % 2 == 1 then
                item:add(f.status_channel, byte, channel)
            end
        end
    end,
    { "status_problems", 4, le }, { "status_start", 4, le }, { "status_late_p50", 8, le64 },
    { "status_late_p99", 8, le64 }, { "status_late_max", 8, le64 }, { "status_missed", 8, le64 },
    { "status_refused", 8, le64 },
}

local change_layout = {
    { "change_left" }, { "change_entered" }, { "change_cause" },
    { "change_disturbed", parts = { { "change_late_sent", 0, 1 }, { "change_refused", 1, 1 },
        { "change_lost", 2, 1 } } },
    { "change_channel", 2, le }, fixed("\0\0"), { "change_late", 8, le64 },
    { "change_cause_time", 8, le64 }, { "change_time", 8, le64 },
}

local function change_text(v)
    return ("%s%s (%s%s) at %.6f s%s"):format(
        v.change_left == 255 and "" or v.change_left .. " -> ", jumps[v.change_entered],
        causes[v.change_cause] or v.change_cause,
        v.change_cause == 3 and " " .. v.change_channel or "", seconds(v.change_cause_time),
        v.change_disturbed ~= 0 and ", disturbed" or "")
end

local input_layout = {
    { "inputs_kind" }, fixed("\0"), { "inputs_channel", 2, le }, fixed("\0\0\0\0"),
    { "inputs_time", 8, le64 },
}

local function input_text(v)
    return ("%s%s at %.6f s"):format(
        v.inputs_kind == 2 and "" or "channel " .. v.inputs_channel .. " ",
        input_kinds[v.inputs_kind] or v.inputs_kind, seconds(v.inputs_time))
end

--- As many records as `count` says; the text of the last one is `v.last` then.
local function records(count, name, field, size, layout, text_of)
    return function(frame, tree, v)
        for _ = 1, v[count] do
            if frame:remaining() < size then
                frame.truncated = true
                return
            end
            local item = tree:add(f[field], frame.range(frame.at, size), "")
            decode(layout, frame, item, v)
            v.last = text_of(v)
            item:set_text(name .. ": " .. v.last)
        end
    end
end

local changes_layout = {
    { "changes_total", 4, le }, { "changes_count", 2, le }, { "changes_size", 2, le },
    { "status_start", 4, le },
    records("changes_count", "Change", "change", 32, change_layout, change_text),
}

local inputs_layout = {
    { "inputs_total", 4, le }, { "inputs_count", 2, le }, { "inputs_size", 2, le },
    { "status_start", 4, le }, { "inputs_first", 2, le }, fixed("\0\0"),
    records("inputs_count", "Input", "inputs_input", 16, input_layout, input_text),
}

local status_layouts = {
    [0] = { state_layout, function(v)
        return ("%s  step %s  %.6f s  %s frames"):format(states[v.status_state] or v.status_state,
            v.status_step == 255 and "none" or v.status_step, seconds(v.status_time),
            tostring(v.status_frames))
    end },
    [1] = { changes_layout, function(v)
        return ("%d changes%s"):format(v.changes_total,
            v.last and "  last " .. v.last or "")
    end },
}
for which = 2, 9 do -- the parts of one record
    status_layouts[which] = { inputs_layout, function(v)
        return ("%d inputs%s"):format(v.inputs_total, v.last and ("  %d to %d  last %s"):format(
            v.inputs_first, v.inputs_first + v.inputs_count - 1, v.last) or "")
    end }
end

--- Dissects the payload as that status; returns its line, or nil if it is none.
local function dissect_status(payload, which, pinfo, tree)
    local status = status_layouts[which]
    if not status or payload:len() < 5 or payload(0, 4):raw() ~= "LVB\3" then return nil end
    local frame, v = new_frame(payload(4), pinfo), {}
    decode(status[1], frame, tree, v)
    if frame.truncated then
        tree:add_proto_expert_info(e.truncated)
        return "Status  [truncated]"
    end
    return "Status  " .. status[2](v)
end

local function dissect_reply(tvb, at, pinfo, tree)
    local size = tvb:len()
    tree:add(f.reply_marker, tvb(at, 4))
    local length = at + 7 <= size and tvb(at + 5, 2):le_uint() or 0
    if at + 7 <= size then
        tree:add(f.reply_ignored, tvb(at + 4, 1))
        tree:add(f.reply_length, tvb(at + 5, 2), length)
    end
    if at + 9 + length > size then
        tree:add_proto_expert_info(tvb:reported_len() > size and e.cut or e.reply)
        return ("Data reply  [%d bytes announced, %d there]"):format(length,
            math.max(0, size - at - 9))
    end

    tree:add(f.reply_ignored, tvb(at + 7, 2))
    if length == 0 then return "Data reply  empty" end
    local payload = tvb(at + 9, length)
    local item = tree:add(f.reply_payload, payload)
    local status = dissect_status(payload, which_of[response_to[pinfo.number]], pinfo, item)
    if status then return status end
    return ("Data reply  %d bytes  %s%s"):format(length,
        payload(0, math.min(length, 16)):bytes():tohex(true, " "), length > 16 and " ..." or "")
end

local function dissect_answer(tvb, pinfo, tree)
    local data = tvb():raw()
    local lines = {}
    local acknowledged = data:find("\x0f\x5a\xf0\xa5", 1, true)
    if acknowledged then
        tree:add(f.acknowledgement, tvb(acknowledged - 1, 4))
        lines[#lines + 1] = "Acknowledgement"
    end
    local reply = data:find("\x5a\x5a\x5a\x5a", 1, true)
    if reply then lines[#lines + 1] = dissect_reply(tvb, reply - 1, pinfo, tree) end

    if tvb:reported_len() > engine_buffer then tree:add_proto_expert_info(e.long) end
    if #lines > 0 then return table.concat(lines, ", ") end
    tree:add(f.undecoded, tvb()):add_proto_expert_info(e.answer)
    return ("Unknown answer  %d bytes"):format(tvb:reported_len())
end

-- Exchanges -------------------------------------------------------------------------------------

function lumtar.init()
    latest, response_to, response_in, which_of = {}, {}, {}, {}
end

--- Joins an answer to the command before it between the same two ends, and that command to its
--- first answer.
local function track(pinfo, tree, from_board)
    local source = ("%s %d"):format(tostring(pinfo.src), pinfo.src_port)
    local destination = ("%s %d"):format(tostring(pinfo.dst), pinfo.dst_port)
    local number = pinfo.number
    local link = from_board and destination .. source or source .. destination
    if not pinfo.visited and not from_board then
        latest[link] = number
    elseif not pinfo.visited and latest[link] then
        response_to[number] = latest[link]
        response_in[latest[link]] = response_in[latest[link]] or number
    end
    for field, other in pairs({ response_to = response_to, response_in = response_in }) do
        if other[number] then tree:add(f[field], other[number]):set_generated() end
    end
end

function lumtar.dissector(tvb, pinfo, root)
    if tvb:len() == 0 or inside_template then return 0 end
    local port = pinfo.match_uint
    local from_board = pinfo.src_port == port and pinfo.dst_port ~= port
    local tree = root:add(lumtar, tvb())
    track(pinfo, tree, from_board)
    local info = from_board and dissect_answer(tvb, pinfo, tree) or dissect_envelope(tvb, pinfo, tree)
    -- Only now: the dissectors of the inner frame write into the columns.
    pinfo.cols.protocol = "Lumtar"
    pinfo.cols.info = info
    return tvb:len()
end

DissectorTable.get("udp.port"):add(board_port, lumtar)

-- Marks -----------------------------------------------------------------------------------------

-- IEEE Std 802 leaves this EtherType to everybody's experiments: only frames that begin as a mark
-- does are taken.
local mark_ethertype, mark_begin = 0x88b5, '{"mark":'
local mark = Proto("lumtar_mark", "Relay test set mark")
local json = select(2, pcall(Dissector.get, "json"))

local function input_mark_info(content)
    local channel, on = content:match('"channel":(%d+)'), content:match('"on":(%a+)')
    local time = tonumber(content:match('"time":([%d.eE+-]+)'))
    return ("Input %s%s"):format(
        channel and ("channel %s %s"):format(channel, on == "true" and "on" or "off") or "trigger",
        time and (" at %.6f s"):format(time) or "")
end

local function mark_info(content)
    local kind = content:match('^{"mark":"(%a+)"')
    if kind == "stream" then
        return "Stream " .. (content:match('"svId":"(.-)"[,}]') or "?")
    elseif kind == "input" then
        return input_mark_info(content)
    elseif kind ~= "step" then
        return "Mark"
    end
    local left, entered = content:match('"left":(%d+)'), content:match('"entered":(%d+)')
    local cause = content:match('"cause":"([%a ]+)"') or "?"
    local channel = cause == "binary input" and content:match('"channel":(%d+)')
    local time = tonumber(content:match('"time":([%d.eE+-]+)'))
    local late = tonumber(content:match('"late":([%d.eE+-]+)'))
    return ("Step %s (%s%s)%s%s"):format(
        left and left .. " -> " .. (entered or "end") or entered or "?", cause,
        channel and " " .. channel or "", time and (" at %.6f s"):format(time) or "",
        late and (", %.3f ms late"):format(late * 1000) or "")
end

function mark.dissector(tvb, pinfo, root)
    local content = tvb:raw()
    if content:sub(1, #mark_begin) ~= mark_begin then return 0 end
    local info = mark_info(content)
    local tree = root:add(mark, tvb(), "Relay test set mark: " .. info)
    if type(json) == "userdata" then pcall(json.call, json, tvb, pinfo, tree) end
    pinfo.cols.protocol = "Lumtar"
    pinfo.cols.info = info
    return tvb:len()
end

DissectorTable.get("ethertype"):add(mark_ethertype, mark)
