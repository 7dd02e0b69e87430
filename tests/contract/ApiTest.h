#pragma once

#include "support/BusTest.h"

#include <algorithm>
#include <cstring>

namespace kiv::test {

inline const std::string kEnter = "D MethodCall: [NAM_API] Enter";

// A server that refuses, and what the log then says before the function's own line.
inline const std::string kRefusal = "{'error': <'org.example.Refused'>, 'message': <'no'>}";

inline std::string RefusedLine(const std::string& method)
{
    return "E MethodCall: [NAM_API] Error: method [" + method + "],[GDBus.Error:org.example.Refused: no]...";
}

// A reply as GVariant text, and its type.
struct WrongReply {
    const char* value;
    const char* type;

    std::string Fault() const { return std::string("{'reply': <") + value + ">}"; }
};

// Replies of every type but the one that a function expects.
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

// The line about a reply of another type.
inline std::string WrongTypeLine(
    const std::string& function, const std::string& method, const std::string& expected, const std::string& found)
{
    return "E " + function + ": [NAM_API] method [" + method + "], type [" + expected + "] expected, [" + found +
           "] found";
}

// A reply that is a byte array, as fault.
inline std::string BytesFault(const std::vector<unsigned char>& bytes)
{
    std::string text;
    for (const unsigned char byte : bytes) {
        text += (text.empty() ? "byte " : ", ") + std::to_string(byte);
    }
    return "{'reply': <(@ay [" + text + "],)>}";
}

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

// The bytes of a call's one argument, "(ay)".
inline std::vector<unsigned char> Bytes(const ServerCall& call)
{
    EXPECT_STREQ(g_variant_get_type_string(call.body.get()), "(ay)");
    GVariant* array = g_variant_get_child_value(call.body.get(), 0);
    gsize count = 0;
    const auto* data = static_cast<const unsigned char*>(g_variant_get_fixed_array(array, &count, 1));
    std::vector<unsigned char> bytes(data, data + count);
    g_variant_unref(array);
    return bytes;
}

/*
 * A function of the library, and a server that is up.
 */
class ApiTest : public BusTest {
protected:
    ApiTest()
    {
        StartServer();
        Connect();
    }

    // What the function itself logged.
    static Lines Own(const std::string& function)
    {
        Lines lines = platform_log::OfFunction(function);
        std::erase(lines, "I " + function + ": >>> API Start ");
        return lines;
    }

    // All that the log says of a call that got as far as the server: the function's lines before its method is called,
    // and those after.
    static Lines Logged(const std::string& function, const Lines& before, const Lines& after)
    {
        return Lines{"I " + function + ": >>> API Start ", kEnter} + before + Lines{kEnter} + after;
    }
};

} // namespace kiv::test
