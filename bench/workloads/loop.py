# loop: integer sum over a counted loop of 3,000,000 steps.
# The runner sets div to 10 for the tenth-size row.
div = 1


def main():
    n = 3000000 // div
    total = 0
    for i in range(n):
        total += i
    print(total)


main()
