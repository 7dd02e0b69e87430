#include "simulator/SetUp.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <limits>

namespace kiv::simulator {

namespace {

using nlohmann::json;

const json& RequireObject(const json& value, const std::string& what)
{
    if (!value.is_object()) {
        throw SetUpError(what + " is an object");
    }
    return value;
}

json ReadJson(const std::string& file)
{
    std::ifstream stream(file);
    if (!stream) {
        throw SetUpError(std::strerror(errno));
    }
    return json::parse(stream);
}

/** The value that the fault key has when it comes over the bus. */
GVariant* FaultValue(const std::string& key, const json& value)
{
    if (value.is_string()) {
        return g_variant_new_string(value.get<std::string>().c_str());
    }
    if (value.is_boolean()) {
        return g_variant_new_boolean(value.get<bool>() ? TRUE : FALSE);
    }
    if (value.is_number_unsigned() && value.get<std::uint64_t>() <= std::numeric_limits<std::uint32_t>::max()) {
        return g_variant_new_uint32(value.get<std::uint32_t>());
    }
    throw SetUpError(fmt::format("fault key '{}' cannot be {}", key, value.dump()));
}

Variant FaultDescription(const json& fault)
{
    GVariantDict entries;
    g_variant_dict_init(&entries, nullptr);
    try {
        for (const auto& [key, value] : fault.items()) {
            g_variant_dict_insert_value(&entries, key.c_str(), FaultValue(key, value));
        }
    } catch (...) {
        g_variant_dict_clear(&entries);
        throw;
    }
    return Own(g_variant_dict_end(&entries));
}

void ApplyFaults(const json& byMethod, Faults& faults)
{
    for (const auto& [method, fault] : RequireObject(byMethod, "'faults'").items()) {
        try {
            faults.Set(method, FaultDescription(RequireObject(fault, "a fault")).get());
        } catch (const std::runtime_error& error) {
            throw SetUpError(fmt::format("{}: {}", method, error.what()));
        }
    }
}

void Apply(const json& setUp, Clients& clients, Faults& faults)
{
    for (const auto& [key, value] : RequireObject(setUp, "a set-up").items()) {
        if (key == "clientId" && value.is_string()) {
            clients.UseId(value.get<std::string>());
        } else if (key == "faults") {
            ApplyFaults(value, faults);
        } else {
            throw SetUpError(fmt::format("'{}' cannot be {}", key, value.dump()));
        }
    }
}

} // namespace

void ApplySetUp(const std::string& file, Clients& clients, Faults& faults)
{
    try {
        Apply(ReadJson(file), clients, faults);
    } catch (const std::exception& error) {
        throw SetUpError(fmt::format("{}: {}", file, error.what()));
    }
}

} // namespace kiv::simulator
