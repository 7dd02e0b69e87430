#pragma once

#include "src/link/Owners.h"
#include "support/BusTest.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <ctime>

namespace kiv::test {

// A fault with which the server refuses a call, and the line that the log then has before the function's own line.
inline const std::string kRefusal = "{'error': <'org.example.Refused'>, 'message': <'no'>}";

inline std::string RefusedLine(const std::string& method)
{
    return ErrorLine(method, "GDBus.Error:org.example.Refused: no");
}

// A fault with which the server dies in the call.
inline const std::string kDeath = "{'exit': <true>}";

inline std::string DiedLine(const std::string& method)
{
    return ErrorLine(method, DeadServerError());
}

// Checks that the line about a failed call has the time of the failure, and nothing else.
inline void ExpectTimed(const std::string& line, const std::string& function, std::time_t earliest)
{
    const std::string format = "E " + function + ": [NAM_API] MethodCall Error, time(";
    ASSERT_THAT(line, ::testing::StartsWith(format));
    long seconds = 0;
    int end = 0;
    std::sscanf(line.c_str() + format.size(), "%ld)%n", &seconds, &end);
    EXPECT_EQ(static_cast<std::size_t>(end), line.size() - format.size()) << line;
    EXPECT_GE(seconds, earliest);
    EXPECT_LE(seconds, std::time(nullptr));
}

inline std::string MethodErrorLine(const std::string& function)
{
    return "E " + function + ": [NAM_API] MethodCall Error";
}

// Returns the line about a call that D-Bus has no message for.
inline std::string TooLongLine(const std::string& method)
{
    return ErrorLine(method, "an array of over 64 MiB, which D-Bus does not allow");
}

// The number of bytes that a D-Bus array can have.
inline constexpr std::size_t kLongestArray = 64 * 1024 * 1024;

// A speaker's MAC address, and how it is sent and logged.
inline const unsigned char kMac[] = {0x02, 0x4b, 0x49, 0x56, 0x7f, 0xa4};
inline const std::string kMacSent = "0x02, 0x4b, 0x49, 0x56, 0x7f, 0xa4";
inline const std::string kMacLogged = "02:4b:49:56:7f:a4";

// A reply as GVariant text, and its type.
struct WrongReply {
    const char* value;
    const char* type;

    std::string Fault() const { return std::string("{'reply': <") + value + ">}"; }
};

// Returns replies of every type except the expected one.
inline std::vector<WrongReply> WrongReplies(const std::string& expected)
{
    std::vector<WrongReply> replies{
        {"'()'", "()"},
        {"('x',)", "(s)"},
        {"(1.5,)", "(d)"},
        {"(true,)", "(b)"},
        {"(7,)", "(i)"},
        {"(1, 2)", "(ii)"},
        {"([1, 2],)", "(ai)"},
        {"(<1>,)", "(v)"},
        {"(['a', 'b'],)", "(as)"},
        {"(int64 1,)", "(x)"},
        {"({'k': <1>},)", "(a{sv})"},
        {"(b'bytes',)", "(ay)"},
        {"(@ay [],)", "(ay)"},
        {"(uint32 1,)", "(u)"},
    };
    std::erase_if(replies, [&](const WrongReply& reply) { return reply.type == expected; });
    return replies;
}

// Returns the line about a reply of another type.
inline std::string WrongTypeLine(
    const std::string& function, const std::string& method, const std::string& expected, const std::string& found)
{
    return "E " + function + ": [NAM_API] method [" + method + "], type [" + expected + "] expected, [" + found +
           "] found";
}

// Returns the lines about a reply to a function that reads a byte array from the first member. They come before the
// function's own lines about missing bytes.
inline Lines NoBytesLines(const std::string& function, const std::string& method, const WrongReply& reply)
{
    const GVariantType* const tuple = G_VARIANT_TYPE(reply.type);
    const GVariantType* const member = g_variant_type_first(tuple);
    if (member == nullptr) {
        return {WrongTypeLine(function, method, "(ay)", reply.type), "E " + function + ": pTuple is NULL"};
    }
    const std::string found(g_variant_type_peek_string(member), g_variant_type_get_string_length(member));
    return {WrongTypeLine(function, method, "ay", found)};
}

// Returns a byte array in the form that Sent() has for arguments.
inline std::string BytesText(const std::vector<unsigned char>& bytes)
{
    const auto array = link::Sink(g_variant_new_fixed_array(G_VARIANT_TYPE_BYTE, bytes.data(), bytes.size(), 1));
    const link::TextOwner printed(g_variant_print(array.get(), FALSE));
    return printed.get();
}

// Returns the bytes of speakers, which lie back to back.
inline std::vector<unsigned char> Records(const std::vector<STNetSpkConfig>& speakers)
{
    std::vector<unsigned char> bytes(speakers.size() * 86);
    if (!speakers.empty()) {
        std::memcpy(bytes.data(), speakers.data(), bytes.size());
    }
    return bytes;
}

// Returns bytes that differ from place to place.
inline std::vector<unsigned char> SomeBytes(std::size_t count)
{
    std::vector<unsigned char> bytes(count);
    for (std::size_t i = 0; i < count; ++i) {
        bytes[i] = static_cast<unsigned char>(i * 7 + i / 97 + 3);
    }
    return bytes;
}

// A buffer that a function fills, with bytes around it that it must leave alone.
template <typename Unit, std::size_t size>
class Guarded {
public:
    Guarded() { memory_.fill(kUntouched); }
    ~Guarded()
    {
        const auto untouched = [](Unit unit) { return unit == kUntouched; };
        EXPECT_TRUE(std::all_of(memory_.begin(), memory_.begin() + kRim, untouched)) << "bytes before the buffer";
        EXPECT_TRUE(std::all_of(memory_.end() - kRim, memory_.end(), untouched)) << "bytes after the buffer";
    }
    Guarded(const Guarded&) = delete;
    Guarded& operator=(const Guarded&) = delete;

