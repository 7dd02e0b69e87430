#pragma once

#include "OpenCalls.h"

#include <nlohmann/json.hpp>

#include <cstdint>
#include <optional>

namespace kiv::sandbox {

/// Says what library, bus and server tell each other as lines of a recording. Wants every message, in the order of the
/// bus. Other messages have no line.
class MessageLines {
public:
    std::optional<nlohmann::json> Line(const Message& message);

private:
    std::int64_t lastNumber_ = 0;
    OpenCalls<std::int64_t> open_;
};

} // namespace kiv::sandbox
