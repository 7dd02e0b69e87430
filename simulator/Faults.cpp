#include "simulator/Faults.h"

#include "tools/Nearest.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <nlohmann/json.hpp>

#include <utility>

namespace kiv::simulator {

namespace {

unsigned PositiveOf(const char* key, GVariant* value)
{
    const unsigned number = g_variant_get_uint32(value);
    if (number == 0) {
        throw InvalidArguments(fmt::format("\"{}\" must be at least 1, got 0", key));
    }
    return number;
}

// Throws BusError unless the flag is true, because a false flag would be a fault without effect.
bool TrueOf(const char* key, GVariant* value)
{
    if (g_variant_get_boolean(value) == FALSE) {
        throw InvalidArguments(fmt::format("\"{}\" must be true, or left out, got false", key));
    }
    return true;
}

Variant TupleOf(const char* key, GVariant* value)
{
    try {
        return Unwrap(value);
    } catch (const BusError& error) {
        throw InvalidArguments(fmt::format("\"{}\" {}", key, error.what()));
    }
}

std::string ErrorNameOf(GVariant* value)
{
    std::string name = g_variant_get_string(value, nullptr);
    if (g_dbus_is_interface_name(name.c_str()) == FALSE) {
        throw InvalidArguments(
            fmt::format(R"("error" must be a D-Bus error name such as org.example.Bad, got "{}")", name));
    }
    return name;
}

// Returns a key's value in the form that a scenario has.
nlohmann::json ValueToJson(GVariant* value)
{
    if (g_variant_is_of_type(value, G_VARIANT_TYPE_BOOLEAN) != FALSE) {
        return g_variant_get_boolean(value) != FALSE;
    }
    if (g_variant_is_of_type(value, G_VARIANT_TYPE_UINT32) != FALSE) {
        return g_variant_get_uint32(value);
    }
    if (g_variant_is_of_type(value, G_VARIANT_TYPE_STRING) != FALSE) {
        return g_variant_get_string(value, nullptr);
    }
    if (g_variant_is_of_type(value, G_VARIANT_TYPE_BYTESTRING) != FALSE) {
        return fmt::format("{:02x}", fmt::join(BytesOf(value), " "));
    }
    return TakeText(g_variant_print(value, TRUE));
}

[[noreturn]] void RefuseTwoOutcomes()
{
    throw InvalidArguments("a fault must have at most one of the keys error, silent, reply, bytes, append and exit");
}

void SetReply(Fault& fault, Variant tuple)
{
    if (fault.reply != nullptr) {
        RefuseTwoOutcomes();
    }
    fault.reply = std::move(tuple);
}

} // namespace

void Faults::RequireMethod(const std::string& method) const
{
    if (method != kEveryMethod && !methods_.contains(method)) {
        const std::vector<std::string> methods(methods_.begin(), methods_.end());
        const std::string meant = DidYouMean(method, methods);
        throw InvalidArguments(fmt::format(
            "the server has no method \"{}\"{}", method,
            meant.empty() ? fmt::format("; known are {}", fmt::join(methods, ", ")) : meant));
    }
}

void Faults::Set(const std::string& method, GVariant* description)
{
    RequireMethod(method);
    Plan plan;
    plan.description = Own(g_variant_ref(description));
    GVariantIter entries;
    g_variant_iter_init(&entries, description);
    const char* key = nullptr;
    GVariant* value = nullptr;
    while (g_variant_iter_next(&entries, "{&sv}", &key, &value) != FALSE) {
        Apply(plan, key, Own(value).get());
    }
    Check(method, plan);
    plans_[method] = plan;
}

const std::map<std::string, Faults::Key>& Faults::KeyTable()
{
    static const std::map<std::string, Key> kKeys = {
        {"error", {"s", [](Plan& plan, GVariant* value) { plan.fault.error = ErrorNameOf(value); }}},
        {"message",
         {"s", [](Plan& plan, GVariant* value) { plan.fault.message = g_variant_get_string(value, nullptr); }}},
        {"silent", {"b", [](Plan& plan, GVariant* value) { plan.fault.silent = TrueOf("silent", value); }}},
        {"reply", {"v", [](Plan& plan, GVariant* value) { SetReply(plan.fault, TupleOf("reply", value)); }}},
        {"bytes",
         {"ay", [](Plan& plan, GVariant* value) { SetReply(plan.fault, Own(g_variant_new_tuple(&value, 1))); }}},
        {"append", {"ay", [](Plan& plan, GVariant* value) { plan.fault.append = BytesOf(value); }}},
        {"exit", {"b", [](Plan& plan, GVariant* value) { plan.fault.exit = TrueOf("exit", value); }}},
        {"delay",
         {"u", [](Plan& plan,
                  GVariant* value) { plan.fault.delay = std::chrono::milliseconds(g_variant_get_uint32(value)); }}},
        {"every", {"u", [](Plan& plan, GVariant* value) { plan.every = PositiveOf("every", value); }}},
        {"count", {"u", [](Plan& plan, GVariant* value) { plan.count = PositiveOf("count", value); }}},
    };
    return kKeys;
}

std::map<std::string, std::string> Faults::Keys()
{
    std::map<std::string, std::string> types;
    for (const auto& [name, key] : KeyTable()) {
        types.emplace(name, key.type);
    }
    return types;
}

void Faults::Apply(Plan& plan, const std::string& key, GVariant* value)
{
    const auto entry = KeyTable().find(key);
    if (entry == KeyTable().end()) {
        throw InvalidArguments(fmt::format("there is no fault key \"{}\"", key));
    }
    const std::string type = entry->second.type;
    // A variant may hold a value of any type.
    if (type != "v" && g_variant_is_of_type(value, G_VARIANT_TYPE(type.c_str())) == FALSE) {
        throw InvalidArguments(
            fmt::format(R"(fault key "{}" has type "{}", not "{}")", key, type, g_variant_get_type_string(value)));
    }
    entry->second.apply(plan, value);
}

void Faults::Check(const std::string& method, const Plan& plan) const
{
    const Fault& fault = plan.fault;
    if (!fault.error.empty() + fault.silent + (fault.reply != nullptr) + fault.exit + !fault.append.empty() > 1) {
        RefuseTwoOutcomes();
    }
    if (!fault.message.empty() && fault.error.empty()) {
        throw InvalidArguments(R"(fault key "message" must stand with "error")");
    }
    const bool isLate = g_variant_lookup(plan.description.get(), "delay", "u", nullptr) != FALSE;
    if (!fault.HasOutcome() && fault.append.empty() && !isLate) {
        throw InvalidArguments("a fault must have one of the keys error, silent, reply, bytes, append, exit and delay");
    }
    if (!fault.append.empty() && method != kEveryMethod && !methodsWithBytes_.contains(method)) {
        throw InvalidArguments(
            fmt::format("fault key \"append\" needs a method whose answer has bytes, got {}", method));
    }
}

void Faults::Clear(const std::string& method)
{
    RequireMethod(method);
    plans_.erase(method);
}

nlohmann::json Faults::ToJson() const
{
    nlohmann::json faults = nlohmann::json::object();
    for (const auto& [method, plan] : plans_) {
        faults[method] = ToJson(plan);
    }
    return faults;
}

nlohmann::json Faults::ToJson(const Plan& plan)
{
    nlohmann::json fault = nlohmann::json::object();
    GVariantIter entries;
    g_variant_iter_init(&entries, plan.description.get());
    const char* key = nullptr;
    GVariant* next = nullptr;
    while (g_variant_iter_next(&entries, "{&sv}", &key, &next) != FALSE) {
        const Variant value = Own(next);
        fault[key] = ValueToJson(value.get());
    }
    if (plan.count) {
        fault["count"] = *plan.count;
    }
    return fault;
}

Fault Faults::Next(const std::string& method)
{
    auto entry = plans_.find(method);
    if (entry == plans_.end()) {
        entry = plans_.find(kEveryMethod);
    }
    if (entry == plans_.end()) {
        return {};
    }
    Plan& plan = entry->second;
    if (++plan.seen % plan.every != 0) {
        return {};
    }
    Fault fault = plan.fault;
    if (plan.count && --*plan.count == 0) {
        plans_.erase(entry);
    }
    return fault;
}

} // namespace kiv::simulator
