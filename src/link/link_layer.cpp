#include "link/link_layer.h"

#include "link/fifo.h"
#include "link/keys.h"
#include "link/omna.h"
#include "link/port_io.h"
#include "link/serial.h"
#include "link/tick.h"
#include "link/up.h"
#include "platform/text.h"
#include "provider/event_log.h"
#include "provider/state.h"
#include "trace/dump.h"
#include "trace/trace.h"

#include <algorithm>
#include <cstring>
#include <numeric>
#include <utility>

LinkState Link;

namespace {

using Bytes = std::span<const std::uint8_t>;

constexpr std::uint32_t CONTACT_LOST_MS = 60000;   // nothing sent for so long when the card asks for a restart
constexpr std::uint32_t INCOMPLETE_WAIT_MS = 200;  // wait for the rest of the last frame of a burst of refusals
constexpr int ACK_WAIT_SENT = 20;                  // AckWaitTicks after a frame went out
constexpr int TX_IDLE_LIMIT = 150;                 // kicks without acknowledgement before a frame is given up
constexpr int TX_DROP_LIMIT = 2;                   // frames given up, each told to the card by an abort frame
constexpr int SUSPENDED = -2;                      // NbInputBeforeSuspend: nothing is sent until the card restarts
constexpr std::size_t FRAME_MAX = 257;             // size of the longest frame
constexpr std::size_t PIGGYBACK_EXTRA = 5;         // bytes in front of the queued frame in an 'o' frame that carries it

constexpr auto NULL_ANSWER = FixedFrame(FRAME_NULL);
constexpr auto ALIVE_ANSWER = FixedFrame(FRAME_ALIVE);
constexpr auto ASKED_ANSWER = FixedFrame(FRAME_ASKED, 2, 3, 3, 2);
static_assert(std::tuple_size_v<decltype(LinkState::Receive)> >= FRAME_MAX);

bool IsPort(HANDLE port) {
    return port != INVALID_HANDLE_VALUE;
}

// The status is cleared first: some drivers leave it unwritten.
COMSTAT PortStatus() {
    COMSTAT status{};
    DWORD errors = 0;
    if (IsPort(Serial.Port))
        ClearCommError(Serial.Port, &errors, &status);
    return status;
}

bool SendingSuspended() {
    return Link.NbInputBeforeSuspend == 0 || Link.NbInputBeforeSuspend == SUSPENDED;
}

void Acknowledge() {
    SendL2Msg(Serial.Port, ACK_FRAME);
}

void KickTransmitter() {
    QueueZTMsg(Serial.Port, {});
}

std::uint8_t Sum(Bytes bytes) {
    return static_cast<std::uint8_t>(std::accumulate(bytes.begin(), bytes.end(), 0u));
}

std::uint8_t ByteAt(Bytes bytes, std::size_t index) {
    return index < bytes.size() ? bytes[index] : std::uint8_t{0};
}

// --- link control: `control` begins with the sub-type ------------------------------------------------------------

void Acknowledged(Bytes, bool) {
    Link.TxIdleCount = 0;
    Link.TxDropCount = 0;
    DropSentFrame();
    KickTransmitter();
}

void PollAnswered(Bytes control, bool acknowledge) {
    Link.ProcessData = true;
    LinkProven();
    Acknowledged(control, acknowledge);
}

void AnswerAck(Bytes, bool) {
    Acknowledge();
}

void SpecialFunctionAck(Bytes control, bool acknowledge) {
    Link.ProcessData = true;
    Acknowledged(control, acknowledge);
}

// Sub-type, major, minor, a byte without use, flags. A response too short for a version counts as 0.00, one too short
// for flags leaves the modes as they are.
void ConfigResponse(Bytes control, bool) {
    Link.ProcessData = true;
    Link.TxIdleCount = 0;
    Link.TxDropCount = 0;
    std::uint8_t major = 0, minor = 0;
    if (control.size() >= 4) {
        major = control[1];
        minor = control[2];
    }
    if (control.size() >= 5) {
        Link.SuperMsgSupported = (control[4] & 0x01) != 0;
        Link.PiggybackMode = (control[4] & 0x02) != 0;
    }
    DropSentFrame();
    // Both numbers count on their own: 4.02 is no tempo version.
    if (major >= 3 && minor >= 6)
        QueueZTMsg(Serial.Port, TEMPO_FRAME);
    else
        KickTransmitter();
    Trace(TRACE_ALWAYS, "* Subdevice Mac/pc %d.%.02d *", major, minor);
    ProviderState.AdapterMajor = major;
    ProviderState.AdapterMinor = minor;
    LinkProven();
    Link.LinkPollPeriod = POLL_PERIOD_ANSWERED;
    if (Serial.V24Trouble && !Tick.ConfigReceived)
        Tick.WaitConfigCount = 0;
}

void TempoAnswered(Bytes control, bool acknowledge) {
    Acknowledged(control, acknowledge);
    LinkProven();
    Link.LinkPollPeriod = POLL_PERIOD_ANSWERED;
}

void Refused(Bytes, bool) {
    Resend_Last_Msg();
}

void LossOfSynchro(Bytes, bool) {
    ResetComPort(1);
    Resend_Last_Msg();
}

void Aborted(Bytes, bool) {
    ResetComPort(3);
    Acknowledge();
}

// The card starts anew. In the sub-device test the answer is held back for a number of these, then chosen by the test.
void Restarted(Bytes, bool) {
    if (Link.SubdeviceTest && Link.NbWaitAckBeforeResponse >= 1)
        Link.NbInputBeforeSuspend = SUSPENDED;
    ResetComPort(1);
    if (Link.NbWaitAckBeforeResponse > 0)
        --Link.NbWaitAckBeforeResponse;
    else if (Link.NbWaitAckBeforeResponse == 0) {
        Link.NbInputBeforeSuspend = -1;
        if (Link.WaitAckResponseNack)
            SendL2Msg(Serial.Port, NACK_FRAME);
        else
            Acknowledge();
    }
}

void ResetAndAcknowledge(Bytes, bool acknowledge) {
    ResetComPort(1);
    if (acknowledge)
        Acknowledge();
}

void ResetOnly(Bytes, bool) {
    ResetComPort(1);
}

struct ControlEntry {
    std::uint8_t code;
    std::uint32_t level;
    const char* text;  // null: no trace; %d is the byte after the sub-type
    void (*handle)(Bytes control, bool acknowledge);
};

constexpr ControlEntry ControlTable[] = {
    {CONTROL_ACK, 0, nullptr, Acknowledged},
    {CONTROL_POLL, 0, nullptr, PollAnswered},
    {0x02, 0, nullptr, AnswerAck},
    {CONTROL_SPECIAL_FUNCTION, TRACE_ENTRY, "RX: Special Function Ack", SpecialFunctionAck},
    {CONTROL_CONFIG, TRACE_ENTRY, "RX: Config Response ", ConfigResponse},
    {CONTROL_TEMPO, TRACE_ENTRY, "RX:Tempo Modification Ack:WaitAckTimer %d", TempoAnswered},
    {CONTROL_TEMPO_ENQUIRY, TRACE_ENTRY, "RX:Tempo Enquiry Response:WaitAckTimer %d", TempoAnswered},
    {0x80, 0, nullptr, AnswerAck},
    {CONTROL_WRONG_LENGTH, TRACE_ALWAYS, "RX: Wrong length (NACK)", Refused},
    {CONTROL_WRONG_CHECKSUM, TRACE_ALWAYS, "RX: Wrong CheckSum (NACK)\n", Refused},
    {CONTROL_LOSS_OF_SYNCHRO, TRACE_ALWAYS, "RX: Physical loss of synchro (NACK)\n", LossOfSynchro},
    {CONTROL_ABORT, TRACE_ALWAYS, "RX: ABORT - ResetCommPort(3)", Aborted},
    {CONTROL_RESTART, 0, nullptr, Restarted},
    {0x88, 0, nullptr, ResetAndAcknowledge},
};
constexpr ControlEntry OtherControl = {0, 0, nullptr, ResetOnly};

// --- frames by type: `message` begins with the type ---------------------------------------------------------------

void LinkControl(Bytes message, bool acknowledge) {
    Link.AckWaitTicks = ACK_WAIT_LIMIT;
    const Bytes control = message.subspan(1);
    const auto* found = std::end(ControlTable);
    if (!control.empty())
        found = std::find_if(std::begin(ControlTable), std::end(ControlTable),
                             [&](const ControlEntry& entry) { return entry.code == control[0]; });
    const ControlEntry& entry = found == std::end(ControlTable) ? OtherControl : *found;
    if (entry.text != nullptr)
        Trace(entry.level, entry.text, ByteAt(control, 1));
    entry.handle(control, acknowledge);
}

void AnswerNull(Bytes, bool) {
    SendL2Msg(Serial.Port, NULL_ANSWER);
}

void AcknowledgeOnly(Bytes, bool acknowledge) {
    if (acknowledge)
        Acknowledge();
}

void Segment(Bytes message, bool acknowledge) {
    if (Link.ProcessData)
        RebuildSegment(message, acknowledge);
    else
        Acknowledge();
}

void Asking(Bytes message, bool acknowledge) {
    AcknowledgeOnly(message, acknowledge);
    QueueZTMsg(Serial.Port, ASKED_ANSWER);
}

void Omna(Bytes message, bool acknowledge) {
    AcknowledgeOnly(message, acknowledge);
    if (Link.ProcessData)
        Up.OmnaMessage(message.subspan(1));
}

void AnswerAlive(Bytes message, bool acknowledge) {
    AcknowledgeOnly(message, acknowledge);
    CheckSerialError(Serial.Port);
    SendL2Msg(Serial.Port, ALIVE_ANSWER);
    Link.TxDropCount = 0;
}

void SystemTrace(Bytes message, bool acknowledge) {
    if (!Link.SystemTraceSeen)
        Trace(TRACE_ENTRY, "RX: First TRACEMODE System Trace Header WaitTrace %d - ProcessData:%d", Tick.WaitTrace,
              Link.ProcessData);
    Link.SystemTraceSeen = true;
    Link.TraceModeSeen = true;
    LinkProven();
    AcknowledgeOnly(message, acknowledge);
    if (Link.ProcessData)
        Up.Command(message.subspan(1), 0, 255);
}

void VtaTrace(Bytes message, bool acknowledge) {
    constexpr int IGNORED_COMMAND = 0x22;
    if (!Link.VtaTraceSeen)
        Trace(TRACE_ENTRY, "RX: First TRACEMODE VTA Trace Header WaitTrace %d", Tick.WaitTrace);
    Link.VtaTraceSeen = true;
    Link.TraceModeSeen = true;
    LinkProven();
    AcknowledgeOnly(message, acknowledge);
    const Bytes event = message.subspan(1);
    if (Link.ProcessData && (ByteAt(event, 0) & 0x7F) != IGNORED_COMMAND)
        Up.TerminalEvent(event, 0, 255);
}

// A module's frames carry its address in front of the command.
void SystemToOption(Bytes message, bool acknowledge) {
    AcknowledgeOnly(message, acknowledge);
    Link.TraceModeSeen = true;
    const std::uint8_t first = ByteAt(message, 1), command = ByteAt(message, 2);
    Trace(TRACE_ENTRY, "RX: System to Option Trace Header(address %x) OP %x", first, command);
    const int address = first & 7;
    if ((command == 'F' || command == 'G') && FindAomByAddress(address) != nullptr && Link.ProcessData)
        Up.Command(message.subspan(2), 1, address);
}

void OptionToSystem(Bytes message, bool acknowledge) {
    AcknowledgeOnly(message, acknowledge);
    Link.TraceModeSeen = true;
    const int address = ByteAt(message, 1) & 7;
    const std::uint8_t command = ByteAt(message, 2);
    Trace(TRACE_ENTRY, "RX: Option to System Trace Header(address %x) OP %x", address, command);
    if (command == ' ' && FindAomByAddress(address) != nullptr && Link.ProcessData)
        Up.TerminalEvent(message.subspan(2), 1, address);
}

using FrameHandler = void (*)(Bytes message, bool acknowledge);

constexpr auto FrameTable = [] {
    std::array<FrameHandler, FRAME_OPTION_TO_SYSTEM + 1> table{};
    table[FRAME_NULL] = AnswerNull;
    for (const int type : {0x03, 0x10, 0x11, 0x1F, 0x21, 0x22})  // the card's own, without a use here
        table[static_cast<std::size_t>(type)] = AcknowledgeOnly;
    table[FRAME_CONTAINER] = AcknowledgeOnly;  // one inside another
    table[FRAME_SEGMENT] = Segment;
    table[FRAME_ASKING] = Asking;
    table[FRAME_OMNA] = Omna;
    table[FRAME_ALIVE] = AnswerAlive;
    table[FRAME_CONTROL] = LinkControl;
    table[FRAME_SYSTEM_TRACE] = SystemTrace;
    table[FRAME_VTA_TRACE] = VtaTrace;
    table[FRAME_SYSTEM_TO_OPTION] = SystemToOption;
    table[FRAME_OPTION_TO_SYSTEM] = OptionToSystem;
    return table;
}();

void DispatchFrame(Bytes message, bool acknowledge) {
    if (message.empty() || message[0] >= FrameTable.size())
        return;
    if (const FrameHandler handle = FrameTable[message[0]])
        handle(message, acknowledge);
}

// --- frames that hold others ---------------------------------------------------------------------------------------

// The message behind a length byte, both taken off `items`; empty, with all items dropped, when it does not fit.
Bytes TakeItem(Bytes& items) {
    const std::size_t length = items[0], left = items.size() - 1;
    if (length > left) {
        Trace(TRACE_ALWAYS, "RX: contained message len %d beyond the end of its frame, left %d", length, left);
        items = {};
        return {};
    }
    const Bytes item = items.subspan(1, length);
    items = items.subspan(1 + length);
    return item;
}

void DispatchItems(Bytes items) {
    while (!items.empty())
        DispatchFrame(TakeItem(items), false);
}

bool IsContainer(Bytes message) {
    return !message.empty() && (message[0] == FRAME_SUPER || message[0] == FRAME_CONTAINER);
}

void ReceiveContainer(Bytes message, bool acknowledge) {
    AcknowledgeOnly(message, acknowledge);
    DispatchItems(message.subspan(1));
}

// A link-control frame, then one message: both as a length byte and what it counts.
void ReceivePiggyback(Bytes message, bool acknowledge) {
    constexpr std::size_t CONTROL_LENGTH = 3;
    AcknowledgeOnly(message, acknowledge);
    const Bytes data = message.subspan(1);
    if (data.size() < CONTROL_LENGTH)
        return;
    DispatchFrame(data.subspan(1, CONTROL_LENGTH - 1), false);
    Bytes rest = data.subspan(CONTROL_LENGTH);
    if (rest.empty())
        return;
    const Bytes attached = TakeItem(rest);
    if (IsContainer(attached))
        DispatchItems(attached.subspan(1));
    else
        DispatchFrame(attached, false);
}

void DispatchReceived(Bytes message) {
    if (message.empty())
        return;  // a length of 0 leaves no type
    const bool acknowledge = !SendingSuspended();
    if (IsContainer(message))
        ReceiveContainer(message, acknowledge);
    else if (message[0] == FRAME_PIGGYBACK)
        ReceivePiggyback(message, acknowledge);
    else
        DispatchFrame(message, acknowledge);
}

// --- framing -------------------------------------------------------------------------------------------------------

// The half frame that there may be is one that ticks inside a handler's box have left.
void EndHandling() {
    Link.Receiving = Link.Expected != 0 ? Receiver::Collecting : Receiver::Waiting;
}

// The receive buffer holds a whole frame. It is handled from a copy, with the counts cleared: a box shown by a handler lets
// ticks go on receiving. What the handlers queue is held back until the frame has been dealt with.
void FrameComplete() {
    std::array<std::uint8_t, FRAME_MAX> copy;
    const std::size_t size = std::min(static_cast<std::size_t>(Link.Expected), copy.size());
    std::copy_n(Link.Receive.begin(), size, copy.begin());
    Link.Expected = 0;
    Link.Collected = 0;
    Link.Receiving = Receiver::Handling;

    const Bytes frame = Bytes(copy).first(size), behindLength = frame.subspan(1);
    if (const std::uint8_t sum = Sum(frame); sum != 0) {
        Trace(TRACE_ALWAYS, "Process input - CS: Wrong CS Nack cs: %d, msglen: %d", sum, behindLength.size());
        ResetComPort(3);
        SendL2Msg(Serial.Port, NACK_FRAME);
    } else {
        TraceDump(TRACE_INPUT, "ProcessInput(%s)", behindLength);
        if (Link.NbInputBeforeSuspend > 0)
            --Link.NbInputBeforeSuspend;
        DispatchReceived(behindLength.first(behindLength.size() - 1));
    }
    EndHandling();
}

// A read that is being cut. A tick inside a handler's box reads what comes behind it, and first cuts the rest of it:
// bytes count in the order in which they came.
struct Cutting {
    Bytes Left;
    Cutting* Outer;
};
Cutting* Innermost = nullptr;

void CutRest(Cutting& read) {
    if (read.Outer != nullptr)
        CutRest(*read.Outer);
    while (!read.Left.empty()) {
        Link.RxIdleTicks = 0;
        if (Link.Receiving != Receiver::Collecting) {
            Link.Receiving = Receiver::Collecting;
            Link.Expected = read.Left[0] + 2;
            Link.Collected = 0;
        }
        const std::size_t wanted = static_cast<std::size_t>(Link.Expected - Link.Collected);
        const std::size_t taken = std::min(wanted, read.Left.size());
        std::copy_n(read.Left.begin(), taken, Link.Receive.begin() + Link.Collected);
        Link.Collected += static_cast<int>(taken);
        read.Left = read.Left.subspan(taken);
        if (Link.Collected == Link.Expected)
            FrameComplete();
    }
}

void CutFrames(Bytes input) {
    Cutting read{input, Innermost};
    Innermost = &read;
    CutRest(read);
    Innermost = read.Outer;
}

// --- reads of more than one frame ----------------------------------------------------------------------------------

enum class Burst { Frames, Dropped, Kept };

bool IsControl(Bytes rest, std::uint8_t first, std::uint8_t last) {
    return rest.size() >= 3 && rest[0] == 2 && rest[1] == FRAME_CONTROL && rest[2] >= first && rest[2] <= last;
}

// What the card is asked first.
void QueueFirstFrames() {
    QueueZTMsg(Serial.Port, POLL_FRAME);
    QueueZTMsg(Serial.Port, SPECIAL_FUNCTION_FRAME);
    QueueZTMsg(Serial.Port, CONFIG_ENQUIRY_FRAME);
}

void RestartAfterLostContact() {
    DropQueuedFrames();
    QueueFirstFrames();
    Up.CallsLost();
}

// The card asks for a restart somewhere in the read: nothing else in it counts.
void AnswerRestart() {
    if (timeGetTime() - Link.LastTransmitTime >= CONTACT_LOST_MS) {
        RestartAfterLostContact();
        return;
    }
    SendL2Msg(Serial.Port, RESYNC_FRAME);
    ResetReceiver();
}

// Several refusals in one read answer one frame, which must go out again only once.
Burst CheckBurst(Bytes input) {
    int refusals = 0;
    std::size_t position = 0;
    while (position < input.size()) {
        const Bytes rest = input.subspan(position);
        if (IsControl(rest, CONTROL_RESTART, CONTROL_RESTART)) {
            AnswerRestart();
            return Burst::Dropped;
        }
        if (IsControl(rest, CONTROL_WRONG_LENGTH, CONTROL_LOSS_OF_SYNCHRO))
            ++refusals;
        position += rest[0] + std::size_t{2};
    }
    if (refusals < 2)
        return Burst::Frames;
    if (position == input.size()) {
        Trace(TRACE_ALWAYS, "Deux msgs type 60.8x détectés dans la trame !!!"_cp1252);
    } else if (timeGetTime() - Link.LastReceiveTime <= INCOMPLETE_WAIT_MS) {
        Trace(TRACE_ALWAYS, "Deux msgs type 60.8x détectés - Dernier msg incomplet - Attente "_cp1252);
        return Burst::Kept;
    } else {
        Trace(TRACE_ALWAYS, "Deux msgs type 60.8x détectés - dernier msg incomplet - Tempo atteinte !!!"_cp1252);
    }
    Resend_Last_Msg();
    return Burst::Dropped;
}

// --- writing -------------------------------------------------------------------------------------------------------

// What Resend_Last_Msg writes again.
void RememberSent(Bytes frame) {
    const std::size_t length = std::min(frame.size(), Link.Transmit.size());
    std::copy_n(frame.begin(), length, Link.Transmit.begin());
    Link.LastWritten = static_cast<int>(length);
    Link.LastTransmitTime = timeGetTime();
}

// An 'o' frame: the link-control frame and the oldest queued one, both without their checksums. False when there is
// none to carry, or when it would not fit.
bool SendPiggyback(HANDLE port, Bytes control) {
    // Only link control travels so: the other short answers would be no link-control frame there.
    if (Link.AckWaitTicks != 0 || !Link.PiggybackMode || control.size() < 3 || control[1] != FRAME_CONTROL)
        return false;
    std::array<std::uint8_t, FRAME_MAX + PIGGYBACK_EXTRA> frame;
    const auto queued = static_cast<std::size_t>(FifoPeek(LINK_FIFO, std::span(frame).subspan(PIGGYBACK_EXTRA)));
    if (queued == 0 || queued + 3 > 0xFF)
        return false;
    frame[0] = static_cast<std::uint8_t>(queued + 3);
    frame[1] = FRAME_PIGGYBACK;
    std::copy_n(control.begin(), 3, frame.begin() + 2);
    const auto whole =
        std::span(frame).first(queued + PIGGYBACK_EXTRA);  // its checksum stands where the queued one's was
    SetChecksum(whole);
    if (IsPort(port))
        WritePort(port, whole);
    RememberSent(whole);
    TraceDump(TRACE_LINK, "SendL2Msg(%s)", whole);
    Link.AckWaitTicks = ACK_WAIT_SENT;
    return true;
}

void SendDirect(HANDLE port, Bytes frame) {
    Link.L2Sent = true;
    const bool written = WritePort(port, frame);
    Link.L2SentTime = timeGetTime();
    if (!written) {
        const COMSTAT status = PortStatus();
        Trace(TRACE_ALWAYS, " ");
        Trace(TRACE_ALWAYS, "SendL2Msg - WriteCommResult :%d", 0);
        Trace(TRACE_ALWAYS, "COMSTAT  - cbInQue:%d - cbOutQue:%d", status.cbInQue, status.cbOutQue);
        Trace(TRACE_ALWAYS, " ");
        const std::size_t kept = std::min(frame.size(), Link.Saved.size());
        std::memmove(Link.Saved.data(), frame.data(), kept);  // the frame may be the saved one itself
        Link.SavedLength = static_cast<int>(kept);
        Link.WriteFailed = true;
    }
    RememberSent(frame);
    TraceDump(TRACE_LINK, "SendL2Msg(%s)", frame);
}

}  // namespace

