// Compiled into the library alone: calls its entry point when it is loaded and unloaded, as Windows does. Tests call it
// themselves.
#include "platform/platform.h"

namespace {

struct Attachment {
    Attachment() { DllMain(nullptr, DLL_PROCESS_ATTACH, nullptr); }
    ~Attachment() { DllMain(nullptr, DLL_PROCESS_DETACH, nullptr); }
};

// Linked last, so built last and destroyed first: everything it needs is there.
Attachment Attached;

}  // namespace
