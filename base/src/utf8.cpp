// The conversions between UTF-8 and wide strings that the messages use.
#include <string>
#include <type_traits>

#include "mvbase/exception.h"

namespace {

constexpr char32_t kReplacement = 0xFFFD;

void appendUtf8(std::string& out, char32_t c) {
  if (c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) c = kReplacement;
  if (c < 0x80) {
    out += static_cast<char>(c);
  } else if (c < 0x800) {
    out += static_cast<char>(0xC0 | (c >> 6));
    out += static_cast<char>(0x80 | (c & 0x3F));
  } else if (c < 0x10000) {
    out += static_cast<char>(0xE0 | (c >> 12));
    out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (c & 0x3F));
  } else {
    out += static_cast<char>(0xF0 | (c >> 18));
    out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
    out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (c & 0x3F));
  }
}

void appendWide(std::wstring& out, char32_t c) {
  if constexpr (sizeof(wchar_t) == 2) {
    if (c >= 0x10000) {
      c -= 0x10000;
      out += static_cast<wchar_t>(0xD800 + (c >> 10));
      out += static_cast<wchar_t>(0xDC00 + (c & 0x3FF));
      return;
    }
  }
  out += static_cast<wchar_t>(c);
}

// Decodes one code point at text[i], advancing i; malformed bytes decode as U+FFFD.
char32_t decodeUtf8(const std::string& text, std::size_t& i) {
  const unsigned char lead = static_cast<unsigned char>(text[i++]);
  if (lead < 0x80) return lead;
  int trailing = 0;
  char32_t c = 0;
  char32_t smallest = 0;
  if ((lead & 0xE0) == 0xC0) {
    trailing = 1;
    c = lead & 0x1F;
    smallest = 0x80;
  } else if ((lead & 0xF0) == 0xE0) {
    trailing = 2;
    c = lead & 0x0F;
    smallest = 0x800;
  } else if ((lead & 0xF8) == 0xF0) {
    trailing = 3;
    c = lead & 0x07;
    smallest = 0x10000;
  } else {
    return kReplacement;
  }
  for (int k = 0; k < trailing; ++k) {
    if (i >= text.size()) return kReplacement;
    const unsigned char next = static_cast<unsigned char>(text[i]);
    if ((next & 0xC0) != 0x80) return kReplacement;
    c = (c << 6) | (next & 0x3F);
    ++i;
  }
  if (c < smallest || c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) return kReplacement;
  return c;
}

}  // namespace

std::wstring mfWiden(const std::string& utf8) {
  std::wstring out;
  out.reserve(utf8.size());
  for (std::size_t i = 0; i < utf8.size();) appendWide(out, decodeUtf8(utf8, i));
  return out;
}

std::string mfNarrow(const std::wstring& wide) {
  std::string out;
  out.reserve(wide.size());
  for (std::size_t i = 0; i < wide.size(); ++i) {
    char32_t c = static_cast<char32_t>(static_cast<std::make_unsigned_t<wchar_t>>(wide[i]));
    if constexpr (sizeof(wchar_t) == 2) {
      if (c >= 0xD800 && c <= 0xDBFF && i + 1 < wide.size()) {
        const char32_t low = static_cast<char32_t>(wide[i + 1]);
        if (low >= 0xDC00 && low <= 0xDFFF) {
          c = 0x10000 + ((c - 0xD800) << 10) + (low - 0xDC00);
          ++i;
        }
      }
    }
    appendUtf8(out, c);
  }
  return out;
}
