-- SPDX-License-Identifier: MIT
-- Calls every function of the blocks and the host that a program can reach, with every kind of value
-- that it can pass, in every way in which Lua calls a function. hostile_calls_test.cpp runs the
-- functions that this file returns. After each call the state must work, a refusal must be a text, and
-- a refused call must not have changed any variable of a block.
--
-- Left out: what the debug library can do to any userdata or C function (setmetatable,
-- getregistry, setlocal, setupvalue, upvaluejoin).
local host = ... -- the functions of hostile_calls_test.cpp, `seed`, and `types`, the names of the block types
local unpack, pack = table.unpack, table.pack

---------------------------------------------------------------------------------------------------
-- Random numbers: our own, so that a seed means the same everywhere

local random_state = host.seed

local function random(n)
  random_state = (random_state * 1103515245 + 12345) % 2 ^ 31
  return math.floor(random_state / 2 ^ 31 * n) + 1
end

local function pick(list) return list[random(#list)] end

---------------------------------------------------------------------------------------------------
-- Blocks

local TYPE_NAMES = host.types
local type_of = {} -- block -> the name of its type; a block whose __gc was called is taken out
local alive = {} -- type -> the block that the calls use

local function make(type_name)
  local block = _G[type_name].new()
  alive[type_name], type_of[block] = block, type_name
  return block
end
for _, type_name in ipairs(TYPE_NAMES) do make(type_name) end

local canary = SEND_SMS.new { Message = "canary" }
-- Reading a text this long calls one more function.
local long = SEND_SMS.new { Message = ("text "):rep(200) }

local names_of = {} -- type -> the names of its variables
for _, type_name in ipairs(TYPE_NAMES) do
  local names = {}
  for name in pairs(TYPES.StandardFB[type_name].Vars) do names[#names + 1] = name end
  table.sort(names)
  names[#names + 1] = "extra"
  names_of[type_name] = names
end

local SAFE = {
  SEND_EMAIL = { Server = "127.0.0.1", Port = 1 }, -- nobody listens there
  SysProcessCreate = { Command = ":", Args = "" },
  SysProcessCreateWithResult = { Command = ":", Args = "" },
}

-- Whatever a call may start is harmless.
local function secure()
  for type_name, inputs in pairs(SAFE) do
    for name, value in pairs(inputs) do alive[type_name][name] = value end
  end
end

local function variables(block)
  local texts = {}
  for i, name in ipairs(names_of[type_of[block]]) do
    local value = block[name]
    texts[i] = name .. "=" .. type(value) .. ":" .. tostring(value)
  end
  return table.concat(texts, "\n")
end

---------------------------------------------------------------------------------------------------
-- Functions: { name, function, number of results, type }

local functions = {}
local plain = {} -- those of the blocks
for _, type_name in ipairs(TYPE_NAMES) do
  local results = {
    new = 1, get = 1, set = 0, call = 1, __index = 1, __newindex = 0, __call = 1, __gc = 1,
    __retained = 1, __restore = 1,
  }
  local metatable = getmetatable(alive[type_name])
  for _, source in ipairs { _G[type_name], metatable } do
    local keys = {}
    for key in pairs(source) do keys[#keys + 1] = key end
    table.sort(keys)
    for _, key in ipairs(keys) do
      local name = type_name .. "." .. key
      local entry =
        { name = name, f = source[key], results = results[key], type = type_name, key = key }
      functions[#functions + 1], plain[#plain + 1] = entry, entry
      results[key] = nil
    end
  end
  assert(next(results) == nil, "a function of " .. type_name .. " is missing")
  -- Changes to the metatable that a program gets do not affect the blocks.
  for key in pairs(metatable) do metatable[key] = nil end
end
for _, entry in ipairs {
  { name = "FBMetadata", f = FBMetadata, results = 1 },
  { name = "plc.stop", f = plc.stop, results = 0 },
  { name = "plc.log", f = plc.log, results = 0 },
  { name = "plc.clock", f = plc.clock, results = 1 },
  { name = "os.exit", f = os.exit, results = 0, raises_request = true },
} do
  functions[#functions + 1] = entry
end

---------------------------------------------------------------------------------------------------
-- Values

local EVENTS = {
  "__index", "__newindex", "__call", "__eq", "__lt", "__le", "__concat", "__len", "__unm", "__add",
  "__tostring", "__pairs", "__ipairs", "__metatable", "__mode", "__name",
}

local function hostile(answer)
  local metatable = {}
  for _, event in ipairs(EVENTS) do metatable[event] = answer end
  return setmetatable({}, metatable)
end

-- Gives these answers in turn.
local function changing(...)
  local answers, n = { ... }, 0
  return function()
    n = n % #answers + 1
    return answers[n]
  end
end

local dead_coroutine = coroutine.create(function() end)
coroutine.resume(dead_coroutine)

local NOTHING = {} -- stands for nil in lists
local values = {
  NOTHING, true, false, 0, -0.0, 1, -1, 0.5, 300, 2 ^ 31 - 1, 2 ^ 31, -2 ^ 31 - 1, 2 ^ 53, 2 ^ 63,
  2 ^ 64, 1e308, 1 / 0, -1 / 0, 0 / 0,
  "", "x", "Port", "Send", "Run", "Message", "EnO", "__Internal", "__gc", "true", "12", "1e400",
  "0x10", "nan", "EnO\0", "\0", "\255\254", ("%s%n"):rep(20), ("long "):rep(120),
  ("longer "):rep(1000),
  {}, { Port = 1, Send = false }, { Port = {} }, { 1, 2, 3, [0.5] = 4, [true] = 5 },
  hostile(function() error("from a metamethod", 0) end),
  hostile(function(self) return self end),
  hostile(changing({}, 1, "Name", true)),
  setmetatable({ Name = "X", Hash = 1 }, { __index = changing({}, 5) }),
  { Name = "X", Hash = 1, Vars = { A = hostile(changing(1, {}, "Name", true)) } },
  print, function(...) return ... end, coroutine.create(function() end), dead_coroutine,
  host.light(), host.bare(), io.stdout, TYPES, plc, SEND_SMS, getmetatable(""),
}
-- A block of each type, and one that was collected by hand.
local living = {} -- entry of the list -> the type whose block it stands for
for _, type_name in ipairs(TYPE_NAMES) do
  local over = _G[type_name].new()
  debug.getmetatable(over).__gc(over)
  values[#values + 1] = over
  values[#values + 1] = { "a block" }
  living[values[#values]] = type_name
end

local function value_at(i)
  local value = values[i]
  if value == NOTHING then return nil end
  return living[value] and alive[living[value]] or value
end

local function any() return value_at(random(#values)) end

---------------------------------------------------------------------------------------------------
-- Ways of calling: they return what pcall returns, or nothing if the function was not reached

local ways = {}

function ways.directly(f, args) return pcall(f, unpack(args, 1, args.n)) end

function ways.by_c_code(f, args) return pcall(host.raw, f, unpack(args, 1, args.n)) end

function ways.as_a_coroutine(f, args)
  return coroutine.resume(coroutine.create(f), unpack(args, 1, args.n))
end

function ways.from_a_coroutine(f, args)
  local body = coroutine.create(function(...) return f(...) end)
  return coroutine.resume(body, unpack(args, 1, args.n))
end

function ways.with_a_handler_that_uses_blocks(f, args)
  return xpcall(f, function(message)
    local _ = canary.Message
    pcall(f, unpack(args, 1, args.n))
    return message
  end, unpack(args, 1, args.n))
end

function ways.in_a_finalizer(f, args)
  local result
  setmetatable({}, { __gc = function() result = pack(pcall(f, unpack(args, 1, args.n))) end })
  collectgarbage()
  return unpack(result, 1, result.n)
end

function ways.in_a_hook(f, args)
  local result, countdown = { n = 0 }, random(3)
  debug.sethook(function()
    countdown = countdown - 1
    if countdown > 0 then return end
    debug.sethook()
    result = pack(pcall(f, unpack(args, 1, args.n)))
  end, "c")
  local _ = long.Message
  debug.sethook()
  return unpack(result, 1, result.n)
end

function ways.near_the_c_stack_limit(f, args)
  local result = { n = 0 }
  local function down(depth)
    if depth == 0 then
      result = pack(pcall(f, unpack(args, 1, args.n)))
    else
      string.gsub("x", "x", function() down(depth - 1) end)
    end
  end
  pcall(down, 60 + random(140))
  return unpack(result, 1, result.n)
end

function ways.as_a_sort_order(f) -- gets what is sorted
  local result
  pcall(table.sort, { any() or 1, any() or 1, any() or 1 }, function(...)
    result = pack(pcall(f, ...))
    return false
  end)
  if result then return unpack(result, 1, result.n) end
end

-- As metamethods they get the table that has them as first argument, so all but `new` refuse.
for _, event in ipairs {
  "__index", "__newindex", "__call", "__concat", "__len", "__unm", "__eq", "__lt", "__tostring",
  "__pairs",
} do
  ways["as_" .. event] = function(f, args)
    local metatable = { [event] = f }
    local a, b = setmetatable({}, metatable), setmetatable({}, metatable)
    local key = args[2] == nil and "Port" or args[2]
    local uses = {
      __index = function() return a[key] end,
      __newindex = function() a[key ~= key and 1 or key] = args[3] end,
      __call = function() return a(unpack(args, 1, args.n)) end,
      __concat = function() return a .. key end,
      __len = function() return #a end,
      __unm = function() return -a end,
      __eq = function() return a == b end,
      __lt = function() return a < b end,
      __tostring = function() return tostring(a) end,
      __pairs = function() return pairs(a) end,
    }
    local ok, message = pcall(uses[event])
    if not ok then return ok, message end -- an operator has a number of results of its own
  end
end

function ways.as___gc(f)
  local ok, message = pcall(function()
    setmetatable({}, { __gc = f })
    collectgarbage()
  end)
  if not ok then return ok, message end
end

---------------------------------------------------------------------------------------------------
-- One call and what must hold after it

local calls = 0

local function describe(entry, args, way)
  local texts = {}
  for i = 1, math.min(args.n, 8) do
    local value = args[i]
    local text = type(value) == "string" and ("%q"):format(value:sub(1, 30))
    texts[i] = text or type_of[value] or type(value) == "number" and value or type(value)
  end
  return ("%s(%s) %s, %d arguments"):format(entry.name, table.concat(texts, ", "), way, args.n)
end

local function call(entry, args, way)
  calls = calls + 1
  secure()
  local before = {}
  for i = 1, math.min(args.n, 3) do
    local block = args[i]
    if type_of[block] then before[block] = variables(block) end
  end

  local result = pack(ways[way](entry.f, args))
  local function must(condition, what)
    if condition then return end
    error(what .. ": " .. describe(entry, args, way) .. ", got " .. tostring(result[2]), 0)
  end
  if result[1] == false then
    must(type(result[2]) == "string" or entry.raises_request, "an error that is not a text")
    for block, state in pairs(before) do
      local ended = debug.getmetatable(block) == nil -- a way may call several times
      must(ended or variables(block) == state, "a refused call changed a variable")
    end
  elseif result[1] then
    must(result.n == 1 + entry.results, "a wrong number of results")
  end
  for type_name, block in pairs(alive) do
    if debug.getmetatable(block) == nil then -- its __gc was called
      type_of[block] = nil
      make(type_name)
    end
  end

  -- The state works.
  local ok, message = pcall(error, "still " .. "here", 0)
  must(not ok and message == "still here" and #{ 1, 2 } == 2, "the state is broken")
  must(canary.Message == "canary", "another block has changed")
  if calls % 50 == 0 then host.drive() end
end

local function random_arguments(entry)
  local args = { n = random(6) - 1 }
  for i = 1, args.n do args[i] = any() end
  if entry.type and args.n > 0 and random(3) > 1 then args[1] = alive[entry.type] end
  if entry.type and args.n > 1 and random(2) == 1 then args[2] = pick(names_of[entry.type]) end
  return args
end

---------------------------------------------------------------------------------------------------
-- The tests

local tests = {}

-- No argument, one of each value, the right block with one of each value.
function tests.few_arguments(share)
  for _, entry in ipairs(functions) do
    call(entry, { n = 0 }, "directly")
    for i = 1, #values do
      if random(share) == 1 then
        call(entry, { n = 1, value_at(i) }, "directly")
        call(entry, { n = 2, value_at(i), any() }, "by_c_code")
        if entry.type then call(entry, { n = 2, alive[entry.type], value_at(i) }, "directly") end
      end
    end
  end
  return calls
end

-- Every value to every variable through __newindex; through `set` to some of them, and under other names.
function tests.assignments(share)
  for _, entry in ipairs(plain) do
    local some = entry.key == "set" and 6 * share or share
    for _, name in ipairs(entry.results == 0 and names_of[entry.type] or {}) do
      for i = 1, #values do
        if random(some) == 1 then
          call(entry, { n = 3, alive[entry.type], name, value_at(i) }, "directly")
          if entry.key == "set" then
            call(entry, { n = 3, alive[entry.type], any(), any() }, "directly")
          end
        end
      end
    end
  end
  return calls
end

function tests.every_way_of_calling(share)
  local names = {}
  for way in pairs(ways) do names[#names + 1] = way end
  table.sort(names)
  for _, way in ipairs(names) do
    local slow = way == "in_a_finalizer" or way == "as___gc" -- each is a whole collection
    for _ = 1, (slow and 4 or 20) * math.ceil(10 / share) do
      local entry = pick(functions)
      call(entry, random_arguments(entry), way)
    end
  end
  return calls
end

function tests.many_arguments(share)
  for _, count in ipairs { 40, 255, 5000, 200000 } do
    for _, entry in ipairs(functions) do
      local args = { n = count, alive[entry.type or "SEND_SMS"], "Port", 1 }
      args[count - 1], args[count] = "Port", 2
      if random(share) == 1 then call(entry, args, "directly") end
    end
  end
  return calls
end

-- Runs of calls on one block, with the modem driver and rising edges in between.
function tests.lives_of_blocks(share)
  for _, type_name in ipairs(TYPE_NAMES) do
    local mine = {}
    for _, entry in ipairs(plain) do
      local on_it = entry.key ~= "__gc" and entry.key ~= "new"
      if entry.type == type_name and on_it then mine[#mine + 1] = entry end
    end
    for _ = 1, math.ceil(600 / share) do
      local block, entry = alive[type_name], pick(mine)
      local args = { n = 3, block, pick(names_of[type_name]), any() }
      if entry.results == 1 and entry.key:find("call") then args.n = random(3) end
      if random(8) == 1 then -- an edge of what starts the block's work
        for _, input in ipairs { "Send", "Run", "Read" } do block[input] = false end
        call({ name = "call", f = _G[type_name].call, results = 1 }, { n = 1, block }, "directly")
        for _, input in ipairs { "Send", "Run", "Read" } do block[input] = true end
        call({ name = "call", f = _G[type_name].call, results = 1 }, { n = 1, block }, "directly")
      end
      call(entry, args, "directly")
      host.drive()
    end
  end
  return calls
end

-- Every value in every input while the block works with it. As commands they are words that no
-- shell knows; the server is always this machine, so that no name service is asked.
function tests.inputs_at_work(share)
  local starts = { "Send", "Run", "Read" }
  local function work(block)
    for _, edge in ipairs { false, true } do
      for _, input in ipairs(starts) do block[input] = edge end
      local ok, message = pcall(block)
      assert(ok or type(message) == "string")
      host.drive()
    end
  end
  for _, type_name in ipairs(TYPE_NAMES) do
    -- Each e-mail that fails keeps a descriptor.
    local some = type_name == "SEND_EMAIL" and 8 * share or share
    for _, name in ipairs(names_of[type_name]) do
      for i = 1, #values do
        if name ~= "Server" and random(some) == 1 then
          secure()
          local block = alive[type_name]
          pcall(function() block[name] = value_at(i) end)
          work(block)
          block[name] = nil
          assert(canary.Message == "canary")
          calls = calls + 1
        end
      end
    end
  end
  return calls
end

-- Operators and library functions on blocks.
function tests.operators(share)
  local operators = {
    function(a, b) return a[b] end,
    function(a, b) a[b] = b end,
    function(a, b) return a(b) end,
    function(a, b) return a == b end,
    function(a, b) return a < b end,
    function(a, b) return a <= b end,
    function(a, b) return a .. b end,
    function(a, b) return a + b end,
    function(a, b) return b % a end,
    function(a) return #a end,
    function(a) return -a end,
    function(a) for _ in pairs(a) do end end,
    function(a) for _ in ipairs(a) do end end,
    function(a) for _ in a do end end,
    function(a, b) return ("%s %d"):format(a, b) end,
    function(a) return ("x"):gsub("x", a) end,
    function(a, b) error(a, b) end,
    function(a) debug.setuservalue(a, {}) end,
    setmetatable, getmetatable, rawget, rawset, rawequal, rawlen, next, tostring, tonumber, type,
    table.concat, table.insert, load, coroutine.create,
    debug.getmetatable, debug.getuservalue, debug.getinfo, debug.getlocal, debug.getupvalue,
    debug.upvalueid, debug.traceback,
  }
  for _, type_name in ipairs(TYPE_NAMES) do
    for _, operator in ipairs(operators) do
      for i = 1, #values do
        if random(share) == 1 then
          secure()
          pcall(operator, alive[type_name], value_at(i))
          assert(canary.Message == "canary" and debug.getmetatable(alive[type_name]))
          calls = calls + 1
        end
      end
    end
  end
  return calls
end

-- With the stack so full that there is hardly any room for a call.
function tests.full_stack(share)
  for _, entry in ipairs(functions) do
    if random(share) == 1 and not entry.raises_request and entry.key ~= "__gc" then
      local block = alive[entry.type or "SEND_SMS"]
      local ok, message = host.fill(random(60), entry.f, block, "Port", random(100))
      assert(ok or type(message) == "string", entry.name)
      assert(canary.Message == "canary")
      calls = calls + 1
    end
  end
  return calls
end

-- Finalizers that use all blocks when the program ends.
function tests.at_the_end()
  for _, entry in ipairs(functions) do
    for _ = 1, 5 do
      local args = random_arguments(entry)
      setmetatable({}, { __gc = function()
        pcall(secure)
        pcall(entry.f, unpack(args, 1, args.n))
        pcall(entry.f, alive[entry.type], "extra", 1)
      end })
    end
  end
  return 5 * #functions
end

return tests
