#include "simulator/ShortText.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>

namespace kiv::simulator {

namespace {

constexpr std::size_t kBytesShown = 32;
// This number of them is shown before the byte of interest.
constexpr std::size_t kBytesBefore = 8;
constexpr glong kCharactersShown = 120;

std::string PrintString(GVariant* value)
{
    const std::string text = TakeText(g_variant_print(value, FALSE));
    const bool fits = g_utf8_strlen(text.c_str(), -1) <= kCharactersShown;
    return fits ? text : TakeText(g_utf8_substring(text.c_str(), 0, kCharactersShown)) + "...";
}

} // namespace

std::string ShortText(GVariant* value)
{
    if (g_variant_is_of_type(value, G_VARIANT_TYPE_BYTESTRING) != FALSE) {
        std::size_t size = 0;
        const auto* const bytes = static_cast<const std::uint8_t*>(g_variant_get_fixed_array(value, &size, 1));
        return ShortBytes({bytes, size});
    }
    if (g_variant_is_container(value) == FALSE) {
        return PrintString(value);
    }
    const GVariantClass type = g_variant_classify(value);
    const char* const separator = type == G_VARIANT_CLASS_DICT_ENTRY ? ": " : ", ";
    std::string text;
    const std::size_t count = g_variant_n_children(value);
    for (std::size_t index = 0; index < count; ++index) {
        text += index == 0 ? "" : separator;
        text += ShortText(Own(g_variant_get_child_value(value, index)).get());
    }
    switch (type) {
    case G_VARIANT_CLASS_TUPLE:
        return "(" + text + ")";
    case G_VARIANT_CLASS_VARIANT:
        return "<" + text + ">";
    case G_VARIANT_CLASS_DICT_ENTRY:
        return text;
    default:
        return "[" + text + "]";
    }
}

std::string Beginning(const std::string& text, std::size_t most)
{
    if (text.size() <= most) {
        return text;
    }
    // The text is not cut within a character of UTF-8, whose further bytes begin with the bits 10.
    while (most > 0 && (static_cast<unsigned char>(text[most]) & 0xC0U) == 0x80U) {
        --most;
    }
    return text.substr(0, most) + "...";
}

std::string ShortBytes(std::span<const std::uint8_t> bytes, std::size_t shown)
{
    const auto hex = [&bytes](std::size_t from, std::size_t to) {
        return fmt::format("{:02x}", fmt::join(bytes.data() + from, bytes.data() + to, " "));
    };
    if (bytes.size() <= kBytesShown) {
        return fmt::format("[{}]", hex(0, bytes.size()));
    }
    const std::size_t from = std::min(shown, bytes.size()) - std::min({shown, bytes.size(), kBytesBefore});
    const std::size_t to = std::min(from + kBytesShown, bytes.size());
    return fmt::format(
        "[{} bytes{}: {}{}]", bytes.size(), from == 0 ? "" : fmt::format(", from byte {}", from), hex(from, to),
        to < bytes.size() ? " ..." : "");
}

} // namespace kiv::simulator
