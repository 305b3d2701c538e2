-- strings: build a string of 200,000 one-character pieces by appending
-- ("a", "b", "c" in turn), then read every character back by index and count
-- the "b"s.
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
print(count_b)
