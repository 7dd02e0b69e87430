#include "support/WarmUp.h"

#include "src/link/Owners.h"

#include <thread>

namespace kiv::test {

namespace {

using namespace kiv::link;

constexpr auto kNoCapabilities = G_DBUS_CAPABILITY_FLAGS_NONE;

void WriteAndReadMessage()
{
    const MessageOwner written(g_dbus_message_new_method_call("a.b", "/a/b", "a.b", "C"));
    g_dbus_message_set_body(written.get(), g_variant_new_parsed("(1, 'a', [byte 1, 2], {'a': <1>})"));
    gsize size = 0;
    const std::unique_ptr<guchar, Releaser<g_free>> bytes(
        g_dbus_message_to_blob(written.get(), &size, kNoCapabilities, nullptr));
    const MessageOwner read(g_dbus_message_new_from_blob(bytes.get(), size, kNoCapabilities, nullptr));
    const TextOwner text(g_variant_print(g_dbus_message_get_body(read.get()), TRUE));
}

void ReadInterface()
{
    const NodeInfoOwner node(g_dbus_node_info_new_for_xml(
        "<node><interface name='a.b'><method name='C'><arg type='i' direction='in'/></method></interface></node>",
        nullptr));
}

void IterateContext()
{
    const ContextOwner context(g_main_context_new());
    const SourceOwner source(g_idle_source_new());
    g_source_set_callback(
        source.get(), [](void*) -> gboolean { return G_SOURCE_REMOVE; }, nullptr, nullptr);
    g_source_attach(source.get(), context.get());
    g_main_context_iteration(context.get(), TRUE);
}

} // namespace

void WarmUp()
{
    // When a process starts its first thread, the emulator drops what it has translated.
    std::thread([] {}).join();
    WriteAndReadMessage();
    ReadInterface();
    IterateContext();
}

} // namespace kiv::test
