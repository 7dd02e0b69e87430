#include "simulator/Glib.h"

#include <fmt/format.h>

#include <utility>

namespace kiv::simulator {

namespace {

// Throws BusError unless D-Bus has a type for the tuple. GVariant has more types: maybe types, and empty tuples inside
// others.
void RequireFitForDBus(GVariant* tuple)
{
    // The signature is checked first, because GLib logs a critical for a body that D-Bus has no type for.
    const std::string type = g_variant_get_type_string(tuple);
    if (g_variant_is_signature(type.substr(1, type.size() - 2).c_str()) == FALSE) {
        throw InvalidArguments(fmt::format("D-Bus has no type for \"{}\"", type));
    }
    const auto message = OwnObject(g_dbus_message_new_signal("/a", "a.a", "a"));
    g_dbus_message_set_body(message.get(), tuple);
    link::ErrorOwner error;
    std::size_t size = 0;
    const std::unique_ptr<unsigned char, link::Releaser<g_free>> wire(
        g_dbus_message_to_blob(message.get(), &size, G_DBUS_CAPABILITY_FLAGS_NONE, error.Out()));
    if (wire == nullptr) {
        throw InvalidArguments(error->message);
    }
}

} // namespace

Variant Wrap(GVariant* tuple)
{
    return Own(g_variant_n_children(tuple) == 0 ? g_variant_new_string("()") : g_variant_ref(tuple));
}

Variant Unwrap(GVariant* value)
{
    if (g_variant_is_of_type(value, G_VARIANT_TYPE_VARIANT)) {
        return Unwrap(Own(g_variant_get_variant(value)).get());
    }
    const bool isText = g_variant_is_of_type(value, G_VARIANT_TYPE_STRING) != FALSE;
    Variant tuple = isText ? ParseValue(g_variant_get_string(value, nullptr)) : Own(g_variant_ref(value));
    if (g_variant_is_of_type(tuple.get(), G_VARIANT_TYPE_TUPLE) == FALSE) {
        throw InvalidArguments(fmt::format(
            "must be a tuple such as (1, 'x'), got a value of type \"{}\"", g_variant_get_type_string(tuple.get())));
    }
    RequireFitForDBus(tuple.get());
    return tuple;
}

Variant ParseValue(const std::string& text)
{
    link::ErrorOwner error;
    GVariant* value = g_variant_parse(nullptr, text.c_str(), nullptr, nullptr, error.Out());
    if (value == nullptr) {
        throw InvalidArguments(
            fmt::format("must be a value in GVariant text form, got \"{}\": {}", text, error->message));
    }
    return Own(value);
}

Bytes BytesOf(GVariant* byteArray)
{
    std::size_t size = 0;
    const auto* data = static_cast<const std::uint8_t*>(g_variant_get_fixed_array(byteArray, &size, 1));
    return {data, data + size};
}

GVariant* NewByteArray(const Bytes& bytes)
{
    return g_variant_new_fixed_array(G_VARIANT_TYPE_BYTE, bytes.data(), bytes.size(), 1);
}

void After(std::chrono::milliseconds delay, std::function<void()> action)
{
    using Action = std::function<void()>;
    const auto run = [](void* data) -> gboolean {
        (*static_cast<Action*>(data))();
        return G_SOURCE_REMOVE;
    };
    const auto drop = [](void* data) { delete static_cast<Action*>(data); };
    g_timeout_add_full(G_PRIORITY_DEFAULT, static_cast<guint>(delay.count()), run, new Action(std::move(action)), drop);
}

} // namespace kiv::simulator
