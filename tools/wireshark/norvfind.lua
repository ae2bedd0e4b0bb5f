-- Wireshark dissector for the discovery protocol; docs/discovery.md describes the protocol.
--
--   wireshark -X lua_script:tools/wireshark/norvfind.lua
--   tshark -X lua_script:tools/wireshark/norvfind.lua -o "norvfind.keys:<secret key>" -V -r capture.pcap
--
-- or copy it to the folder of personal Lua plugins. Sealed packets are opened with the secret keys, 64 hexadecimal
-- digits each, that stand in the preferences: a client's opens what it was answered, an appliance's what it was sent.
-- It needs nothing beside Wireshark; tested with 4.0.

local floor, char, rep = math.floor, string.char, string.rep
local band, bxor, rol, tobit = bit.band, bit.bxor, bit.rol, bit.tobit

-- Every tag: name, kind, longest value, meaning.
-- The rows are written by scripts/tag-tables.
local tags = {
    [0x01] = { "PKT_ID_PTYPE", "u32", 4, "packet type" },
    [0x10] = { "PKT_ID_DHCP", "u32", 4, "non-zero: the interface takes its address by DHCP" },
    [0x11] = { "PKT_ID_HOSTNAME", "text", 32, "host name" },
    [0x12] = { "PKT_ID_IP", "IPv4", 4, "address" },
    [0x13] = { "PKT_ID_MASK", "IPv4", 4, "net mask" },
    [0x14] = { "PKT_ID_GATEWAY", "IPv4", 4, "default gateway" },
    [0x15] = { "PKT_ID_DNS", "IPv4", 4, "name server" },
    [0x18] = { "PKT_ID_CONNECT", "u32", 4, "1 when the appliance could ping the asker, else 0" },
    [0x19] = { "PKT_ID_MAC", "text", 32, "MAC of the interface addressed" },
    [0x1e] = { "PKT_ID_PEER_IP", "IPv4", 4, "address the request came from" },
    [0x1f] = { "PKT_ID_ERRCODE", "u32", 4, "result code of the request" },
    [0x20] = { "PKT_ID_NET_DHCP", "u32", 4, "as 0x10, required in a network setting" },
    [0x21] = { "PKT_ID_NET_HOSTNAME", "text", 32, "as 0x11, required in a network setting" },
    [0x22] = { "PKT_ID_NET_IP", "IPv4", 4, "as 0x12" },
    [0x23] = { "PKT_ID_NET_MASK", "IPv4", 4, "as 0x13" },
    [0x24] = { "PKT_ID_NET_GATEWAY", "IPv4", 4, "as 0x14" },
    [0x25] = { "PKT_ID_NET_DNS", "IPv4", 4, "as 0x15" },
    [0x29] = { "PKT_ID_NET_MAC", "text", 32, "as 0x19, required in a network setting" },
    [0x2a] = { "PKT_ID_BLOB", "text", 255, "opaque; stored, read by nothing here" },
    [0x48] = { "PKT_ID_FLAG48", "u32", 4, "constant 1" },
    [0x49] = { "PKT_ID_BUILD", "u32", 4, "firmware build number" },
    [0x4d] = { "PKT_ID_MIGRATE_TYPE", "u32", 4, "how the system on the disks differs, status 14 only" },
    [0x70] = { "PKT_ID_UNIQUE", "text", 64, "key unique of the model" },
    [0x71] = { "PKT_ID_SUPPORT_RAID", "u32", 4, "1 when the model supports RAID" },
    [0x73] = { "PKT_ID_SERIAL_SHORT", "text", 11, "short form of the serial number" },
    [0x75] = { "PKT_ID_RSVD75", "u32", 4, "stored, read by nothing here" },
    [0x76] = { "PKT_ID_RSVD76", "u32", 4, "stored, read by nothing here" },
    [0x77] = { "PKT_ID_VERSION", "text", 7, "firmware version" },
    [0x78] = { "PKT_ID_MODEL", "text", 47, "model name" },
    [0x79] = { "PKT_ID_PROGRESS", "u32", 4, "memory test, 0 to 9999 hundredths of a percent, status 9 only" },
    [0x7c] = { "PKT_ID_PC_MAC", "text", 32, "the client's own MAC, echoed" },
    [0x7d] = { "PKT_ID_OLD_BUILD", "u32", 4, "build on the disks, status 14 only" },
    [0x7e] = { "PKT_ID_OLD_VERSION", "text", 7, "version on the disks, status 14 only" },
    [0x7f] = { "PKT_ID_OLD_MODEL", "text", 47, "model on the disks, status 14 only" },
    [0x90] = { "PKT_ID_SMALLFIX", "u32", 4, "number of the small fix" },
    [0xa2] = { "PKT_ID_FIRST_MAC", "text", 32, "MAC of the first interface listed" },
    [0xa3] = { "PKT_ID_IF_INDEX", "u32", 4, "index of the interface in the list" },
    [0xa4] = { "PKT_ID_STAMP", "u32", 4, "protocol stamp, 0x01020000" },
    [0xa6] = { "PKT_ID_FLAGA6", "u32", 4, "constant 0x78" },
    [0xa7] = { "PKT_ID_STATUS", "u32", 4, "system status" },
    [0xb0] = { "PKT_ID_CAPS1", "u64", 8, "capability bits, 0x40: system migration" },
    [0xb8] = { "PKT_ID_CAPS2", "u64", 8, "capability bits, 0x40: system migration" },
    [0xba] = { "PKT_ID_WEBINSTALL", "u32", 4, "1 when the model installs by the web" },
    [0xc0] = { "PKT_ID_SERIAL", "text", 32, "serial number" },
    [0xc1] = { "PKT_ID_OS_NAME", "text", 8, "name of the system, NOS when the model gives none" },
    [0xc4] = { "PKT_ID_PUBKEY", "text", 65, "public key in lower-case hexadecimal, 64 characters" },
    [0xc5] = { "PKT_ID_KEY_ID", "u32", 4, "key identifier, not 0" },
}

