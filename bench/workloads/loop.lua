-- loop: integer sum over a counted loop of 3,000,000 steps.
-- The runner sets div to 10 for the tenth-size row.
local div = 1
local n = math.floor(3000000 / div)
local total = 0
for i = 0, n - 1 do
  total = total + i
end
print(total)
