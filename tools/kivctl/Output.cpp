#include "tools/kivctl/Output.h"

#include "tools/kivctl/KeptLines.h"

#include <fmt/format.h>

#include <cstdio>

namespace kiv::ctl {
namespace {

void WriteLine(std::FILE* stream, std::string line)
{
    line += '\n';
    std::fwrite(line.data(), 1, line.size(), stream);
    std::fflush(stream);
}

std::string Dump(const Json& object)
{
    // Invalid UTF-8 is replaced, because texts of the command line need not be valid.
    return object.dump(-1, ' ', false, Json::error_handler_t::replace);
}

} // namespace

void Output::Show(const std::string& text, const Json& object) const
{
    WriteLine(stdout, json_ ? Dump(object) : text);
}

void Output::Notify(const std::string& text, const Json& object) const
{
    if (json_) {
        WriteLine(stdout, Dump(object));
    } else {
        Remark(text);
    }
}

void Output::Remark(const std::string& text) const
{
    if (!json_) {
        WriteLine(Stderr(), "kivctl: " + text);
    }
}

void Output::RemarkPending(const std::string& awaited, int limitSeconds) const
{
    Remark(fmt::format("{}{} ...", awaited, limitSeconds == 0 ? "" : fmt::format(", up to {} s", limitSeconds)));
}

} // namespace kiv::ctl
