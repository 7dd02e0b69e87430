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

/** What goes wrong with a call; nothing by default. */
struct Fault {
    std::chrono::milliseconds delay{0};
    std::string error;
    std::string message;
    bool silent = false;
    bool exit = false;
    Variant reply;
    /** What the bytes of a proper answer are followed by. */
    Bytes append;

    /** Whether there is another outcome than the proper answer. */
    bool HasOutcome() const { return !error.empty() || silent || exit || reply != nullptr; }
};

/** The faults that the methods of the server have been given. */
class Faults {
public:
    /** Stands for every method that has no fault of its own. */
    static constexpr char kEveryMethod[] = "*";

    /** The methods of the server, and those of them whose answer has bytes. */
    Faults(std::set<std::string> methods, std::set<std::string> methodsWithBytes)
        : methods_(std::move(methods)), methodsWithBytes_(std::move(methodsWithBytes))
    {
    }
    /** Takes both from the interface. */
    explicit Faults(const Interface& server) : Faults(server.Methods(), server.MethodsThatReturn("ay")) {}

    /** What a description can have, and the D-Bus types. */
    static std::map<std::string, std::string> Keys();

    /** Replaces the method's fault. The description is an a{sv}. Throws BusError for one that makes no sense. */
    void Set(const std::string& method, GVariant* description);
    /** Throws BusError if the server has no such method. */
    void Clear(const std::string& method);
    void Clear() { plans_.clear(); }

    /** The faults that are left, by method, as a scenario has them. */
    nlohmann::json ToJson() const;

    /** What goes wrong with the call of this method that has just arrived. */
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
