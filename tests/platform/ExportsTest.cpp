#include "src/link/Owners.h"

#include <gio/gio.h>
#include <gtest/gtest.h>

#include <set>
#include <sstream>
#include <string>

namespace kiv::platform {
namespace {

TEST(Exports, AreThePlatformCallsAlone)
{
    g_autofree char* output = nullptr;
    link::ErrorOwner error;
    ASSERT_TRUE(g_spawn_command_line_sync(
        KIV_NM " --dynamic --defined-only --format=posix " KIV_PLATFORM_HOST_LIBRARY, &output, nullptr, nullptr,
        error.Out()))
        << error->message;

    std::set<std::string> names;
    std::istringstream lines(output);
    for (std::string line; std::getline(lines, line);) {
        names.insert(line.substr(0, line.find(' ')));
    }
    EXPECT_EQ(names, (std::set<std::string>{"__dlog_print", "system_info_get_custom_bool"}));
}

} // namespace
} // namespace kiv::platform
