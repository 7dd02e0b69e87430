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
    g_autoptr(GSubprocessLauncher) launcher = g_subprocess_launcher_new(G_SUBPROCESS_FLAGS_STDOUT_PIPE);
    g_subprocess_launcher_setenv(launcher, "DBUS_SYSTEM_BUS_ADDRESS", bus.Address().c_str(), TRUE);
    g_subprocess_launcher_setenv(launcher, "KIV_SYSTEM_INFO_FILE", "/nonexistent", TRUE);
    g_subprocess_launcher_setenv(launcher, "KIV_LOG_LEVEL", "none", TRUE);
    g_autoptr(GSubprocess) example = g_subprocess_launcher_spawn(launcher, nullptr, KIV_EVENTS_EXAMPLE, nullptr);
    ASSERT_NE(example, nullptr);

    g_autofree char* out = nullptr;
    ASSERT_TRUE(g_subprocess_communicate_utf8(example, nullptr, nullptr, &out, nullptr, nullptr));

    EXPECT_STREQ(out, "no volume within 10 seconds: run \"kivctl doctor\" on the same bus, which says why\n");
    EXPECT_EQ(g_subprocess_get_exit_status(example), 1);
}

} // namespace
} // namespace kiv::examples_test
