#include "src/link/WireCheck.h"

#include "src/link/Owners.h"
#include "support/BusTest.h"
#include "tools/sandbox/Connection.h"

#include <cstring>
#include <random>

using namespace kiv::test;
using kiv::link::MessageOwner;
using kiv::link::Sink;
using kiv::link::VariantOwner;
using kiv::link::WhyUnsendable;

namespace wire_check_test {
namespace {

constexpr std::uint32_t kLongestArray = 64 * 1024 * 1024;

// --- Random values ---

// Returns a value whose data GLib does not check.
GVariant* Trusted(const char* type, const void* data, gsize size)
{
    const kiv::link::BytesOwner bytes(g_bytes_new(data, size));
    return g_variant_new_from_bytes(G_VARIANT_TYPE(type), bytes.get(), TRUE);
}

// Makes values of all types. D-Bus has no message for some of them, and the object knows for which.
class RandomValues {
public:
    explicit RandomValues(unsigned seed) : random_(seed) {}

    struct Arguments {
        VariantOwner value;
        bool areSendable;
    };

    Arguments Next()
    {
        isSendable_ = true;
        // Half of the values are valid.
        wrongs_ = static_cast<int>(Below(2));
        std::vector<GVariant*> members(Below(5));
        for (GVariant*& member : members) {
            member = Value(Type(4), 4);
        }
        return {Sink(g_variant_new_tuple(members.data(), members.size())), isSendable_};
    }

private:
    std::size_t Below(std::size_t limit) { return static_cast<std::size_t>(random_() % limit); }

    // Returns whether something is to be wrong here.
    bool IsWrong()
    {
        const bool isWrong = wrongs_ > 0 && Below(10) == 0;
        if (isWrong) {
            --wrongs_;
            isSendable_ = false;
        }
        return isWrong;
    }

    std::string BasicType() { return std::string(1, "ybnqiuxtdhsog"[Below(13)]); }

    std::string Entry(int depth) { return "{" + BasicType() + Type(depth) + "}"; }

    std::string Type(int depth)
    {
        if (IsWrong()) {
            return std::vector<std::string>{"()", "m" + Type(0), "(" + Entry(0) + ")"}[Below(3)];
        }
        switch (depth > 0 ? Below(6) : 5) {
        case 0:
            return "a" + Type(depth - 1);
        case 1:
            return "a" + Entry(depth - 1);
        case 2: {
            std::string members = Type(depth - 1);
            while (Below(2) == 0) {
                members += Type(depth - 1);
            }
            return "(" + members + ")";
        }
        case 3:
            return "v";
        default:
            return BasicType();
        }
    }

    GVariant* Value(const std::string& type, int depth)
    {
        switch (type[0]) {
        case 's':
            return Text();
        case 'o':
            return IsWrong() ? Unchecked("o", "a/") : g_variant_new_object_path(Below(2) == 0 ? "/" : "/a/b_1");
        case 'g':
            return g_variant_new_signature(IsWrong() ? "a()" : Below(2) == 0 ? "" : "a{sv}(ii)");
        case 'v':
            return g_variant_new_variant(Value(depth > 0 ? Type(depth - 1) : "i", depth - 1));
        case 'm':
            return g_variant_new_maybe(
                G_VARIANT_TYPE(type.c_str() + 1), Below(2) == 0 ? nullptr : Value(type.substr(1), depth));
        case 'a':
            return Array(type, depth);
        case '(':
        case '{':
            return Members(type, depth);
        default:
            return Number(type);
        }
    }

    GVariant* Array(const std::string& type, int depth)
    {
        GVariantBuilder builder;
        g_variant_builder_init(&builder, G_VARIANT_TYPE(type.c_str()));
        for (std::size_t count = Below(4); count > 0; --count) {
            g_variant_builder_add_value(&builder, Value(type.substr(1), depth));
        }
        return g_variant_builder_end(&builder);
    }

