#pragma once

#include <gio/gio.h>

#include <memory>

namespace kiv::link {

template <auto Release>
struct Releaser {
    template <typename T>
    void operator()(T* object) const
    {
        Release(object);
    }
};

// Each of these owns one reference.
template <typename Object>
using ObjectOwner = std::unique_ptr<Object, Releaser<g_object_unref>>;
using CancellableOwner = ObjectOwner<GCancellable>;
using ConnectionOwner = ObjectOwner<GDBusConnection>;
using MessageOwner = ObjectOwner<GDBusMessage>;
using InvocationOwner = ObjectOwner<GDBusMethodInvocation>;
using BytesOwner = std::unique_ptr<GBytes, Releaser<g_bytes_unref>>;
using VariantOwner = std::unique_ptr<GVariant, Releaser<g_variant_unref>>;
using NodeInfoOwner = std::unique_ptr<GDBusNodeInfo, Releaser<g_dbus_node_info_unref>>;
using KeyFileOwner = std::unique_ptr<GKeyFile, Releaser<g_key_file_unref>>;
using ContextOwner = std::unique_ptr<GMainContext, Releaser<g_main_context_unref>>;
using LoopOwner = std::unique_ptr<GMainLoop, Releaser<g_main_loop_unref>>;
using SourceOwner = std::unique_ptr<GSource, Releaser<g_source_unref>>;

// A text that GLib allocated. C callbacks build their texts with it, because a std::string may throw an exception
// through GLib.
using TextOwner = std::unique_ptr<char, Releaser<g_free>>;

inline TextOwner CopyOf(const char* text)
{
    return TextOwner(g_strdup(text));
}

// Owns the error that a function stores through its last argument, which Out() is.
class ErrorOwner {
public:
    ErrorOwner() = default;
    ~ErrorOwner()
    {
        if (error_ != nullptr) {
            g_error_free(error_);
        }
    }
    ErrorOwner(const ErrorOwner&) = delete;
    ErrorOwner& operator=(const ErrorOwner&) = delete;

    GError** Out() { return &error_; }
    GError* get() const { return error_; }
    explicit operator bool() const { return error_ != nullptr; }
    const GError* operator->() const { return error_; }

private:
    GError* error_ = nullptr;
};

// Returns a new reference to an object, or null for null.
template <typename Object>
ObjectOwner<Object> NewReference(Object* object)
{
    return {object != nullptr ? static_cast<Object*>(g_object_ref(object)) : nullptr, {}};
}

inline ContextOwner NewReference(GMainContext* context)
{
    return ContextOwner(context != nullptr ? g_main_context_ref(context) : nullptr);
}

// Takes over a new value, whose reference is still floating. Returns null for null.
inline VariantOwner Sink(GVariant* value)
{
    return VariantOwner(value != nullptr ? g_variant_ref_sink(value) : nullptr);
}

// Returns the first member of a tuple. The tuple owns the data to which the member's pointers refer. Cheaper than
// g_variant_get(), which parses a format.
inline VariantOwner Member(GVariant* tuple)
{
    return VariantOwner(g_variant_get_child_value(tuple, 0));
}

} // namespace kiv::link
