// Bytes from the port, cut into reads. An input is one byte that chooses the start state, then reads: a length byte and
// the bytes. What the receiver asks to be kept is offered again in front of the next read, as the tick does.
#include "start.h"

#include "config/settings.h"
#include "link/fifo.h"
#include "link/link_layer.h"
#include "link/serial.h"
#include "link/tick.h"
#include "platform/control.h"
#include "provider/state.h"
#include "tracking/events.h"
#include "tracking/model.h"
#include "tracking/terminal.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace {

enum StartBits : std::uint8_t {
    START_PROCESS = 0x01,
    START_SUPER = 0x02,
    START_PIGGYBACK = 0x04,
    START_SUBDEVICE_TEST = 0x08,
    START_CONFIGURED = 0x10,
    START_DOUBLE_CALL = 0x20,
    START_VERSION_1 = 0x40,  // else 3
    START_LATE = 0x80,       // nothing sent for over a minute
};

void Stand(std::size_t slot, DWORD state) {
    const int cref = AllocCallRecord(state, 1);
    CallTable[static_cast<std::size_t>(cref)].Outbound = 1;
    TouchTable[1].calls[slot] = cref;
}

void Begin(std::uint8_t start) {
    FuzzStart();
    Link.ProcessData = (start & START_PROCESS) != 0;
    Link.SuperMsgSupported = (start & START_SUPER) != 0;
    Link.PiggybackMode = (start & START_PIGGYBACK) != 0;
    Link.LastReceiveTime = timeGetTime();
    Link.LastTransmitTime = timeGetTime() - ((start & START_LATE) != 0 ? 61000 : 0);
    if ((start & START_SUBDEVICE_TEST) != 0) {
        Link.SubdeviceTest = true;
        Link.NbInputBeforeSuspend = 2;
        Link.NbWaitAckBeforeResponse = 1;
    }
    ProviderState.TAPI_OMNA_Ver = (start & START_VERSION_1) != 0 ? 1 : 3;
    if ((start & (START_CONFIGURED | START_DOUBLE_CALL)) != 0)
        FuzzConfigureSet();
    if ((start & START_DOUBLE_CALL) != 0) {
        Stand(0, LINECALLSTATE_ONHOLD);
        Stand(1, LINECALLSTATE_CONNECTED);
        TouchTable[1].icon = ACTIV_ICON;
        Tracking.ActivCallTouch = 1;
        Tracking.DbCall = 1;
    }
    QueueZTMsg(Serial.Port, POLL_FRAME);
}

void CheckRecords() {
    FuzzRequire(Link.Collected >= 0 && Link.Collected <= Link.Expected && Link.Expected <= 257,
                "the receiver's counts");
    FuzzRequire(Link.Receiving != Receiver::Collecting || Link.Collected < Link.Expected,
                "no whole frame is left lying");
    FuzzRequire(FifoCount(LINK_FIFO) <= FIFO_SLOTS - 1, "the queue's limit");
    for (const auto& line : Display.Lines)
        FuzzRequire(line[DISPLAY_COLUMNS] == 0, "a display line's end");
    FuzzRequire(std::memchr(DialedNumber, 0, sizeof DialedNumber) != nullptr, "the dialled number's end");
    FuzzCheckKeys();
    for (const Touch& touch : TouchTable)
        for (const int cref : touch.calls)
            FuzzRequire(cref == -1 || IsCref(cref), "the crefs on a key");
    for (const CallRecord& call : CallTable)
        FuzzRequire(call.touch >= 0 && call.touch < KEY_COUNT, "the key of a call");
}

}  // namespace

int FuzzReceive(const std::uint8_t* data, std::size_t size) {
    FuzzInput input(data, size);
    Begin(input.Byte());
    std::array<std::uint8_t, 1024> buffer;
    std::size_t kept = 0;
    while (!input.Empty()) {
        const auto read = input.Counted();
        const std::size_t taken = std::min(read.size(), buffer.size() - kept);
        std::copy_n(read.begin(), taken, buffer.begin() + static_cast<std::ptrdiff_t>(kept));
        const int count = static_cast<int>(kept + taken);
        const int result = ProcessInput(count, buffer.data());
        FuzzRequire(result == 0 || result == count, "what the receiver keeps");
        kept = static_cast<std::size_t>(result);
        CheckRecords();
        PlatformControl::Advance(TICK_MS);
        if (Link.AckWaitTicks != 0 && ++Link.AckWaitTicks > ACK_WAIT_LIMIT)
            Link.AckWaitTicks = 0;
        QueueZTMsg(Serial.Port, {});
    }
    return 0;
}