void ResetReceiver() {
    Link.Receiving = Receiver::Waiting;
    Link.Expected = 0;
    Link.Collected = 0;
}

int ProcessInput(int count, const std::uint8_t* bytes) {
    if (count <= 0)
        return 0;
    const Bytes input(bytes, static_cast<std::size_t>(count));
    if (count > input[0] + 2 && !Link.SubdeviceTest)
        switch (CheckBurst(input)) {
        case Burst::Frames: break;
        case Burst::Dropped: return 0;
        case Burst::Kept: return count;
        }
    CutFrames(input);
    return 0;
}

int QueueZTMsg(HANDLE port, std::span<const std::uint8_t> frame) {
    if (Link.LinkStopped)
        return -3;
    if (frame.empty())
        ++Link.TxIdleCount;
    else
        FifoPut(LINK_FIFO, frame);
    if (Link.TxIdleCount > TX_IDLE_LIMIT) {
        Link.TxIdleCount = 0;
        FifoDrop(LINK_FIFO);
        if (++Link.TxDropCount > TX_DROP_LIMIT)
            return 0;
        if (IsPort(port))
            SendL2Msg(port, ABORT_FRAME);
    }
    if (SendingBlocked() != 0)
        return 0;
    if (SendingSuspended())
        return Link.NbInputBeforeSuspend;
    return TxZTMsgFromFifo();
}

