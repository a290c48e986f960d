// Text encodings of vrn-exec: scripts and the screen are UTF-8, char values
// are Windows-1252 bytes, nchar values UTF-16LE.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "frame/convert.h"

namespace vrn::exec {

using Bytes = std::vector<uint8_t>;

// UTF-8 to code points; nullopt for malformed input. (AppendUtf8, the other
// way, is the frame's.)
std::optional<std::u32string> DecodeUtf8(std::string_view text);

// Windows-1252. The five unassigned bytes map to the C1 controls of the same
// value, as the platform's converter does, so every byte round-trips.
char32_t Cp1252ToUnicode(uint8_t byte);
std::optional<uint8_t> UnicodeToCp1252(char32_t codePoint);

// Code points to 1252 bytes; nullopt names the first code point without a byte.
struct Encoded1252 {
    Bytes bytes;
    std::optional<char32_t> unmapped;
};
Encoded1252 EncodeCp1252(const std::u32string& text);
Bytes EncodeUtf16(const std::u32string& text);
std::u32string DecodeCp1252(const Bytes& bytes);

// Display forms in UTF-8. Control characters (and unpaired surrogates, or an
// odd trailing byte) come out as \xHH / \uHHHH so that every line stays one
// printable line; keepNewlines lets message texts keep their line breaks.
std::string ShowCp1252(const Bytes& bytes, bool keepNewlines = false);
std::string ShowUtf16(const Bytes& bytes, bool keepNewlines = false);
// The exact characters in UTF-8, for JSON (where the escaping is JSON's).
std::string Cp1252ToUtf8(const Bytes& bytes);
std::string Utf16ToUtf8(const Bytes& bytes);

std::string Hex(const Bytes& bytes);  // upper case, no prefix

// A copy of text with its ASCII letters lowered, or raised.
std::string LowerText(std::string text);
std::string UpperText(std::string text);
// Columns a UTF-8 text takes on a terminal (one per code point).
size_t DisplayWidth(std::string_view utf8);

}  // namespace vrn::exec
