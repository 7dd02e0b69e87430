#include "simulator/BusObject.h"

#include "src/link/Owners.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <iterator>
#include <utility>

namespace kiv::simulator {

namespace {

void RequireSameMethods(const std::set<std::string>& declared, const BusObject::Handlers& handlers)
{
    std::set<std::string> served;
    for (const auto& [name, handler] : handlers) {
        served.insert(name);
    }
    std::vector<std::string> unmatched;
    std::ranges::set_symmetric_difference(declared, served, std::back_inserter(unmatched));
    if (!unmatched.empty()) {
        throw std::logic_error(
            fmt::format("introspection XML and handlers do not agree about {}", fmt::join(unmatched, ", ")));
    }
}

} // namespace

void Call::Return(GVariant* values) const
{
    // g_dbus_method_invocation_return_value() takes over a reference to the invocation.
    g_object_ref(invocation_.get());
    g_dbus_method_invocation_return_value(invocation_.get(), values);
}

void Call::Fail(const std::string& errorName, const std::string& message) const
{
    g_object_ref(invocation_.get());
    g_dbus_method_invocation_return_dbus_error(invocation_.get(), errorName.c_str(), message.c_str());
}

void Call::ReturnUnchecked(GVariant* values) const
{
    if ((Flags() & G_DBUS_MESSAGE_FLAGS_NO_REPLY_EXPECTED) != 0) {
        return;
    }
    const link::MessageOwner reply(g_dbus_message_new_method_reply(Message()));
    g_dbus_message_set_body(reply.get(), values);
    g_dbus_connection_send_message(
        g_dbus_method_invocation_get_connection(invocation_.get()), reply.get(), G_DBUS_SEND_MESSAGE_FLAGS_NONE,
        nullptr, nullptr);
}

Interface::Interface(const char* xml)
{
    link::ErrorOwner error;
    node_ = link::NodeInfoOwner(g_dbus_node_info_new_for_xml(xml, error.Out()));
    if (node_ == nullptr) {
        throw std::logic_error(fmt::format("introspection XML: {}", error->message));
    }
    if (node_->interfaces[0] == nullptr) {
        throw std::logic_error("introspection XML: no interface");
    }
}

std::set<std::string> Interface::Methods() const
{
    std::set<std::string> names;
    for (GDBusMethodInfo** method = Info()->methods; method != nullptr && *method != nullptr; ++method) {
        names.insert((*method)->name);
    }
    return names;
}

std::string Interface::ArgumentsType(const std::string& method) const
{
    const GDBusMethodInfo* const info = g_dbus_interface_info_lookup_method(Info(), method.c_str());
    if (info == nullptr) {
        return "";
    }
    std::string type;
    for (GDBusArgInfo** argument = info->in_args; argument != nullptr && *argument != nullptr; ++argument) {
        type += (*argument)->signature;
    }
    return '(' + type + ')';
}

std::set<std::string> Interface::MethodsThatReturn(const std::string& type) const
{
    std::set<std::string> names;
    for (GDBusMethodInfo** method = Info()->methods; method != nullptr && *method != nullptr; ++method) {
        for (GDBusArgInfo** value = (*method)->out_args; value != nullptr && *value != nullptr; ++value) {
            if (type == (*value)->signature) {
                names.insert((*method)->name);
            }
        }
    }
    return names;
}

BusObject::BusObject(GDBusConnection* connection, const char* path, const char* xml, Handlers handlers)
    : connection_(connection), interface_(xml), handlers_(std::move(handlers))
{
    RequireSameMethods(interface_.Methods(), handlers_);

    static const GDBusInterfaceVTable kVtable = {&BusObject::OnCall, nullptr, nullptr, {}};
    link::ErrorOwner error;
    registration_ =
        g_dbus_connection_register_object(connection_, path, interface_.Info(), &kVtable, this, nullptr, error.Out());
    if (registration_ == 0) {
        throw std::runtime_error(fmt::format("cannot serve {}: {}", path, error->message));
    }
}

BusObject::~BusObject()
{
    g_dbus_connection_unregister_object(connection_, registration_);
}

void BusObject::OnCall(
    GDBusConnection*, const char*, const char*, const char*, const char* method, GVariant*,
    GDBusMethodInvocation* invocation, void* self)
{
    const Call call(invocation);
    try {
        static_cast<BusObject*>(self)->handlers_.at(method)(call);
    } catch (const BusError& error) {
        call.Fail(error.Name(), error.what());
    } catch (const std::exception& error) {
        call.Fail("org.freedesktop.DBus.Error.Failed", error.what());
    }
}

} // namespace kiv::simulator
