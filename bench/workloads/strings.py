# strings: build a string of 200,000 one-character pieces by appending
# ("a", "b", "c" in turn), then read every character back by index and count
# the "b"s.
def main():
    n = 200000
    s = ""
    j = 0
    for i in range(n):
        if j == 0:
            s += "a"
        elif j == 1:
            s += "b"
        else:
            s += "c"
        j += 1
        if j == 3:
            j = 0
    count_b = 0
    for i in range(n):
        if s[i] == "b":
            count_b += 1
    print(count_b)


main()
