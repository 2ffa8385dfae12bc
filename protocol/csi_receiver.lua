-- Wireshark dissector for the messages of csi_receiver: UDP ports 14310 (core services) and 14312
-- (fusion daemon), and JSON over HTTP (REST server). It names each message, its Bots and its engine,
-- and links requests with their answers and commands with their replies.
--
--     wireshark -X lua_script:csi_receiver.lua capture.pcapng
--
-- or copy it into the folder of personal Lua plugins. All fields begin with "csi_receiver.".

local CORE_PORT, FUSION_PORT = 14310, 14312

local csi = Proto("csi_receiver", "csi_receiver")
local on_http = Proto("csi_receiver_http", "csi_receiver over HTTP")

local f = {
    message = ProtoField.string("csi_receiver.message", "Message"),
    peer = ProtoField.string("csi_receiver.peer", "Peer"),
    bot = ProtoField.string("csi_receiver.bot", "Bot"),
    engine = ProtoField.string("csi_receiver.engine", "Engine"),
    success = ProtoField.string("csi_receiver.success", "Success"),
    reason = ProtoField.string("csi_receiver.reason", "Reason"),
    request_in = ProtoField.framenum("csi_receiver.request_in", "Request in", base.NONE, frametype.REQUEST),
    response_in = ProtoField.framenum("csi_receiver.response_in", "Answer in", base.NONE, frametype.RESPONSE),
    command_in = ProtoField.framenum("csi_receiver.command_in", "Command in", base.NONE, frametype.REQUEST),
    reply_in = ProtoField.framenum("csi_receiver.reply_in", "Reply in", base.NONE, frametype.RESPONSE),
    first_in = ProtoField.framenum("csi_receiver.first_in", "Sent first in", base.NONE, frametype.DUP_ACK),
    time = ProtoField.double("csi_receiver.time", "Seconds since the request"),
}
csi.fields = f

local e = {
    not_object = ProtoExpert.new("csi_receiver.not_object", "Not a JSON object", expert.group.MALFORMED, expert.severity.ERROR),
    too_long = ProtoExpert.new("csi_receiver.too_long", "Longer than the daemon reads", expert.group.PROTOCOL, expert.severity.ERROR),
    repeated = ProtoExpert.new("csi_receiver.repeated", "Sent again: no answer in time", expert.group.SEQUENCE, expert.severity.WARN),
}
csi.experts = e

csi.prefs.http_port = Pref.uint("TCP port of the REST server", 8090, "http_port of the daemon's configuration")

-- JSON -------------------------------------------------------------------------------------------

local ESCAPED = { b = "\b", f = "\f", n = "\n", r = "\r", t = "\t" }
local WORDS = { ["true"] = true, ["false"] = false }
local parse_value

local function skip(text, at)
    return text:match("^[ \t\r\n]*()", at)
end

