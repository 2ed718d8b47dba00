#include "control/digits.h"

#include "config/settings.h"
#include "link/keys.h"
#include "platform/text.h"
#include "provider/tapi.h"
#include "trace/trace.h"
#include "tracking/display.h"
#include "tracking/pending.h"
#include "tracking/steps.h"

namespace {

LONG CancelVoiceFrequency() {
    const int cancel = SoftKeyPosition(SK_CANCEL_FREQ_VOCALE);
    if (cancel == 0) {
        Trace(TRACE_ALWAYS, "DoGenerateDigits - Cancel FV wanted - FV! not present");
        return OPERATION_FAILED;
    }
    Marks.FvTimer = {};
    SendSoftKey(cancel);
    return 0;
}

}  // namespace

LONG DoGenerateDigits(int cref) {
    Trace(TRACE_ENTRY, "EnteringDoGenerateDigits sur call ref:%d", cref);
    if (!IsCref(cref))
        return OPERATION_FAILED;
    char* digits = CallOf(cref).DigitsToGenerate;
    if (digits[0] == 0)
        return CancelVoiceFrequency();
    if (SoftKeyPosition(SK_CANCEL_FREQ_VOCALE) == 0) {  // else the mode is on already
        const int enter = SoftKeyPosition(SK_FREQ_VOCALE);
        if (enter == 0) {
            Trace(TRACE_ALWAYS, "DoGenerateDigits - SK FV et SK !FV not present");
            return OPERATION_FAILED;
        }
        SendSoftKey(enter);
    }
    // Each on its own, so that the set is in the mode before the first one comes.
    SendDialString(digits, nullptr,
                   [](int code) { Trace(TRACE_ENTRY, "DoGenerateDigits - Caractère non composable:%x"_cp1252, code); });
    Marks.FvTimer = {true, 0};
    return 0;
}
