#include "simulator/CallDifference.h"

#include "simulator/BusObject.h"
#include "simulator/Interfaces.h"
#include "simulator/Records.h"
#include "simulator/ShortText.h"
#include "simulator/Wire.h"

#include <fmt/format.h>

#include <algorithm>
#include <optional>
#include <vector>

namespace kiv::simulator {

namespace {

using Texts = std::vector<std::string>;

// Decodes the bytes of an argument by its name, because the interface gives the same name to the same content. Returns
// nothing for bytes that are not a list.
std::optional<Texts> ReadByName(const std::string& name, const Bytes& bytes)
{
    const auto configs = name == "records" ? ReadConfigs(bytes) : std::nullopt;
    const auto macs = name == "macs" ? ReadMacList(bytes) : std::nullopt;
    if (!configs && !macs) {
        return std::nullopt;
    }
    Texts texts;
    for (const SpeakerConfig& config : configs.value_or(std::vector<SpeakerConfig>())) {
        texts.push_back(fmt::format("{}={}", Text(config.mac), config.value));
    }
    for (const Mac& mac : macs.value_or(std::vector<Mac>())) {
        texts.push_back(Text(mac));
    }
    return texts;
}

std::string ArgumentName(const std::string& method, std::size_t index)
{
    static const Interface kServer(kServerXml);
    const GDBusMethodInfo* const info = g_dbus_interface_info_lookup_method(kServer.Info(), method.c_str());
    for (std::size_t i = 0; info != nullptr && info->in_args != nullptr && info->in_args[i] != nullptr; ++i) {
        if (i == index) {
            return info->in_args[i]->name;
        }
    }
    return fmt::format("argument {}", index + 1);
}

// Returns the first text that differs. A missing text counts as "none".
std::optional<CallDifference> FirstDifferentText(const std::string& name, const Texts& first, const Texts& second)
{
    const auto [inFirst, inSecond] = std::ranges::mismatch(first, second);
    if (inFirst == first.end() && inSecond == second.end()) {
        return std::nullopt;
    }
    return CallDifference{
        fmt::format("{}[{}]", name, inFirst - first.begin()), inFirst == first.end() ? "none" : *inFirst,
        inSecond == second.end() ? "none" : *inSecond};
}

CallDifference FirstDifferentByte(const std::string& name, const Bytes& first, const Bytes& second)
{
    const auto firstTexts = ReadByName(name, first);
    const auto secondTexts = ReadByName(name, second);
    if (firstTexts && secondTexts) {
        if (const auto difference = FirstDifferentText(name, *firstTexts, *secondTexts)) {
            return *difference;
        }
    }
    const auto at = static_cast<std::size_t>(std::ranges::mismatch(first, second).in1 - first.begin());
    return {name, ShortBytes(first, at), ShortBytes(second, at)};
}

bool IsBytes(GVariant* value)
{
    return g_variant_is_of_type(value, G_VARIANT_TYPE_BYTESTRING) != FALSE;
}

} // namespace

std::size_t CountEqualArguments(GVariant* first, GVariant* second)
{
    const std::size_t count = std::min(g_variant_n_children(first), g_variant_n_children(second));
    std::size_t equal = 0;
    for (std::size_t index = 0; index < count; ++index) {
        const Variant inFirst = Own(g_variant_get_child_value(first, index));
        const Variant inSecond = Own(g_variant_get_child_value(second, index));
        equal += g_variant_equal(inFirst.get(), inSecond.get()) != FALSE ? 1U : 0U;
    }
    return equal;
}

CallDifference FirstDifference(const std::string& method, GVariant* first, GVariant* second)
{
    const std::size_t count = std::min(g_variant_n_children(first), g_variant_n_children(second));
    for (std::size_t index = 0; index < count; ++index) {
        const Variant inFirst = Own(g_variant_get_child_value(first, index));
        const Variant inSecond = Own(g_variant_get_child_value(second, index));
        if (g_variant_equal(inFirst.get(), inSecond.get()) != FALSE) {
            continue;
        }
        const std::string name = ArgumentName(method, index);
        return IsBytes(inFirst.get()) && IsBytes(inSecond.get())
                   ? FirstDifferentByte(name, BytesOf(inFirst.get()), BytesOf(inSecond.get()))
                   : CallDifference{name, ShortText(inFirst.get()), ShortText(inSecond.get())};
    }
    return {"the arguments", ShortText(first), ShortText(second)};
}

} // namespace kiv::simulator
