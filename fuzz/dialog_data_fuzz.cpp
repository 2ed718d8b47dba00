// Buffers of the configuration dialogs, which any process may hand to the provider through TAPI. An input is, again and
// again, an object type and a buffer with its length before it; each buffer ends where its memory ends.
#include "start.h"

#include "config/settings.h"
#include "platform/platform.h"

#include <cstring>
#include <vector>

int FuzzDialogData(const std::uint8_t* data, std::size_t size) {
    FuzzStart();
    FuzzInput input(data, size);
    while (!input.Empty()) {
        const DWORD type = input.Byte();
        const auto piece = input.Counted();
        std::vector<std::uint8_t> buffer(piece.begin(), piece.end());
        FuzzRequire(TSPI_providerGenericDialogData(1, type, buffer.data(), static_cast<DWORD>(buffer.size())) == 0,
                    "the result");
        for (const std::uint8_t byte : buffer)
            FuzzNote("", int{byte});
        FuzzRequire(std::memchr(Settings.ExtPrefix, 0, sizeof Settings.ExtPrefix) != nullptr, "the prefix's end");
        FuzzRequire(std::memchr(ProviderState.PortName, 0, SETTING_SIZE) != nullptr, "the port's end");
    }
    FuzzNoteConfiguration();
    return 0;
}
