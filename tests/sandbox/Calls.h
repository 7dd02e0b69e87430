#pragma once

#include "src/link/Owners.h"
#include "tools/sandbox/Connection.h"

#include <gio/gio.h>
#include <sys/types.h>

#include <string>

namespace kiv::sandbox {

// A method of an object on the bus.
struct Callee {
    std::string name;
    std::string path;
    std::string interface;
    std::string method;
};

// Calls a method. Returns the error's name, or an empty text for an answer, which the reply gets.
std::string ErrorOf(
    const Connection& connection, const Callee& callee, GVariant* arguments = nullptr,
    link::VariantOwner* reply = nullptr);

// Pings the owner of a name, which the bus starts if it does not run. Returns the error's name, or an empty text for an
// answer.
std::string Ping(const Connection& connection, const std::string& name);
bool HasOwner(const Connection& connection, const std::string& name);
pid_t OwnerPid(const Connection& connection, const std::string& name);
// Requests a name for the connection. Returns the error's name, or an empty text for success.
std::string RequestName(const Connection& connection, const std::string& name);

} // namespace kiv::sandbox
