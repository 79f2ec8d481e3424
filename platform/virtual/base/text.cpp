#include "platform/virtual/base/text.h"

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <utility>

namespace virtual_pc {
namespace {

constexpr char32_t kNoCharacter = 0xFFFD;

bool IsCharacter(char32_t value) { return value < 0xD800 || (value > 0xDFFF && value <= 0x10FFFF); }

// The forms of a character in UTF-8, by length: the mark of its first byte, the bits of the
// character in it, and the least character that needs the form.
struct Form
{
    unsigned char mark;
    int bits;
    char32_t least;
};
constexpr Form kForms[] = {{0x00, 7, 0}, {0xC0, 5, 0x80}, {0xE0, 4, 0x800}, {0xF0, 3, 0x10000}};
constexpr std::size_t kLongestForm = std::size(kForms);

constexpr bool Leads(unsigned char byte, const Form& form)
{
    return byte >> form.bits == form.mark >> form.bits;
}

// The character at the start of `bytes`, and how many of them it takes: one when it is none.
std::pair<char32_t, std::size_t> Decode(std::string_view bytes)
{
    const auto first = static_cast<unsigned char>(bytes.front());
    const auto form = std::ranges::find_if(kForms, [&](const Form& f) { return Leads(first, f); });
    const auto length = static_cast<std::size_t>(form - kForms) + 1;
    if (length > kLongestForm || length > bytes.size()) return {kNoCharacter, 1};
    char32_t value = first & ((1u << form->bits) - 1);
    for (const char byte : bytes.substr(1, length - 1)) {
        if ((byte & 0xC0) != 0x80) return {kNoCharacter, 1};
        value = value << 6 | (byte & 0x3F);
    }
    if (value < form->least || !IsCharacter(value)) return {kNoCharacter, 1};
    return {value, length};
}

}  // namespace

std::string ToUtf8(std::wstring_view text)
{
    std::string bytes;
    bytes.reserve(text.size());
    for (const wchar_t unit : text) {
        auto value = static_cast<char32_t>(unit);
        if (!IsCharacter(value)) value = kNoCharacter;
        std::size_t length = kLongestForm;
        while (value < kForms[length - 1].least) --length;
        for (std::size_t left = length; left-- > 0;) {
            const char32_t part = value >> (6 * left);
            const bool leads = left == length - 1;
            bytes +=
                static_cast<char>(leads ? kForms[length - 1].mark | part : 0x80 | (part & 0x3F));
        }
    }
    return bytes;
}

std::wstring FromUtf8(std::string_view bytes)
{
    std::wstring text;
    text.reserve(bytes.size());
    while (!bytes.empty()) {
        const auto [value, length] = Decode(bytes);
        text += static_cast<wchar_t>(value);
        bytes.remove_prefix(length);
    }
    return text;
}

std::vector<std::wstring> PartsOf(std::wstring_view text, wchar_t separator)
{
    std::vector<std::wstring> parts;
    for (std::size_t from = 0; from < text.size();) {
        const std::size_t to = std::min(text.find(separator, from), text.size());
        if (to > from) parts.emplace_back(text.substr(from, to - from));
        from = to + 1;
    }
    return parts;
}

}  // namespace virtual_pc
