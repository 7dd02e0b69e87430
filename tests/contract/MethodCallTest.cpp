#include "contract/ApiTest.h"
#include "src/link/Owners.h"

#include <atomic>

using namespace kiv::test;
using ::testing::ElementsAre;

namespace method_call_test {
namespace {

const std::string kLongArray = "an array of over 64 MiB, which D-Bus does not allow";
const std::string kLongSignature = "a signature of over 255 characters, which D-Bus does not allow";
const std::string kTooDeep = "a value that is nested more deeply than D-Bus allows";
const std::string kEmptyStruct = "an empty struct, which D-Bus does not have";
const std::string kMaybe = "a maybe type, which D-Bus does not have";
const std::string kEntry = "a dictionary entry outside an array, which D-Bus does not have";

// Returns a value of a type with this number of zero bytes in memory.
GVariant* Zeroes(const char* type, std::size_t bytes)
{
    void* memory = g_malloc0(bytes);
    return g_variant_new_from_data(G_VARIANT_TYPE(type), memory, bytes, TRUE, g_free, memory);
}

// Returns a value of data that GLib does not check.
GVariant* Trusted(const char* type, const std::string& data)
{
    const kiv::link::BytesOwner bytes(g_bytes_new(data.c_str(), data.size() + 1));
    return g_variant_new_from_bytes(G_VARIANT_TYPE(type), bytes.get(), TRUE);
}

GVariant* Tuple(GVariant* member)
{
    return g_variant_new_tuple(&member, 1);
}

GVariant* Tuple(std::size_t count, GVariant* (*make)())
{
    std::vector<GVariant*> members(count);
    std::ranges::generate(members, make);
    return g_variant_new_tuple(members.data(), members.size());
}

GVariant* Int()
{
    return g_variant_new_int32(7);
}

template <typename Wrap>
GVariant* Nested(int depth, Wrap wrap)
{
    GVariant* value = Int();
    for (int level = 0; level < depth; ++level) {
        value = wrap(value);
    }
    return value;
}

GVariant* Array(GVariant* element)
{
    return g_variant_new_array(nullptr, &element, 1);
}

GVariant* Parsed(const char* text)
{
    return g_variant_parse(nullptr, text, nullptr, nullptr, nullptr);
}

// Returns strings whose bytes on the wire, with lengths, NULs and padding, slightly exceed the limit.
GVariant* LongStrings()
{
    const std::string text(1'000'000, 'x');
    std::vector<const char*> texts(kLongestArray / 1'000'000 + 1, text.c_str());
    return g_variant_new_strv(texts.data(), static_cast<gssize>(texts.size()));
}

GVariant* LongVariants()
{
    GVariantBuilder builder;
    g_variant_builder_init(&builder, G_VARIANT_TYPE("a(yv)"));
    for (int index = 0; index < 65; ++index) {
        g_variant_builder_add(&builder, "(yv)", index, Zeroes("ay", 1 << 20));
    }
    return g_variant_builder_end(&builder);
}

struct Unsendable {
    const char* name;
    GVariant* (*make)();
    std::string reason;

