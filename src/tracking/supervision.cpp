#include "tracking/supervision.h"

#include "config/settings.h"
#include "platform/text.h"
#include "trace/trace.h"
#include "tracking/steps.h"

namespace {

// The supervised line rings: a call of this line is offered. OFFERING follows when the caller shows, or after a second.
void CreateSupervisedCall(int key) {
    const int cref = AllocCallRecord(LINECALLSTATE_OFFERING, key);
    if (IsCref(cref)) {
        TouchOf(key).calls = {cref, -1};
        DoLineEventNewCall(cref);
        CallOf(cref).byMakeCall = 0;
        CallOf(cref).Inbound = 1;
        Tracking.OfferInfoCref = cref;
        Tracking.OfferTicks = 0;
    }
    TouchOf(key).icon = INCOM_ICON;
}

bool IsRinging(int cref) {
    return CallOf(cref).state == LINECALLSTATE_OFFERING || CallOf(cref).state == STATE_REOFFERING;
}

// Nobody took the call.
void EndSupervisedCall(int key, int cref) {
    ReportGone(key, cref);
    const bool wanted = cref == PickUpSupervCref;
    if (wanted)
        PickUpSupervCref = -1;
    EndGone(key, cref);
    if (wanted)
        Trace(TRACE_CALL, "Annulation PickUpSupervProceeding %04x ", cref);
}

// The supervised line has stopped ringing.
void StopRinging(int key) {
    Touch& touch = TouchOf(key);
    const int cref = touch.calls[0];
    if (!IsCref(cref)) {
        touch.icon = IDLE_ICON;
        return;
    }
    const bool here = CallOf(cref).touch == key;
    if (IsRinging(cref)) {
        if (here)
            EndSupervisedCall(key, cref);
        return;
    }
    if (here) {
        Trace(TRACE_ALWAYS, "Icone:%d éteint - Superv etat impossible %lx - Ref:%d"_cp1252, key, CallOf(cref).state,
              cref);
        return;
    }
    Trace(TRACE_CALL, "Icone:%d éteint - Superv Interceptee - Ref:%d"_cp1252, key, cref);
    touch.icon = IDLE_ICON;
    touch.calls[0] = -1;
}

}  // namespace

void SupervIcon(int icon, int key) {
    if (Settings.SupervService == 0 || !IsKey(key))
        return;
    Touch& touch = TouchOf(key);
    Trace(TRACE_CALL, "Superv Icone %d Action: %s => %s", key, CommandName(touch.icon), CommandName(icon));
    if (touch.icon == IDLE_ICON) {
        if (icon == INCOM_ICON)
            CreateSupervisedCall(key);
        return;
    }
    switch (icon) {
    case INCOM_ICON:  // the call before was intercepted and stands on another key now
        if (IsCref(touch.calls[0]) && CallOf(touch.calls[0]).touch != key)
            CreateSupervisedCall(key);
        break;
    case IDLE_ICON:
    case RESERVED_ICON: StopRinging(key); break;
    default: break;
    }
}

void SupervKeyPressed(int key) {
    if (!IsKey(key) || TouchOf(key).kind != TOUCH_SUPERV)
        return;
    const int cref = TouchOf(key).calls[0];
    if (!IsCref(cref) || CallOf(cref).state != LINECALLSTATE_OFFERING)
        return;
    Trace(TRACE_ENTRY, "Appui sur tou superv %d en sonnerie => interception manuelle cref %04x", key, cref);
    PickUpSupervCref = cref;
}
