#pragma once

#include <fmt/format.h>

#include <string>
#include <utility>

// What the demo tells, and when it gives up.
namespace demo {

void Print(const std::string& line);

// What the TV application does.
template <typename... Arguments>
void Say(fmt::format_string<Arguments...> format, Arguments&&... arguments)
{
    Print("TV: " + fmt::format(format, std::forward<Arguments>(arguments)...));
}

// Begins a part of the tour.
void Chapter(const std::string& title);

// Ends the demo, as failed, unless the condition holds.
void Require(bool condition, const std::string& what);

} // namespace demo
