#pragma once

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

/** A shared reference to a value; takes a floating one over. */
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

/** The error slot of a GLib call. */
class ErrorSlot {
public:
    ErrorSlot() = default;
    ErrorSlot(const ErrorSlot&) = delete;
    ErrorSlot& operator=(const ErrorSlot&) = delete;
    ~ErrorSlot() { g_clear_error(&error_); }

    GError** operator&() { return &error_; }
    GError* operator->() const { return error_; }
    GError* Get() const { return error_; }

private:
    GError* error_ = nullptr;
};

/** Becomes the D-Bus error that answers the call being handled. */
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

/**
 * A tuple as the content of a variant. D-Bus has no empty tuple inside a variant: the string "()" stands for it.
 */
Variant Wrap(GVariant* tuple);

/** The tuple that a variant holds, as itself or written as text. Throws BusError for anything else. */
Variant Unwrap(GVariant* value);

/** Does something on the main loop when the time has passed. */
void After(std::chrono::milliseconds delay, std::function<void()> action);

using Bytes = std::vector<std::uint8_t>;

/** What a byte array holds. */
Bytes BytesOf(GVariant* byteArray);
/** A byte array, floating. */
GVariant* NewByteArray(const Bytes& bytes);

/** The value that GVariant text stands for. Throws BusError. */
Variant ParseValue(const std::string& text);

/** Does nothing once the owner of the life has gone. */
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
