#pragma once

#include "src/link/Owners.h"

#include <gio/gio.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace kiv::simulator {

// A shared reference to a value. Own() takes over a reference, floating or not.
using Variant = std::shared_ptr<GVariant>;

inline Variant Own(GVariant* value)
{
    return {g_variant_take_ref(value), g_variant_unref};
}

template <typename T>
using ObjectRef = std::shared_ptr<T>;

template <typename T>
ObjectRef<T> OwnObject(T* object)
{
    return {object, [](T* o) { g_clear_object(&o); }};
}

// The flags of a connection to a bus that the process does not share.
inline constexpr auto kOwnConnection = static_cast<GDBusConnectionFlags>(
    G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT | G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION);

// Returns a text that a GLib function has allocated, and frees it.
inline std::string TakeText(char* text)
{
    return link::TextOwner(text).get();
}

// An exception that becomes the D-Bus error that answers the current call.
class BusError : public std::runtime_error {
public:
    BusError(std::string name, const std::string& message) : std::runtime_error(message), name_(std::move(name)) {}
    const std::string& Name() const { return name_; }

private:
    std::string name_;
};

inline constexpr const char* kInvalidArguments = "org.freedesktop.DBus.Error.InvalidArgs";

inline BusError InvalidArguments(const std::string& message)
{
    return {kInvalidArguments, message};
}

// Returns a tuple as the content of a variant. D-Bus has no empty tuple inside a variant: the string "()" stands for
// it.
Variant Wrap(GVariant* tuple);

// Returns the tuple that a variant holds, as a tuple or as text. Throws BusError for anything else.
Variant Unwrap(GVariant* value);

// Runs an action on the main loop after a delay.
void After(std::chrono::milliseconds delay, std::function<void()> action);

using Bytes = std::vector<std::uint8_t>;

// Returns the bytes of a byte array.
Bytes BytesOf(GVariant* byteArray);
// Returns a new byte array, whose reference is floating.
GVariant* NewByteArray(const Bytes& bytes);

// Parses GVariant text. Throws BusError if it is not valid.
Variant ParseValue(const std::string& text);

// Returns the action, wrapped so that it does nothing after the owner of the life has gone.
template <typename Action>
auto While(const std::shared_ptr<void>& life, Action action)
{
    return [life = std::weak_ptr<void>(life), action = std::move(action)](const auto&... arguments) {
        if (!life.expired()) {
            action(arguments...);
        }
    };
}

} // namespace kiv::simulator
