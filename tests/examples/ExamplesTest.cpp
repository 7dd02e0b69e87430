#include "src/link/Owners.h"
#include "tools/sandbox/PrivateBus.h"

#include <gio/gio.h>
#include <gtest/gtest.h>

namespace kiv::examples_test {
namespace {

TEST(EventsExampleTest, EndsWhereTheBusDeniesTheClientsName)
{
    const sandbox::PrivateBus bus(
        {.services = {{"org.lumra.tv.networkspeaker.server", {KIV_SIMULATOR}}},
         .extraConfig =
             "<policy context=\"mandatory\"><deny own_prefix=\"org.lumra.tv.networkspeaker.client\"/></policy>"});
    const link::ObjectOwner<GSubprocessLauncher> launcher(g_subprocess_launcher_new(G_SUBPROCESS_FLAGS_STDOUT_PIPE));
    g_subprocess_launcher_setenv(launcher.get(), "DBUS_SYSTEM_BUS_ADDRESS", bus.Address().c_str(), TRUE);
    g_subprocess_launcher_setenv(launcher.get(), "KIV_SYSTEM_INFO_FILE", "/nonexistent", TRUE);
    g_subprocess_launcher_setenv(launcher.get(), "KIV_LOG_LEVEL", "none", TRUE);
    const link::ObjectOwner<GSubprocess> example(
        g_subprocess_launcher_spawn(launcher.get(), nullptr, KIV_EVENTS_EXAMPLE, nullptr));
    ASSERT_NE(example.get(), nullptr);

    g_autofree char* out = nullptr;
    ASSERT_TRUE(g_subprocess_communicate_utf8(example.get(), nullptr, nullptr, &out, nullptr, nullptr));

    EXPECT_STREQ(out, "no volume within 10 seconds: run \"kivctl doctor\" on the same bus, which says why\n");
    EXPECT_EQ(g_subprocess_get_exit_status(example.get()), 1);
}

} // namespace
} // namespace kiv::examples_test
