// TSPI_line*: what is asked for calls.
#include "tsphost/commands.h"

namespace Tsphost {

namespace {

// A call that the provider was asked to make, once it has answered.
bool Made(const char* what, const AskedCall& asked, bool taken) {
    const HDRVCALL made = *asked.Written;
    if (KeepCall(asked, taken))
        Print(what, CallNumber(made));
    return taken;
}

struct Mode {
    const char* word;
    DWORD value;
};

constexpr Mode ForwardWords[] = {{"uncond", LINEFORWARDMODE_UNCOND},
                                 {"busy", LINEFORWARDMODE_BUSY},
                                 {"noanswer", LINEFORWARDMODE_NOANSW},
                                 {"busyna", LINEFORWARDMODE_BUSYNA}};

DWORD ForwardModeAt(const Words& words, std::size_t at) {
    for (const Mode& mode : ForwardWords)
        if (words[at] == mode.word)
            return mode.value;
    return FlagsAt(words, at, ForwardModes);
}

bool ForwardTo(LINEFORWARDLIST* list) {
    HDRVCALL consult = NO_CALL;
    return ZT_REQUEST(TSPI_lineForward, TheHost.Line, 1u, 0u, list, 4u, nullptr, &consult, nullptr);
}

}  // namespace

bool MakeCall(const Words& words) {
    const WideArgument destination = TextAt(words, 1);
    CallParams params = CallParamsFrom(words, 2);
    const AskedCall call = AskForCall();
    return Made("call", call,
                ZT_REQUEST(TSPI_lineMakeCall, TheHost.Line, call.Tapi(), call.Written, destination.Pointer(),
                           params.Country, params.Pointer()));
}

bool Dial(const Words& words) {
    const WideArgument digits = TextAt(words, 2);
    return ZT_REQUEST(TSPI_lineDial, CallAt(words, 1), digits.Pointer(), NumberAt(words, 3, 0));
}

bool Answer(const Words& words) {
    return ZT_REQUEST(TSPI_lineAnswer, CallAt(words, 1), nullptr, 0u);
}

bool Drop(const Words& words) {
    return ZT_REQUEST(TSPI_lineDrop, CallAt(words, 1), nullptr, 0u);
}

bool Hold(const Words& words) {
    return ZT_REQUEST(TSPI_lineHold, CallAt(words, 1));
}

bool Unhold(const Words& words) {
    return ZT_REQUEST(TSPI_lineUnhold, CallAt(words, 1));
}

bool BlindTransfer(const Words& words) {
    const WideArgument destination = TextAt(words, 2);
    return ZT_REQUEST(TSPI_lineBlindTransfer, CallAt(words, 1), destination.Pointer(), NumberAt(words, 3, 0));
}

bool SetupTransfer(const Words& words) {
    const HDRVCALL call = CallAt(words, 1);
    CallParams params = CallParamsFrom(words, 2);
    const AskedCall consult = AskForCall();
    return Made("consultation call", consult,
                ZT_REQUEST(TSPI_lineSetupTransfer, call, consult.Tapi(), consult.Written, params.Pointer()));
}

bool CompleteTransfer(const Words& words) {
    const HDRVCALL call = CallAt(words, 1), consult = CallAt(words, 2);
    const DWORD mode = FlagsAt(words, 3, TransferModes, LINETRANSFERMODE_TRANSFER);
    const AskedCall conference = AskForCall();
    return Made("conference call", conference,
                ZT_REQUEST(TSPI_lineCompleteTransfer, call, consult, conference.Tapi(), conference.Written, mode));
}

bool SetupConference(const Words& words) {
    const HDRVCALL call = words.size() > 1 && words[1] == "null" ? nullptr : CallAt(words, 1);
    const DWORD parties = NumberAt(words, 2, 3);
    const AskedCall conference = AskForCall(), consult = AskForCall();
    const bool taken = ZT_REQUEST(TSPI_lineSetupConference, call, TheHost.Line, conference.Tapi(), conference.Written,
                                  consult.Tapi(), consult.Written, parties, nullptr);
    Made("conference call", conference, taken);
    return Made("consultation call", consult, taken);
}

bool AddToConference(const Words& words) {
    return ZT_REQUEST(TSPI_lineAddToConference, CallAt(words, 1), CallAt(words, 2));
}

bool PrepareAddToConference(const Words& words) {
    const HDRVCALL conference = CallAt(words, 1);
    const AskedCall consult = AskForCall();
    return Made("consultation call", consult,
                ZT_REQUEST(TSPI_linePrepareAddToConference, conference, consult.Tapi(), consult.Written, nullptr));
}

bool RemoveFromConference(const Words& words) {
    return ZT_REQUEST(TSPI_lineRemoveFromConference, CallAt(words, 1));
}

bool Forward(const Words& words) {
    if (words[1] == "cancel")
        return ForwardTo(nullptr);
    if (words.size() < 3)
        throw Unusable{"a destination is missing"};
    std::vector<DWORD> list = ForwardList(ForwardModeAt(words, 1), ToWide(words[2]));
    return ForwardTo(reinterpret_cast<LINEFORWARDLIST*>(list.data()));
}

bool Pickup(const Words& words) {
    const WideArgument address = TextAt(words, 1), group = TextAt(words, 2);
    const AskedCall call = AskForCall();
    return Made(
        "call", call,
        ZT_REQUEST(TSPI_linePickup, TheHost.Line, 0u, call.Tapi(), call.Written, address.Pointer(), group.Pointer()));
}

bool GenerateDigits(const Words& words) {
    const WideArgument digits = TextAt(words, 2);
    return ZT_CALL(TSPI_lineGenerateDigits, CallAt(words, 1), 1u, FlagsAt(words, 3, DigitModes, LINEDIGITMODE_DTMF),
                   digits.Pointer(), NumberAt(words, 4, 0));
}

bool GenerateTone(const Words& words) {
    return ZT_CALL(TSPI_lineGenerateTone, CallAt(words, 1), 1u, FlagsAt(words, 2, ToneModes, LINETONEMODE_BEEP),
                   NumberAt(words, 3, 0), 0u, nullptr);
}

bool CloseCall(const Words& words) {
    return ZT_CALL(TSPI_lineCloseCall, CallAt(words, 1));
}

}  // namespace Tsphost
