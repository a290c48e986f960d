// Byte-level reading and writing of TDS. The reader never reads past its
// buffer: a read beyond the end yields zeros and marks the reader failed, so a
// decoder checks ok() once at the end instead of after every field.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

namespace vrn::tds {

using Bytes = std::vector<uint8_t>;

class Reader {
public:
    Reader() = default;
    Reader(const uint8_t* data, size_t size) : data_(data), size_(size) {}
    explicit Reader(const Bytes& bytes) : Reader(bytes.data(), bytes.size()) {}

    [[nodiscard]] bool ok() const { return ok_; }
    [[nodiscard]] size_t position() const { return pos_; }
    [[nodiscard]] size_t remaining() const { return ok_ ? size_ - pos_ : 0; }
    [[nodiscard]] bool AtEnd() const { return pos_ >= size_; }
    void Fail() { ok_ = false, pos_ = size_; }

    // Whether n more bytes are there; fails the reader when they aren't.
    bool Need(size_t n) {
        if (ok_ && n <= size_ - pos_) return true;
        Fail();
        return false;
    }
    void Skip(size_t n) {
        if (Need(n)) pos_ += n;
    }
    void Seek(size_t at) {
        if (at <= size_ && ok_) pos_ = at; else Fail();
    }

    uint8_t U8() { return Need(1) ? data_[pos_++] : 0; }
    uint16_t U16() { return static_cast<uint16_t>(Little(2)); }
    uint32_t U32() { return static_cast<uint32_t>(Little(4)); }
    uint64_t U64() { return Little(8); }
    uint16_t U16BigEndian() {
        if (!Need(2)) return 0;
        const uint16_t v = static_cast<uint16_t>(data_[pos_] << 8 | data_[pos_ + 1]);
        pos_ += 2;
        return v;
    }
    Bytes Take(size_t n) {
        if (!Need(n)) return {};
        Bytes out(data_ + pos_, data_ + pos_ + n);
        pos_ += n;
        return out;
    }
    // UTF-16LE text of n characters.
    std::u16string Utf16(size_t characters) {
        if (characters > SIZE_MAX / 2 || !Need(characters * 2)) return {};
        std::u16string out(characters, u'\0');
        for (size_t i = 0; i < characters; ++i) out[i] = static_cast<char16_t>(data_[pos_ + 2 * i] | data_[pos_ + 2 * i + 1] << 8);
        pos_ += characters * 2;
        return out;
    }
    std::u16string BVarChar() { return Utf16(U8()); }   // length in characters, one byte
    std::u16string UsVarChar() { return Utf16(U16()); }  // length in characters, two bytes
    const uint8_t* Here() const { return data_ + pos_; }

private:
    uint64_t Little(size_t n) {
        if (!Need(n)) return 0;
        uint64_t v = 0;
        for (size_t i = 0; i < n; ++i) v |= uint64_t{data_[pos_ + i]} << (8 * i);
        pos_ += n;
        return v;
    }

    const uint8_t* data_ = nullptr;
    size_t size_ = 0;
    size_t pos_ = 0;
    bool ok_ = true;
};

class Writer {
public:
    Bytes& bytes() { return out_; }
    [[nodiscard]] size_t size() const { return out_.size(); }

    void U8(uint8_t v) { out_.push_back(v); }
    void U16(uint16_t v) { Little(v, 2); }
    void U32(uint32_t v) { Little(v, 4); }
    void U64(uint64_t v) { Little(v, 8); }
    void U16BigEndian(uint16_t v) {
        out_.push_back(static_cast<uint8_t>(v >> 8));
        out_.push_back(static_cast<uint8_t>(v));
    }
    void Append(const uint8_t* data, size_t n) { out_.insert(out_.end(), data, data + n); }
    void Append(const Bytes& b) { out_.insert(out_.end(), b.begin(), b.end()); }
    void Utf16(std::u16string_view text) {
        for (char16_t c : text) U16(static_cast<uint16_t>(c));
    }
    // Texts longer than their length field can say are cut.
    void BVarChar(std::u16string_view text) {
        text = text.substr(0, 255);
        U8(static_cast<uint8_t>(text.size()));
        Utf16(text);
    }
    void UsVarChar(std::u16string_view text) {
        text = text.substr(0, 65535);
        U16(static_cast<uint16_t>(text.size()));
        Utf16(text);
    }
    // Writes a 16-bit length placeholder; Patch16 fills it with the bytes written since.
    size_t Mark16() {
        const size_t at = out_.size();
        U16(0);
        return at;
    }
    void Patch16(size_t at) {
        const size_t n = out_.size() - at - 2;
        out_[at] = static_cast<uint8_t>(n);
        out_[at + 1] = static_cast<uint8_t>(n >> 8);
    }

private:
    void Little(uint64_t v, size_t n) {
        for (size_t i = 0; i < n; ++i) out_.push_back(static_cast<uint8_t>(v >> (8 * i)));
    }
    Bytes out_;
};

}  // namespace vrn::tds
