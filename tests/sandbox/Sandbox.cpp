#include "sandbox/Sandbox.h"

#include <sys/wait.h>

#include <string_view>
#include <utility>

namespace kiv::sandbox {

namespace {

constexpr std::string_view kAddressHead = "unix:path=";

std::vector<std::string> WithScript(std::vector<std::string> options, const std::string& script)
{
    options.insert(options.end(), {"--", "sh", "-c", "echo \"$DBUS_SYSTEM_BUS_ADDRESS\"; " + script});
    return options;
}

} // namespace

std::vector<std::string> SandboxCommand(std::vector<std::string> words)
{
    words.insert(words.begin(), KIV_SANDBOX);
    return words;
}

Outcome RunSandbox(const std::vector<std::string>& words)
{
    Child child(SandboxCommand(words));
    child.CloseInput();
    std::string output = child.ReadOutput();
    std::string errors = child.ReadErrors();
    const int status = child.WaitForEnd();
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, output, errors};
}

std::string Script(const std::string& script)
{
    return "export KIV_LOG_LEVEL=none\n"
           "kivctl() { " KIVCTL " \"$@\"; }\n"
           "control() { " KIV_SANDBOX " control \"$@\"; }\n" +
           script;
}

Outcome RunScript(const std::string& script, std::vector<std::string> options)
{
    options.insert(options.end(), {"--", "sh", "-c", Script(script)});
    return RunSandbox(options);
}

Sandbox::Sandbox(const std::string& script, std::vector<std::string> options)
    : child_(SandboxCommand(WithScript(std::move(options), script))), address_(child_.ReadLine())
{
}

std::filesystem::path Sandbox::Directory() const
{
    return std::filesystem::path(address_.substr(kAddressHead.size())).parent_path();
}

} // namespace kiv::sandbox
