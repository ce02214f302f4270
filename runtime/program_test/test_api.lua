-- SPDX-License-Identifier: MIT
-- The global table `test`, and the object that stands for the program under test. Part of corvane
-- test, which passes `core`: what is done in C++. docs/testing_programs.md describes all of it.
local core = ...

local cases = {} -- { name, run }, in the order of the file
local checks = 0 -- how many checks the running test has made
local running = false

---------------------------------------------------------------------------------------------------
-- Failures. The message handler of the test adds where in the test file it happened.

local failure = { __tostring = function(self) return self.text end }

local function fail(text, ...)
  error(setmetatable({ text = select("#", ...) > 0 and text:format(...) or text }, failure), 0)
end

local function finish(ok, ...)
  if ok then return ... end
  fail(tostring((...)))
end

local function try(f, ...)
  return finish(pcall(f, ...))
end

local function keys(t)
  local names = {}
  for name in pairs(t) do
    names[#names + 1] = name
  end
  table.sort(names, function(a, b) return tostring(a) < tostring(b) end)
  return names
end

-- The failure about a name that nothing here has.
local function unknown(owner, what, name, names)
  table.sort(names)
  fail("%s has no %s '%s'; did you mean '%s'?", owner, what, tostring(name),
    core.nearest(tostring(name), names))
end

local function want(value, kind, what)
  if type(value) ~= kind then fail("%s must be a %s, not %s", what, kind, tostring(value)) end
  return value
end

local function want_seconds(value, what)
  want(value, "number", what)
  if not (value >= 0 and value < math.huge) then
    fail("%s must be a number of seconds from 0 on, not %s", what, tostring(value))
  end
  return value
end

---------------------------------------------------------------------------------------------------
-- Variables of the program, by the path that leads to them: they are found again at each access, so
-- they outlive a restart.

local paths = setmetatable({}, { __mode = "k" }) -- of each stand-in
local stand_in = {}
local value_at

local function extended(path, key)
  local longer = { table.unpack(path) }
  longer[#longer + 1] = key
  return longer
end

-- Copies what is in the program; blocks and functions cannot be copied.
local function plain(value)
  local path = paths[value]
  if not path then return value end
  return try(core.copy, path)
end

function value_at(path)
  local kind, value = try(core.read, path)
  if kind == "value" then return value end
  local proxy = setmetatable({}, stand_in)
  paths[proxy] = path
  return proxy
end

function stand_in.__index(self, key)
  return value_at(extended(paths[self], key))
end

function stand_in.__newindex(self, key, value)
  try(core.write, extended(paths[self], key), plain(value))
end

function stand_in.__call(self, ...)
  local arguments = table.pack(...)
  for i = 1, arguments.n do
    arguments[i] = plain(arguments[i])
  end
  return try(core.call, paths[self], table.unpack(arguments, 1, arguments.n))
end

function stand_in.__len(self) return #plain(self) end
function stand_in.__pairs(self) return pairs(plain(self)) end
function stand_in.__ipairs(self) return ipairs(plain(self)) end
function stand_in.__tostring(self)
  return "the program's " .. table.concat(paths[self], ".")
end

---------------------------------------------------------------------------------------------------
-- Checks

local function show(value, depth)
  if paths[value] then
    local ok, copy = pcall(core.copy, paths[value])
    return ok and show(copy) or tostring(value)
  end
  if type(value) == "string" then
    return "'" .. value:gsub("%c", function(c) return ("\\%d"):format(c:byte()) end) .. "'"
  end
  if type(value) ~= "table" then return tostring(value) end
  if (depth or 0) > 4 then return "{ ... }" end
  local parts = {}
  for i, item in ipairs(value) do
    parts[i] = show(item, (depth or 0) + 1)
  end
  local listed = #parts
  for _, key in ipairs(keys(value)) do
    if type(key) ~= "number" or key < 1 or key > listed or key % 1 ~= 0 then
      local name = type(key) == "string" and key or "[" .. tostring(key) .. "]"
      parts[#parts + 1] = name .. " = " .. show(value[key], (depth or 0) + 1)
    end
  end
  return #parts == 0 and "{}" or "{ " .. table.concat(parts, ", ") .. " }"
end

local function same(a, b)
  if type(a) ~= "table" or type(b) ~= "table" then return a == b end
  for key, value in pairs(a) do
    if not same(value, b[key]) then return false end
  end
  for key in pairs(b) do
    if a[key] == nil then return false end
  end
  return true
end

local function about(what)
  return what and tostring(what) .. ": " or ""
end

local test = {}

function test.equal(value, expected, what)
  checks = checks + 1
  value, expected = plain(value), plain(expected)
  if not same(value, expected) then
    fail("%sexpected %s, but got %s", about(what), show(expected), show(value))
  end
end

function test.near(value, expected, tolerance, what)
  checks = checks + 1
  want(expected, "number", "test.near: the expected value")
  want(tolerance, "number", "test.near: the tolerance")
  if type(value) ~= "number" or not (math.abs(value - expected) <= tolerance) then
    fail("%sexpected %s, give or take %s, but got %s", about(what), show(expected), show(tolerance),
      show(value))
  end
end

function test.check(value, what)
  checks = checks + 1
  if not value then fail("%sexpected a true value, but got %s", about(what), show(value)) end
end

-- In a text a piece of it, in a list of texts a piece of one of them.
function test.contains(value, piece, what)
  checks = checks + 1
  want(piece, "string", "test.contains: what is looked for")
  value = plain(value)
  if type(value) == "string" then
    if not value:find(piece, 1, true) then
      fail("%sexpected %s in %s", about(what), show(piece), show(value))
    end
    return
  end
  want(value, "table", "test.contains: where to look")
  local shown = {}
  for i, item in ipairs(value) do
    local text = type(item) == "table" and item.text or item
    if tostring(text):find(piece, 1, true) then return end
    shown[i] = "\n  " .. tostring(text)
  end
  fail("%sexpected %s in one of %d lines:%s", about(what), show(piece), #shown, table.concat(shown))
end

function test.fails(run, piece, what)
  checks = checks + 1
  want(run, "function", "test.fails: what is run")
  local ok, message = pcall(run)
  if ok then fail("%sexpected a failure, but there was none", about(what)) end
  if piece and not tostring(message):find(piece, 1, true) then
    fail("%sexpected a failure with %s, but got %s", about(what), show(piece), show(tostring(message)))
  end
end

---------------------------------------------------------------------------------------------------
-- Objects with fields that are read and written by functions, and no others

local function object(owner, methods, readers, writers)
  local names = keys(methods)
  for _, name in ipairs(keys(readers)) do
    names[#names + 1] = name
  end
  return setmetatable({}, {
    __index = function(_, name)
      if methods[name] then return methods[name] end
      if readers[name] then return readers[name]() end
      unknown(owner, "field", name, names)
    end,
    __newindex = function(_, name, value)
      if writers[name] then return writers[name](value) end
      if readers[name] or methods[name] then fail("%s: '%s' can only be read", owner, name) end
      unknown(owner, "field", name, keys(writers))
    end,
    __tostring = function() return owner end,
  })
end

-- Whether a method was called as object:method(...).
local function want_self(self, expected, name)
  if self ~= expected then fail("call it with a colon: %s:%s(...)", tostring(expected), name) end
end

local function setting(owner, name, kind)
  return function() return core.setting(owner, name) end,
    function(value)
      if kind == "number" then want_seconds(value, owner .. "." .. name) end
      core.set(owner, name, want(value, kind, owner .. "." .. name))
    end
end

-- The values of a table of options, checked.
local function take_options(options, known, owner)
  for name, value in pairs(want(options or {}, "table", owner .. ": the options")) do
    if not known[name] then unknown(owner, "option", name, keys(known)) end
    if not known[name]:find(type(value), 1, true) then
      fail("%s: %s must be a %s, not %s", owner, name, known[name], show(value))
    end
  end
  return options or {}
end

local function new_modem()
  local modem
  local methods, readers, writers = {}, {}, {}
  readers.sent = function() return core.sent("sms") end
  for name, kind in pairs { connected = "boolean", network = "boolean", delay = "number" } do
    readers[name], writers[name] = setting("modem", name, kind)
  end
  local known = { port = "number", time = "number", kind = "number" }
  function methods.receive(self, from, text, options)
    want_self(self, modem, "receive")
    options = take_options(options, known, "modem:receive")
    core.receive(options.port or 1, want(from, "string", "modem:receive: the sender"),
      want(text, "string", "modem:receive: the text"), options.time or core.now(), options.kind or 0)
  end
  function methods.refuse(self, number, cms)
    want_self(self, modem, "refuse")
    core.refuse_number(want(number, "string", "modem:refuse: the number"), cms or 1)
  end
  function methods.report(self, number)
    want_self(self, modem, "report")
    if core.report(want(number, "string", "modem:report: the number")) == 0 then
      fail("modem:report: nothing that was sent to %s awaits a report; was Report TRUE?", number)
    end
  end
  modem = object("modem", methods, readers, writers)
  return modem
end

local function new_mail()
  local mail
  local methods, readers, writers = {}, {}, {}
  readers.sent = function() return core.sent("mail") end
  for name, kind in pairs { away = "boolean", login_refused = "boolean", refusal = "string", delay = "number" } do
    readers[name], writers[name] = setting("mail", name, kind)
  end
  function methods.refuse(self, address, reply)
    want_self(self, mail, "refuse")
    core.refuse_address(want(address, "string", "mail:refuse: the address"),
      want(reply or "550 5.1.1 no such user", "string", "mail:refuse: the reply"))
  end
  mail = object("mail", methods, readers, writers)
  return mail
end

local function new_processes()
  local processes
  local known = { output = "string", error_output = "string", exit_code = "number", signal = "number",
    duration = "number", not_started = "string" }
  local methods = {}
  function methods.answer(self, piece, answer)
    want_self(self, processes, "answer")
    core.answer(want(piece, "string", "processes:answer: a piece of the command"),
      take_options(answer, known, "processes:answer"))
  end
  processes = object("processes", methods, { started = function() return core.sent("processes") end }, {})
  return processes
end

-- Where a value is, as the inputs of MODBUS_TCP have it, but with names in lower case.
local function new_modbus()
  local modbus
  local methods, readers, writers = {}, {}, {}
  readers.written = function() return core.sent("modbus") end
  for name, kind in pairs { away = "boolean", silent = "boolean", delay = "number" } do
    readers[name], writers[name] = setting("modbus", name, kind)
  end
  local known = { server = "string", port = "number", unit = "number", table = "string", address = "number",
    count = "number", format = "string", order = "string" }
  function methods.get(self, place)
    want_self(self, modbus, "get")
    local values = try(core.modbus_get, nil, take_options(place, known, "modbus:get"))
    return tonumber(values) or values
  end
  function methods.set(self, place, values)
    want_self(self, modbus, "set")
    local full = {}
    for name, value in pairs(take_options(place, known, "modbus:set")) do
      full[name] = value
    end
    full.values = tostring(values)
    try(core.modbus_set, nil, full)
  end
  function methods.refuse(self, table_name, address, exception)
    want_self(self, modbus, "refuse")
    try(core.modbus_refuse, want(table_name, "string", "modbus:refuse: the table"),
      want(address, "number", "modbus:refuse: the address"), exception or 2)
  end
  modbus = object("modbus", methods, readers, writers)
  return modbus
end

---------------------------------------------------------------------------------------------------
-- The program

local function new_program(name, period)
  local program
  local methods, readers, writers = {}, {}, {}
  local vars = setmetatable({}, {
    __index = function(_, key) return value_at { key } end,
    __newindex = function(_, key, value) try(core.write, { key }, plain(value)) end,
    __tostring = function() return "the variables of " .. name end,
  })
  local parts = { vars = vars, modem = new_modem(), mail = new_mail(), modbus = new_modbus(),
    processes = new_processes() }
  for part, value in pairs(parts) do
    readers[part] = function() return value end
  end
  for _, field in ipairs { "status", "cycle", "clock", "now", "log", "output" } do
    readers[field] = core[field]
  end
  function writers.now(value) core.set_now(want(value, "number", "program.now")) end

  local function want_running()
    if core.status() then
      fail("%s has ended with status %d in cycle %d; program:restart() starts it again", name,
        core.status(), core.cycle())
    end
  end
  local function step()
    try(core.step)
    return not core.status()
  end
  function methods.step(self, count)
    want_self(self, program, "step")
    for _ = 1, want(count or 1, "number", "program:step: the number of cycles") do
      want_running()
      step()
    end
  end
  function methods.run(self, seconds)
    want_self(self, program, "run")
    want_running()
    local cycles = math.floor(want_seconds(seconds, "program:run: the time") / period + 0.5)
    for i = 1, cycles do
      if not step() then return i end
    end
    return cycles
  end
  function methods.run_until(self, condition, seconds)
    want_self(self, program, "run_until")
    want(condition, "function", "program:run_until: the condition")
    checks = checks + 1
    local begin, limit = core.clock(), want_seconds(seconds or 60, "program:run_until: the time")
    while not condition() do
      if core.status() then
        fail("the program has ended with status %d in cycle %d, but the condition was not met",
          core.status(), core.cycle())
      end
      if core.clock() - begin >= limit - period / 2 then
        fail("the condition was not met within %g s (%d cycles)", limit,
          math.floor(limit / period + 0.5))
      end
      step()
    end
    return core.clock() - begin
  end
  function methods.advance(self, seconds)
    want_self(self, program, "advance")
    core.advance(want_seconds(seconds, "program:advance: the time"))
  end
  function methods.restart(self, options)
    want_self(self, program, "restart")
    options = take_options(options, { off = "number", power_cut = "boolean" }, "program:restart")
    try(core.restart, want_seconds(options.off or 0, "program:restart: off"), options.power_cut or false)
  end
  program = object("program", methods, readers, writers)
  return program
end

-- A local time in the zone of the test, such as "2026-03-29 01:59:30".
local function read_time(text)
  local year, month, day, hour, min, sec = text:match("^(%d+)-(%d+)-(%d+) (%d+):(%d+):?(%d*)$")
  if not year then fail("test.load: now must be a time such as '2026-03-29 01:59:30', not '%s'", text) end
  return os.time { year = year, month = month, day = day, hour = hour, min = min,
    sec = sec == "" and 0 or sec }
end

local load_options = { args = "table", cycle = "number", now = "string or number", ports = "table", zone = "string" }

function test.load(file, options)
  if not running then fail("test.load belongs into a test: test(\"name\", function() ... end)") end
  want(file, "string", "test.load: the program's file")
  options = take_options(options, load_options, "test.load")
  local period = want_seconds(options.cycle or 0.1, "test.load: cycle")
  if period == 0 then fail("test.load: cycle must be more than 0 s") end
  try(core.set_zone, options.zone or "UTC")
  local now = options.now or "2026-01-15 12:00"
  if type(now) == "string" then now = read_time(now) end
  try(core.load, file, options.args or {}, period, now, options.ports or { 1 })
  return new_program(file, period)
end

test.folder = core.folder

---------------------------------------------------------------------------------------------------
-- Tests

local public = setmetatable({}, {
  __index = function(_, name)
    if test[name] then return test[name] end
    unknown("test", "function", name, keys(test))
  end,
  __newindex = function(_, name)
    fail("test.%s cannot be set; a test is test(\"%s\", function() ... end)", tostring(name), tostring(name))
  end,
  __call = function(_, name, run)
    want(name, "string", "the name of a test")
    if running then fail("test '%s' is inside of another test; write one after the other", name) end
    want(run, "function", "test '" .. name .. "': what is run")
    for _, case in ipairs(cases) do
      if case.name == name then fail("there are two tests '%s'; give each its own name", name) end
    end
    cases[#cases + 1] = { name = name, run = run }
  end,
})

-- The lines of the test file that are being executed, the innermost first.
local function lines_of(source)
  local lines = {}
  for level = 3, 200 do
    local info = debug.getinfo(level, "Sl")
    if not info then break end
    if info.source == source and info.currentline > 0 then lines[#lines + 1] = info.currentline end
  end
  return lines
end

-- Adds the place in the test file. Lua's own errors have theirs already.
local function place(message, file)
  if getmetatable(message) ~= failure then return tostring(message) end
  local lines = lines_of("@" .. file)
  if #lines == 0 then return message.text end
  local from = #lines > 1 and (" (called from line %d)"):format(lines[#lines]) or ""
  return ("%s:%d: %s%s"):format(file, lines[1], message.text, from)
end

-- Calls `run`; returns nil, or what went wrong.
local function protected(run, file)
  local ok, message = xpcall(run, function(message) return place(message, file) end)
  return not ok and message or nil
end

local runner = { test = public, protected = protected }

function runner.names()
  local names = {}
  for i, case in ipairs(cases) do
    names[i] = case.name
  end
  return names
end

-- Runs the test with this number; returns nil, or what went wrong.
function runner.run(number, file)
  running, checks = true, 0
  local problem = protected(cases[number].run, file)
  if not problem and checks == 0 then
    problem = file .. ": the test checks nothing; use test.equal, test.check or another check"
  end
  return problem
end

return runner
