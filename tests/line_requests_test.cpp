// The line's request entry points: in which order they test, what they hand on, and what stays written when they refuse.
#include "devices/line_requests.h"
#include "devices/provider.h"

#include "link/serial.h"
#include "platform/text.h"
#include "support/requesting.h"

#include <algorithm>
#include <cstring>
#include <functional>

namespace {

const HTAPICALL TapiCall = reinterpret_cast<HTAPICALL>(std::uintptr_t{0x777});

class LineRequests : public Requesting {
protected:
    HDRVLINE Line = reinterpret_cast<HDRVLINE>(&ProviderState);
    HDRVCALL Written = nullptr;

    DWORD MakeCall(const WCHAR* destination, LINECALLPARAMS* params = nullptr) {
        return Code(TSPI_lineMakeCall(7, Line, TapiCall, &Written, destination, 0, params));
    }
    DWORD Pickup(const WCHAR* address) { return Code(TSPI_linePickup(7, Line, 0, nullptr, nullptr, address, nullptr)); }
    static DWORD Digits(int cref, const WCHAR* digits) {
        return Code(TSPI_lineGenerateDigits(Handle(cref), 0, LINEDIGITMODE_DTMF, digits, 0));
    }
    DWORD SetUpTransfer(int cref) { return Code(TSPI_lineSetupTransfer(7, Handle(cref), TapiCall, &Written, nullptr)); }
    DWORD Complete(DWORD mode) {
        return Code(TSPI_lineCompleteTransfer(7, Handle(3), Handle(6), TapiCall, &Written, mode));
    }
};

std::basic_string<WCHAR> Wide(std::string_view ascii) {
    return {ascii.begin(), ascii.end()};
}

// --- texts and parameters ---------------------------------------------------------------------------------------------

TEST_F(LineRequests, DialParametersKeepTheirLimits) {
    const auto clamped = [](LINEDIALPARAMS given) {
        LINEDIALPARAMS out{};
        ClampDialParams(given, out);
        return std::vector<DWORD>{out.dwDialPause, out.dwDialSpeed, out.dwDigitDuration, out.dwWaitForDialtone};
    };
    EXPECT_THAT(clamped({0, 0, 0, 0}), ElementsAre(2000u, 95u, 95u, 60000u));
    EXPECT_THAT(clamped({1, 1, 49, 999}), ElementsAre(1u, 50u, 50u, 1000u));
    EXPECT_THAT(clamped({255001, 256, 300, 0xFFFFFFFF}), ElementsAre(255000u, 255u, 255u, 255000u));
}

TEST_F(LineRequests, DestinationIsTakenFromItsFirstDialableCharacterOn) {
    Stop();
    const std::string full = "+" + std::string(78, '1'), tooLong(80, '1');
    const DWORD none = LINEERR_INVALADDRESS, prompt = LINEERR_DIALPROMPT, billing = LINEERR_DIALBILLING;
    const std::tuple<std::string, DWORD, std::string> rows[] = {
        {"", none, "-"},
        {"#", none, "-"},
        {"a", none, "-"},
        {"5", 7, "5"},
        {"T *21#", 7, "*21#"},
        {"ab", 7, ""},
        {"+33 (1) W@!,;", 7, "33 (1) W@!,;"},
        {"1?$", prompt, "-"},
        {"1$?", billing, "-"},
        {full, 7, full.substr(1)},
        {tooLong, LINEERR_INVALPOINTER, "-"},
    };
    for (const auto& [given, result, dialled] : rows) {
        Fresh();
        CopyText(Record(0).DestAddress, "-");
        EXPECT_EQ(MakeCall(Wide(given).c_str()), result) << given;
        EXPECT_EQ(Record(0).DestAddress, dialled);
    }
}

TEST_F(LineRequests, TextsOfCallsAreTakenWholeRefusedWholeAndNeverLeftFromBefore) {
    Stop();
    Calls("TC");
    const std::tuple<std::string, DWORD, const char*> dialled[] = {{"1?$", LINEERR_DIALPROMPT, ""},
                                                                   {"1$?", LINEERR_DIALBILLING, ""},
                                                                   {std::string(80, '1'), LINEERR_INVALPOINTER, ""},
                                                                   {"T+33 1", 7, "T+33 1"}};
    for (const auto& [text, code, taken] : dialled) {
        EXPECT_EQ(Code(TSPI_lineDial(7, Handle(0), Wide(text).c_str(), 0)), code) << text;
        EXPECT_STREQ(Record(0).DestAddress, taken);
    }
    for (const WCHAR* text : {"+3?$"_wide, static_cast<const WCHAR*>(nullptr)}) {
        EXPECT_EQ(Code(TSPI_lineBlindTransfer(7, Handle(1), text, 0)), DWORD{7});
        EXPECT_STREQ(Record(1).DestAddress, text != nullptr ? "+3?$" : "");
    }
    CopyText(Record(1).DigitsToGenerate, "1");
    EXPECT_EQ(Digits(1, nullptr), DWORD{0});
    EXPECT_STREQ(Record(1).DigitsToGenerate, "");
}

// From now on no text can be converted. False where the conversion is Windows' own, which nothing lets fail.
bool ConversionsFail() {
    const auto fallible = PlatformControl::FallibleCalls();
    const bool may = std::find(fallible.begin(), fallible.end(), "WideCharToMultiByte") != fallible.end();
    if (may)
        PlatformControl::FailCall("WideCharToMultiByte");
    return may;
}

TEST_F(LineRequests, NoTextIsReadBeyond81Characters) {
    // As the end of a page would show it, under the sanitizers: no terminator behind the last character.
    const std::vector<WCHAR> endless(81, WCHAR{'1'});
    EXPECT_EQ(MakeCall(endless.data()), LINEERR_INVALPOINTER);
    EXPECT_EQ(Pickup(endless.data()), LINEERR_INVALADDRESSID);
    EXPECT_EQ(Pickup(std::basic_string<WCHAR>(80, WCHAR{'1'}).c_str()), LINEERR_INVALPOINTER) << "fits no field";
    Calls("TC");
    EXPECT_EQ(Code(TSPI_lineDial(7, Handle(0), endless.data(), 0)), LINEERR_INVALADDRESSID);
    EXPECT_EQ(Code(TSPI_lineBlindTransfer(7, Handle(1), endless.data(), 0)), LINEERR_INVALPOINTER);
    EXPECT_EQ(Digits(1, endless.data()), LINEERR_INVALPOINTER);
    if (ConversionsFail()) {
        EXPECT_EQ(Pickup("4720"_wide), LINEERR_INVALPOINTER) << "what cannot be converted is none, not an empty one";
        EXPECT_EQ(Code(TSPI_lineBlindTransfer(7, Handle(1), "4720"_wide, 0)), LINEERR_INVALPOINTER);
        EXPECT_EQ(Digits(1, "12"_wide), LINEERR_INVALPOINTER) << "which would cancel";
    }
    EXPECT_EQ(std::string(Record(0).DestAddress) + Record(1).DestAddress + Record(1).DigitsToGenerate +
                  ProviderState.PickupAddress,
              "");
}

// --- the way in -------------------------------------------------------------------------------------------------------

TEST_F(LineRequests, StateIsTestedBeforeTheOtherArguments) {
    const std::tuple<std::function<LONG(HDRVCALL)>, std::string_view, DWORD> rows[] = {
        // states that pass, and the answer
        {[](HDRVCALL c) { return TSPI_lineDial(7, c, nullptr, 0); }, "TG", LINEERR_INVALADDRESSID},
        {[](HDRVCALL c) { return TSPI_lineAnswer(7, c, nullptr, 0); }, "OR", 7},
        {[](HDRVCALL c) { return TSPI_lineBlindTransfer(7, c, nullptr, 0); }, "C", 7},
        {[](HDRVCALL c) { return TSPI_lineSetupTransfer(7, c, TapiCall, nullptr, nullptr); }, "C",
         LINEERR_INVALPOINTER},
        {[](HDRVCALL c) { return TSPI_lineGenerateDigits(c, 0, LINEDIGITMODE_PULSE, nullptr, 0); }, "C",
         LINEERR_INVALDIGITMODE},
        {[](HDRVCALL c) { return TSPI_lineGenerateTone(c, 0, 0, 0, 0, nullptr); }, "C", 0}};
    Stop();
    for (const auto& [ask, passing, answer] : rows)
        for (const char state : std::string_view("IOTPCHFDBRUGKW")) {
            Record(4).state = Named(state);
            const bool passes = passing.find(state) != std::string_view::npos;
            EXPECT_EQ(Code(ask(Handle(0x10004))), passes ? answer : LINEERR_INVALCALLSTATE) << state;
        }
}

TEST_F(LineRequests, MakeCallTestsInItsOrderAndSaysWhy) {
    LINECALLPARAMS params{};
    params.dwTotalSize = sizeof params;
    params.dwBearerMode = params.dwMediaMode = params.dwCallParamFlags = LINECALLPARAMFLAGS_SECURE | 0x20;
    ProviderState.DeviceState = DEVICE_OUT_OF_SERVICE;
    EXPECT_EQ(MakeCall("12?4"_wide), LINEERR_DIALPROMPT);
    for (CallRecord& call : CallTable)
        call.state = BUSY;
    EXPECT_EQ(MakeCall(nullptr, &params), LINEERR_NODEVICE);
    ProviderState.DeviceState = DEVICE_STARTING;
    EXPECT_EQ(MakeCall(nullptr, &params), LINEERR_RESOURCEUNAVAIL);
    EXPECT_THAT(Steps(), testing::EndsWith("lineCallState[19]:40 | DialMakeCall impossible - LINEERR_RESOURCEUNAVAIL"));
    Record(1).state = DIALTONE;
    const auto refused = [&](DWORD code, const std::string& name) {
        EXPECT_EQ(MakeCall(nullptr, &params), code);
        EXPECT_EQ(StepsInside(), "lineCallState[0]:40 | lpCallParams dwAddressMode 0 dwAddressID 3 | "
                                 "DialMakeCall impossible - LINEERR_INVAL" +
                                     name);
    };
    params.dwAddressID = 3;
    params.dwTotalSize = 47;
    EXPECT_EQ(MakeCall(nullptr, &params), LINEERR_STRUCTURETOOSMALL);
    params.dwTotalSize = 48;
    Steps();
    refused(LINEERR_INVALBEARERMODE, "BEARERMODE");
    params.dwBearerMode = LINEBEARERMODE_VOICE;
    refused(LINEERR_INVALMEDIAMODE, "MEDIAMODE");
    params.dwMediaMode = LINEMEDIAMODE_INTERACTIVEVOICE;
    refused(LINEERR_INVALCALLPARAMS, "CALLPARAMS");
    params.dwCallParamFlags = LINECALLPARAMFLAGS_IDLE | LINECALLPARAMFLAGS_BLOCKID;
    EXPECT_EQ(ProviderState.DialParams.dwDialPause, 0u) << "nothing taken from refused parameters";
    EXPECT_EQ(Code(TSPI_lineMakeCall(7, Line, TapiCall, nullptr, nullptr, 0, &params)), LINEERR_INVALPOINTER);
    EXPECT_EQ(ProviderState.DialParams.dwDialPause, 2000u);
    EXPECT_EQ(Record(1).htCall, HTAPICALL{});
    EXPECT_EQ(MakeCall(nullptr, &params), LINEERR_INVALADDRESS);
    EXPECT_EQ(Written, Handle(1)) << "stays written";
    EXPECT_EQ(Record(1).htCall, TapiCall);
}

TEST_F(LineRequests, SecondRequestIsRefusedWhatItWroteStaysAndTheFirstGoesOn) {
    ProviderState.PendingRequestID = 99;
    ProviderState.RequestCref = 5;
    EXPECT_EQ(MakeCall("5"_wide), LINEERR_RESOURCEUNAVAIL);
    EXPECT_EQ(StepsInside(), "lineMakeCall - lpszDestAddress:5 | appCall cref 0 msg 1 reqId 7 | "
                             "can't do two async requests at the same time!");
    EXPECT_STREQ(Record(0).DestAddress, "5");
    const int talking = Call(1, 0, CONNECTED);
    EXPECT_EQ(Digits(talking, "1"_wide), LINEERR_RESOURCEUNAVAIL);
    EXPECT_EQ(SetUpTransfer(talking), LINEERR_RESOURCEUNAVAIL);
    EXPECT_EQ(ProviderState.RequestCref, 5);
    EXPECT_THAT(QueuedFrames(), IsEmpty());
    Steps();
    Record(1).state = IDLE;  // to drop it needs no request
    EXPECT_EQ(TSPI_lineDrop(7, Handle(1), nullptr, 0), 7);
    EXPECT_EQ(StepsInside(), "REPLY 7 0");
    EXPECT_EQ(ProviderState.PendingRequestID, 99u);
    TSPI_lineCloseCall(Handle(talking));
    TSPI_lineCloseCall(Handle(1));
    EXPECT_EQ(Record(talking).state, CONNECTED) << "only an idle record becomes free";
    EXPECT_EQ(Record(1).state, 0u);
}

// --- transfer and forwarding -------------------------------------------------------------------------------------------

TEST_F(LineRequests, SetupTransferWithoutARecordForTheConsultation) {
    for (CallRecord& call : CallTable)
        call.state = CONNECTED;
    EXPECT_EQ(SetUpTransfer(0), LINEERR_RESOURCEUNAVAIL);
    EXPECT_EQ(TraceLines().back(), " impossible - LINEERR_RESOURCEUNAVAIL");
}

TEST_F(LineRequests, PairsOfCallsThatCanBeJoined) {
    // States of calls 3 and 6, EnquiryCallMode, their keys; whether they can be transferred and joined.
    const std::tuple<const char*, int, int, int, bool, bool> rows[] = {
        {"CH", 1, 1, 2, true, true},   {"RC", 1, 1, 2, true, true},   {"FF", 1, 1, 2, true, true},
        {"CC", 0, 1, 2, false, false}, {"F-", 0, 1, 2, false, false}, {"RH", 0, 1, 2, false, false},
        {"PH", 0, 1, 2, true, false},  {"HP", 1, 1, 2, false, false}, {"HP", 1, 1, 1, true, false},
        {"HP", 1, 8, 2, true, false},  {"HP", 1, 1, 9, true, false},  {"HP", 1, 1, 10, false, false}};
    Stop();
    for (const auto& [states, mode, first, second, transfer, conference] : rows) {
        SCOPED_TRACE(std::string(states) + std::to_string(second));
        Record(3).state = Named(states[0]);
        Record(3).touch = first;
        Record(6).state = Named(states[1]);
        Record(6).touch = second;
        Settings.EnquiryCallMode = mode;
        Written = nullptr;
        ProviderState.htConference = HTAPICALL{};
        Steps();
        EXPECT_EQ(Complete(LINETRANSFERMODE_TRANSFER), transfer ? 7 : LINEERR_INVALCALLSTATE);
        EXPECT_EQ(StepsInside(),
                  std::string("CompleteTransfer ref:0003  consultref:0006 Mode 1 |  Transfer case between call ref:") +
                      (transfer ? "3 and call ref:6 | REPLY 7 80000042" : "6 and call ref:3 IMPOSSIBLE"));
        EXPECT_EQ(Written, nullptr);
        EXPECT_EQ(ProviderState.htConference, HTAPICALL{});
        EXPECT_EQ(Complete(LINETRANSFERMODE_CONFERENCE), conference ? 7 : LINEERR_INVALCALLSTATE);
        EXPECT_EQ(Written, conference ? Handle(30) : nullptr);
        EXPECT_EQ(ProviderState.htConference, conference ? TapiCall : HTAPICALL{});
    }
    EXPECT_EQ(Complete(4), LINEERR_OPERATIONUNAVAIL) << "whatever the pair";
    Record(3).state = Record(6).state = CONFERENCED;
    EXPECT_EQ(Code(TSPI_lineCompleteTransfer(7, Handle(3), Handle(6), TapiCall, nullptr, LINETRANSFERMODE_CONFERENCE)),
              LINEERR_INVALPOINTER);
    EXPECT_EQ(ProviderState.htConference, HTAPICALL{}) << "a refused request leaves TAPI's handle of the conference";
}

// Makes calls from within what TAPI is told: any of these states, or a new call (0); their handles are 0x200 and up.
DWORD MakeCallsAt;
int CallsToMake;
std::vector<std::pair<DWORD, HDRVCALL>> CallsMade;
LINEEVENT Told;
void CALLBACK MakeCallsWhenTold(HTAPILINE line, HTAPICALL call, DWORD message, DWORD_PTR p1, DWORD_PTR p2,
                                DWORD_PTR p3) {
    Told(line, call, message, p1, p2, p3);
    const bool at = MakeCallsAt == 0 ? message == LINE_NEWCALL : message == LINE_CALLSTATE && (p1 & MakeCallsAt) != 0;
    while (at && CallsToMake > 0) {
        --CallsToMake;
        const auto own = reinterpret_cast<HTAPICALL>(0x200 + CallsMade.size());
        const auto request = static_cast<DRV_REQUESTID>(20 + CallsMade.size());
        CallsMade.emplace_back();
        HDRVCALL given = nullptr;
        const LONG answer =
            TSPI_lineMakeCall(request, reinterpret_cast<HDRVLINE>(&ProviderState), own, &given, "12"_wide, 0, nullptr);
        CallsMade[static_cast<std::size_t>(request) - 20] = {Code(answer), given};
    }
}

class FromWithin : public LineRequests {
protected:
    void SetUp() override {
        LineRequests::SetUp();
        Told = ProviderState.LineEventProc;
    }
    // StaticConfig: 1 puts made calls off.
    void Begin(int calls, int staticConfig = 1, DWORD at = IDLE) {
        Fresh();
        Marks = RequestMarks{};
        DynamicConfig.StaticConfig = staticConfig;
        CallsMade.clear();
        CallsToMake = calls;
        MakeCallsAt = at;
        ProviderState.LineEventProc = MakeCallsWhenTold;
    }
    static auto Made(DWORD answer, int cref) { return testing::Pair(answer, Handle(cref)); }
};

TEST_F(FromWithin, CallThatWasPutOffIsToldOfItsWholeEndAndTheNextHasARecordOfItsOwn) {
    ToldFirst = DISCONNECTED | IDLE;
    struct Case {
        std::function<void()> end;
        std::vector<DWORD> states;  // of its record: at dial tone a call of the user's own, which lives on
        std::vector<std::string> reply;
    };
    const Case cases[] = {
        {[] { EXPECT_EQ(TSPI_lineDrop(7, Handle(0), nullptr, 0), 7); }, {IDLE, DIALTONE}, {"REPLY 7 0"}},
        {[] { EXPECT_EQ(TSPI_lineCloseCall(Handle(0)), 0); }, {IDLE, DIALTONE}, {}},
        {AllCallReset, {IDLE}, {}}};
    for (const auto& [end, states, reply] : cases)
        for (const DWORD state : states)
            for (const DWORD at : {DISCONNECTED, IDLE}) {
                SCOPED_TRACE(at);
                Begin(1, 1, at);
                Marks.DeferredMakeCall = {true, 0};
                Record(0).state = state;
                Record(0).touch = state == DIALTONE ? 2 : 0;
                Record(0).htCall = reinterpret_cast<HTAPICALL>(std::uintptr_t{0x100});
                end();
                const int cref = at == IDLE ? 0 : 1;
                EXPECT_THAT(CallsMade, ElementsAre(Made(20, cref)));
                std::vector<std::string> told{"STATE 0 DISCONNECTED 1", "STATE 0 IDLE"};
                told.insert(at == IDLE ? told.end() : told.begin() + 1, "REPLY 20 0");
                told.insert(told.end(), reply.begin(), reply.end());
                EXPECT_EQ(LineEvents(), told);
                EXPECT_TRUE(Marks.DeferredMakeCall.Set && Marks.DeferredMakeCall.Cref == cref);
                EXPECT_EQ(Record(0).state == DIALTONE, state == DIALTONE);
                EXPECT_EQ(RunningRequest.Code, REQUEST_NONE);
            }
}

void CALLBACK AskTheEnded(HTAPILINE line, HTAPICALL call, DWORD message, DWORD_PTR p1, DWORD_PTR p2, DWORD_PTR p3) {
    Told(line, call, message, p1, p2, p3);
    if (message == LINE_CALLSTATE && p1 == DISCONNECTED) {
        const auto ended = reinterpret_cast<HDRVCALL>(std::uintptr_t{0});
        EXPECT_EQ(static_cast<DWORD>(TSPI_lineDial(8, ended, "1"_wide, 0)), DWORD{LINEERR_INVALCALLSTATE});
        EXPECT_EQ(TSPI_lineDrop(9, ended, nullptr, 0), 9);
    }
}

TEST_F(FromWithin, PutOffCallThatIsDisconnectedIsOverForItsApplicationToo) {
    ToldFirst = DISCONNECTED;
    Begin(0);
    ProviderState.LineEventProc = AskTheEnded;
    Record(0).htCall = reinterpret_cast<HTAPICALL>(std::uintptr_t{0x100});
    Marks.DeferredMakeCall = {true, 0};
    ProviderState.PendingRequestID = 99;  // of a request that goes on
    GiveUpDeferredMakeCall();
    EXPECT_THAT(LineEvents(), ElementsAre("STATE 0 DISCONNECTED 1", "REPLY 9 0", "STATE 0 IDLE"));
    EXPECT_EQ(ProviderState.PendingRequestID, 99u);
}

// What the set shows is told while it is being stored.
TEST_F(FromWithin, CallNeverTakesTheKeyOrTheRecordOfTheOneThatIsToldOf) {
    struct Case {
        DWORD at;
        std::function<void()> shown;  // a call on key 1
        DWORD state;                  // that it has then
        int made;                     // the key of the one that is made, 0 when it is refused
    };
    const auto user = [this](const std::function<void()>& then) {
        return [this, then] {
            Icon(1, ACTIV_ICON);
            then();
        };
    };
    const Case cases[] = {
        {0, [&] { Icon(1, INCOM_ICON); }, OFFERING, 2},
        {0, [] { NewCall(1, LINECALLSTATE_RINGBACK); }, PROCEEDING, 0},
        {0, [&] { Tracking.PickUpCref = 0, Icon(1, ACTIV_ICON); }, PROCEEDING, 0},
        {LINECALLSTATE_DIALING, user([&] { Display(0, "4720"); }), PROCEEDING, 0},
        {LINECALLSTATE_DIALING, user([] { NewState(0, 1, LINECALLSTATE_RINGBACK); }), PROCEEDING, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(&c - cases);
        Begin(1, 0, c.at);
        QueuedFrames();
        c.shown();
        EXPECT_THAT(CallsMade, ElementsAre(Made(20, 1)));
        EXPECT_THAT(LineEvents(), testing::Contains(c.made != 0 ? "REPLY 20 0" : "REPLY 20 80000048"));
        EXPECT_EQ(QueuedFrames().empty(), c.made == 0);
        EXPECT_EQ(Record(0).state, c.state);
        EXPECT_EQ(Record(0).htCall, reinterpret_cast<HTAPICALL>(std::uintptr_t{0x100}));
        EXPECT_THAT(At(1).calls, ElementsAre(0, -1));
        EXPECT_EQ(Tracking.DbCall, 0);
        EXPECT_EQ(Record(1).touch, c.made);
    }
    // It dials into the second call that the user has just begun, and both stay on their key.
    Settings.EnquiryCallMode = 1;
    for (const auto& [line, text] : {std::pair{0, "Numero:"}, {1, "Fin2Ap"}}) {
        Begin(1, 0, 0);
        Call(1, 0, CONNECTED);
        Active(1);
        Display(line, text);
        EXPECT_THAT(CallsMade, ElementsAre(Made(20, 1)));
        EXPECT_THAT(At(1).calls, ElementsAre(0, 1));
    }
}

void CALLBACK AnswerNextWhenConnected(HTAPILINE line, HTAPICALL call, DWORD message, DWORD_PTR p1, DWORD_PTR p2,
                                      DWORD_PTR p3) {
    Told(line, call, message, p1, p2, p3);
    if (message == LINE_CALLSTATE && p1 == CONNECTED) {
        EXPECT_EQ(TSPI_lineAnswer(7, reinterpret_cast<HDRVCALL>(std::uintptr_t{1}), nullptr, 0), 7);
    }
}

TEST_F(FromWithin, AnswerOfTheNextSupervisedCallIsRemembered) {
    Key(6, TOUCH_SUPERV);
    PickUpSupervCref = Call(7, 0, OFFERING);
    Call(6, 0, OFFERING);
    ProviderState.LineEventProc = AnswerNextWhenConnected;
    Icon(1, ACTIV_ICON);
    EXPECT_EQ(PickUpSupervCref, 1);
}

TEST_F(FromWithin, CallAtTheEndOfAnotherHasItsRecordAloneAndIsHeardOf) {
    // In the record that another make call is about to take over from the one that was put off: the latest has it.
    Begin(1);
    Marks.DeferredMakeCall = {true, 0};
    EXPECT_EQ(MakeCall("34"_wide), LINEERR_RESOURCEUNAVAIL);
    EXPECT_THAT(CallsMade, ElementsAre(Made(20, 0)));
    EXPECT_TRUE(Marks.DeferredMakeCall.Set);
    EXPECT_STREQ(Record(0).DestAddress, "12");
    EXPECT_EQ(Record(0).htCall, reinterpret_cast<HTAPICALL>(std::uintptr_t{0x200}));
    Begin(1, 0);
    Marks.DeferredMakeCall = {true, 0};
    MakeCall("34"_wide);
    EXPECT_EQ(Written, Handle(1)) << "the next free one, where that call goes out at once";
    EXPECT_EQ(Record(0).htCall, reinterpret_cast<HTAPICALL>(std::uintptr_t{0x200}));
    Begin(1);
    Marks.DeferredMakeCall = {true, 0};
    Record(1).state = CONNECTED;
    EXPECT_EQ(SetUpTransfer(1), LINEERR_RESOURCEUNAVAIL) << "nor is it a consultation call's";
    EXPECT_EQ(Record(0).htCall, reinterpret_cast<HTAPICALL>(std::uintptr_t{0x200}));
    Begin(1, 0);
    Marks.DeferredMakeCall = {true, 0};
    Record(1).state = CONNECTED;
    SetUpTransfer(1);
    EXPECT_EQ(Written, Handle(2)) << "that call has gone out";
    EXPECT_THAT(TraceLines(), testing::Contains(" consultref trouve 0002"));
    // In the record of a make call that takes the other one's place: that is told of its end, and calls no other number.
    Begin(1);
    Marks.DeferredMakeCall = {true, 1};
    EXPECT_EQ(MakeCall("34"_wide), 7u);
    EXPECT_THAT(CallsMade, ElementsAre(Made(LINEERR_RESOURCEUNAVAIL, 0)));
    EXPECT_FALSE(Marks.DeferredMakeCall.Set);
    EXPECT_THAT(LineEvents(), testing::IsSupersetOf({std::string("STATE 1655 IDLE"), std::string("REPLY 7 0")}));
    // At a reset of all calls: one at dial tone that is still to be told of keeps its record.
    const auto contactLost = [] {
        const std::vector<std::uint8_t> restart{0x02, 0x60, 0x87, 0x17, 0x01, 0x22, 0xDD};
        Link.LastTransmitTime = timeGetTime() - 60000;
        ProcessInput(static_cast<int>(restart.size()), restart.data());
        EXPECT_EQ(QueuedFrames().front(), "02 60 01 9D") << "what the card is asked first, and only then the number";
    };
    for (const auto& reset : {std::function<void()>(AllCallReset), std::function<void()>(contactLost)}) {
        Begin(2, 0);
        ToldFirst = IDLE;
        Calls("CT");
        Record(0).htCall = TapiCall;  // its record is written to again
        reset();
        EXPECT_EQ(CallsMade.size(), 2u);
        const std::vector<std::string> told = LineEvents();
        EXPECT_THAT(told, testing::Contains("STATE 1 IDLE").Times(1));
        EXPECT_THAT(told, testing::Not(testing::Contains("STATE 256 IDLE"))) << "it lives";
        EXPECT_EQ(Record(2).DestAddress, std::string("12"));
    }
    ToldFirst = 0;
    // At a second open, which empties all records.
    SetSetting("Provider", "Port", "COM1");
    Begin(1);
    Marks.DeferredMakeCall = {true, 1};
    ProviderInitAgain();
    EXPECT_THAT(CallsMade, ElementsAre(Made(LINEERR_NODEVICE, 0)));
}

TEST_F(LineRequests, ForwardUsesTheFirstEntryOfItsListAndNothingOutsideIt) {
    Stop();
    std::vector<DWORD> room(40);
    const auto forward = [&](DWORD mode, std::string_view number, DWORD total, DWORD offset = 32, DWORD entries = 1) {
        std::fill(room.begin(), room.end(), 0x31003100);  // what follows the list is dialable
        const std::basic_string<WCHAR> wide = Wide(number);
        const DWORD size = static_cast<DWORD>(wide.size() * 2 + 2);
        const DWORD head[] = {total, entries, mode, 0, 0, 0, size, offset};
        std::memcpy(room.data(), head, sizeof head);
        std::memcpy(room.data() + 8, wide.c_str(), size);
        Steps();
        auto* list = reinterpret_cast<LINEFORWARDLIST*>(room.data());
        return Code(TSPI_lineForward(7, Line, 1, 0, total == 0 ? nullptr : list, 3, nullptr, &Written, nullptr));
    };
    EXPECT_EQ(forward(0x1000, "1234", 42), 7u);
    EXPECT_EQ(Steps(), "Entering TSPI_lineForward | TSPI_lineForward - RedirectCallAddress '1234' DestAddressSize 10 | "
                       "TSPI_lineForward - LINEFORWARDMODE_BUSYNA | appCall cref 0 msg 17 reqId 7 | REPLY 7 80000042");
    EXPECT_EQ(forward(2, "5", 42), LINEERR_INVALPARAM);
    EXPECT_EQ(forward(1, "5678", 41), LINEERR_INVALPARAM) << "the text passes the list's end";
    EXPECT_EQ(forward(1, "5678", 42, 0xFFFFFFFE), LINEERR_INVALPARAM);
    EXPECT_EQ(forward(1, "5678", 31), LINEERR_STRUCTURETOOSMALL);
    EXPECT_EQ(forward(1, "5678", 32), LINEERR_INVALPARAM);
    EXPECT_EQ(forward(1, "5678", 7, 32, 0), LINEERR_STRUCTURETOOSMALL) << "not even the number of entries";
    EXPECT_STREQ(ProviderState.ForwardDestination, "1234");
    EXPECT_EQ(forward(1, std::string(38, '6'), 110), 7u);
    EXPECT_EQ(forward(1, std::string(39, '7'), 112), LINEERR_INVALPARAM) << "80 bytes";
    for (const DWORD total : {8u, 0u}) {  // no entry, no list
        EXPECT_EQ(forward(2, "1", total, 32, 0), 7u);
        EXPECT_EQ(Steps(), "Entering TSPI_lineForward | appCall cref 0 msg 13 reqId 7 | REPLY 7 80000042");
    }
    EXPECT_EQ(Written, nullptr);
    Record(19).state = DISCONNECTED;
    EXPECT_EQ(forward(1, "1", 0), LINEERR_OPERATIONUNAVAIL);
    Record(19).state = 0;
    if (ConversionsFail()) {
        EXPECT_EQ(forward(1, "1234", 42), LINEERR_INVALPARAM);
    }
}

}  // namespace
