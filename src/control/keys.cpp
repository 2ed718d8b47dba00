#include "control/keys.h"

#include "link/link_layer.h"
#include "link/serial.h"

#include <algorithm>

std::array<AomEntry, AOM_COUNT> AomTable;
int AomCount = 0;
std::array<int, AOM_COUNT> AomOrder{0, 1, 2};

void SortAomModules() {
    AomOrder = {0, 1, 2};
    if (AomCount < 2)
        return;
    const auto offset = [](int entry) { return AomTable[static_cast<std::size_t>(entry)].offset; };
    std::sort(AomOrder.begin(), AomOrder.begin() + std::min(AomCount, AOM_COUNT),
              [&](int a, int b) { return offset(a) != offset(b) ? offset(a) < offset(b) : a > b; });
}

const AomEntry* FindAomByAddress(int address) {
    for (const AomEntry& entry : AomTable)
        if (entry.present && entry.adr == address)
            return &entry;
    return nullptr;
}

void PressKeyCode(int code) {
    std::array<std::uint8_t, 5> frame{0x03, FRAME_KEY, 0x20, static_cast<std::uint8_t>(code), 0};
    SetChecksum(frame);
    QueueZTMsg(Serial.Port, frame);
}
