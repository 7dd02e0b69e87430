#pragma once

#include "simulator/Glib.h"

#include <functional>
#include <map>
#include <set>
#include <string>

namespace kiv::simulator {

/** A method call that has been received. Copies stand for the same call, which is answered once or not at all. */
class Call {
public:
    explicit Call(GDBusMethodInvocation* invocation) : invocation_(OwnObject(invocation)) {}

    std::string Method() const;
    std::string Sender() const;
    /** Flags as on the wire. */
    unsigned Flags() const;
    /** The tuple of arguments, "()" for none. */
    GVariant* Arguments() const;

    /** The argument at the index, which must be of the type that the introspection XML declares. */
    template <typename T>
    T Argument(std::size_t index) const;

    void Return(GVariant* values = nullptr) const;
    void Fail(const std::string& errorName, const std::string& message) const;
    /** Answers with a tuple of any type, whatever the interface declares. */
    void ReturnUnchecked(GVariant* values) const;

private:
    ObjectRef<GDBusMethodInvocation> invocation_;
};

template <>
std::uint8_t Call::Argument(std::size_t index) const;
template <>
std::int32_t Call::Argument(std::size_t index) const;
template <>
std::uint32_t Call::Argument(std::size_t index) const;
template <>
bool Call::Argument(std::size_t index) const;
template <>
std::string Call::Argument(std::size_t index) const;
template <>
Variant Call::Argument(std::size_t index) const;
template <>
Bytes Call::Argument(std::size_t index) const;

/** The one interface that an introspection XML declares. Throws std::logic_error if there is no such thing in it. */
class Interface {
public:
    explicit Interface(const char* xml);

    GDBusInterfaceInfo* Info() const { return node_->interfaces[0]; }
    std::set<std::string> Methods() const;
    /** The methods whose answer has a value of this type. */
    std::set<std::string> MethodsThatReturn(const std::string& type) const;

private:
    std::shared_ptr<GDBusNodeInfo> node_;
};

/**
 * An object on the bus whose methods are served by a table of handlers, on the main loop, in order of arrival.
 *
 * What a handler throws becomes an error reply.
 */
class BusObject {
public:
    using Handler = std::function<void(const Call&)>;
    using Handlers = std::map<std::string, Handler>;

    /** Throws std::logic_error unless interface and table name the same methods. */
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
