#include "tools/sandbox/Recorder.h"

#include "simulator/ClientNames.h"
#include "simulator/JsonNode.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string_view>
#include <system_error>

namespace kiv::sandbox {

namespace {

namespace fs = std::filesystem;

[[noreturn]] void ThrowFileError(const fs::path& file, int error)
{
    throw simulator::FileError(fmt::format("{}: {}", file.string(), std::strerror(error)));
}

// Returns the permissions of a file that is replaced, or those of a new file.
mode_t PermissionsFor(const fs::path& file)
{
    struct stat status {};
    if (stat(file.c_str(), &status) == 0) {
        return status.st_mode & 07777U;
    }
    const mode_t mask = umask(0);
    umask(mask);
    return 0666U & ~mask;
}

// Makes an empty file in the same folder as the given one.
fs::path MakeFileBeside(const fs::path& file)
{
    std::string path = file.string() + ".part-XXXXXX";
    const int descriptor = mkostemp(path.data(), O_CLOEXEC);
    if (descriptor < 0) {
        ThrowFileError(file, errno);
    }
    fchmod(descriptor, PermissionsFor(file));
    close(descriptor);
    return path;
}

} // namespace

std::optional<simulator::RecordedLine> RecordedMessages::Line(const Message& message, bool isCall)
{
    simulator::RecordedLine line;
    if (IsAnswer(message)) {
        line.answer = open_.Take(message);
        if (!line.answer) {
            return std::nullopt;
        }
        line.error = message.errorName;
        (line.error.empty() ? line.values : line.message) =
            line.error.empty() ? message.TypedBodyText() : message.ErrorText();
        return line;
    }
    const bool isEvent = message.interface.starts_with(simulator::kClientInterfacePrefix);
    if (!isCall && (!isEvent || message.type != G_DBUS_MESSAGE_TYPE_METHOD_CALL)) {
        return std::nullopt;
    }
    (isEvent ? line.event : line.call) = ++lastNumber_;
    line.client = isEvent ? message.interface.substr(std::string_view(simulator::kClientInterfacePrefix).size()) : "";
    line.method = message.member;
    line.arguments = message.TypedBodyText();
    open_.Add(message, lastNumber_);
    return line;
}

Recorder::Recorder(const std::string& file) : name_(file)
{
    // A pipe or a device is written to directly. If the file is a symbolic link, the file to which it leads is
    // replaced.
    const bool isReplaced = !fs::exists(file) || fs::is_regular_file(file);
    if (isReplaced) {
        target_ = fs::weakly_canonical(file);
        part_ = MakeFileBeside(target_);
    }
    file_.open(isReplaced ? part_ : fs::path(file));
    if (!file_) {
        ThrowFileError(file, errno);
    }
}

Recorder::~Recorder()
{
    std::error_code ignored;
    if (!part_.empty() && fs::file_size(part_, ignored) == 0) {
        fs::remove(part_, ignored);
    }
}

void Recorder::Add(const Message& message)
{
    auto line = messages_.Line(message, IsServerCall(message));
    if (!line) {
        return;
    }
    const auto elapsed = std::chrono::steady_clock::now() - start_;
    line->ms = std::chrono::duration_cast<std::chrono::milliseconds>(elapsed).count();
    // Each line is flushed, so that the partial file has all lines, however the sandbox ends.
    file_ << simulator::WriteLine(*line) << std::endl;
}

std::string Recorder::Finish(bool hasFailed)
{
    file_.close();
    if (!file_) {
        throw std::runtime_error(fmt::format("{}: cannot be written", name_));
    }
    const bool isEmpty = messages_.IsEmpty();
    std::string complaint =
        isEmpty ? fmt::format("kiv-sandbox: {}: the recording is empty: no call was made\n", name_) : "";
    if (part_.empty()) {
        return complaint;
    }
    if ((hasFailed || isEmpty) && fs::exists(target_) && !fs::is_empty(target_)) {
        return fmt::format(
            "kiv-sandbox: {} stays as it was: {}\n", name_,
            isEmpty ? "no call was made" : fmt::format("the command failed, and is recorded in {}", part_.string()));
    }
    std::error_code error;
    fs::rename(part_, target_, error);
    if (error) {
        throw std::runtime_error(fmt::format("{}: {}; the recording is {}", name_, error.message(), part_.string()));
    }
    part_.clear();
    return complaint;
}

} // namespace kiv::sandbox
