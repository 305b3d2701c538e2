# strings: build a string of 200,000 one-character pieces by appending
# ("a", "b", "c" in turn), then read every character back by index and count
# the "b"s; then 20,000 rounds of the library's text functions: find the next
# "b" from an offset, split a record at its commas, and take a six-character
# piece with a slice and replace its "a"s by "xy".
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
    m = 20000
    rec = "alpha=1,beta=22,gamma=333"
    total = 0
    for i in range(m):
        total += s.find("b", i)
        total += len(rec.split(","))
        total += len(s[i:i + 6].replace("a", "xy"))
    print(count_b + total)


main()
