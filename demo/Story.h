#pragma once

#include <fmt/format.h>

#include <chrono>
#include <string>
#include <string_view>
#include <utility>

// Prints the steps of the demo, and ends it when a step fails.
namespace demo {

// A story is for people who see the library for the first time. Lines can be read among those of the log and the bus
// trace.
enum class Form { kStory, kLines };

void UseForm(Form form);

// Makes each step end with a pause, so that people can watch what it does.
void RestAfterSteps(std::chrono::milliseconds rest);

// Begins a part of the tour.
void Chapter(const std::string& title);

void PrintStep(std::string_view function, const std::string& outcome);

// Prints what a function of the library has done.
template <typename... Arguments>
void Say(std::string_view function, fmt::format_string<Arguments...> format, Arguments&&... arguments)
{
    PrintStep(function, fmt::format(format, std::forward<Arguments>(arguments)...));
}

// Prints the lines of the home that have changed since the last time. Prints nothing with Form::kLines.
void ShowHome();

void PrintFailure(const std::string& reason);

// Throws an exception, which ends the demo as failed, unless the condition holds.
void Require(bool condition, const std::string& what);

} // namespace demo
