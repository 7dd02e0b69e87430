#pragma once

#include <fmt/format.h>

#include <chrono>
#include <string>
#include <string_view>
#include <utility>

// Prints what the demo does, and ends it when something goes wrong.
namespace demo {

// As a story, for people who see the library for the first time, or as lines that stand among those of log and bus.
enum class Form { Story, Lines };

void UseForm(Form form);

// So that people can watch what each step does.
void RestAfterSteps(std::chrono::milliseconds rest);

// Begins a part of the tour.
void Chapter(const std::string& title);

void PrintStep(std::string_view function, const std::string& outcome);

// Tells what a function of the library has brought about.
template <typename... Arguments>
void Say(std::string_view function, fmt::format_string<Arguments...> format, Arguments&&... arguments)
{
    PrintStep(function, fmt::format(format, std::forward<Arguments>(arguments)...));
}

// Tells what has become otherwise in the home since the last time; of the story only.
void ShowHome();

void PrintFailure(const std::string& reason);

// Ends the demo, as failed, unless the condition holds.
void Require(bool condition, const std::string& what);

} // namespace demo
