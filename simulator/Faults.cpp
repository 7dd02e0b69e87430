#include "simulator/Faults.h"

#include <fmt/format.h>

namespace kiv::simulator {

namespace {

void RequireType(const std::string& key, GVariant* value, const char* type)
{
    if (!g_variant_is_of_type(value, G_VARIANT_TYPE(type))) {
        throw InvalidArguments(
            fmt::format("fault key '{}' has type '{}', not '{}'", key, type, g_variant_get_type_string(value)));
    }
}

std::string TextOf(const std::string& key, GVariant* value)
{
    RequireType(key, value, "s");
    return g_variant_get_string(value, nullptr);
}

bool FlagOf(const std::string& key, GVariant* value)
{
    RequireType(key, value, "b");
    return g_variant_get_boolean(value) != FALSE;
}

unsigned NumberOf(const std::string& key, GVariant* value)
{
    RequireType(key, value, "u");
    return g_variant_get_uint32(value);
}

unsigned PositiveOf(const std::string& key, GVariant* value)
{
    const unsigned number = NumberOf(key, value);
    if (number == 0) {
        throw InvalidArguments(fmt::format("fault key '{}' is at least 1", key));
    }
    return number;
}

std::string ErrorNameOf(const std::string& key, GVariant* value)
{
    std::string name = TextOf(key, value);
    if (g_dbus_is_interface_name(name.c_str()) == FALSE) {
        throw InvalidArguments(fmt::format("'{}' is no D-Bus error name", name));
    }
    return name;
}

} // namespace

void Faults::Set(const std::string& method, GVariant* description)
{
    if (!methods_.contains(method)) {
        throw InvalidArguments(fmt::format("the server has no method '{}'", method));
    }
    Plan plan;
    GVariantIter entries;
    g_variant_iter_init(&entries, description);
    const char* key = nullptr;
    GVariant* value = nullptr;
    while (g_variant_iter_next(&entries, "{&sv}", &key, &value) != FALSE) {
        Apply(plan, key, Own(value).get());
    }
    Check(plan);
    plans_[method] = plan;
}

void Faults::Apply(Plan& plan, const std::string& key, GVariant* value)
{
    if (key == "error") {
        plan.fault.error = ErrorNameOf(key, value);
    } else if (key == "message") {
        plan.fault.message = TextOf(key, value);
    } else if (key == "silent") {
        plan.fault.silent = FlagOf(key, value);
    } else if (key == "reply") {
        plan.fault.reply = Unwrap(value);
    } else if (key == "exit") {
        plan.fault.exit = FlagOf(key, value);
    } else if (key == "delay") {
        plan.fault.delay = std::chrono::milliseconds(NumberOf(key, value));
    } else if (key == "every") {
        plan.every = PositiveOf(key, value);
    } else if (key == "count") {
        plan.count = PositiveOf(key, value);
    } else {
        throw InvalidArguments(fmt::format("there is no fault key '{}'", key));
    }
}

void Faults::Check(const Plan& plan)
{
    const Fault& fault = plan.fault;
    if (!fault.error.empty() + fault.silent + (fault.reply != nullptr) + fault.exit > 1) {
        throw InvalidArguments("at most one of the fault keys error, silent, reply and exit");
    }
    if (!fault.message.empty() && fault.error.empty()) {
        throw InvalidArguments("fault key 'message' goes with 'error'");
    }
}

Fault Faults::Next(const std::string& method)
{
    const auto entry = plans_.find(method);
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
