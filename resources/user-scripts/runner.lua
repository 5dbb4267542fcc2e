-- Runs one handler of a user's script: lua runner.lua SCRIPT. What comes and goes over descriptor 3
-- is described in interpreter_user_scripts.h.
local channel = "/proc/self/fd/3"
local script = arg[1]
-- Longer names of chunks are cut by Lua.
local longest_name = 50

-- Opened before the script can do anything to the descriptor.
local report = assert(io.open(channel, "ab"))

local function request()
  local file = assert(io.open(channel, "rb"))
  local bytes = file:read("*a")
  file:close()
  local at = 1
  local function field()
    local stop = bytes:find("\0", at, true)
    local text = bytes:sub(at, stop - 1)
    at = stop + 1
    return text
  end
  local name, arguments = field(), {}
  while at <= #bytes do
    local kind = field()
    if kind == "list" then
      local items = {}
      for index = 1, tonumber(field()) do
        items[index] = field()
      end
      arguments[#arguments + 1] = items
    else
      arguments[#arguments + 1] = field()
    end
  end
  return name, arguments
end

local function send(fields)
  for _, field in ipairs(fields) do
    assert(report:write(field, "\0"))
  end
  assert(report:close())
end

local function fits(value)
  return type(value) == "string" and not value:find("\0", 1, true)
end

local function add_result(fields, result)
  if fits(result) then
    fields[#fields + 1] = "string"
    fields[#fields + 1] = result
    return fields
  end
  if type(result) == "table" then
    local items = {}
    for _, item in ipairs(result) do
      if not fits(item) then
        items = nil
        break
      end
      items[#items + 1] = item
    end
    if items and (next(items) or not next(result)) then
      fields[#fields + 1] = "list"
      fields[#fields + 1] = tostring(#items)
      for _, item in ipairs(items) do
        fields[#fields + 1] = item
      end
      return fields
    end
  end
  fields[#fields + 1] = "nothing"
  return fields
end

local folder, base = script:match("^(.*)/(.*)$")
local chunk_name = #base > longest_name and "script.lua" or base

-- The text of an error and the line that stands in front of it.
local function description(failure)
  local converted, text = pcall(tostring, failure)
  text = converted and text or "an error without a text"
  local prefix = chunk_name .. ":"
  local line = ""
  if text:sub(1, #prefix) == prefix then
    local number, rest = text:match("^(%d+): (.*)$", #prefix + 1)
    if number then
      line, text = number, rest
    end
  end
  return (text:gsub("%z", "\\0")), line
end

local function run(name, arguments)
  local file = assert(io.open(script, "rb"))
  local source = assert(file:read("*a"))
  file:close()
  source = source:gsub("^\239\187\191", ""):gsub("^#", "--#")
  local chunk, complaint = (loadstring or load)(source, "@" .. chunk_name)
  if not chunk then
    error(complaint, 0)
  end
  chunk()
  local handler = rawget(_G, name)
  if type(handler) ~= "function" then
    return { "missing" }
  end
  return add_result({ "done" }, (handler((table.unpack or unpack)(arguments))))
end

local name, arguments = request()
arg = { [0] = script }
-- A folder's name cannot be written into the path of searches when it holds a sign of that path.
if not folder:find("[;?]") then
  package.path = folder .. "/?.lua;" .. package.path
end
io.stdout:setvbuf("line")
local fields
xpcall(function()
  fields = run(name, arguments)
end, function(failure)
  local text, line = description(failure)
  io.stderr:write(debug.traceback(text, 2), "\n")
  fields = { "error", text, line }
end)
send(fields)
os.exit(fields[1] == "done" and 0 or 1)