local types = {
    [1] = "Query", [2] = "Other (2)", [3] = "Network setting", [4] = "Quick configuration", [6] = "Reply",
    [11] = "Run script", [16] = "Other (16)", [18] = "Ready",
}
local statuses = {
    [2] = "not installed", [3] = "an install runs", [4] = "crashed, or not to be migrated", [9] = "memory test",
    [11] = "recoverable", [14] = "can be migrated",
}
local results = { [0] = "done", [5] = "refused, or failed", [7] = "an install is running" }
local values = { PKT_ID_PTYPE = types, PKT_ID_STATUS = statuses, PKT_ID_ERRCODE = results }
local in_hex = { PKT_ID_STAMP = true, PKT_ID_FLAGA6 = true, PKT_ID_MIGRATE_TYPE = true, PKT_ID_KEY_ID = true }

local plain_magic, sealed_magic = "\18\52\86\120NORV", "\18\52\85\102NORV"
local magic_bytes, key_bytes, mac_bytes = 8, 32, 16
local elements_max = 64

-- X25519 (RFC 7748): numbers modulo 2^255 - 19 as 16 limbs of 16 bits, the lowest first. Sums are not carried: products
-- of sums stay below 2^44, and a double keeps 53 bits.

local function limbs(lowest)
    local a = { lowest }
    for i = 2, 16 do a[i] = 0 end
    return a
end

local function carry(a)
    for i = 1, 16 do
        local high = floor(a[i] / 65536)
        a[i] = a[i] - high * 65536
        if i < 16 then a[i + 1] = a[i + 1] + high else a[1] = a[1] + 38 * high end
    end
    return a
end

local function add(a, b)
    local sum = {}
    for i = 1, 16 do sum[i] = a[i] + b[i] end
    return sum
end

local function sub(a, b)
    local difference = {}
    for i = 1, 16 do difference[i] = a[i] - b[i] end
    return difference
end

local function mul(a, b)
    local t = {}
    for i = 1, 32 do t[i] = 0 end
    for i = 1, 16 do
        local x = a[i]
        for j = 1, 16 do t[i + j - 1] = t[i + j - 1] + x * b[j] end
    end
    for i = 1, 16 do t[i] = t[i] + 38 * t[i + 16] end
    return carry(carry(t))
