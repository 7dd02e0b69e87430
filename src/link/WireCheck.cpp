#include "link/WireCheck.h"

#include "link/Owners.h"

#include <cstdint>
#include <cstring>
#include <string_view>

namespace kiv::link {

namespace {

// The limits that D-Bus sets.
constexpr std::size_t kMaxNameLength = 255;
constexpr std::size_t kMaxSignatureLength = 255;
constexpr std::uint64_t kMaxArrayLength = std::uint64_t{64} * 1024 * 1024;
// A message is limited to 128 MiB with its header. The header is far shorter than the 2048 bytes that are left for it.
constexpr std::uint64_t kMaxBodyLength = 2 * kMaxArrayLength - 2048;
constexpr int kMaxArrayDepth = 32;  // in one signature
constexpr int kMaxStructDepth = 32; // in one signature, too
constexpr int kMaxDepth = 64;       // of all containers, variants included

constexpr const char* kFixedSizeTypes = "ybnqiuxtdh";
constexpr const char* kLongArray = "an array of over 64 MiB, which D-Bus does not allow";
constexpr const char* kTooDeep = "a value that is nested more deeply than D-Bus allows";

// Checks the signature of a GVariant for types and depths that D-Bus does not have. WireWalk does not see the types of
// an array without elements.
class SignatureCheck {
public:
    explicit SignatureCheck(std::string_view signature) : rest_(signature) {}

    const char* Run()
    {
        if (rest_.size() > kMaxSignatureLength) {
            return "a signature of over 255 characters, which D-Bus does not allow";
        }
        while (!rest_.empty()) {
            if (const char* const reason = CheckType(0, 0)) {
                return reason;
            }
        }
        return nullptr;
    }

private:
    const char* CheckType(int arrays, int structs)
    {
        switch (Take()) {
        case 'm':
            return "a maybe type, which D-Bus does not have";
        case '{':
            return "a dictionary entry outside an array, which D-Bus does not have";
        case 'a':
            if (arrays == kMaxArrayDepth) {
                return kTooDeep;
            }
            return TakeIf('{') ? CheckMembers('}', arrays + 1, structs) : CheckType(arrays + 1, structs);
        case '(':
            if (TakeIf(')')) {
                return "an empty struct, which D-Bus does not have";
            }
            return structs == kMaxStructDepth ? kTooDeep : CheckMembers(')', arrays, structs + 1);
        default:
            return nullptr;
        }
    }

    const char* CheckMembers(char end, int arrays, int structs)
    {
        while (!TakeIf(end)) {
            if (const char* const reason = CheckType(arrays, structs)) {
                return reason;
            }
        }
        return nullptr;
    }

    char Take()
    {
        const char code = rest_.front();
        rest_.remove_prefix(1);
        return code;
    }

    bool TakeIf(char code)
    {
        const bool isNext = rest_.front() == code;
        rest_.remove_prefix(isNext ? 1 : 0);
        return isNext;
    }

    std::string_view rest_;
};

// Walks through a value, and counts its bytes on the wire with their padding.
class WireWalk {
public:
    // Takes the tuple of the arguments, which is not a struct on the wire.
    const char* WalkArguments(GVariant* arguments)
    {
        if (const char* const reason = WalkMembers(arguments, 0)) {
            return reason;
        }
        return size_ > kMaxBodyLength ? "arguments of over 128 MiB, which D-Bus does not allow" : nullptr;
    }

private:
    // The depth is the number of containers around the value.
    const char* Walk(GVariant* value, int depth)
    {
        switch (g_variant_classify(value)) {
        case G_VARIANT_CLASS_STRING:
        case G_VARIANT_CLASS_OBJECT_PATH:
        case G_VARIANT_CLASS_SIGNATURE:
            return WalkText(value);
        case G_VARIANT_CLASS_VARIANT:
            return depth == kMaxDepth ? kTooDeep : WalkVariant(value, depth + 1);
        case G_VARIANT_CLASS_ARRAY:
            return depth == kMaxDepth ? kTooDeep : WalkArray(value, depth + 1);
        case G_VARIANT_CLASS_TUPLE:
        case G_VARIANT_CLASS_DICT_ENTRY:
            Align(Alignment('('));
            return depth == kMaxDepth ? kTooDeep : WalkMembers(value, depth + 1);
        default:
            Count(FixedSize(g_variant_get_type_string(value)));
            return nullptr;
        }
    }

