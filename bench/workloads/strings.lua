-- strings: build a string of 200,000 one-character pieces by appending
-- ("a", "b", "c" in turn), then read every character back by index and count
-- the "b"s; then 20,000 rounds of the library's text functions: find the next
-- "b" from an offset, split a record at its commas, and take a six-character
-- piece with string.sub and replace its "a"s by "xy" with string.gsub.
-- Offsets are counted from 0 as in the other two programs.
--
-- The pieces are appended to a buffer table and joined once with table.concat,
-- the usual way of building a string piece by piece in Lua: `s = s .. piece`
-- copies the whole string on every append and is quadratic (seconds here).
local n = 200000
local buf = {}
local j = 0
for i = 1, n do
  if j == 0 then
    buf[#buf + 1] = "a"
  elseif j == 1 then
    buf[#buf + 1] = "b"
  else
    buf[#buf + 1] = "c"
  end
  j = j + 1
  if j == 3 then
    j = 0
  end
end
local s = table.concat(buf)
local count_b = 0
local sub = string.sub
for i = 1, n do
  if sub(s, i, i) == "b" then
    count_b = count_b + 1
  end
end
local find, gsub = string.find, string.gsub

-- The pieces of `text` between the plain-text hits of `sep`.
local function split(text, sep)
  local pieces = {}
  local pos = 1
  while true do
    local a, b = find(text, sep, pos, true)
    if not a then break end
    pieces[#pieces + 1] = sub(text, pos, a - 1)
    pos = b + 1
  end
  pieces[#pieces + 1] = sub(text, pos)
  return pieces
end

local m = 20000
local rec = "alpha=1,beta=22,gamma=333"
local total = 0
for i = 0, m - 1 do
  total = total + (find(s, "b", i + 1, true) - 1)
  total = total + #split(rec, ",")
  local piece = gsub(sub(s, i + 1, i + 6), "a", "xy")
  total = total + #piece
end
print(count_b + total)