end

local function invert(a) -- to the power of 2^255 - 21
    local power = a
    for i = 253, 0, -1 do
        power = mul(power, power)
        if i ~= 2 and i ~= 4 then power = mul(power, a) end
    end
    return power
end

local function pack(a)
    carry(carry(carry(a)))
    for _ = 1, 2 do -- the modulus goes off where it can
        local less, borrow = {}, 0
        for i = 1, 16 do
            local limb = a[i] - borrow - (i == 1 and 0xffed or i == 16 and 0x7fff or 0xffff)
            borrow = limb < 0 and 1 or 0
            less[i] = limb + borrow * 65536
        end
        if borrow == 0 then a = less end
    end
    local bytes = {}
    for i = 1, 16 do bytes[i] = char(a[i] % 256, floor(a[i] / 256)) end
    return table.concat(bytes)
end

local function x25519(secret, point)
    local x, scalar = {}, { secret:byte(1, 32) }
    scalar[1] = scalar[1] - scalar[1] % 8
    scalar[32] = scalar[32] % 64 + 64
    for i = 1, 16 do
        local low, high = point:byte(2 * i - 1, 2 * i)
        x[i] = low + 256 * high
    end
    x[16] = x[16] % 32768
    local a, b, c, d = limbs(1), x, limbs(0), limbs(1)
    for i = 254, 0, -1 do
        local swaps = floor(scalar[floor(i / 8) + 1] / 2 ^ (i % 8)) % 2 == 1
        if swaps then a, b, c, d = b, a, d, c end
        local e, f = add(a, c), sub(a, c)
        local g, h = mul(add(b, d), f), mul(sub(b, d), e)
        local ee, ff = mul(e, e), mul(f, f)
        local difference = sub(ee, ff)
        local s, t = add(g, h), sub(g, h)
        a, c = mul(ee, ff), mul(difference, add(ee, mul(difference, limbs(121665))))
        b, d = mul(s, s), mul(x, mul(t, t))
        if swaps then a, b, c, d = b, a, d, c end
    end
    return pack(mul(a, invert(c)))
end

-- Salsa20, HSalsa20 and XSalsa20 (cr.yp.to/snuffle): 16 words of 32 bits.