int SendingBlocked() {
    const COMSTAT status = PortStatus();
    if (Link.L2Sent) {
        if (timeGetTime() - Link.L2SentTime < static_cast<std::uint32_t>(Link.After_L2_timeout)) {
            Trace(TRACE_LINK, "L2 sent - sending_blocked - waiting timeout");
            return 1;
        }
        Link.L2Sent = false;
    }
    if (status.cbOutQue > 0 || Link.Receiving != Receiver::Waiting || Link.AckWaitTicks != 0) {
        Trace(TRACE_LINK, "sending blocked");
        return 1;
    }
    return 0;
}

int TxZTMsgFromFifo() {
    std::array<std::uint8_t, std::tuple_size_v<decltype(LinkState::Transmit)>> room;
    const auto length = static_cast<std::size_t>(FifoPeek(LINK_FIFO, room));
    if (length == 0)
        return 0;
    if (length > room.size() || !IsPort(Serial.Port))
        return -1;
    if (PortStatus().cbInQue > 0) {
        Trace(TRACE_LINK, "InQueue not empty - exiting TxZTMsgFromFifo");
        return 0;
    }
    // Only a frame that is handed to the port replaces the one that a refusal would have sent again.
    const Bytes frame = Bytes(room).first(length);
    std::copy(frame.begin(), frame.end(), Link.Transmit.begin());
    Link.LastWritten = static_cast<int>(length);
    if (!WritePort(Serial.Port, frame)) {
        const DWORD error = GetLastError();
        CheckSerialError(Serial.Port);
        Trace(TRACE_ALWAYS, "TxZTMsgFromFifo - failed to write to port,GetLastError %lx", error);
        return -1;
    }
    Link.LastTransmitTime = timeGetTime();
    TraceDump(TRACE_LINK, "TxZTMsgFromFifo(%s)", frame);
    Link.AckWaitTicks = ACK_WAIT_SENT;
    return 0;
}

