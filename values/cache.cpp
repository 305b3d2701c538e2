// Primitive forms of the saved data: fixed-width little-endian numbers, compact
// integers and strings, written to and read from byte vectors.
#include "values/cache.h"

#include <bit>
#include <cstring>
#include <limits>

namespace vrk {

unsigned compact_length(uint64_t v) {
    unsigned n = 0;
    while (v != 0) {
        ++n;
        v >>= 8;
    }
    return n;
}

// ---- writer ----------------------------------------------------------------------

void ScriptCacheWriter::u8(uint8_t v) { buffer->push_back(v); }

void ScriptCacheWriter::u16(uint16_t v) {
    buffer->push_back(static_cast<uint8_t>(v));
    buffer->push_back(static_cast<uint8_t>(v >> 8));
}

void ScriptCacheWriter::u32(uint32_t v) {
    for (int i = 0; i < 4; ++i) buffer->push_back(static_cast<uint8_t>(v >> (8 * i)));
}

void ScriptCacheWriter::u64(uint64_t v) {
    for (int i = 0; i < 8; ++i) buffer->push_back(static_cast<uint8_t>(v >> (8 * i)));
}

void ScriptCacheWriter::f32(float v) { u32(std::bit_cast<uint32_t>(v)); }

void ScriptCacheWriter::f64(double v) { u64(std::bit_cast<uint64_t>(v)); }

void ScriptCacheWriter::raw(const void* data, std::size_t size) {
    if (size == 0) return;
    const auto* p = static_cast<const uint8_t*>(data);
    buffer->insert(buffer->end(), p, p + size);
}

void ScriptCacheWriter::compact(uint64_t v) {
    // Callers cut the value to its width first, so N never exceeds the width.
    const unsigned n = compact_length(v);
    buffer->push_back(static_cast<uint8_t>(n));
    for (unsigned i = 0; i < n; ++i) buffer->push_back(static_cast<uint8_t>(v >> (8 * i)));
}

void ScriptCacheWriter::compact_u32(uint32_t v) { compact(v); }

void ScriptCacheWriter::compact_u64(uint64_t v) { compact(v); }

void ScriptCacheWriter::compact_s32(int32_t v) { compact(static_cast<uint32_t>(v)); }

void ScriptCacheWriter::compact_s64(int64_t v) { compact(static_cast<uint64_t>(v)); }

void ScriptCacheWriter::compact_text(const char* text, std::size_t size) {
    std::size_t n = size < kMaxTextString ? size : kMaxTextString;
    if (text) {
        const void* zero = std::memchr(text, 0, n);
        if (zero) n = static_cast<std::size_t>(static_cast<const char*>(zero) - text);
    } else {
        n = 0;
    }
    compact_u32(static_cast<uint32_t>(n));
    raw(text, n);
}

void ScriptCacheWriter::compact_string(const std::string& text) {
    const std::size_t n = text.size() > std::numeric_limits<uint32_t>::max()
                              ? std::numeric_limits<uint32_t>::max()
                              : text.size();
    compact_u32(static_cast<uint32_t>(n));
    raw(text.data(), n);
}

// ---- reader ----------------------------------------------------------------------

ScriptCacheReader::ScriptCacheReader(const std::vector<uint8_t>& bytes, uint32_t start)
    : position(start), buffer(&bytes) {
    if (position > size()) position = static_cast<uint32_t>(size());
}

ScriptCacheReader::ScriptCacheReader(std::vector<uint8_t>&& bytes)
    : ownsBuffer(1),
      owned(std::make_unique<std::vector<uint8_t>>(std::move(bytes))),
      buffer(owned.get()) {}

std::size_t ScriptCacheReader::size() const {
    // The position is 32 bits wide: bytes beyond its reach do not exist here.
    const std::size_t n = buffer->size();
    return n > std::numeric_limits<uint32_t>::max() ? std::numeric_limits<uint32_t>::max() : n;
}

void ScriptCacheReader::exhaust() { position = static_cast<uint32_t>(size()); }

uint64_t ScriptCacheReader::fixed(unsigned width) {
    if (!can_read(width)) return 0;
    uint64_t v = 0;
    const uint8_t* p = buffer->data() + position;
    for (unsigned i = 0; i < width; ++i) v |= static_cast<uint64_t>(p[i]) << (8 * i);
    position += width;
    return v;
}

uint8_t ScriptCacheReader::u8() { return static_cast<uint8_t>(fixed(1)); }
uint16_t ScriptCacheReader::u16() { return static_cast<uint16_t>(fixed(2)); }
uint32_t ScriptCacheReader::u32() { return static_cast<uint32_t>(fixed(4)); }
uint64_t ScriptCacheReader::u64() { return fixed(8); }
float ScriptCacheReader::f32() { return std::bit_cast<float>(static_cast<uint32_t>(fixed(4))); }
double ScriptCacheReader::f64() { return std::bit_cast<double>(fixed(8)); }

bool ScriptCacheReader::raw(void* out, std::size_t n) {
    if (!can_read(n)) return false;
    if (n) std::memcpy(out, buffer->data() + position, n);
    position += static_cast<uint32_t>(n);
    return true;
}

bool ScriptCacheReader::skip(std::size_t n) {
    if (!can_read(n)) return false;
    position += static_cast<uint32_t>(n);
    return true;
}

uint64_t ScriptCacheReader::compact(unsigned width) {
    if (!can_read(1)) return 0;
    const unsigned n = (*buffer)[position];
    ++position;
    if (n == 0 || !can_read(n)) return 0;
    // A length beyond the width of the value is consumed whole; only the low
    // bytes that fit are kept.
    uint64_t v = 0;
    const uint8_t* p = buffer->data() + position;
    for (unsigned i = 0; i < n && i < width; ++i) v |= static_cast<uint64_t>(p[i]) << (8 * i);
    position += n;
    return v;
}

uint32_t ScriptCacheReader::compact_u32() { return static_cast<uint32_t>(compact(4)); }
uint64_t ScriptCacheReader::compact_u64() { return compact(8); }
int32_t ScriptCacheReader::compact_s32() {
    return static_cast<int32_t>(static_cast<uint32_t>(compact(4)));
}
int64_t ScriptCacheReader::compact_s64() { return static_cast<int64_t>(compact(8)); }

std::string ScriptCacheReader::compact_string() {
    const uint32_t n = compact_u32();
    if (n == 0 || !can_read(n)) return std::string();
    std::string text(reinterpret_cast<const char*>(buffer->data() + position), n);
    position += n;
    return text;
}

}  // namespace vrk