local function parse_string(text, at)
    local parts = {}
    while true do
        local plain, after = text:match('^([^"\\]*)()', at)
        parts[#parts + 1] = plain
        local char = text:sub(after, after)
        if char == '"' then
            return table.concat(parts), after + 1
        elseif char == "" then
            error("unfinished string")
        end
        local escaped = text:sub(after + 1, after + 1)
        parts[#parts + 1] = escaped == "u" and text:sub(after, after + 5) or ESCAPED[escaped] or escaped
        at = after + (escaped == "u" and 6 or 2)
    end
end

-- Arrays and objects are tables; an array has its elements under 1, 2 and so on.
local function parse_list(text, at, close, parse_member)
    local result = {}
    at = skip(text, at)
    if text:sub(at, at) == close then
        return result, at + 1
    end
    while true do
        at = skip(text, parse_member(result, at))
        local char = text:sub(at, at)
        at = skip(text, at + 1)
        if char == close then
            return result, at
        elseif char ~= "," then
            error("unfinished list")
        end
    end
end

function parse_value(text, at)
    local char = text:sub(at, at)
    if char == '"' then
        return parse_string(text, at + 1)
    elseif char == "{" then
        return parse_list(text, at + 1, "}", function(object, from)
            local name, colon = parse_string(text, skip(text, from) + 1)
            from = skip(text, skip(text, colon) + 1)
            local value, after = parse_value(text, from)
            if object[name] == nil then -- of two members with one name the first counts
                object[name] = value
            end
            return after
        end)
    elseif char == "[" then
        return parse_list(text, at + 1, "]", function(array, from)
            local value, after = parse_value(text, from)
            array[#array + 1] = value == nil and "null" or value
            return after
        end)
    end
    local word, after = text:match("^([%w+%-.]+)()", at)
    if not word then
        error("no value")
    end
    local value = WORDS[word]
    if value == nil then
        value = word -- numbers keep their digits, and null is a text, so that the member is there
    end
    return value, after
end

-- The object in the text, or nil.
local function parse(text)
    text = text:match("^[^\0]*")
    local at = skip(text, 1)
    if text:sub(at, at) ~= "{" then
        return nil
    end
    local good, object, after = pcall(parse_value, text, at)
    return good and skip(text, after) > #text and object or nil
end

-- Messages ---------------------------------------------------------------------------------------

local function add_bot(bots, value)
    if type(value) == "table" then
        value = value.uuid or value.bot
    end
    if type(value) == "string" then
        bots[#bots + 1] = value
    end
end

local function bots_of(message)
    local bots = {}
    add_bot(bots, message.bot)
    for _, list in ipairs({ "bots", "found", "bot_info" }) do
        for _, value in ipairs(type(message[list]) == "table" and message[list] or {}) do
            add_bot(bots, value)
        end
    end
    if message.cmd == "sounding" then
        add_bot(bots, message.uuid)
    end
    return bots
end

-- "command start", "engine command start"; requests to core services have their own words.
local function command_name(message)
    local word = type(message.cmd) == "string" and message.cmd or "without cmd"
    return (message.engineType and "engine command " or "command ") .. word
end

local function request_name(message)
    if message.engineType then
        return command_name(message)
    end
    return message.ping and "ping" or tostring(message.cmd)
end

-- By frame: what has been found out about it. The first pass goes through all frames in order.
local frames = {}
local latest_request = {} -- of each pair of UDP sockets
local latest_command = {} -- for each daemon, by its message URL

function csi.init()
    frames, latest_request, latest_command = {}, {}, {}
end

local function add_members(tree, message)
    if message.success ~= nil then
        tree:add(f.success, tostring(message.success))
    end
    if type(message.reason) == "string" then
        tree:add(f.reason, message.reason)
    end
end

-- Answers rarely name the Bots and the engine: those of the request are meant.
local function add_subject(tree, known)
    local asked = frames[known.request_in] or frames[known.command_in] or {}
    for _, which in ipairs({ known, asked }) do
        local bots = which.message and bots_of(which.message) or {}
        for _, bot in ipairs(bots) do
            tree:add(f.bot, bot):set_generated(which == asked)
        end
        if #bots > 0 then
            break
        end
    end
    local engine = known.engine or asked.engine
    if type(engine) == "string" then
        tree:add(f.engine, engine):set_generated(known.engine == nil)
    end
end

local function add_links(tree, known, now)
    for _, link in ipairs({ "request_in", "response_in", "command_in", "reply_in", "first_in" }) do
        if known[link] then
            tree:add(f[link], known[link]):set_generated()
        end
    end
    local asked = frames[known.request_in]
    if asked then
        tree:add(f.time, now - asked.time):set_generated()
    end
end

-- UDP --------------------------------------------------------------------------------------------

local function link_datagram(known, key, is_request, text)
    local previous = latest_request[key]
    local asked = frames[previous]
    if is_request then
        if asked and asked.text == text and not asked.response_in then
            known.first_in = asked.first_in or previous
        end
        latest_request[key] = known.number
    elseif asked then
        known.request_in = previous
        asked.response_in = asked.response_in or known.number
    end
end

function csi.dissector(buffer, pinfo, tree)
    local is_request = pinfo.dst_port == CORE_PORT or pinfo.dst_port == FUSION_PORT
    local port = is_request and pinfo.dst_port or pinfo.src_port
    local peer = port == CORE_PORT and "core service" or "fusion daemon"
    local text = buffer:raw()
    local message = parse(text)
    local known = frames[pinfo.number]
    if not known then
        known = { number = pinfo.number, time = pinfo.abs_ts, text = text, message = message,
                  engine = message and message.engineType }
        frames[pinfo.number] = known
        local ends = { tostring(pinfo.src) .. " " .. pinfo.src_port, tostring(pinfo.dst) .. " " .. pinfo.dst_port }
        local key = is_request and ends[1] .. ends[2] or ends[2] .. ends[1]
        link_datagram(known, key, is_request, text)
        local asked = frames[known.request_in]
        local name = is_request and message and request_name(message)
        known.name = name or "answer to " .. (asked and asked.name or "an unknown request")
    end
    local subtree = tree:add(csi, buffer(), "csi_receiver, " .. peer .. ": " .. known.name)
    subtree:add(f.message, known.name)
    subtree:add(f.peer, peer)
    add_subject(subtree, known)
    if message then
        add_members(subtree, message)
    else
        subtree:add_proto_expert_info(e.not_object)
    end
    if known.first_in then
        subtree:add_proto_expert_info(e.repeated)
    end
    if not is_request and buffer:len() > 4096 then
        subtree:add_proto_expert_info(e.too_long)
    end
    add_links(subtree, known, pinfo.abs_ts)
    pinfo.cols.protocol = "CSI"
    pinfo.cols.info = known.name .. "  " .. text
    Dissector.get("json"):call(buffer, pinfo, subtree)
    pinfo.cols.protocol = "CSI"
    pinfo.cols.info = known.name .. "  " .. text
end

DissectorTable.get("udp.port"):add(CORE_PORT, csi)
DissectorTable.get("udp.port"):add(FUSION_PORT, csi)

-- HTTP -------------------------------------------------------------------------------------------

local method_field = Field.new("http.request.method")
local uri_field = Field.new("http.request.uri")
local code_field = Field.new("http.response.code")
local request_field = Field.new("http.request_in")
local body_field = Field.new("http.file_data")

-- The URL of the daemon that posts this attach: where its replies will go.
local function message_url(uri, message)
    local version = uri:match("^/(v[23])/")
    return message.zorvin and "/" .. version .. "/zorvins/" .. message.zorvin .. "/msg" or uri
end

local function is_attach(uri, message)
    return uri:match("/attach$") or (message.request == "zorvinAttach" and not message.cmd)
end

local function describe_post(known, text, message)
    if not message then
        known.name = "not a JSON object"
    elseif is_attach(known.uri, message) then
        known.name, known.attaches, known.url = "attach", true, message_url(known.uri, message)
    elseif text:sub(-1) == "\n" then
        known.name = message.cmd == "scan" and "scan report" or "status message"
    else
        known.command_in = latest_command[known.uri]
        local command = frames[known.command_in]
        latest_command[known.uri] = nil
        if command then
            command.reply_in = known.number
        end
        known.name = command and "reply to " .. command.name or "reply"
    end
end

local function describe_answer(known, text, message)
    local asked = frames[known.request_in]
    if not asked then
        return
    end
    asked.response_in = known.number
    local counts = asked.name == "poll" or asked.attaches
    if not counts then
        known.name = "answer without effect"
    elseif text == "" then
        known.name = asked.attaches and "not attached" or "nothing to do"
    else
        known.name = message and command_name(message) or "what is not a JSON object"
        latest_command[asked.url or asked.uri] = known.number
    end
end

local function describe(known, text, message)
    if not known.uri then
        describe_answer(known, text, message)
    elseif known.method == "GET" then
        known.name = "poll"
    else
        describe_post(known, text, message)
    end
end

local function is_ours(uri)
    return uri:match("^/v[23]/zorvins/attach$") or uri:match("^/v[23]/zorvins/[^/]+/msg$")
end

-- A post-dissector: it needs what the HTTP dissector has found, with the body in one piece.
function on_http.dissector(_, pinfo, tree)
    local uri, code = uri_field(), code_field()
    if not (uri and is_ours(uri.value)) and not code then
        return
    end
    local body, request = body_field(), request_field()
    local text = body and body.range:raw() or ""
    local message = parse(text)
    local known = frames[pinfo.number]
    if not known then
        known = { number = pinfo.number, time = pinfo.abs_ts, message = message,
                  engine = message and message.engineType, uri = uri and uri.value,
                  method = uri and method_field().value, request_in = request and request.value }
        frames[pinfo.number] = known
        describe(known, text, message)
    end
    if not known.name then
        return -- an answer of another server
    end
    local subtree = tree:add(csi, "csi_receiver, REST server: " .. known.name)
    subtree:add(f.message, known.name)
    subtree:add(f.peer, "REST server")
    add_subject(subtree, known)
    if message then
        add_members(subtree, message)
    elseif text ~= "" then
        subtree:add_proto_expert_info(e.not_object)
    end
    add_links(subtree, known, pinfo.abs_ts)
    pinfo.cols.protocol = "CSI"
    pinfo.cols.info:prepend(known.name .. "  ")
end

register_postdissector(on_http)

local http_port = nil
local function use_http_port()
    local ports, found, http = DissectorTable.get("tcp.port"), pcall(Dissector.get, "http-over-tcp")
    http = found and http or Dissector.get("http") -- older versions have only that
    if http_port then
        ports:remove(http_port, http)
    end
    http_port = csi.prefs.http_port
    ports:add(http_port, http)
end
csi.prefs_changed = use_http_port
use_http_port()
