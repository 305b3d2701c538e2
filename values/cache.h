// The byte writer and the tolerant byte reader of every saved form.
//
// Saved values and compiled programs are plain byte sequences appended to one
// byte vector: no header, no version, no alignment. Fixed-width numbers are
// little-endian. Most integers use the compact form: one length byte N, then
// the N low bytes of the value, little-endian, where N is the count of bytes
// the value needs (zero is the single byte 0). A negative value therefore
// always takes the full width of its type (4 bytes for 32-bit, 8 for 64-bit),
// and since a reader fills a zeroed value no sign extension ever happens: a
// negative 32-bit number comes back only when it is read as 32 bits again.
//
// The reader never fails loudly and never reads outside its buffer. A fixed
// read that would pass the end gives 0 and leaves the position where it was. A
// compact read whose length byte lies past the end gives 0 and moves nothing;
// one whose N bytes would pass the end, or whose N is 0, gives 0 with the
// length byte consumed. Callers that must tell "0" from "nothing there" ask
// `can_read` first. A reader also carries the nesting depth of the forms being
// read, so that hostile input cannot recurse without bound.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace vrk {

struct vrkblock;

// Deepest nesting of saved forms (JSON lists in lists, block records in
// records, and the one inside the other) that is written or read. Deeper data
// is treated as if the buffer ended there.
inline constexpr uint32_t kMaxNesting = 512;

// A compact string taken from a text pointer is measured up to this many bytes.
inline constexpr std::size_t kMaxTextString = 1048576;

// Appends primitive forms to a byte vector the caller owns.
class ScriptCacheWriter {
public:
    explicit ScriptCacheWriter(std::vector<uint8_t>& out) : buffer(&out) {}

    std::vector<uint8_t>& bytes() { return *buffer; }

    void u8(uint8_t v);
    void u16(uint16_t v);
    void u32(uint32_t v);
    void u64(uint64_t v);
    void f32(float v);
    void f64(double v);
    void raw(const void* data, std::size_t size);

    void compact_u32(uint32_t v);
    void compact_u64(uint64_t v);
    void compact_s32(int32_t v);
    void compact_s64(int64_t v);
    // Byte count as compact unsigned 32, then the bytes, no terminator. The
    // text-pointer form stops at the first zero byte and at kMaxTextString
    // bytes; the string-object form writes the whole string.
    void compact_text(const char* text, std::size_t size);
    void compact_string(const std::string& text);

    uint32_t depth = 0;                     // nesting of the forms being written
    std::set<const vrkblock*> blocks_open;  // block records being written (cycle guard)

private:
    void compact(uint64_t v);

    std::vector<uint8_t>* buffer;  // where every write appends
};

class ScriptCacheReader {
public:
    // Reads `bytes` from `start`; the vector must outlive the reader.
    explicit ScriptCacheReader(const std::vector<uint8_t>& bytes, uint32_t start = 0);
    // Reads a buffer of its own.
    explicit ScriptCacheReader(std::vector<uint8_t>&& bytes);
    ScriptCacheReader(const ScriptCacheReader&) = delete;
    ScriptCacheReader& operator=(const ScriptCacheReader&) = delete;

    uint32_t position = 0;   // next byte to read
    uint8_t ownsBuffer = 0;  // the reader owns the buffer
    uint32_t depth = 0;      // nesting of the forms being read

    const std::vector<uint8_t>& bytes() const { return *buffer; }
    std::size_t size() const;
    std::size_t remaining() const { return size() - position; }
    bool at_end() const { return remaining() == 0; }
    bool can_read(std::size_t n) const { return n <= remaining(); }
    // Makes every further read fail: the position goes to the end.
    void exhaust();

    uint8_t u8();
    uint16_t u16();
    uint32_t u32();
    uint64_t u64();
    float f32();
    double f64();
    // Copies `size` bytes if they are all there; false and nothing moved if not.
    bool raw(void* out, std::size_t size);
    // Skips `size` bytes if they are all there.
    bool skip(std::size_t size);

    uint32_t compact_u32();
    uint64_t compact_u64();
    int32_t compact_s32();
    int64_t compact_s64();
    // A count, then that many bytes. When the bytes are not all there the
    // result is empty and only the count has been consumed.
    std::string compact_string();

private:
    uint64_t fixed(unsigned width);
    uint64_t compact(unsigned width);

    std::unique_ptr<std::vector<uint8_t>> owned;  // the buffer when ownsBuffer is set
    const std::vector<uint8_t>* buffer;           // the bytes being read
};

// Count of bytes the compact form of `v` needs (0 for 0).
unsigned compact_length(uint64_t v);

}  // namespace vrk
