-- vec: 1,000,000 vector additions, each making a new vector, and as many
-- component reads.
-- The runner sets div to 10 for the tenth-size row.
local Vec = {}
Vec.__index = Vec
Vec.__add = function(a, b)
  return setmetatable({x = a.x + b.x, y = a.y + b.y, z = a.z + b.z}, Vec)
end

local function new(x, y, z)
  return setmetatable({x = x, y = y, z = z}, Vec)
end

local div = 1
local n = math.floor(1000000 / div)
local acc = new(0.0, 0.0, 0.0)
local step = new(1.0, 2.0, 3.0)
local total = 0.0
for i = 1, n do
  acc = acc + step
  total = total + acc.y
end
print(string.format("%f", total))
