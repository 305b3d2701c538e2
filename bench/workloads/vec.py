# vec: 1,000,000 vector additions, each making a new vector, and as many
# component reads.
# The runner sets div to 10 for the tenth-size row.
div = 1


class Vec:
    __slots__ = ("x", "y", "z")

    def __init__(self, x, y, z):
        self.x = x
        self.y = y
        self.z = z

    def __add__(self, o):
        return Vec(self.x + o.x, self.y + o.y, self.z + o.z)


def main():
    n = 1000000 // div
    acc = Vec(0.0, 0.0, 0.0)
    step = Vec(1.0, 2.0, 3.0)
    total = 0.0
    for i in range(n):
        acc = acc + step
        total += acc.y
    print("%f" % total)


main()