    GVariant* Members(const std::string& type, int depth)
    {
        GVariantBuilder builder;
        g_variant_builder_init(&builder, G_VARIANT_TYPE(type.c_str()));
        const GVariantType* member = g_variant_type_first(G_VARIANT_TYPE(type.c_str()));
        for (; member != nullptr; member = g_variant_type_next(member)) {
            const std::string memberType(g_variant_type_peek_string(member), g_variant_type_get_string_length(member));
            g_variant_builder_add_value(&builder, Value(memberType, depth));
        }
        return g_variant_builder_end(&builder);
    }

    GVariant* Text()
    {
        if (IsWrong()) {
            return Unchecked(
                "s", "K\xfc"
                     "che");
        }
        std::string text(Below(20), 'x');
        return g_variant_new_string((text + (Below(2) == 0 ? "K\xc3\xbc"
                                                             "che"
                                                           : ""))
                                        .c_str());
    }

    static GVariant* Unchecked(const char* type, const std::string& text)
    {
        return Trusted(type, text.c_str(), text.size() + 1);
    }

    GVariant* Number(const std::string& type)
    {
        // No number is longer. A boolean must be 0 or 1.
        const std::uint64_t bits = type == "b" ? Below(2) : random_();
        const gsize size = g_variant_get_size(
            Sink(g_variant_new_from_data(G_VARIANT_TYPE(type.c_str()), nullptr, 0, FALSE, nullptr, nullptr)).get());
        return Trusted(type.c_str(), &bits, size);
    }

    std::mt19937_64 random_;
    int wrongs_ = 0;
    bool isSendable_ = true;
};

MessageOwner NewCall(const char* destination, GVariant* body)
{
    MessageOwner message(g_dbus_message_new_method_call(destination, "/a", "a.b", "Method"));
    g_dbus_message_set_body(message.get(), body);
    return message;
}

// Returns the message's bytes, as GIO would send them.
std::string Serialise(GVariant* body)
{
    const MessageOwner message = NewCall("a.b", body);
    g_dbus_message_set_serial(message.get(), 1);
    g_dbus_message_set_byte_order(message.get(), G_DBUS_MESSAGE_BYTE_ORDER_LITTLE_ENDIAN);
    gsize size = 0;
    kiv::link::ErrorOwner error;
    const std::unique_ptr<guchar, kiv::link::Releaser<g_free>> bytes(
        g_dbus_message_to_blob(message.get(), &size, G_DBUS_CAPABILITY_FLAGS_UNIX_FD_PASSING, error.Out()));
    EXPECT_EQ(error.get(), nullptr) << error->message;
    return {reinterpret_cast<const char*>(bytes.get()), size};
}

std::uint32_t NumberAt(const std::string& message, std::size_t offset)
{
    std::uint32_t number = 0;
    std::memcpy(&number, message.data() + offset, sizeof number);
    return GUINT32_FROM_LE(number);
}

// Returns the length of an array that is the first argument.
std::uint32_t ArrayLength(const std::string& message)
{
    constexpr std::size_t kHeaderLengthAt = 12;
    constexpr std::size_t kHeaderStart = 16;
    return NumberAt(message, (kHeaderStart + NumberAt(message, kHeaderLengthAt) + 7) / 8 * 8);
}

// A bus that carries every message that D-Bus allows, and closes the connection for any other.
class WireCheckTest : public BusTest {
protected:
    WireCheckTest() : BusTest({.extraConfig = kLongMessages}) { trace_.reset(); }

    // Returns whether the bus accepts a message with that body, so that the connection stays open.
    bool IsTaken(GVariant* body)
    {
        if (!connection_) {
            connection_.emplace(bus_.Address());
        }
        const MessageOwner message = NewCall("org.lumra.tv.nobody", body);
        // If the bus accepts the message, it answers that the name has no owner.
        const MessageOwner reply(g_dbus_connection_send_message_with_reply_sync(
            connection_->Get(), message.get(), G_DBUS_SEND_MESSAGE_FLAGS_NONE, -1, nullptr, nullptr, nullptr));
        const bool isTaken = reply != nullptr;
        if (!isTaken) {
            connection_.reset();
        }
        return isTaken;
    }

