#pragma once

namespace kiv::sandbox {

// The page's three files, which are compiled into the program.
extern const char* const kPageHtml;
extern const char* const kPageCss;
extern const char* const kPageJs;

} // namespace kiv::sandbox
