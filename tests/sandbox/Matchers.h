#pragma once

#include <gmock/gmock.h>

#include <filesystem>

// Short names of matchers, for the tests of the programs.
namespace kiv::sandbox {

namespace fs = std::filesystem;

using ::testing::_;
using ::testing::AllOf;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;
using ::testing::Not;
using ::testing::SizeIs;
using ::testing::StartsWith;

} // namespace kiv::sandbox
