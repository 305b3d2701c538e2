-- json: fill an array with 300,000 integers by index and sum it by index, then
-- read one field of a keyed record 1,000,000 times by the same key.
-- The runner sets div to 10 for the tenth-size row.
local div = 1
local n = math.floor(300000 / div)
local reads = math.floor(1000000 / div)
local a = {}
for i = 0, n - 1 do
  a[i + 1] = i * 2
end
local total = 0
for i = 1, n do
  total = total + a[i]
end
local record = {name = "record", hits = 7, weight = 3}
for i = 1, reads do
  total = total + record.hits
end
print(total)
