-- classes: create 100,000 instances through a constructor, then call a method
-- 1,000,000 times on one instance.
-- The runner sets div to 10 for the tenth-size row.
local Counter = {}
Counter.__index = Counter

function Counter.new(start)
  local self = setmetatable({}, Counter)
  self.value = start
  return self
end

function Counter:add(step)
  self.value = self.value + step
end

local div = 1
local n = math.floor(100000 / div)
local calls = math.floor(1000000 / div)
local total = 0
for i = 0, n - 1 do
  local c = Counter.new(i)
  total = total + c.value
end
local k = Counter.new(0)
for i = 1, calls do
  k:add(3)
end
total = total + k.value
print(total)