local function words(text)
    local list = {}
    for i = 1, #text, 4 do
        local a, b, c, d = text:byte(i, i + 3)
        list[#list + 1] = a + 256 * (b + 256 * (c + 256 * d))
    end
    return list
end

local function unwords(list)
    local bytes = {}
    for i, word in ipairs(list) do
        bytes[i] = char(band(word, 255), band(floor(word / 256), 255), band(floor(word / 65536), 255),
                        band(floor(word / 16777216), 255))
    end
    return table.concat(bytes)
end

local salsa_steps = {} -- where each step reads twice and writes, and how far it turns
for round = 1, 2 do
    for i = 0, 3 do
        local at = {}
        for step = 0, 3 do
            at[step] = 1 + (round == 1 and (5 * i + 4 * step) % 16 or 4 * i + (i + step) % 4)
        end
        for step, turn in ipairs({ 7, 9, 13, 18 }) do
            salsa_steps[#salsa_steps + 1] = { at[step - 1], at[(step + 2) % 4], at[step % 4], turn }
        end
    end
end

local function salsa_input(key, input)
    local k, n, s = words(key), words(input), words("expand 32-byte k")
    return { s[1], k[1], k[2], k[3], k[4], s[2], n[1], n[2], n[3], n[4], s[3], k[5], k[6], k[7], k[8], s[4] }
end

local function salsa_rounds(input)
    local x = {}
    for i = 1, 16 do x[i] = input[i] end
    for _ = 1, 10 do
        for _, step in ipairs(salsa_steps) do
            x[step[3]] = bxor(x[step[3]], rol(tobit(x[step[1]] + x[step[2]]), step[4]))
        end
    end
    return x
end

local function hsalsa20(key, input)
    local x = salsa_rounds(salsa_input(key, input))
    return unwords({ x[1], x[6], x[11], x[16], x[7], x[8], x[9], x[10] })
end

local function xsalsa20_stream(key, nonce, length)
    local blocks = {}
    key = hsalsa20(key, nonce:sub(1, 16))
    for block = 0, floor((length + 63) / 64) - 1 do
        local input = salsa_input(key, nonce:sub(17, 24) .. char(block % 256, floor(block / 256)) .. rep("\0", 6))
        local x = salsa_rounds(input)
        for i = 1, 16 do x[i] = tobit(x[i] + input[i]) end
        blocks[#blocks + 1] = unwords(x)
    end
    return table.concat(blocks):sub(1, length)
end

-- Poly1305 (RFC 8439): numbers modulo 2^130 - 5 as 17 limbs of 8 bits, the lowest first.

local function add_1305(h, c)
    local sum = 0
    for i = 1, 17 do
        sum = sum + h[i] + c[i]
        h[i] = sum % 256
        sum = floor(sum / 256)
    end
end

local function limbs_1305(text, last)
    local list = { text:byte(1, 16) }
    list[#list + 1] = last
    for i = #list + 1, 17 do list[i] = 0 end
    return list
end

local function poly1305(text, key)
    local r, h = limbs_1305(key:sub(1, 16), 0), limbs_1305("", 0)
    for _, i in ipairs({ 4, 8, 12, 16 }) do r[i] = r[i] % 16 end
    for _, i in ipairs({ 5, 9, 13 }) do r[i] = r[i] - r[i] % 4 end
    for at = 1, #text, 16 do
        add_1305(h, limbs_1305(text:sub(at, at + 15), 1))
        local sum, product = 0, {}
        for i = 1, 17 do
            local x = 0
            for j = 1, i do x = x + h[j] * r[i - j + 1] end
            for j = i + 1, 17 do x = x + 320 * h[j] * r[i - j + 18] end
            sum = sum + x
            product[i] = i < 17 and sum % 256 or sum
            sum = floor(sum / 256)
        end
        h, sum = product, 5 * floor(product[17] / 4)
        h[17] = h[17] % 4
        for i = 1, 16 do
            sum = sum + h[i]
            h[i] = sum % 256
            sum = floor(sum / 256)
        end
        h[17] = h[17] + sum
    end
    local less = { table.unpack(h) }
    add_1305(less, { 5, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 252 })
    if less[17] < 128 then h = less end
    add_1305(h, limbs_1305(key:sub(17, 32), 0))
    return char(table.unpack(h, 1, 16))
end

-- BLAKE2b (RFC 7693) without a key, of one block at most.

local blake_start = {
    "6a09e667f3bcc908", "bb67ae8584caa73b", "3c6ef372fe94f82b", "a54ff53a5f1d36f1",
    "510e527fade682d1", "9b05688c2b3e6c1f", "1f83d9abfb41bd6b", "5be0cd19137e2179",
}
local blake_order = {
    "0123456789abcdef", "ea489fd61c02b753", "b8c052fdae367194", "7931dcbe265a40f8", "905724afe1bc683d",
    "2c6a0b834d75fe19", "c51fed4a0763928b", "db7ec13950f4862a", "6fe9b308c2d714a5", "a2847615fb9e3cd0",
}
local blake_places = {
    { 1, 5, 9, 13 }, { 2, 6, 10, 14 }, { 3, 7, 11, 15 }, { 4, 8, 12, 16 },
    { 1, 6, 11, 16 }, { 2, 7, 12, 13 }, { 3, 8, 9, 14 }, { 4, 5, 10, 15 },
}

local function blake2b(text, length)
    local h, v, m = {}, {}, {}
    for i = 1, 8 do
        h[i] = UInt64.fromhex(blake_start[i])
        v[i + 8] = h[i]
    end
    h[1] = h[1]:bxor(UInt64(0x01010000 + length))
    for i = 1, 8 do v[i] = h[i] end
    v[13] = v[13]:bxor(UInt64(#text))
    v[15] = v[15]:bnot()
    text = text .. rep("\0", 128 - #text)
    for i = 0, 15 do m[i] = UInt64.decode(text:sub(8 * i + 1, 8 * i + 8), true) end
    for round = 0, 11 do
        local order = blake_order[round % 10 + 1]
        for i, place in ipairs(blake_places) do
            local a, b, c, d = v[place[1]], v[place[2]], v[place[3]], v[place[4]]
            a = a + b + m[tonumber(order:sub(2 * i - 1, 2 * i - 1), 16)]
            d = d:bxor(a):ror(32)
            c = c + d
            b = b:bxor(c):ror(24)
            a = a + b + m[tonumber(order:sub(2 * i, 2 * i), 16)]
            d = d:bxor(a):ror(16)
            c = c + d
            b = b:bxor(c):ror(63)
            v[place[1]], v[place[2]], v[place[3]], v[place[4]] = a, b, c, d
        end
    end
    local hash = {}
    for i = 1, 8 do hash[i] = h[i]:bxor(v[i]):bxor(v[i + 8]):encode(true) end
    return table.concat(hash):sub(1, length)
end

-- libsodium's sealed box: a fresh public key, then a box to it whose nonce comes from both public keys.

local function unseal(ephemeral, mac, cipher, pair)
    local nonce = blake2b(ephemeral .. pair.public, 24)
    local key = hsalsa20(x25519(pair.secret, ephemeral), rep("\0", 16))
    local stream = xsalsa20_stream(key, nonce, 32 + #cipher)
    if poly1305(cipher, stream) ~= mac then return nil end
    local plain = {}
    for i = 1, #cipher do plain[i] = char(bxor(cipher:byte(i), stream:byte(i + 32))) end
    return table.concat(plain)
end

-- The dissector.

local norvfind = Proto("norvfind", "Appliance Discovery")
norvfind.prefs.keys = Pref.string("Secret keys", "", "64 hexadecimal digits each, with blanks between them")

local fields = {
    magic = ProtoField.bytes("norvfind.magic", "Magic"),
    unknown = ProtoField.bytes("norvfind.unknown", "Unknown element"),
    ephemeral = ProtoField.bytes("norvfind.sealed.key", "Ephemeral public key"),
    mac = ProtoField.bytes("norvfind.sealed.mac", "Authenticator"),
    cipher = ProtoField.bytes("norvfind.sealed.data", "Sealed packet"),
}
local field_of = { -- by the kind of a tag
    text = function(name, label, about) return ProtoField.string(name, label, base.NONE, about) end,
    u32 = function(name, label, about)
        return ProtoField.uint32(name, label, in_hex[label] and base.HEX or base.DEC, values[label], nil, about)
    end,
    u64 = function(name, label, about) return ProtoField.uint64(name, label, base.HEX, nil, nil, about) end,
    IPv4 = function(name, label, about) return ProtoField.ipv4(name, label, about) end,
}
local value_of = {
    text = function(value) return value:string() end,
    u32 = function(value) return value:le_uint() end,
    u64 = function(value) return value:le_uint64() end,
    IPv4 = function(value) return value:ipv4() end,
}
for tag, row in pairs(tags) do
    fields[tag] = field_of[row[2]]("norvfind." .. row[1]:sub(#"PKT_ID_" + 1):lower(), row[1], row[4])
end
norvfind.fields = fields

local faults = {
    cut = "Element runs past the end",
    width = "Number of another width",
    long = "Text longer than is taken",
    many = "More than 64 elements: nobody takes this packet",
    inner = "What was sealed is no plain packet",
}
for name, text in pairs(faults) do
    faults[name] = ProtoExpert.new("norvfind.fault." .. name, text, expert.group.MALFORMED, expert.severity.WARN)
end
norvfind.experts = faults

-- Shows an element that is whole.
local function element_add(tree, element)
    local row, length = tags[element(0, 1):uint()], element:len() - 2
    if not row then
        tree:add(fields.unknown, element)
    elseif row[2] ~= "text" and length ~= row[3] then
        tree:add(fields.unknown, element):add_proto_expert_info(faults.width)
    else
        local value = length > 0 and value_of[row[2]](element(2)) or ""
        local item = tree:add(fields[element(0, 1):uint()], element, value)
        if length > row[3] then item:add_proto_expert_info(faults.long) end
    end
end

-- Shows a plain packet. Returns what to call it.
local function plain_dissect(packet, tree)
    local title, at, count = "No type", magic_bytes, 0
    tree:add(fields.magic, packet(0, magic_bytes))
    while at < packet:len() do
        local size = packet:len() - at
        if size >= 2 then size = 2 + packet(at + 1, 1):uint() end
        if size < 2 or at + size > packet:len() then
            tree:add(fields.unknown, packet(at)):add_proto_expert_info(faults.cut)
            break
        end
        element_add(tree, packet(at, size))
        count = count + 1
        if packet(at, 2):uint() == 0x0104 then -- the type
            local type = packet(at + 2, 4):le_uint()
            title = types[type] or "Type " .. type
        end
        at = at + size
    end
    if count > elements_max then tree:add_proto_expert_info(faults.many) end
    return title
end

local pairs_text, key_pairs, opened = nil, {}, {}

-- The key pairs of the preferences. Making one takes some ten milliseconds.
local function key_pairs_get()
    if pairs_text ~= norvfind.prefs.keys then
        pairs_text, key_pairs, opened = norvfind.prefs.keys, {}, {}
        for digits in pairs_text:gmatch("%x+") do
            if #digits == 2 * key_bytes then
                local secret = digits:gsub("%x%x", function(byte) return char(tonumber(byte, 16)) end)
                key_pairs[#key_pairs + 1] = { secret = secret, public = x25519(secret, "\9" .. rep("\0", 31)) }
            end
        end
    end
    return key_pairs
end

-- Opens what stands behind the outer magic; nil when no key does. What was found is kept, since Wireshark asks again
-- for each look at a packet.
local function sealed_open(sealed)
    local keys = key_pairs_get()
    if opened[sealed] == nil then
        opened[sealed] = false
        for _, pair in ipairs(keys) do
            opened[sealed] = opened[sealed] or unseal(sealed:sub(1, key_bytes),
                sealed:sub(key_bytes + 1, key_bytes + mac_bytes), sealed:sub(key_bytes + mac_bytes + 1), pair)
        end
    end
    return opened[sealed] or nil
end

local function sealed_dissect(packet, tree)
    tree:add(fields.magic, packet(0, magic_bytes))
    if packet:len() < magic_bytes + key_bytes + mac_bytes then
        tree:add(fields.unknown, packet(magic_bytes)):add_proto_expert_info(faults.cut)
        return "Sealed"
    end
    local cipher_at = magic_bytes + key_bytes + mac_bytes
    tree:add(fields.ephemeral, packet(magic_bytes, key_bytes))
    tree:add(fields.mac, packet(magic_bytes + key_bytes, mac_bytes))
    if packet:len() > cipher_at then tree:add(fields.cipher, packet(cipher_at)) end
    local plain = sealed_open(packet:raw(magic_bytes))
    if not plain then return "Sealed" end
    if plain:sub(1, magic_bytes) ~= plain_magic then
        tree:add_proto_expert_info(faults.inner)
        return "Sealed"
    end
    local inner = ByteArray.new(plain, true):tvb("Opened packet")
    return "Sealed " .. plain_dissect(inner, tree:add(norvfind, inner(), "Opened packet"))
end

function norvfind.dissector(packet, info, tree)
    local magic = packet:len() > magic_bytes and packet:raw(0, magic_bytes)
    if magic ~= plain_magic and magic ~= sealed_magic then return 0 end
    info.cols.protocol = "NORVFIND"
    local dissect = magic == plain_magic and plain_dissect or sealed_dissect
    info.cols.info = dissect(packet, tree:add(norvfind, packet()))
    return packet:len()
end

for _, port in ipairs({ 9999, 9998, 9997 }) do DissectorTable.get("udp.port"):add(port, norvfind) end
