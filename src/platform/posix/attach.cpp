// Compiled into the library alone: calls its entry point when it is loaded and unloaded, as Windows does. Tests call it
// themselves.
#include "platform/platform.h"

#include <dlfcn.h>

namespace {

struct Attachment {
    HINSTANCE instance = nullptr;  // as on Windows: where the library has been loaded
    Attachment() {
        Dl_info place{};
        if (dladdr(this, &place) != 0)
            instance = static_cast<HINSTANCE>(place.dli_fbase);
        DllMain(instance, DLL_PROCESS_ATTACH, nullptr);
    }
    ~Attachment() { DllMain(instance, DLL_PROCESS_DETACH, nullptr); }
};

// Linked last, so built last and destroyed first: everything it needs is there.
Attachment Attached;

}  // namespace
