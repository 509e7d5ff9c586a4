// The process-wide output hook. Calls of the hook run under a shared lock, so that several
// threads may deliver at once while setting the hook (the exclusive side) waits for them: once
// PlimSetOutputHook returns, nothing calls the previous hook any more.
#include "platform/runtime/Output.h"

#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <shared_mutex>

namespace plim::output {

namespace {

std::shared_mutex gLock;
PlimOutputHook gHook = nullptr;
void *gContext = nullptr;
// Set while this thread runs the hook: a message the hook itself causes is delivered without
// taking the lock again, and the hook cannot replace itself.
thread_local bool tDelivering = false;

void Deliver(PlimOutputHook hook, void *context, PlimOutputStream stream, const char *text,
             size_t length) {
    struct Delivering {
        Delivering() { tDelivering = true; }
        ~Delivering() { tDelivering = false; }
    } delivering;
    hook(context, stream, text, length);
}

}  // namespace

void Write(PlimOutputStream stream, const char *text, size_t length) {
    if (tDelivering) {
        // Already under the lock, and the hook cannot change meanwhile.
        if (gHook) return gHook(gContext, stream, text, length);
    } else {
        std::shared_lock lock(gLock);
        if (gHook) return Deliver(gHook, gContext, stream, text, length);
    }
    std::FILE *file = stream == kPlimOutputStandardOutput ? stdout : stderr;
    if (length) std::fwrite(text, 1, length, file);
    if (file == stdout) std::fflush(file);
}

void Printf(PlimOutputStream stream, const char *format, ...) {
    char text[256];
    va_list args;
    va_start(args, format);
    int length = std::vsnprintf(text, sizeof text, format, args);
    va_end(args);
    if (length < 0) return;
    Write(stream, text, static_cast<size_t>(length) < sizeof text ? static_cast<size_t>(length) : sizeof text - 1);
}

}  // namespace plim::output

using namespace plim::output;

extern "C" {

PLIM_EXPORT void PlimSetOutputHook(PlimOutputHook hook, void *context) {
    if (tDelivering) return;
    std::unique_lock lock(gLock);
    gHook = hook;
    gContext = hook ? context : nullptr;
}

PLIM_EXPORT PlimOutputHook PlimGetOutputHook(void **context) {
    if (tDelivering) {
        if (context) *context = gContext;
        return gHook;
    }
    std::shared_lock lock(gLock);
    if (context) *context = gContext;
    return gHook;
}

}  // extern "C"
