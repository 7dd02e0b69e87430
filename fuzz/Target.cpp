#include "fuzz/Target.h"

#include "fuzz/Bus.h"

#include <glib.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

namespace kiv::fuzz {

namespace {

GLogWriterOutput AbortOnComplaint(GLogLevelFlags level, const GLogField* fields, gsize count, gpointer /*unused*/)
{
    g_log_writer_standard_streams(level, fields, count, nullptr);
    if ((level & (G_LOG_LEVEL_ERROR | G_LOG_LEVEL_CRITICAL | G_LOG_LEVEL_WARNING)) != 0) {
        std::abort();
    }
    return G_LOG_WRITER_HANDLED;
}

// Makes GLib allocate with malloc(), because the sanitizers do not see memory that GLib's slice allocator frees. GLib
// reads the variable when it is loaded, so the program starts itself again.
void AllocateWithMalloc(char** argv)
{
    if (std::getenv("G_SLICE") == nullptr) {
        setenv("G_SLICE", "always-malloc", 0);
        execv("/proc/self/exe", argv);
        std::perror("/proc/self/exe");
        std::abort();
    }
}

} // namespace

void ReportBroken(const char* expectation, const char* file, int line)
{
    std::fprintf(stderr, "%s:%d: does not hold: %s\n", file, line, expectation);
    std::abort();
}

} // namespace kiv::fuzz

int LLVMFuzzerInitialize(int* /*argc*/, char*** argv)
{
    kiv::fuzz::AllocateWithMalloc(*argv);
    g_log_set_writer_func(kiv::fuzz::AbortOnComplaint, nullptr, nullptr);
    kiv::fuzz::Connect();
    return 0;
}