    void ExpectSendable(GVariant* arguments)
    {
        const VariantOwner value = Sink(arguments);
        EXPECT_STREQ(WhyUnsendable("Method", value.get()), nullptr);
        EXPECT_TRUE(IsTaken(value.get()));
    }

    // Expects that the arguments cannot be sent for this reason, and that the bus refuses them.
    void ExpectUnsendable(GVariant* arguments, const char* reason)
    {
        const VariantOwner value = Sink(arguments);
        EXPECT_STREQ(WhyUnsendable("Method", value.get()), reason);
        EXPECT_FALSE(IsTaken(value.get()));
    }

private:
    std::optional<kiv::sandbox::Connection> connection_;
};

class RandomWireCheckTest : public WireCheckTest, public ::testing::WithParamInterface<unsigned> {};

TEST_P(RandomWireCheckTest, WhatItAcceptsIsWhatTheBusTakes)
{
    RandomValues values(GetParam());
    int sendable = 0;
    int unsendable = 0;
    for (int count = 0; count < 2000; ++count) {
        const RandomValues::Arguments arguments = values.Next();
        const char* const reason = WhyUnsendable("Method", arguments.value.get());
        const char* const type = g_variant_get_type_string(arguments.value.get());
        ASSERT_EQ(reason == nullptr, arguments.areSendable) << type << ": " << (reason != nullptr ? reason : "");
        ++(arguments.areSendable ? sendable : unsendable);
        if (reason == nullptr) {
            ASSERT_FALSE(Serialise(arguments.value.get()).empty());
            ASSERT_TRUE(IsTaken(arguments.value.get())) << type;
        }
    }
    EXPECT_GT(sendable, 500);
    EXPECT_GT(unsendable, 100);
}

INSTANTIATE_TEST_SUITE_P(Seeds, RandomWireCheckTest, ::testing::Range(1U, 6U));

// --- Depths and signatures ---

constexpr const char* kTooDeep = "a value that is nested more deeply than D-Bus allows";

GVariant* Tuple(GVariant* member)
{
    return g_variant_new_tuple(&member, 1);
}

GVariant* Array(GVariant* element)
{
    return g_variant_new_array(nullptr, &element, 1);
}

GVariant* Dictionary(GVariant* value)
{
    return Array(g_variant_new_dict_entry(g_variant_new_byte(1), value));
}

GVariant* Nested(int depth, GVariant* (*wrap)(GVariant*), GVariant* value = g_variant_new_string("x"))
{
    for (int level = 0; level < depth; ++level) {
        value = wrap(value);
    }
    return value;
}

TEST_F(WireCheckTest, AsManyArraysAndStructsAsASignatureMayHave)
{
    ExpectSendable(Tuple(Nested(32, Array)));
    ExpectUnsendable(Tuple(Nested(33, Array)), kTooDeep);
    ExpectSendable(Tuple(Nested(32, Tuple)));
    ExpectUnsendable(Tuple(Nested(33, Tuple)), kTooDeep);
    ExpectSendable(Tuple(Nested(32, Array, Nested(32, Tuple))));
    ExpectSendable(Tuple(Nested(32, Dictionary)));
    ExpectUnsendable(Tuple(Nested(33, Dictionary)), kTooDeep);
    // A dictionary entry is not a struct.
    ExpectSendable(Tuple(Nested(16, Dictionary, Nested(32, Tuple))));
}

TEST_F(WireCheckTest, AsManyContainersAsAMessageMayHave)
{
    ExpectSendable(Tuple(Nested(64, g_variant_new_variant)));
    ExpectUnsendable(Tuple(Nested(65, g_variant_new_variant)), kTooDeep);
    ExpectSendable(Tuple(Nested(31, Array, g_variant_new_variant(Nested(32, Tuple)))));
    ExpectUnsendable(Tuple(Nested(32, Array, g_variant_new_variant(Nested(32, Tuple)))), kTooDeep);
    ExpectUnsendable(Tuple(Nested(32, Tuple, g_variant_new_variant(Nested(32, Array)))), kTooDeep);
}

GVariant* Numbers(std::size_t count)
{
    std::vector<GVariant*> members(count);
    for (GVariant*& member : members) {
        member = g_variant_new_int32(1);
    }
    return g_variant_new_tuple(members.data(), members.size());
}

TEST_F(WireCheckTest, AsLongASignatureAsMayBe)
{
    constexpr const char* kLong = "a signature of over 255 characters, which D-Bus does not allow";
    ExpectSendable(Numbers(255));
    EXPECT_STREQ(WhyUnsendable("Method", Sink(Numbers(256)).get()), kLong);
    ExpectSendable(Tuple(g_variant_new_variant(Numbers(253))));
    EXPECT_STREQ(WhyUnsendable("Method", Sink(Tuple(g_variant_new_variant(Numbers(254)))).get()), kLong);
}

TEST_F(WireCheckTest, AnEntryStandsInAnArrayOnly)
{
    constexpr const char* kEntry = "a dictionary entry outside an array, which D-Bus does not have";
    GVariant* const entry = g_variant_new_dict_entry(g_variant_new_byte(1), g_variant_new_byte(2));
    ExpectUnsendable(Tuple(entry), kEntry);
    ExpectUnsendable(
        Tuple(g_variant_new_variant(g_variant_new_dict_entry(g_variant_new_byte(1), g_variant_new_byte(2)))), kEntry);
}

// --- Arrays on both sides of their limit ---

GVariant* Zeroes(const char* type, std::size_t bytes)
{
    void* memory = g_malloc0(bytes);
    return g_variant_new_from_data(G_VARIANT_TYPE(type), memory, bytes, TRUE, g_free, memory);
}

GVariant* Strings(std::size_t count, std::size_t length)
{
    const std::string text(length, 'x');
    const std::vector<const char*> texts(count, text.c_str());
    return g_variant_new_strv(texts.data(), static_cast<gssize>(count));
}

// Returns an array whose elements have a MiB each on the wire. The last one gives the array its length.
GVariant* Elements(const char* type, std::size_t length, GVariant* (*makeElement)(std::size_t wireLength, bool isLast))
{
    constexpr std::size_t kElement = 1024 * 1024;
    GVariantBuilder builder;
    g_variant_builder_init(&builder, G_VARIANT_TYPE(type));
    for (; length >= 2 * kElement; length -= kElement) {
        g_variant_builder_add_value(&builder, makeElement(kElement, false));
    }
    g_variant_builder_add_value(&builder, makeElement(length, true));
    return g_variant_builder_end(&builder);
}

struct ArrayCase {
    const char* name;
    GVariant* (*make)(std::size_t wireLength); // the longest array up to this length that its elements allow
    std::size_t next;                          // the bytes that the next longer array has in addition
    bool hasManyElements = false;              // GLib takes long to send them, so a shorter array is sent