    friend void PrintTo(const Unsendable& unsendable, std::ostream* out) { *out << unsendable.name; }
};

const Unsendable kUnsendable[] = {
    {"ANumber", Int, "arguments that are not a tuple"},
    {"AnArray", [] { return Zeroes("ay", 3); }, "arguments that are not a tuple"},
    {"AVariant", [] { return g_variant_new_variant(g_variant_new("(i)", 1)); }, "arguments that are not a tuple"},
    {"AMaybe", [] { return Tuple(g_variant_new_maybe(nullptr, Int())); }, kMaybe},
    {"AMaybeThatIsNothing", [] { return Tuple(g_variant_new_maybe(G_VARIANT_TYPE_INT32, nullptr)); }, kMaybe},
    {"AMaybeInAVariant", [] { return g_variant_new("(v)", g_variant_new_maybe(nullptr, Int())); }, kMaybe},
    {"NoMaybesInAnArray", [] { return Parsed("(@ams [],)"); }, kMaybe},
    {"AMaybeInAStruct", [] { return Tuple(Tuple(g_variant_new_maybe(nullptr, Int()))); }, kMaybe},
    {"AnEmptyStruct", [] { return Parsed("((),)"); }, kEmptyStruct},
    {"AnEmptyStructInAVariant", [] { return Parsed("(<()>,)"); }, kEmptyStruct},
    {"NoEmptyStructsInAnArray", [] { return Parsed("(@a() [],)"); }, kEmptyStruct},
    {"AnEntryInNoDictionary", [] { return Parsed("({'key', 1},)"); }, kEntry},
    {"AnEntryInAVariant", [] { return Parsed("(<{'key', 1}>,)"); }, kEntry},
    {"ALongSignature", [] { return Tuple(256, Int); }, kLongSignature},
    {"ALongSignatureInAVariant", [] { return g_variant_new("(v)", Tuple(254, Int)); }, kLongSignature},
    {"DeepArrays", [] { return Tuple(Nested(33, Array)); }, kTooDeep},
    {"DeepStructs", [] { return Tuple(Nested(33, [](GVariant* value) { return Tuple(value); })); }, kTooDeep},
    {"DeepArraysInAVariant", [] { return g_variant_new("(v)", Nested(33, Array)); }, kTooDeep},
    {"DeepVariants", [] { return Tuple(Nested(65, g_variant_new_variant)); }, kTooDeep},
    {"LongBytes", [] { return Tuple(Zeroes("ay", kLongestArray + 1)); }, kLongArray},
    {"LongBytesAmongOthers", [] { return g_variant_new("(@ayi)", Zeroes("ay", kLongestArray + 1), 1); }, kLongArray},
    {"LongBytesInAVariant", [] { return g_variant_new("(v)", Zeroes("ay", kLongestArray + 1)); }, kLongArray},
    // Each has one byte in memory, and four on the wire.
    {"LongTruths", [] { return Tuple(Zeroes("ab", 17'000'000)); }, kLongArray},
    {"LongNumbers", [] { return Tuple(Zeroes("ad", kLongestArray + 8)); }, kLongArray},
    {"LongStrings", [] { return Tuple(LongStrings()); }, kLongArray},
    {"LongVariants", [] { return Tuple(LongVariants()); }, kLongArray},
    {"TwoLongArrays",
     [] { return g_variant_new("(@ay@ay)", Zeroes("ay", kLongestArray), Zeroes("ay", kLongestArray)); },
     "arguments of over 128 MiB, which D-Bus does not allow"},
    {"ATextThatIsNotUtf8",
     [] {
         return Tuple(Trusted(
             "s", "K\xfc"
                  "che"));
     },
     "a text that is not valid UTF-8"},
    {"ATextThatIsNotUtf8InAnArray", [] { return Tuple(Array(Trusted("s", "\xff"))); },
     "a text that is not valid UTF-8"},
    {"ATextThatGoesOnBehindItsEnd", [] { return Tuple(Trusted("s", std::string("a\0b", 3))); },
     "a text that is not valid UTF-8"},
    {"AnObjectPathThatIsNone", [] { return Tuple(Trusted("o", "/a/")); }, "an object path that is not valid"},
    {"ASignatureThatIsNone", [] { return Tuple(Trusted("g", "(i")); }, "a signature that is not valid"},
    {"ASignatureThatDBusHasNot", [] { return g_variant_new("(g)", "a{si}()"); }, kEmptyStruct},
};

class MethodCallTest : public ApiTest {};

// A call that is not sent logs one line. The connection stays open, and GLib logs no critical, which would end the
// test.
class UnsendableTest : public MethodCallTest {
protected:
    void ExpectRefused(const std::string& method, GVariant* input, const std::string& reason)
    {
        ForgetTraffic();
        const auto preset = kiv::link::Sink(g_variant_new("(i)", 1));
        GVariant* output = preset.get();

        EXPECT_FALSE(client_.MethodCall(method, input, &output, false));

        EXPECT_EQ(output, nullptr);
        ExpectLog({kEnter, ErrorLine(method, reason)});
        EXPECT_THAT(Sent(), ElementsAre(kOwnerQuery));
        ForgetTraffic();
        EXPECT_TRUE(client_.MethodCall("StopNetworkSpeaker", g_variant_new("(i)", 5), &output, false));
        g_variant_unref(output);
        EXPECT_THAT(Sent(), ElementsAre(kOwnerQuery, "StopNetworkSpeaker(5)"));
    }
};

class UnsendableInputTest : public UnsendableTest, public ::testing::WithParamInterface<Unsendable> {};

TEST_P(UnsendableInputTest, IsOneLineAndTheConnectionServesOn)
{
    ExpectRefused("StopNetworkSpeaker", GetParam().make(), GetParam().reason);
}

INSTANTIATE_TEST_SUITE_P(Inputs, UnsendableInputTest, ::testing::ValuesIn(kUnsendable), NameOf());

TEST_F(UnsendableTest, AMethodNameThatIsNoneIsOneLineAndTheConnectionServesOn)
{
    for (const char* name :
         {"", "no method", "1st", "a.b", "/",
          "K\xc3\xbc"
          "che",
          "\xff", "a-b"}) {
        ExpectRefused(name, nullptr, "not a valid method name");
    }
    for (const std::size_t length : {256U, 257U, 100'000U}) {
        ExpectRefused(std::string(length, 'x'), nullptr, "a method name of over 255 characters");
    }
}

TEST_F(UnsendableTest, IsNotLookedAtWhereTheServerDoesNotRun)
{
    KillServer();
    platform_log::Clear();
    GVariant* output = nullptr;
    EXPECT_FALSE(client_.MethodCall("no method", Int(), &output, false));
    ExpectLog({kAbsentLine});
}

TEST_F(UnsendableTest, AFloatingInputIsConsumed)
{
    std::atomic<bool> isFreed = false;
    static const gint32 number = 5;
    GVariant* const input = g_variant_new_from_data(
        G_VARIANT_TYPE_INT32, &number, sizeof number, TRUE,
        [](gpointer freed) { *static_cast<std::atomic<bool>*>(freed) = true; }, &isFreed);
    ExpectRefused("StopNetworkSpeaker", input, "arguments that are not a tuple");
    EXPECT_TRUE(isFreed);
}

TEST_F(MethodCallTest, TheLongestMethodNameIsSent)
{
    const std::string name(255, 'x');
    GVariant* output = nullptr;
    EXPECT_FALSE(client_.MethodCall(name, nullptr, &output, false));
    EXPECT_THAT(Sent(), ElementsAre(kOwnerQuery, name + "()"));
}

TEST_F(MethodCallTest, AReplyThatNobodyWantsIsReleased)
{
    EXPECT_TRUE(client_.MethodCall("StopNetworkSpeaker", g_variant_new("(i)", 3), nullptr, false));
    EXPECT_EQ(Sent().back(), "StopNetworkSpeaker(3)");

    EXPECT_FALSE(client_.MethodCall("no method", nullptr, nullptr, false));
    control_.SetFault("StopNetworkSpeaker", kRefusal);
    EXPECT_FALSE(client_.MethodCall("StopNetworkSpeaker", g_variant_new("(i)", 3), nullptr, false));
    KillServer();
    EXPECT_FALSE(client_.MethodCall("StopNetworkSpeaker", g_variant_new("(i)", 3), nullptr, false));
}

} // namespace
} // namespace method_call_test