    // GLib does not check a text that was made as trusted data.
    const char* WalkText(GVariant* value)
    {
        gsize length = 0;
        const char* const text = g_variant_get_string(value, &length);
        if (g_utf8_validate(text, static_cast<gssize>(length), nullptr) == FALSE) {
            return "a text that is not valid UTF-8";
        }
        const GVariantClass kind = g_variant_classify(value);
        if (kind == G_VARIANT_CLASS_OBJECT_PATH && g_variant_is_object_path(text) == FALSE) {
            return "an object path that is not valid";
        }
        if (kind == G_VARIANT_CLASS_SIGNATURE) {
            if (g_variant_is_signature(text) == FALSE) {
                return "a signature that is not valid";
            }
            if (const char* const reason = SignatureCheck(text).Run()) {
                return reason;
            }
        }
        Count(kind == G_VARIANT_CLASS_SIGNATURE ? 1 : sizeof(std::uint32_t));
        size_ += length + 1;
        return nullptr;
    }

    const char* WalkVariant(GVariant* value, int depth)
    {
        const VariantOwner content(g_variant_get_variant(value));
        const std::string_view signature = g_variant_get_type_string(content.get());
        if (const char* const reason = SignatureCheck(signature).Run()) {
            return reason;
        }
        size_ += signature.size() + 2;
        return Walk(content.get(), depth);
    }

    const char* WalkArray(GVariant* value, int depth)
    {
        Count(sizeof(std::uint32_t));
        const char* const elementType = g_variant_get_type_string(value) + 1;
        Align(Alignment(*elementType));
        const std::uint64_t start = size_;
        if (const std::size_t elementSize = FixedSize(elementType); elementSize != 0) {
            size_ += elementSize * std::uint64_t{g_variant_n_children(value)};
        } else if (const char* const reason = WalkMembers(value, depth)) {
            return reason;
        }
        return size_ - start > kMaxArrayLength ? kLongArray : nullptr;
    }

    const char* WalkMembers(GVariant* value, int depth)
    {
        const gsize count = g_variant_n_children(value);
        for (gsize index = 0; index < count; ++index) {
            const VariantOwner member(g_variant_get_child_value(value, index));
            if (const char* const reason = Walk(member.get(), depth)) {
                return reason;
            }
        }
        return nullptr;
    }

    // Returns 0 if the size depends on the value.
    static std::size_t FixedSize(const char* type)
    {
        switch (*type) {
        case 'y':
            return 1;
        case 'n':
        case 'q':
            return 2;
        case 'b':
        case 'i':
        case 'u':
        case 'h':
            return 4;
        case 'x':
        case 't':
        case 'd':
            return 8;
        default:
            return 0;
        }
    }

    static std::size_t Alignment(char type)
    {
        switch (type) {
        case '(':
        case '{':
            return 8;
        case 's':
        case 'o':
        case 'a':
            return 4;
        default:
            return std::strchr(kFixedSizeTypes, type) != nullptr ? FixedSize(&type) : 1;
        }
    }

    void Align(std::size_t alignment) { size_ += (alignment - size_ % alignment) % alignment; }

    // Counts a number, or the length before a text or an array. Its alignment is its size.
    void Count(std::size_t size)
    {
        Align(size);
        size_ += size;
    }

    std::uint64_t size_ = 0;
};

// Returns whether D-Bus carries all values of a signature, because it is short enough and has numbers alone. Most calls
// have such a signature, and need no other check.
bool IsShortAndOfNumbers(std::string_view signature)
{
    return signature.size() <= kMaxSignatureLength &&
           signature.find_first_not_of(kFixedSizeTypes) == std::string_view::npos;
}

} // namespace

const char* WhyUnsendable(const char* method, GVariant* arguments)
{
    if (g_dbus_is_member_name(method) == FALSE) {
        return "not a valid method name";
    }
    if (std::strlen(method) > kMaxNameLength) {
        return "a method name of over 255 characters";
    }
    if (arguments == nullptr) {
        return nullptr;
    }
    const std::string_view type = g_variant_get_type_string(arguments);
    if (!type.starts_with('(')) {
        return "arguments that are not a tuple";
    }
    const std::string_view signature = type.substr(1, type.size() - 2);
    if (signature == "ay") {
        return g_variant_get_size(arguments) > kMaxArrayLength ? kLongArray : nullptr;
    }
    if (IsShortAndOfNumbers(signature)) {
        return nullptr;
    }
    const char* const reason = SignatureCheck(signature).Run();
    return reason != nullptr ? reason : WireWalk().WalkArguments(arguments);
}

} // namespace kiv::link
