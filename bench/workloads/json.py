# json: fill an array with 300,000 integers by index and sum it by index, then
# read one field of a keyed record 1,000,000 times by the same key.
# The runner sets div to 10 for the tenth-size row.
#
# A Python list does not grow by index assignment; append is the equivalent of
# storing at the next index.
div = 1


def main():
    n = 300000 // div
    reads = 1000000 // div
    a = []
    for i in range(n):
        a.append(i * 2)
    total = 0
    for i in range(n):
        total += a[i]
    record = {"name": "record", "hits": 7, "weight": 3}
    for i in range(reads):
        total += record["hits"]
    print(total)


main()
