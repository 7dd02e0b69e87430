#include "sandbox/Matchers.h"
#include "sandbox/Sandbox.h"
#include "support/Wait.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

namespace kiv::sandbox::named_sandbox_test {

namespace {

// Keeps the names of sandboxes in a folder of the test's own.
class NamedSandboxTest : public testing::Test {
protected:
    NamedSandboxTest() { setenv("XDG_RUNTIME_DIR", scratch_.Path().c_str(), 1); }

    fs::path Folder() const { return scratch_.Path() / "kiv-sandbox"; }

    // Runs a script in the sandbox of this name.
    static Outcome Join(const std::string& name, const std::string& script)
    {
        return RunSandbox({"--join", name, "--", "sh", "-c", script});
    }

    ScratchDirectory scratch_;
};

TEST_F(NamedSandboxTest, IsJoinedByItsName)
{
    const Sandbox den("read line", {"--name", "den"});
    const Sandbox other("read line", {"--name", "other"});

    const Outcome joined = Join("den", "echo $DBUS_SYSTEM_BUS_ADDRESS; cat \"$KIV_SYSTEM_INFO_FILE\"; exit 5");

    EXPECT_EQ(joined.exitCode, 5);
    EXPECT_THAT(joined.output, StartsWith(den.Address() + "\n[com.molvane/featureconf]\n"));
    EXPECT_EQ(Join("den", KIVCTL " stop --type 7").output, "the server answered 7\n");
}

TEST_F(NamedSandboxTest, IsListedWithItsCommandAndOnRequestItsAddress)
{
    EXPECT_EQ(RunSandbox({"--list"}).output, "");
    const Sandbox den("read line", {"--name", "den"});
    const Sandbox attic("read line", {"--name", "attic"});

    const Outcome list = RunSandbox({"--list"});
    EXPECT_EQ(list.exitCode, 0);
    EXPECT_THAT(list.output, StartsWith("attic "));
    EXPECT_THAT(list.output, AllOf(HasSubstr("\nden "), HasSubstr(" sh -c "), Not(HasSubstr("unix:path="))));
    EXPECT_THAT(RunSandbox({"--list", "--print-address"}).output, HasSubstr(den.Address()));
}

TEST_F(NamedSandboxTest, TheAddressIsPrintedOnRequest)
{
    Sandbox den("read line; echo done >&2", {"--name", "den", "--print-address"});
    const std::string told = "kiv-sandbox: the bus is " + den.Address() + "\n";
    EXPECT_EQ(RunSandbox({"--join", "den", "--print-address", "--", "true"}).errors, told);
    den.Process().CloseInput();
    EXPECT_EQ(den.Process().ReadErrors(), told + "done\n");
}

TEST_F(NamedSandboxTest, TheLayoutOfTheSandboxIsThatOfThoseWhoJoin)
{
    const fs::path layout = scratch_.Path() / "layout.json";
    const fs::path own = scratch_.Path() / "own.json";
    std::ofstream(layout) << "{}";
    std::ofstream(own) << "{}";
    const Sandbox den("read line", {"--name", "den", "--layout", layout});

    EXPECT_EQ(Join("den", "echo $KIV_LAYOUT").output, layout.string() + "\n");
    EXPECT_EQ(
        RunSandbox({"--join", "den", "--layout", own, "--", "sh", "-c", "echo $KIV_LAYOUT"}).output,
        own.string() + "\n");
}

TEST_F(NamedSandboxTest, ANameIsOfOneSandboxAtATime)
{
    const Sandbox den("read line", {"--name", "den"});

    const Outcome second = RunSandbox({"--name", "den", "--", "echo", "started"});

    EXPECT_EQ(second.exitCode, 125);
    EXPECT_THAT(second.output, IsEmpty());
    EXPECT_THAT(second.errors, HasSubstr("--name must not be the name of a running sandbox, got \"den\""));
    EXPECT_EQ(Join("den", "true").exitCode, 0);
}

TEST_F(NamedSandboxTest, TheNameGoesWithTheSandbox)
{
    Sandbox ended("exit 0", {"--name", "den"});
    ended.Process().WaitForEnd();
    EXPECT_TRUE(fs::is_empty(Folder()));

    Sandbox killed("read line", {"--name", "den"});
    killed.Process().Signal(SIGKILL);
    killed.Process().WaitForEnd();
    EXPECT_FALSE(fs::is_empty(Folder()));
    const Outcome joined = Join("den", "true");
    EXPECT_EQ(joined.exitCode, 125);
    EXPECT_THAT(joined.errors, HasSubstr("--join must be the name of a running sandbox, got \"den\""));
    EXPECT_TRUE(fs::is_empty(Folder()));

    Sandbox again("read line", {"--name", "den"});
    EXPECT_EQ(Join("den", "echo $DBUS_SYSTEM_BUS_ADDRESS").output, again.Address() + "\n");
}

TEST_F(NamedSandboxTest, AShellThatOutlastsTheSandboxIsToldSo)
{
    Sandbox den("read line", {"--name", "den"});
    Child joined(
        SandboxCommand({"--join", "den", "--", "sh", "-c", "echo joined; read line; " KIV_SANDBOX " control show"}));
    EXPECT_EQ(joined.ReadLine(), "joined");
    den.Process().CloseInput();
    den.Process().WaitForEnd();
    EXPECT_FALSE(fs::exists(den.Directory()));

    joined.CloseInput();

    EXPECT_THAT(
        joined.ReadErrors(),
        StartsWith("kiv-sandbox control: the sandbox has ended: no connection to " + den.Address() + ": "));
}

TEST_F(NamedSandboxTest, AStaleEntryIsReplaced)
{
    fs::create_directory(Folder());
    fs::permissions(Folder(), fs::perms::owner_all);
    std::ofstream(Folder() / "den") << "what a killed sandbox has left";

    const Sandbox den("read line", {"--name", "den"});

    EXPECT_EQ(Join("den", "echo $DBUS_SYSTEM_BUS_ADDRESS").output, den.Address() + "\n");
}

TEST_F(NamedSandboxTest, OnlyTheUserGetsIn)
{
    const Sandbox den("read line", {"--name", "den"});
    EXPECT_EQ(fs::status(Folder()).permissions(), fs::perms::owner_all);
    EXPECT_EQ(fs::status(Folder() / "den").permissions(), fs::perms::owner_read | fs::perms::owner_write);
    EXPECT_EQ(fs::status(den.Directory()).permissions(), fs::perms::owner_all);
}

TEST_F(NamedSandboxTest, AFolderThatIsOpenToOthersIsNotTrusted)
{
    fs::create_directory(Folder());
    fs::permissions(Folder(), fs::perms::owner_all | fs::perms::group_write);
    for (const Outcome& outcome :
         {RunSandbox({"--name", "den", "--", "true"}), Join("den", "true"), RunSandbox({"--list"})}) {
        EXPECT_EQ(outcome.exitCode, 125);
        EXPECT_THAT(outcome.errors, HasSubstr("/kiv-sandbox must belong to you"));
    }
    fs::remove(Folder());
    fs::create_directory_symlink(scratch_.Path(), Folder());
    EXPECT_EQ(RunSandbox({"--list"}).exitCode, 125);
}

TEST_F(NamedSandboxTest, WithoutARuntimeFolderTheNamesAreAmongTheTemporaryFiles)
{
    setenv("XDG_RUNTIME_DIR", (scratch_.Path() / "none").c_str(), 1);
    setenv("TMPDIR", scratch_.Path().c_str(), 1);
    {
        const Sandbox den("read line", {"--name", "den"});

        EXPECT_TRUE(fs::exists(scratch_.Path() / ("kiv-sandbox-" + std::to_string(geteuid())) / "den"));
        EXPECT_EQ(Join("den", "true").exitCode, 0);
    }
    // Another process removes the bus. After that, only the folder of the names is left.
    kiv::test::WaitUntil("the bus to be removed", [this] {
        return std::distance(fs::directory_iterator(scratch_.Path()), fs::directory_iterator()) == 1;
    });
}

TEST_F(NamedSandboxTest, RefusesWhatCannotBeAName)
{
    const std::vector<std::string> bad = {"../den", ".den", "", "a b", std::string(65, 'a')};
    for (const std::string& name : bad) {
        const Outcome outcome = RunSandbox({"--name", name, "--", "true"});
        EXPECT_EQ(outcome.exitCode, 125) << name;
        EXPECT_THAT(outcome.errors, HasSubstr("got \"" + name + "\"")) << name;
    }
}

TEST_F(NamedSandboxTest, WhatMakesASandboxDoesNotGoWithJoining)
{
    const Sandbox den("read line", {"--name", "den"});
    for (const std::string option : {"--trace", "--lazy", "--no-server"}) {
        const Outcome outcome = RunSandbox({"--join", "den", option, "--", "true"});
        EXPECT_EQ(outcome.exitCode, 125) << option;
        EXPECT_THAT(outcome.errors, AllOf(HasSubstr("--join"), HasSubstr(option)));
    }
    EXPECT_EQ(RunSandbox({"--join", "den", "--name", "x", "--", "true"}).exitCode, 125);
    EXPECT_EQ(RunSandbox({"--join", "den", "--", "no-such-command"}).exitCode, 127);
}

} // namespace

} // namespace kiv::sandbox::named_sandbox_test