    friend void PrintTo(const ArrayCase& array, std::ostream* out) { *out << array.name; }
};

const ArrayCase kArrays[] = {
    {"Bytes", [](std::size_t length) { return Zeroes("ay", length); }, 1},
    {"Truths", [](std::size_t length) { return Zeroes("ab", length / 4); }, 4, true},
    {"Short", [](std::size_t length) { return Zeroes("aq", length); }, 2},
    {"Numbers", [](std::size_t length) { return Zeroes("ai", length); }, 4},
    {"Long", [](std::size_t length) { return Zeroes("at", length); }, 8},
    {"Doubles", [](std::size_t length) { return Zeroes("ad", length); }, 8},
    // Each has a length, 4091 characters and the NUL.
    {"Strings", [](std::size_t length) { return Strings(length / 4096, 4091); }, 4096, true},
    // Three bytes of padding follow each element except the last.
    {"PaddedStrings",
     [](std::size_t length) {
         return Elements("as", length, [](std::size_t wireLength, bool isLast) {
             return g_variant_new_take_string(g_strnfill(wireLength - (isLast ? 5 : 8), 'x'));
         });
     },
     1},
    // There are seven bytes of padding, where the length of a string would need three.
    {"PaddedStructs",
     [](std::size_t length) {
         return Elements("a(s)", length, [](std::size_t wireLength, bool isLast) {
             return Tuple(g_variant_new_take_string(g_strnfill(wireLength - (isLast ? 5 : 12), 'x')));
         });
     },
     1},
    {"Paths",
     [](std::size_t length) {
         return Elements("ao", length, [](std::size_t wireLength, bool) {
             return g_variant_new_object_path(("/" + std::string(wireLength - 6, 'x')).c_str());
         });
     },
     1},
    // Each has a length, 254 characters and the NUL.
    {"Signatures",
     [](std::size_t length) {
         const std::string signature(254, 'y');
         const std::vector<GVariant*> signatures(length / 256, g_variant_new_signature(signature.c_str()));
         return g_variant_new_array(nullptr, signatures.data(), signatures.size());
     },
     256, true},
    {"Arrays",
     [](std::size_t length) {
         return Elements("aay", length, [](std::size_t wireLength, bool) { return Zeroes("ay", wireLength - 4); });
     },
     1},
    // Each has a byte, the variant's signature, padding, and the length of its array.
    {"StructsWithVariants",
     [](std::size_t length) {
         return Elements("a(yv)", length, [](std::size_t wireLength, bool) {
             return g_variant_new("(yv)", 1, Zeroes("ay", wireLength - 12));
         });
     },
     1},
    {"Dictionary",
     [](std::size_t length) {
         return Elements("a{yv}", length, [](std::size_t wireLength, bool) {
             return g_variant_new("{yv}", 1, Zeroes("ay", wireLength - 12));
         });
     },
     1},
};

TEST_F(WireCheckTest, AsMuchAsAMessageMayHave)
{
    // This includes length and NUL, and leaves room for a header of any length.
    constexpr std::size_t kLongest = 2 * kLongestArray - 2048 - 5;
    constexpr const char* kTooMuch = "arguments of over 128 MiB, which D-Bus does not allow";
    const auto text = [](std::size_t length) { return Tuple(g_variant_new_take_string(g_strnfill(length, 'x'))); };
    ExpectSendable(text(kLongest));
    EXPECT_STREQ(WhyUnsendable("Method", Sink(text(kLongest + 1)).get()), kTooMuch);
    ExpectUnsendable(text(2 * kLongestArray - 5), kTooMuch);
}

class ArrayLengthTest : public WireCheckTest, public ::testing::WithParamInterface<ArrayCase> {};

TEST_P(ArrayLengthTest, TheLongestIsSentAndTheNextIsNot)
{
    const VariantOwner longest = Sink(Tuple(GetParam().make(kLongestArray)));
    EXPECT_STREQ(WhyUnsendable("Method", longest.get()), nullptr);

    const std::size_t length = GetParam().hasManyElements ? kLongestArray / 1024 : kLongestArray;
    const VariantOwner sent = Sink(Tuple(GetParam().make(length)));
    EXPECT_EQ(ArrayLength(Serialise(sent.get())), length);
    EXPECT_TRUE(IsTaken(sent.get()));

    const VariantOwner next = Sink(Tuple(GetParam().make(kLongestArray + GetParam().next)));
    EXPECT_STREQ(WhyUnsendable("Method", next.get()), "an array of over 64 MiB, which D-Bus does not allow");
}

INSTANTIATE_TEST_SUITE_P(Types, ArrayLengthTest, ::testing::ValuesIn(kArrays), NameOf());

} // namespace
} // namespace wire_check_test
