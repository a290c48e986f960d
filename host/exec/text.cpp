#include "host/exec/text.h"

#include <array>
#include <cstdio>

namespace vrn::exec {

namespace {

// 0x80-0x9F; the rest of the code page is Latin-1. Unassigned bytes keep their value.
constexpr std::array<char16_t, 32> kHighControls = {
    0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0x008D, 0x017D, 0x008F, 0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178,
};

bool IsControl(char32_t c) { return c < 0x20 || (c >= 0x7F && c < 0xA0); }

void AppendEscaped(std::string& out, const char* format, unsigned value) {
    char buffer[16];
    std::snprintf(buffer, sizeof buffer, format, value);
    out += buffer;
}

void AppendShown(std::string& out, char32_t c, bool keepNewlines) {
    if (keepNewlines && (c == '\n' || c == '\t')) {
        out += static_cast<char>(c);
    } else if (IsControl(c)) {
        AppendEscaped(out, "\\x%02X", static_cast<unsigned>(c));
    } else {
        AppendUtf8(out, c);
    }
}

// Walks UTF-16LE units, handing out code points; a lone surrogate comes out as itself.
template <class Visit>
void WalkUtf16(const Bytes& bytes, Visit visit) {
    const size_t units = bytes.size() / 2;
    auto unitAt = [&](size_t i) { return static_cast<char32_t>(bytes[2 * i] | (bytes[2 * i + 1] << 8)); };
    for (size_t i = 0; i < units; ++i) {
        char32_t unit = unitAt(i);
        if (unit >= 0xD800 && unit < 0xDC00 && i + 1 < units) {
            const char32_t low = unitAt(i + 1);
            if (low >= 0xDC00 && low < 0xE000) {
                visit(0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00));
                ++i;
                continue;
            }
        }
        visit(unit);
    }
}

bool IsSurrogate(char32_t c) { return c >= 0xD800 && c < 0xE000; }

}  // namespace

std::optional<std::u32string> DecodeUtf8(std::string_view text) {
    std::u32string out;
    out.reserve(text.size());
    for (size_t i = 0; i < text.size();) {
        const auto lead = static_cast<uint8_t>(text[i]);
        size_t extra = 0;
        char32_t c = 0;
        if (lead < 0x80) {
            c = lead;
        } else if ((lead & 0xE0) == 0xC0) {
            extra = 1, c = lead & 0x1F;
        } else if ((lead & 0xF0) == 0xE0) {
            extra = 2, c = lead & 0x0F;
        } else if ((lead & 0xF8) == 0xF0) {
            extra = 3, c = lead & 0x07;
        } else {
            return std::nullopt;
        }
        if (i + extra >= text.size()) return std::nullopt;
        for (size_t k = 1; k <= extra; ++k) {
            const auto next = static_cast<uint8_t>(text[i + k]);
            if ((next & 0xC0) != 0x80) return std::nullopt;
            c = (c << 6) | (next & 0x3F);
        }
        static constexpr char32_t kSmallest[] = {0, 0x80, 0x800, 0x10000};
        if (c < kSmallest[extra] || c > 0x10FFFF || IsSurrogate(c)) return std::nullopt;
        out += c;
        i += extra + 1;
    }
    return out;
}

char32_t Cp1252ToUnicode(uint8_t byte) {
    return byte >= 0x80 && byte < 0xA0 ? kHighControls[byte - 0x80] : byte;
}

std::optional<uint8_t> UnicodeToCp1252(char32_t c) {
    if (c < 0x80 || (c >= 0xA0 && c < 0x100)) return static_cast<uint8_t>(c);
    for (size_t i = 0; i < kHighControls.size(); ++i) {
        if (kHighControls[i] == c) return static_cast<uint8_t>(0x80 + i);
    }
    return std::nullopt;
}

Encoded1252 EncodeCp1252(const std::u32string& text) {
    Encoded1252 result;
    result.bytes.reserve(text.size());
    for (char32_t c : text) {
        const std::optional<uint8_t> byte = UnicodeToCp1252(c);
        if (!byte) {
            result.unmapped = c;
            return result;
        }
        result.bytes.push_back(*byte);
    }
    return result;
}

Bytes EncodeUtf16(const std::u32string& text) {
    Bytes bytes;
    auto unit = [&](char32_t u) {
        bytes.push_back(static_cast<uint8_t>(u & 0xFF));
        bytes.push_back(static_cast<uint8_t>(u >> 8));
    };
    for (char32_t c : text) {
        if (c >= 0x10000) {
            unit(0xD800 + ((c - 0x10000) >> 10));
            unit(0xDC00 + ((c - 0x10000) & 0x3FF));
        } else {
            unit(c);
        }
    }
    return bytes;
}

std::u32string DecodeCp1252(const Bytes& bytes) {
    std::u32string out;
    out.reserve(bytes.size());
    for (uint8_t byte : bytes) out += Cp1252ToUnicode(byte);
    return out;
}

std::string ShowCp1252(const Bytes& bytes, bool keepNewlines) {
    std::string out;
    for (uint8_t byte : bytes) AppendShown(out, Cp1252ToUnicode(byte), keepNewlines);
    return out;
}

std::string ShowUtf16(const Bytes& bytes, bool keepNewlines) {
    std::string out;
    WalkUtf16(bytes, [&](char32_t c) {
        if (IsSurrogate(c)) {
            AppendEscaped(out, "\\u%04X", static_cast<unsigned>(c));
        } else {
            AppendShown(out, c, keepNewlines);
        }
    });
    if (bytes.size() % 2) AppendEscaped(out, "\\x%02X", bytes.back());
    return out;
}

std::string Cp1252ToUtf8(const Bytes& bytes) {
    std::string out;
    for (uint8_t byte : bytes) AppendUtf8(out, Cp1252ToUnicode(byte));
    return out;
}

std::string Utf16ToUtf8(const Bytes& bytes) {
    std::string out;
    WalkUtf16(bytes, [&](char32_t c) { AppendUtf8(out, IsSurrogate(c) ? 0xFFFD : c); });
    return out;
}

std::string LowerText(std::string text) {
    for (char& c : text) c = LowerAscii(c);
    return text;
}

std::string UpperText(std::string text) {
    for (char& c : text) c = UpperAscii(c);
    return text;
}

std::string Hex(const Bytes& bytes) {
    static constexpr char kDigits[] = "0123456789ABCDEF";
    std::string out;
    out.reserve(bytes.size() * 2);
    for (uint8_t byte : bytes) {
        out += kDigits[byte >> 4];
        out += kDigits[byte & 0xF];
    }
    return out;
}

size_t DisplayWidth(std::string_view utf8) {
    size_t width = 0;
    for (char c : utf8) {
        if ((static_cast<uint8_t>(c) & 0xC0) != 0x80) ++width;
    }
    return width;
}

}  // namespace vrn::exec
