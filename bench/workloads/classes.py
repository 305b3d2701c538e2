# classes: create 100,000 instances through a constructor, then call a method
# 1,000,000 times on one instance.
# The runner sets div to 10 for the tenth-size row.
div = 1


class Counter:
    def __init__(self, start):
        self.value = start

    def add(self, step):
        self.value = self.value + step


def main():
    n = 100000 // div
    calls = 1000000 // div
    total = 0
    for i in range(n):
        c = Counter(i)
        total += c.value
    k = Counter(0)
    for i in range(calls):
        k.add(3)
    total += k.value
    print(total)


main()
