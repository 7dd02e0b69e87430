#include "Story.h"

#include <cstdio>
#include <stdexcept>

namespace demo {

void Print(const std::string& line)
{
    std::puts(line.c_str());
    std::fflush(stdout);
}

void Chapter(const std::string& title)
{
    Print("\nTV: --- " + title + " ---");
}

void Require(bool condition, const std::string& what)
{
    if (!condition) {
        throw std::runtime_error(what);
    }
}

} // namespace demo
