-- fib: recursive Fibonacci number of 27, one call per node of the tree.
local function fib(n)
  if n < 2 then
    return n
  end
  return fib(n - 1) + fib(n - 2)
end
print(fib(27))
