#include "demo/Story.h"

#include "demo/LivingRoom.h"

#include <fmt/color.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <stdexcept>
#include <thread>
#include <vector>

namespace demo {

namespace {

Form g_form = Form::kStory;
int g_chapter = 0;
std::chrono::milliseconds g_rest{0};
std::vector<std::string> g_homeShown;

void Print(const std::string& line)
{
    std::puts(line.c_str());
    std::fflush(stdout);
}

// Returns whether to colour the output. NO_COLOR counts if it is not empty: https://no-color.org
bool IsColoured()
{
    const char* const refusal = std::getenv("NO_COLOR");
    return isatty(STDOUT_FILENO) != 0 && (refusal == nullptr || *refusal == '\0');
}

std::string Styled(const fmt::text_style& style, const std::string& text)
{
    return IsColoured() ? fmt::format(style, "{}", text) : text;
}

} // namespace

void UseForm(Form form)
{
    g_form = form;
}

void RestAfterSteps(std::chrono::milliseconds rest)
{
    g_rest = rest;
}

void Chapter(const std::string& title)
{
    if (g_form == Form::kLines) {
        Print("\nTV: --- " + title + " ---");
    } else {
        Print("\n" + Styled(fmt::emphasis::bold, fmt::format("{}. {}", ++g_chapter, title)));
    }
}

void PrintStep(std::string_view function, const std::string& outcome)
{
    if (g_form == Form::kLines) {
        Print("TV: " + outcome);
    } else {
        Print("   " + Styled(fmt::fg(fmt::terminal_color::cyan), fmt::format("{:<29}", function)) + " " + outcome);
    }
    std::this_thread::sleep_for(g_rest);
}

void ShowHome()
{
    if (g_form == Form::kLines) {
        return;
    }
    const std::vector<std::string> home = DescribeHome();
    std::vector<std::string> changed;
    std::ranges::copy_if(home, std::back_inserter(changed), [](const std::string& line) {
        return std::ranges::find(g_homeShown, line) == g_homeShown.end();
    });
    if (changed.empty()) {
        Print("   The home is as it was.");
    } else {
        Print(g_homeShown.empty() ? "   The home:" : "   In the home now:");
    }
    for (const std::string& line : changed) {
        Print("   " + Styled(fmt::fg(fmt::terminal_color::green), line));
    }
    g_homeShown = home;
}

void PrintFailure(const std::string& reason)
{
    Print("TV: " + Styled(fmt::fg(fmt::terminal_color::red), "FAILED: " + reason));
}

void Require(bool condition, const std::string& what)
{
    if (!condition) {
        throw std::runtime_error(what);
    }
}

} // namespace demo
