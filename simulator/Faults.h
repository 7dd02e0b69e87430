#pragma once

#include "simulator/BusObject.h"
#include "simulator/Glib.h"

#include <nlohmann/json_fwd.hpp>

#include <chrono>
#include <map>
#include <optional>
#include <set>
#include <string>

namespace kiv::simulator {

// The effect of a fault on a call. By default, there is none.
struct Fault {
    std::chrono::milliseconds delay{0};
    std::string error;
    std::string message;
    bool silent = false;
    bool exit = false;
    Variant reply;
    // These bytes follow the bytes of the proper answer.
    Bytes append;

    // Returns whether the call gets another outcome than the proper answer.
    bool HasOutcome() const { return !error.empty() || silent || exit || reply != nullptr; }
};

// The faults of the server's methods.
class Faults {
public:
    // Stands for every method that has no fault of its own.
    static constexpr char kEveryMethod[] = "*";

    // Takes the methods of the server, and those whose answer has bytes.
    Faults(std::set<std::string> methods, std::set<std::string> methodsWithBytes)
        : methods_(std::move(methods)), methodsWithBytes_(std::move(methodsWithBytes))
    {
    }
    // Takes both sets of methods from the interface.
    explicit Faults(const Interface& server) : Faults(server.Methods(), server.MethodsThatReturn("ay")) {}

    // Returns the keys that a description can have, with their D-Bus types.
    static std::map<std::string, std::string> Keys();

    // Replaces the method's fault. The description is an a{sv}. Throws BusError for a description that is not valid.
    void Set(const std::string& method, GVariant* description);
    // Throws BusError if the server has no such method.
    void Clear(const std::string& method);
    void Clear() { plans_.clear(); }

    // Returns the faults that are left, by method, in the form that a scenario has.
    nlohmann::json ToJson() const;

    // Returns the fault of a call of this method that has just arrived.
    Fault Next(const std::string& method);

private:
    struct Plan {
        Fault fault;
        Variant description;
        unsigned every = 1;
        std::optional<unsigned> count;
        unsigned seen = 0;
    };

    struct Key {
        const char* type;
        void (*apply)(Plan& plan, GVariant* value);
    };

    static const std::map<std::string, Key>& KeyTable();
    static void Apply(Plan& plan, const std::string& key, GVariant* value);
    void Check(const std::string& method, const Plan& plan) const;
    static nlohmann::json ToJson(const Plan& plan);
    void RequireMethod(const std::string& method) const;

    std::set<std::string> methods_;
    std::set<std::string> methodsWithBytes_;
    std::map<std::string, Plan> plans_;
};

} // namespace kiv::simulator