void SendL2Msg(HANDLE port, std::span<const std::uint8_t> frame) {
    if (Link.SuperMsgSupported && Link.AckWaitTicks == 0)
        ZTsuperfifo(LINK_FIFO);
    if (!SendPiggyback(port, frame) && IsPort(port))
        SendDirect(port, frame);
    if (Innermost == nullptr)
        ResetReceiver();
    else
        EndHandling();  // a handler's answer
}

void Resend_Last_Msg() {
    if (!IsPort(Serial.Port))
        return;
    const Bytes frame = Bytes(Link.Transmit).first(static_cast<std::size_t>(Link.LastWritten));
    WritePort(Serial.Port, frame);
    Link.LastTransmitTime = timeGetTime();
    TraceDump(TRACE_LINK, "Resend_Last_Msg(%s)", frame);
}

void ResetTransmitState(bool keepSavedFrame) {
    Link.L2Sent = false;
    Link.AckWaitTicks = 0;
    Link.TxIdleCount = 0;
    Link.TxDropCount = 0;
    ResetReceiver();
    Link.SuperMsgSupported = false;
    Link.PiggybackMode = false;
    if (!keepSavedFrame) {
        Link.WriteFailed = false;
        Link.SavedLength = 0;
    }
    Link.LinkIdleTicks = 0;
}

void LinkProven() {
    Link.LinkIdleTicks = 0;
    if (std::exchange(Link.ContactLost, false))
        LogEvent(EVENT_CONTACT_BACK, ProviderState.PortName);
}

void StartLink() {
    SendL2Msg(Serial.Port, RESYNC_FRAME);
    QueueFirstFrames();
    ResetOmnaLink();
}
