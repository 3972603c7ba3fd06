// Big-endian wire codec.
//
// Every message, record and header that crosses a process boundary is read and
// written through these two classes, field by field at an explicit byte offset.
// Both keep a sticky failure flag in the manner of a stream: an access that would
// fall outside the buffer touches nothing, yields zero, and marks the codec bad,
// so a handler can do a run of reads and check ok() once at the end.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

namespace vorn::be {

// Read-only view of a wire buffer.
class Reader {
public:
    Reader() = default;
    Reader(const void* data, size_t size) : p_(static_cast<const uint8_t*>(data)), size_(size) {}
    explicit Reader(std::span<const uint8_t> s) : p_(s.data()), size_(s.size()) {}

    size_t size() const { return size_; }
    bool ok() const { return ok_; }
    // True when [off, off + n) lies inside the buffer.
    bool fits(size_t off, size_t n) const { return off <= size_ && n <= size_ - off; }

    uint8_t u8(size_t off) const {
        if (!check(off, 1)) return 0;
        return p_[off];
    }
    uint16_t u16(size_t off) const {
        if (!check(off, 2)) return 0;
        return static_cast<uint16_t>((p_[off] << 8) | p_[off + 1]);
    }
    uint32_t u32(size_t off) const {
        if (!check(off, 4)) return 0;
        return (uint32_t{p_[off]} << 24) | (uint32_t{p_[off + 1]} << 16) |
               (uint32_t{p_[off + 2]} << 8) | uint32_t{p_[off + 3]};
    }
    int32_t i32(size_t off) const { return static_cast<int32_t>(u32(off)); }
    // Copies n bytes at off into dst; on a short buffer dst is zeroed.
    bool bytes(size_t off, void* dst, size_t n) const {
        if (!check(off, n)) {
            std::memset(dst, 0, n);
            return false;
        }
        std::memcpy(dst, p_ + off, n);
        return true;
    }
    // A view of n bytes at off, empty when they do not fit.
    std::span<const uint8_t> view(size_t off, size_t n) const {
        if (!check(off, n)) return {};
        return {p_ + off, n};
    }
    const uint8_t* data() const { return p_; }

private:
    bool check(size_t off, size_t n) const {
        if (fits(off, n)) return true;
        ok_ = false;
        return false;
    }
    const uint8_t* p_ = nullptr;
    size_t size_ = 0;
    mutable bool ok_ = true;
};

// Writable view of a wire buffer.
class Writer {
public:
    Writer(void* data, size_t size) : p_(static_cast<uint8_t*>(data)), size_(size) {}
    explicit Writer(std::span<uint8_t> s) : p_(s.data()), size_(s.size()) {}

    size_t size() const { return size_; }
    bool ok() const { return ok_; }
    bool fits(size_t off, size_t n) const { return off <= size_ && n <= size_ - off; }

    bool u8(size_t off, uint8_t v) {
        if (!check(off, 1)) return false;
        p_[off] = v;
        return true;
    }
    bool u16(size_t off, uint16_t v) {
        if (!check(off, 2)) return false;
        p_[off] = static_cast<uint8_t>(v >> 8);
        p_[off + 1] = static_cast<uint8_t>(v);
        return true;
    }
    bool u32(size_t off, uint32_t v) {
        if (!check(off, 4)) return false;
        p_[off] = static_cast<uint8_t>(v >> 24);
        p_[off + 1] = static_cast<uint8_t>(v >> 16);
        p_[off + 2] = static_cast<uint8_t>(v >> 8);
        p_[off + 3] = static_cast<uint8_t>(v);
        return true;
    }
    bool bytes(size_t off, const void* src, size_t n) {
        if (!check(off, n)) return false;
        std::memcpy(p_ + off, src, n);
        return true;
    }
    bool zero(size_t off, size_t n) {
        if (!check(off, n)) return false;
        std::memset(p_ + off, 0, n);
        return true;
    }
    Reader reader() const { return Reader(p_, size_); }
    uint8_t* data() { return p_; }

private:
    bool check(size_t off, size_t n) {
        if (fits(off, n)) return true;
        ok_ = false;
        return false;
    }
    uint8_t* p_;
    size_t size_;
    bool ok_ = true;
};

}  // namespace vorn::be