    Unit* Data() { return memory_.data() + kRim; }
    std::vector<unsigned char> Bytes() const { return {memory_.begin() + kRim, memory_.end() - kRim}; }
    bool IsUntouched() const { return StartsWithOnly({}); }
    // Returns whether the buffer begins with these bytes, and the others are unchanged.
    bool StartsWithOnly(std::vector<unsigned char> bytes) const
    {
        bytes.resize(size, static_cast<unsigned char>(kUntouched));
        return Bytes() == bytes;
    }

private:
    static constexpr std::ptrdiff_t kRim = 64;
    static constexpr auto kUntouched = static_cast<Unit>(0xee);

    std::array<Unit, size + 2 * kRim> memory_;
};

inline STNetSpkConfig Speaker(unsigned char seed)
{
    unsigned char bytes[sizeof(STNetSpkConfig)];
    for (std::size_t i = 0; i < sizeof bytes; ++i) {
        bytes[i] = static_cast<unsigned char>(seed + i);
    }
    STNetSpkConfig speaker;
    std::memcpy(&speaker, bytes, sizeof speaker);
    return speaker;
}

// Returns the bytes of a call's only argument, "(ay)".
inline std::vector<unsigned char> Bytes(const ServerCall& call)
{
    EXPECT_STREQ(g_variant_get_type_string(call.body.get()), "(ay)");
    const link::VariantOwner array(g_variant_get_child_value(call.body.get(), 0));
    gsize count = 0;
    const auto* data = static_cast<const unsigned char*>(g_variant_get_fixed_array(array.get(), &count, 1));
    return {data, data + count};
}

// Tests a function of the library with a server that runs.
class ApiTest : public Connected<BusTest> {
protected:
    explicit ApiTest(const sandbox::BusOptions& options = {}) : Connected(options) {}

    // Returns the lines that the function itself logged.
    static Lines Own(const std::string& function)
    {
        Lines lines = platform_log::OfFunction(function);
        std::erase(lines, StartLine(function));
        return lines;
    }

    static Lines Errors(const std::string& function)
    {
        Lines lines = Own(function);
        std::erase_if(lines, [](const std::string& line) { return !line.starts_with("E "); });
        return lines;
    }

    // Expects that the server was reached, but no method was called.
    void ExpectNothingAsked()
    {
        EXPECT_THAT(Sent(), ::testing::ElementsAre(kOwnerQuery, IdQuery()));
        EXPECT_THAT(control_.Methods(), ::testing::ElementsAre("check_dbus_connection"));
    }

    // Expects that the library asked once more for the server's owner, and did not call the method. The connection is
    // still the same, and carries the next call.
    void ExpectNotCalled(const Lines& sentBefore = {})
    {
        EXPECT_EQ(Sent(), (Lines{kOwnerQuery, IdQuery()} + sentBefore + kOwnerQuery));
        EXPECT_EQ(StopNetworkSpeaker(6), 6);
        EXPECT_EQ(UniqueName(), connected_);
    }

    // Returns all lines of a call that reached the server: the function's lines before its method is called, and those
    // after.
    static Lines Logged(const std::string& function, const Lines& before, const Lines& after)
    {
        return PrologueLines(function) + before + kEnter + after;
    }

private:
    // Returns the name that the bus gave to the library's connection. Each connection gets another one.
    static std::string UniqueName() { return g_dbus_connection_get_unique_name(CNSGdbus::m_pInstance->m_pConnection); }

    const std::string connected_ = UniqueName();
};

} // namespace kiv::test
