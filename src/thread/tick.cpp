#include "thread/tick.h"

#include "config/set/set_config.h"
#include "config/set/stored_config.h"
#include "config/settings.h"
#include "control/make_call.h"
#include "link/fifo.h"
#include "link/keys.h"
#include "link/link_layer.h"
#include "link/port_io.h"
#include "link/serial.h"
#include "link/tick.h"
#include "platform/text.h"
#include "provider/error_box.h"
#include "provider/event_log.h"
#include "provider/process.h"
#include "provider/state.h"
#include "trace/trace.h"
#include "tracking/display.h"
#include "tracking/events.h"
#include "tracking/pending.h"
#include "tracking/steps.h"

#include <algorithm>
#include <span>
#include <utility>

namespace {

// Limits, in ticks of 100 ms.
constexpr int CONFIG_LIMIT_ASSOC = 90;  // 9 s without the association's acknowledgement
constexpr int CONFIG_LIMIT_DONE = 140;  // 14 s without the whole configuration
constexpr int MAKE_CALL_WATCH_LIMIT = 20;
constexpr int FV_LIMIT = 40;
constexpr int OFFER_LIMIT = 10;
constexpr int RX_IDLE_LIMIT = 4;         // the card never pauses half a second inside a frame
constexpr int CONTACT_LOST_MARGIN = 30;  // ticks after the poll that nobody answered
constexpr int BLOCKED_PAUSE = 600;       // a minute, as between two entries of the event log

// The two boxes of the tick. They release the line mutex while they are shown. A tick that does not hold it again
// afterwards must touch nothing more.
void HardwareProblemBox() {
    Trace(TRACE_ALWAYS, "V24 trouble hinst %lx", Process.ModuleInstance);
    MessageBeep(MB_ICONHAND);
    ReleaseLineMutex(0);
    const int result = ErrorBox("Hardware Problem - Please check:\n\n - the cable,\n - the PC serial port,\n"
                                " - the VXC card.\n\nTrying to restart ... Click Ok to abort");
    WaitLineMutex();
    Trace(TRACE_ALWAYS, "MessageBox returns %lx IDOK %lx IDHELP %lx", result, IDOK, IDHELP);
}

void NoConfigurationBox() {
    Trace(TRACE_ALWAYS, "Dynamic Config not received - SP stopped");
    MessageBeep(MB_ICONHAND);
    ReleaseLineMutex(0);
    ErrorBox("No response from PBX !\nThe Corvane Service Provider cannot run...\n\n- Check your PBX version.\n"
             " - Check your VXC setup.");
    WaitLineMutex();
    Trace(TRACE_ALWAYS, "Dynamic Config not received DialogBox return %ld", 0);
}

void CloseLine() {
    DoLineEvent(LINE_CLOSE, 0, 0, -1);
}

// Why the provider stops itself: for its next start, and for the administrator.
void RecordStop(const char* lastAction, EventId event) {
    RecordLastAction(lastAction);
    LogEvent(event, ProviderState.PortName);
}

// The set's configuration has not come in time. True when the provider has stopped itself.
bool WatchConfiguration() {
    if (Tick.ConfigReceived)
        return false;  // the count stands, maybe at a limit
    if (Tick.WaitConfigCount == CONFIG_LIMIT_ASSOC && !Tick.DeviceAssocAck) {
        Tick.SpStopped = true;
        ProviderState.DeviceState = DEVICE_OUT_OF_SERVICE;
        AllCallReset();
        Trace(TRACE_ALWAYS, "Config dynamic not received: WaitConfigCount %ld LIMIT %d Cas 1", Tick.WaitConfigCount,
              CONFIG_LIMIT_ASSOC);
        RecordStop("failed :Config dynamic :Device association ack not received", EVENT_STOPPED_NO_ASSOCIATION);
        NoConfigurationBox();
        if (HoldsLineMutex())
            CloseLine();
        return true;
    }
    if (Tick.WaitConfigCount != CONFIG_LIMIT_DONE)
        return false;
    ProviderState.DeviceState = DEVICE_OUT_OF_SERVICE;
    Tick.SpStopped = true;
    AllCallReset();
    Trace(TRACE_ALWAYS, "Config dynamic not received: WaitConfigCount %ld LIMIT %d Cas 2", Tick.WaitConfigCount,
          CONFIG_LIMIT_DONE);
    if (ProviderState.TAPI_OMNA_Ver >= 2 && ProviderState.Dev_type != DEV_TYPE_KB2) {
        Trace(TRACE_ALWAYS, "MessageBox Poste non KB2");
        RecordStop("failed :Not a KB2(7120) set", EVENT_STOPPED_WRONG_SET);
        ErrorBox("     Set Configuration Error\n\nYour set is not a 7120/7121 Corvane set");
    } else if (SetConfig.MultiAnnounced == 0) {
        Trace(TRACE_ALWAYS, "MessageBox Poste MONO");
        RecordStop("failed :Not a multiline set", EVENT_STOPPED_NO_MULTI_LINE);
        ErrorBox("     Set Configuration Error\n\nYour set has not a multiline config");
    } else {
        RecordStop("failed :Config dynamic not received", EVENT_STOPPED_NO_CONFIGURATION);
        NoConfigurationBox();
    }
    if (HoldsLineMutex())
        CloseLine();
    return true;
}

// Without trace headers the card shows nothing of the set. True when the provider has stopped itself.
bool WatchTraceMode() {
    if (DynamicConfig.WaitTraceMode == 0 || Serial.PortFailed || Serial.V24Trouble)
        return false;
    if (Link.TraceModeSeen) {
        DynamicConfig.WaitTraceMode = 0;
        return false;
    }
    if (++Tick.WaitTrace < Tick.WaitTraceLimit)
        return false;
    Trace(TRACE_ALWAYS, "TIMEOUT Bad MAC/PC No Trace mode: WaitTrace %d limit %d", Tick.WaitTrace, Tick.WaitTraceLimit);
    Link.LinkStopped = true;
    ProviderState.DeviceState = DEVICE_OUT_OF_SERVICE;
    DynamicConfig.WaitTraceMode = 0;
    RecordStop("failed :Bad MAC/PC trace mode", EVENT_STOPPED_NO_TRACE_MODE);
    ErrorBox("     Set Configuration Error\n\nVXC setup error - Bad MAC/PC mode");
    AllCallReset();
    CloseLine();
    return true;
}

// The stored configuration lacks a text. True when the provider has stopped itself.
bool WatchStrings() {
    if (!Tick.StringInitError || DynamicConfig.StaticConfig != 1 || !Tick.ConfigReceived)
        return false;
    Link.LinkStopped = true;
    ProviderState.DeviceState = DEVICE_OUT_OF_SERVICE;
    Tick.StringInitError = false;
    GiveUpDeferredMakeCall();
    LogEvent(EVENT_STOPPED_BAD_STRING, ProviderState.PortName);
    ErrorBox("Corvane Service Provider internal error\n\nBad string definition");
    return true;
}

void RunDeferredMakeCall() {
    if (Tick.InitDataPending || !Marks.DeferredMakeCall.Set || !Tick.ConfigUsable)
        return;
    const int kept = Marks.DeferredMakeCall.Cref;
    const DWORD state = StateOf(kept);
    if (state != 0 && state != LINECALLSTATE_IDLE && state != LINECALLSTATE_DIALTONE) {
        GiveUpDeferredMakeCall();  // the user has dialled from its record meanwhile: that call is not to be moved
        return;
    }
    // Both marks first: from the IDLE of a call that cannot be made TAPI may ask for the next.
    const int cref = std::exchange(Marks.DeferredMakeCall, {}).Cref;
    Marks.MakeCallReport = {true, cref};
    DoMakeCall(cref, REQUEST_MAKE_CALL, true);
}

// A made call whose key stays dark never reached the PBX.
void WatchMakeCall() {
    CountMark& watch = Marks.MakeCallWatch;
    if (!watch.Set || !Tick.ConfigReceived || Serial.PortFailed || Serial.V24Trouble || !Link.TraceModeSeen)
        return;
    if (++watch.Ticks != MAKE_CALL_WATCH_LIMIT)
        return;
    watch = {};
    DynamicConfig.WaitTraceMode = 0;
    const int cref = FindCallByState(LINECALLSTATE_PROCEEDING);
    if (!IsCref(cref))
        return;
    const int key = CallOf(cref).touch;
    if (!IsKey(key) || TouchOf(key).icon == ACTIV_ICON)
        return;
    Trace(TRACE_CALL, "Time out:Icone:%d éteint - Etat:IDLE - Ref:%d"_cp1252, key, cref);
    ClearCall(cref);
}

void ReportMadeCall() {
    if (!Marks.MakeCallReport.Set)
        return;
    Marks.MakeCallReport.Set = false;
    const int cref = Marks.MakeCallReport.Cref;
    static constexpr DWORD steps[] = {LINECALLSTATE_DIALTONE, LINECALLSTATE_DIALING, LINECALLSTATE_PROCEEDING,
                                      LINECALLSTATE_RINGBACK};
    for (const DWORD state : steps)
        DoLineEvent(LINE_CALLSTATE, state, 0, cref);
    Trace(TRACE_CALL, "DoLineEvent\t(LINE_CALLSTATE, \tLINECALLSTATE_DIALTONE, 0, cref:%lx)", cref);
    Trace(TRACE_CALL, "DoLineEvent(LINE_CALLSTATE,  LINECALLSTATE_DIALING, 0, cref:%lx)", cref);
    Trace(TRACE_CALL, "DoLineEvent(LINE_CALLSTATE,  LINECALLSTATE_PROCEEDING, 0, cref:%lx)", cref);
    Trace(TRACE_CALL, "DoLineEvent(LINE_CALLSTATE,  LINECALLSTATE_RINGBACK, 0, cref:%lx)", cref);
}

// Generated digits leave the set in voice-frequency mode; four seconds later its soft key ends it.
void RunFvTimer() {
    if (!Marks.FvTimer.Set || ++Marks.FvTimer.Ticks != FV_LIMIT)
        return;
    Marks.FvTimer = {};
    SendSoftKey(SoftKeyPosition(SK_CANCEL_FREQ_VOCALE));  // presses nothing for position 0
}

// An incoming call whose caller never showed is offered without one.
void OfferWithoutCaller() {
    const int cref = Tracking.OfferInfoCref;
    if (cref == -1 || ++Tracking.OfferTicks != OFFER_LIMIT)
        return;
    Trace(TRACE_CALL, "- Etat:OFFERING - Ref:%d", cref);
    Trace(TRACE_CALL, "2 sec - pas d'info sur l'appelant");
    DoLineEvent(LINE_CALLSTATE, LINECALLSTATE_OFFERING, 0, cref);
    if (IsCref(cref) && IsKey(CallOf(cref).touch) && TouchOf(CallOf(cref).touch).kind == TOUCH_MULTI)
        WaitForCaller(cref);
    Tracking.OfferInfoCref = -1;
}

void FlushHalfFrame() {
    if (Link.Receiving != Receiver::Collecting || ++Link.RxIdleTicks <= RX_IDLE_LIMIT)
        return;
    ResetReceiver();
    Link.RxIdleTicks = 0;
    Link.LinkIdleTicks = 0;
    Trace(TRACE_ALWAYS, "Inactivity - flush rx queue");
    ResetComPort(3);
    SendL2Msg(Serial.Port, NACK_FRAME);
}

// True when a failed link-control frame was tried again: the tick ends there.
bool RetryFailedWrite() {
    if (!Link.WriteFailed)
        return false;
    Trace(TRACE_ALWAYS, "Try to resend last l2");
    const auto frame = Link.Saved;  // the original is overwritten when this write fails too
    SendL2Msg(Serial.Port, std::span(frame).first(static_cast<std::size_t>(Link.SavedLength)));
    Link.WriteFailed = false;
    return true;
}

// Shown once at a time: the ticks that the box itself dispatches find no port either, and would stack boxes without end.
// Where nobody can see it, every tick would ask the system in vain whether somebody works there now.
void PortBlockedBox() {
    static bool open = false;
    if (open || (Tick.BlockedPause > 0 && --Tick.BlockedPause > 0))
        return;
    open = true;
    bool seen = true;
    ErrorBox("Serial Port blocked", &seen);
    Tick.BlockedPause = seen ? 0 : BLOCKED_PAUSE;
    open = false;
}

void LoseContact() {
    if (!std::exchange(Link.ContactLost, true))
        LogEvent(EVENT_CONTACT_LOST, ProviderState.PortName);
    Trace(TRACE_ALWAYS, "Perte de connexion - Tentative de redemarrage");
    AllCallReset();
    Reconnect();
    if (Serial.V24Trouble)
        return;
    Serial.V24Trouble = true;
    if (ProviderState.DeviceState == DEVICE_IN_SERVICE) {
        DoLineEvent(LINE_LINEDEVSTATE, LINEDEVSTATE_DISCONNECTED | LINEDEVSTATE_OUTOFSERVICE, 0, -1);
        ProviderState.DeviceState = DEVICE_OUT_OF_SERVICE;
    }
    HardwareProblemBox();
    if (!HoldsLineMutex())
        return;
    CloseLine();
    RecordLastAction("failed :V24 Trouble");
}

// Polls a silent link and gives it up when the poll brings nothing. True when the tick ends here.
bool SuperviseLink() {
    if (Link.SubdeviceTest)
        return false;
    if (Link.LinkIdleTicks == Link.LinkPollPeriod) {
        if (!Tick.ConfigReceived)
            Tick.WaitConfigCount = 0;
        if (Serial.Port == INVALID_HANDLE_VALUE) {
            PortBlockedBox();
            return true;
        }
        QueueZTMsg(Serial.Port, POLL_FRAME);
        return false;
    }
    if (Link.LinkIdleTicks <= Link.LinkPollPeriod + CONTACT_LOST_MARGIN)
        return false;
    LoseContact();
    return true;
}

// Hands on all that is there. The bytes are taken out of the buffer first: a box that a handler shows dispatches ticks,
// which must neither offer the same bytes again nor write over those that are still being walked.
void OfferBytes() {
    const auto bytes = Tick.ReadBuffer;
    const int count = std::exchange(Tick.Kept, 0);
    const int kept = ProcessInput(count, bytes.data());
    if (kept == 0)
        return;
    std::copy_n(bytes.begin(), std::min(kept, count), Tick.ReadBuffer.begin());
    Tick.Kept = std::min(kept, count);
}

void ReceiveAll() {
    CheckSerialError(Serial.Port);
    int got = 0;
    do {
        got = ReadPort(Serial.Port, std::span(Tick.ReadBuffer).subspan(static_cast<std::size_t>(Tick.Kept)));
        if (got < 0) {
            CheckSerialError(Serial.Port);
            return;
        }
        Tick.Kept += got;
        if (Tick.Kept == 0)
            return;
        OfferBytes();
        if (got > 0)  // bytes that are only offered again do not prolong their own wait
            Link.LastReceiveTime = timeGetTime();
    } while (got > 0 && Serial.Port != INVALID_HANDLE_VALUE);
}

// Sends the oldest queued frame when the wait for an acknowledgement is over.
void SendQueued() {
    if (Link.AckWaitTicks != 0) {
        if (++Link.AckWaitTicks > ACK_WAIT_LIMIT)
            Link.AckWaitTicks = 0;
        if (Link.AckWaitTicks != 0)
            return;
    }
    if (FifoCount(LINK_FIFO) > 0)
        QueueZTMsg(Serial.Port, {});
}

// One tick; a step that gives true ends it.
void RunTick() {
    WatchRunningRequest();  // of a stopped link too, whose presses are lost
    LogLeftOut();
    if (Link.LinkStopped || Tick.SpStopped)
        return;
    if (Tracking.ForwardAckTicks > 0)
        --Tracking.ForwardAckTicks;
    if (WatchConfiguration() || WatchTraceMode())
        return;
    ++Link.LinkIdleTicks;
    if (!Tick.ConfigReceived)
        ++Tick.WaitConfigCount;
    if (Tick.InitDataPending && DynamicConfig.LastActionState != 0)
        Tick.InitDataPending = InitDatas() != 0;
    if (WatchStrings())
        return;
    RunDeferredMakeCall();
    WatchMakeCall();
    ReportMadeCall();
    RunFvTimer();
    OfferWithoutCaller();
    FlushHalfFrame();
    if (RetryFailedWrite() || SuperviseLink())
        return;
    if (Serial.Port == INVALID_HANDLE_VALUE) {
        PortBlockedBox();
        return;
    }
    ReceiveAll();
    SendQueued();
}

}  // namespace

void CALLBACK SerialTick(HWND, UINT, UINT_PTR, DWORD) {
    if (SerialThreadLife == ThreadLife::Forgotten)
        return;
    if (!GotLineMutex(WaitLineMutex()))
        return;  // without the mutex nothing may be touched
    RenewPortWait();
    RunTick();
    if (HoldsLineMutex())
        ReleaseLineMutex(0);
}
