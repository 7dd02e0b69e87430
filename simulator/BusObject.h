#pragma once

#include "simulator/Glib.h"

#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <type_traits>

namespace kiv::simulator {

// A method call that has been received. Copies stand for the same call, which is answered at most once.
class Call {
public:
    explicit Call(GDBusMethodInvocation* invocation) : invocation_(OwnObject(invocation)) {}

    std::string Method() const { return g_dbus_method_invocation_get_method_name(invocation_.get()); }
    std::string Sender() const { return g_dbus_method_invocation_get_sender(invocation_.get()); }
    // Returns the flags of the message.
    unsigned Flags() const { return g_dbus_message_get_flags(Message()); }
    // Returns the tuple of arguments, which is "()" for none.
    GVariant* Arguments() const { return g_dbus_method_invocation_get_parameters(invocation_.get()); }

    // Returns the argument at the index. It must be of the type that the introspection XML declares.
    template <typename T>
    T Argument(std::size_t index) const;

    void Return(GVariant* values = nullptr) const;
    void Fail(const std::string& errorName, const std::string& message) const;
    // Answers with a tuple of any type, whatever type the interface declares.
    void ReturnUnchecked(GVariant* values) const;

private:
    GDBusMessage* Message() const { return g_dbus_method_invocation_get_message(invocation_.get()); }

    ObjectRef<GDBusMethodInvocation> invocation_;
};

template <typename T>
T Call::Argument(std::size_t index) const
{
    Variant value = Own(g_variant_get_child_value(Arguments(), index));
    if constexpr (std::is_same_v<T, Variant>) {
        return value;
    } else if constexpr (std::is_same_v<T, Bytes>) {
        return BytesOf(value.get());
    } else if constexpr (std::is_same_v<T, std::string>) {
        return g_variant_get_string(value.get(), nullptr);
    } else if constexpr (std::is_same_v<T, bool>) {
        return g_variant_get_boolean(value.get()) != FALSE;
    } else if constexpr (std::is_same_v<T, std::uint8_t>) {
        return g_variant_get_byte(value.get());
    } else if constexpr (std::is_same_v<T, std::uint32_t>) {
        return g_variant_get_uint32(value.get());
    } else {
        static_assert(std::is_same_v<T, std::int32_t>);
        return g_variant_get_int32(value.get());
    }
}

// The only interface that an introspection XML declares. Throws std::logic_error if the XML has no interface.
class Interface {
public:
    explicit Interface(const char* xml);

    GDBusInterfaceInfo* Info() const { return node_->interfaces[0]; }
    std::set<std::string> Methods() const;
    // Returns the D-Bus type of a method's arguments as a tuple, such as "(is)". Empty if there is no such method.
    std::string ArgumentsType(const std::string& method) const;
    // Returns the methods whose answer has a value of this type.
    std::set<std::string> MethodsThatReturn(const std::string& type) const;

private:
    std::shared_ptr<GDBusNodeInfo> node_;
};

// An object on the bus. A table of handlers serves its methods, on the main loop and in the order in which calls
// arrive. An exception of a handler becomes an error reply.
class BusObject {
public:
    using Handler = std::function<void(const Call&)>;
    using Handlers = std::map<std::string, Handler>;

    // Throws std::logic_error unless the interface and the table name the same methods.
    BusObject(GDBusConnection* connection, const char* path, const char* xml, Handlers handlers);
    BusObject(const BusObject&) = delete;
    BusObject& operator=(const BusObject&) = delete;
    ~BusObject();

private:
    static void OnCall(
        GDBusConnection*, const char* sender, const char* path, const char* interface, const char* method,
        GVariant* arguments, GDBusMethodInvocation* invocation, void* self);

    GDBusConnection* connection_;
    Interface interface_;
    Handlers handlers_;
    unsigned registration_;
};

} // namespace kiv::simulator
