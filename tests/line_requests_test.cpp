// The line's request entry points: in which order they test, what they hand on, what stays written when they refuse, and
// that completions come before they return.
#include "devices/line_requests.h"

#include "link/serial.h"
#include "platform/text.h"
#include "support/port.h"
#include "support/requesting.h"

#include <cstring>
#include <functional>

namespace {

const HTAPICALL TapiCall = reinterpret_cast<HTAPICALL>(std::uintptr_t{0x777});

class LineRequests : public Requesting {
protected:
    HDRVLINE Line = reinterpret_cast<HDRVLINE>(&ProviderState);
    HDRVCALL Written = nullptr;
    LINECALLPARAMS Params{};

    void SetUp() override {
        Requesting::SetUp();
        Params.dwTotalSize = sizeof Params;
        Params.dwBearerMode = LINEBEARERMODE_VOICE;
        Params.dwMediaMode = LINEMEDIAMODE_INTERACTIVEVOICE;
    }
    LONG MakeCall(const WCHAR* destination, LINECALLPARAMS* params = nullptr) {
        return TSPI_lineMakeCall(7, Line, TapiCall, &Written, destination, 0, params);
    }
    LONG Complete(int cref, int consult, DWORD mode) {
        return TSPI_lineCompleteTransfer(7, Handle(cref), Handle(consult), TapiCall, &Written, mode);
    }
};

std::u16string Wide(std::string_view ascii) {
    return {ascii.begin(), ascii.end()};
}

// --- texts and parameters ---------------------------------------------------------------------------------------------

TEST_F(LineRequests, DialStringsAndDialParametersKeepTheirLimits) {
    EXPECT_EQ(CheckDialString(""), 0);
    EXPECT_EQ(CheckDialString("T+33 (1) W@!,;"), 0);
    EXPECT_EQ(Code(CheckDialString("1?$")), LINEERR_DIALPROMPT);
    EXPECT_EQ(Code(CheckDialString("1$?")), LINEERR_DIALBILLING);
    EXPECT_EQ(CheckDialString(std::string(79, '1').c_str()), 0);
    EXPECT_EQ(Code(CheckDialString(std::string(80, '1').c_str())), LINEERR_INVALPOINTER);

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
    struct Row {
        const char* Given;
        DWORD Result;
        const char* Dialled;
    };
    Stop();
    const std::string full = "+" + std::string(78, '1');
    const std::string tooLong(80, '1');
    const Row rows[] = {
        {"", LINEERR_INVALADDRESS, "before"},
        {"*", LINEERR_INVALADDRESS, "before"},
        {"#", LINEERR_INVALADDRESS, "before"},
        {"a", LINEERR_INVALADDRESS, "before"},
        {"5", 7, "5"},
        {"+33 (1) 23 45", 7, "33 (1) 23 45"},
        {"T *21#", 7, "*21#"},
        {"ab", 7, ""},
        {"12?4", LINEERR_DIALPROMPT, "before"},
        {"12$4", LINEERR_DIALBILLING, "before"},
        {full.c_str(), 7, full.c_str() + 1},
        {tooLong.c_str(), LINEERR_INVALPOINTER, "before"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.Given);
        Fresh();
        CopyText(Record(0).DestAddress, "before");
        EXPECT_EQ(Code(MakeCall(Wide(row.Given).c_str())), row.Result);
        EXPECT_STREQ(Record(0).DestAddress, row.Dialled);
    }
    EXPECT_EQ(Code(MakeCall(nullptr)), LINEERR_INVALADDRESS);
}

TEST_F(LineRequests, NoTextIsReadBeyond81Characters) {
    // As the end of a page would show it, under the sanitizers: no terminator behind the last character.
    const std::vector<char16_t> endless(81, u'1');
    EXPECT_EQ(Code(MakeCall(endless.data())), LINEERR_INVALPOINTER);
    const int cref = Call(1, 0, DIALTONE);
    EXPECT_EQ(Code(TSPI_lineDial(7, Handle(cref), endless.data(), 0)), LINEERR_INVALADDRESSID);
    EXPECT_EQ(Code(TSPI_linePickup(7, Line, 0, nullptr, nullptr, endless.data(), nullptr)), LINEERR_INVALADDRESSID);
    Record(cref).state = CONNECTED;
    EXPECT_EQ(Code(TSPI_lineBlindTransfer(7, Handle(cref), endless.data(), 0)), LINEERR_INVALPOINTER);
    EXPECT_EQ(Code(TSPI_lineGenerateDigits(Handle(cref), 0, LINEDIGITMODE_DTMF, endless.data(), 0)),
              LINEERR_INVALPOINTER);
    // 80 characters pass the test of the wide length, and fit no field.
    const std::u16string eighty(80, u'1');
    EXPECT_EQ(Code(TSPI_linePickup(7, Line, 0, nullptr, nullptr, eighty.c_str(), nullptr)), LINEERR_INVALPOINTER);
    EXPECT_STREQ(Record(cref).DestAddress, "");
    EXPECT_STREQ(Record(cref).DigitsToGenerate, "");
    EXPECT_STREQ(ProviderState.PickupAddress, "");
}

// --- the way in -------------------------------------------------------------------------------------------------------

TEST_F(LineRequests, HandleThenStateThenArguments) {
    using Entry = std::function<LONG(HDRVCALL)>;
    constexpr DWORD ALL_STATES = LINECALLSTATE_IDLE | LINECALLSTATE_OFFERING | LINECALLSTATE_DIALTONE |
                                 LINECALLSTATE_DIALING | LINECALLSTATE_CONNECTED | LINECALLSTATE_PROCEEDING |
                                 LINECALLSTATE_ONHOLD | LINECALLSTATE_CONFERENCED | LINECALLSTATE_DISCONNECTED |
                                 STATE_REOFFERING;
    struct Row {
        const char* What;
        Entry Ask;
        bool Conference;  // handle 30 is accepted
        DWORD States;     // accepted; all: no test
    };
    const WCHAR* const prompt = "1?"_wide;
    const Row rows[] = {
        {"dial", [&](HDRVCALL c) { return TSPI_lineDial(7, c, prompt, 0); }, false,
         LINECALLSTATE_DIALTONE | LINECALLSTATE_DIALING},
        {"answer", [](HDRVCALL c) { return TSPI_lineAnswer(7, c, nullptr, 0); }, false,
         LINECALLSTATE_OFFERING | STATE_REOFFERING},
        {"drop", [](HDRVCALL c) { return TSPI_lineDrop(7, c, nullptr, 0); }, true, ALL_STATES},
        {"hold", [](HDRVCALL c) { return TSPI_lineHold(7, c); }, false, ALL_STATES},
        {"unhold", [](HDRVCALL c) { return TSPI_lineUnhold(7, c); }, false, ALL_STATES},
        {"blind", [&](HDRVCALL c) { return TSPI_lineBlindTransfer(7, c, prompt, 0); }, false, LINECALLSTATE_CONNECTED},
        {"setup", [](HDRVCALL c) { return TSPI_lineSetupTransfer(7, c, TapiCall, nullptr, nullptr); }, false,
         LINECALLSTATE_CONNECTED},
        {"remove", [](HDRVCALL c) { return TSPI_lineRemoveFromConference(7, c); }, false, ALL_STATES},
        {"digits", [](HDRVCALL c) { return TSPI_lineGenerateDigits(c, 0, LINEDIGITMODE_PULSE, nullptr, 0); }, false,
         LINECALLSTATE_CONNECTED},
        {"tone", [](HDRVCALL c) { return TSPI_lineGenerateTone(c, 0, 0, 0, 0, nullptr); }, false,
         LINECALLSTATE_CONNECTED},
        {"close", [](HDRVCALL c) { return TSPI_lineCloseCall(c); }, true, ALL_STATES},
        {"first", [&](HDRVCALL c) { return TSPI_lineCompleteTransfer(7, c, Handle(2), nullptr, nullptr, 9); }, false,
         ALL_STATES},
        {"second", [&](HDRVCALL c) { return TSPI_lineCompleteTransfer(7, Handle(2), c, nullptr, nullptr, 9); }, false,
         ALL_STATES},
    };
    Stop();
    for (const Row& row : rows) {
        SCOPED_TRACE(row.What);
        EXPECT_EQ(Code(row.Ask(Handle(20))), LINEERR_INVALCALLHANDLE);
        EXPECT_EQ(Code(row.Ask(Handle(30))) == LINEERR_INVALCALLHANDLE, !row.Conference);
        for (DWORD state = 1; state <= STATE_REOFFERING; state <<= 1) {
            if ((state & ALL_STATES) == 0)
                continue;
            Record(4).state = state;
            EXPECT_EQ(Code(row.Ask(Handle(0x10004))) == LINEERR_INVALCALLSTATE, (row.States & state) == 0) << state;
        }
        EXPECT_STREQ(Record(4).DigitsToGenerate, "");
    }
}

TEST_F(LineRequests, MakeCallTestsInItsOrderAndSaysWhy) {
    ProviderState.DeviceState = DEVICE_OUT_OF_SERVICE;
    EXPECT_EQ(Code(MakeCall("12?4"_wide)), LINEERR_DIALPROMPT);
    Params.dwBearerMode = Params.dwMediaMode = Params.dwCallParamFlags = LINECALLPARAMFLAGS_SECURE | 0x20;
    for (CallRecord& call : CallTable)
        call.state = BUSY;
    Steps();
    EXPECT_EQ(Code(MakeCall(nullptr, &Params)), LINEERR_NODEVICE);
    EXPECT_EQ(StepsInside(), " TSPI_lineMakeCall LINEERR_NODEVICE ");
    ProviderState.DeviceState = DEVICE_STARTING;
    EXPECT_EQ(Code(MakeCall(nullptr, &Params)), LINEERR_RESOURCEUNAVAIL);
    EXPECT_THAT(Steps(), testing::EndsWith("lineCallState[18]:40 | lineCallState[19]:40 | "
                                           "DialMakeCall impossible - LINEERR_RESOURCEUNAVAIL"));
    Record(3).state = DIALTONE;
    Record(4).state = 0;
    const std::string passed = "lineCallState[0]:40 | lineCallState[1]:40 | lineCallState[2]:40 | "
                               "lpCallParams dwAddressMode 2 dwAddressID 3 | DialMakeCall impossible - ";
    Params.dwAddressMode = 2;
    Params.dwAddressID = 3;
    const auto refused = [&](DWORD code, const char* name) {
        EXPECT_EQ(Code(MakeCall(nullptr, &Params)), code);
        EXPECT_EQ(StepsInside(), passed + name);
    };
    refused(LINEERR_INVALBEARERMODE, "LINEERR_INVALBEARERMODE");
    Params.dwBearerMode = LINEBEARERMODE_VOICE;
    refused(LINEERR_INVALMEDIAMODE, "LINEERR_INVALMEDIAMODE");
    Params.dwMediaMode = LINEMEDIAMODE_INTERACTIVEVOICE;
    refused(LINEERR_INVALCALLPARAMS, "LINEERR_INVALCALLPARAMS");
    EXPECT_EQ(ProviderState.DialParams.dwDialPause, 0u) << "nothing taken from refused parameters";
    Params.dwCallParamFlags = LINECALLPARAMFLAGS_IDLE | LINECALLPARAMFLAGS_BLOCKID;
    Params.DialParams = {0, 10, 300, 500};
    EXPECT_EQ(Code(TSPI_lineMakeCall(7, Line, TapiCall, nullptr, nullptr, 0, &Params)), LINEERR_INVALPOINTER);
    EXPECT_EQ(Record(3).htCall, HTAPICALL{});
    EXPECT_EQ(Code(MakeCall(nullptr, &Params)), LINEERR_INVALADDRESS);
    EXPECT_EQ(ProviderState.DialParams.dwDialPause, 2000u);
    EXPECT_EQ(ProviderState.DialParams.dwWaitForDialtone, 1000u);
    EXPECT_EQ(Written, Handle(3)) << "stays written";
    EXPECT_EQ(Record(3).htCall, TapiCall);
    EXPECT_EQ(Record(3).state, DIALTONE);
}

TEST_F(LineRequests, MadeCallIsCompletedBeforeItReturns) {
    EXPECT_EQ(MakeCall("+12"_wide), 7);
    EXPECT_EQ(
        StepsInside(),
        "lineMakeCall -     DestAddress :'+12' | appCall cref 0 msg 1 reqId 7 | dial makecall | "
        " pas de tou mcdu principal libre, rech tou mcdu secondaire | FindFreeMultiLine tou 1 (mcdu secondaire) | "
        "DoMakeCall tou Multi NBtou 3  PushKey 1 DialSameLine 0 Dest '12'  | Icone:1 - Etat PROCEEDING - Ref:0 | "
        "dial makecall DoMakeCall res 0 | REPLY 7 0");
    EXPECT_EQ(Record(0).htCall, TapiCall);
    EXPECT_EQ(ProviderState.PendingRequestID, 0u);
    EXPECT_THAT(QueuedFrames(), ElementsAre("03 26 20 01 B6", "03 26 03 01 D3", "03 26 03 02 D2"));
}

TEST_F(LineRequests, SecondRequestIsRefusedWhatItWroteStaysAndTheFirstGoesOn) {
    ProviderState.PendingRequestID = 99;
    ProviderState.RequestCref = 5;
    EXPECT_EQ(Code(MakeCall("5"_wide)), LINEERR_RESOURCEUNAVAIL);
    EXPECT_EQ(StepsInside(), "lineMakeCall - lpszDestAddress:5 | appCall cref 0 msg 1 reqId 7 | "
                             "can't do two async requests at the same time!");
    EXPECT_STREQ(Record(0).DestAddress, "5");
    EXPECT_EQ(Record(0).touch, 0);
    const int talking = Call(1, 0, CONNECTED);
    CopyText(Settings.SoftKeyLabels[SK_FREQ_VOCALE], "FreqV");
    EXPECT_EQ(Code(TSPI_lineGenerateDigits(Handle(talking), 0, LINEDIGITMODE_DTMF, "1"_wide, 0)),
              LINEERR_RESOURCEUNAVAIL);
    EXPECT_EQ(Code(TSPI_lineSetupTransfer(7, Handle(talking), TapiCall, &Written, nullptr)), LINEERR_RESOURCEUNAVAIL);
    EXPECT_EQ(ProviderState.PendingRequestID, 99u);
    EXPECT_EQ(ProviderState.RequestCref, 5);
    EXPECT_THAT(QueuedFrames(), IsEmpty());
}

TEST_F(LineRequests, NothingToDoIsCompletedAtOnceBesideAPendingRequest) {
    ProviderState.PendingRequestID = 99;
    Record(1).state = IDLE;
    EXPECT_EQ(TSPI_lineDrop(7, Handle(1), nullptr, 0), 7);
    EXPECT_EQ(StepsInside(), "REPLY 7 0");
    Record(1).state = ONHOLD;
    EXPECT_EQ(TSPI_lineHold(8, Handle(1)), 8);
    EXPECT_EQ(StepsInside(), "End of TSPI_lineHold:dwRequestID:8, cref:1 | REPLY 8 0");
    EXPECT_EQ(TSPI_lineHold(8, Handle(2)), 8) << "never used";
    EXPECT_EQ(TSPI_lineUnhold(9, Handle(2)), 9);
    EXPECT_THAT(Steps(), testing::EndsWith("Quit TSPI_lineUnhold:dwRequestID:9, cref:2 | REPLY 9 0"));
    EXPECT_EQ(ProviderState.PendingRequestID, 99u);
    EXPECT_EQ(Code(TSPI_lineDrop(7, Handle(2), nullptr, 0)), LINEERR_OPERATIONFAILED);
    EXPECT_EQ(StepsInside(), "Quit TSPI_lineDrop:dwRequestID:7, cref:2");
    Record(1).state = IDLE;
    EXPECT_EQ(TSPI_lineCloseCall(Handle(1)), 0);
    EXPECT_EQ(Steps(), "TSPI_lineCloseCall: cref: 0001, hdCall: 1");
    EXPECT_EQ(Record(1).state, 0u);
    Record(1).state = ONHOLD;
    TSPI_lineCloseCall(Handle(1));
    EXPECT_EQ(Record(1).state, ONHOLD) << "only an idle record becomes free";
    EXPECT_THAT(QueuedFrames(), IsEmpty());
}

TEST_F(LineRequests, EachEntryHandsOnItsCodeAndCall) {
    Stop();
    Record(4).state = CONNECTED;
    struct Row {
        std::function<LONG()> Ask;
        const char* HandedOn;
    };
    const Row rows[] = {
        {[&] { return TSPI_lineDrop(7, Handle(4), nullptr, 0); }, "appCall cref 4 msg 3 reqId 7"},
        {[&] { return TSPI_lineDrop(7, Handle(30), nullptr, 0); }, "Drop conference | appCall cref 1e msg 3 reqId 7"},
        {[&] { return TSPI_lineRemoveFromConference(7, Handle(4)); }, "appCall cref 4 msg 3 reqId 7"},
        {[&] { return TSPI_lineBlindTransfer(7, Handle(4), nullptr, 0); }, "appCall cref 4 msg 7 reqId 7"},
        {[&] { return TSPI_lineHold(7, Handle(4)); }, "appCall cref 4 msg 8 reqId 7"},
        {[&] { return TSPI_lineUnhold(7, Handle(4)); }, "appCall cref 4 msg 9 reqId 7"},
        {[&] {
             Record(4).state = STATE_REOFFERING;
             return TSPI_lineAnswer(7, Handle(4), nullptr, 0);
         },
         "appCall cref 4 msg 5 reqId 7"},
        {[&] {
             Record(4).state = LINECALLSTATE_DIALING;
             return TSPI_lineDial(7, Handle(4), "(1)"_wide, 0);
         },
         "lineDial '(1)' cref 0004 | appCall cref 4 msg 2 reqId 7"},
        {[&] { return TSPI_linePickup(7, Line, 0, nullptr, nullptr, "(1)"_wide, nullptr); },
         "Entering TSPI_linePickup Address '(1)' | appCall cref 0 msg 18 reqId 7"},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(row.Ask(), 7) << row.HandedOn;
        EXPECT_EQ(StepsInside(), std::string(row.HandedOn) + " | REPLY 7 80000042");
    }
    EXPECT_STREQ(ProviderState.PickupAddress, "(1)");
    EXPECT_STREQ(Record(4).DestAddress, "(1)");
    EXPECT_EQ(Code(TSPI_linePickup(7, nullptr, 0, nullptr, nullptr, nullptr, nullptr)), LINEERR_INVALLINEHANDLE);
    EXPECT_EQ(Code(TSPI_linePickup(7, Line, 0, nullptr, nullptr, u"", nullptr)), LINEERR_INVALADDRESSID);
    EXPECT_EQ(Code(TSPI_lineSetupConference(7, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, 3, nullptr)),
              LINEERR_OPERATIONUNAVAIL);
    EXPECT_EQ(Code(TSPI_lineAddToConference(7, nullptr, nullptr)), LINEERR_OPERATIONUNAVAIL);
    EXPECT_EQ(Code(TSPI_linePrepareAddToConference(7, nullptr, nullptr, nullptr, nullptr)), LINEERR_OPERATIONUNAVAIL);
}

TEST_F(LineRequests, DigitsAreAnsweredAtOnceAndNullCancels) {
    const int cref = Call(1, 0, CONNECTED);
    EXPECT_EQ(Code(TSPI_lineGenerateDigits(Handle(cref), 0, LINEDIGITMODE_PULSE, "1"_wide, 0)), LINEERR_INVALDIGITMODE);
    Display(1, "2eApp   FreqV   ");
    QueuedFrames();
    EXPECT_EQ(TSPI_lineGenerateDigits(Handle(cref), 0, LINEDIGITMODE_DTMF, "12"_wide, 0), 0);
    EXPECT_THAT(QueuedFrames(), ElementsAre("03 26 20 1E 99", "03 26 03 01 D3", "03 26 03 02 D2"));
    Steps();
    EXPECT_EQ(Code(TSPI_lineGenerateDigits(Handle(cref), 0, LINEDIGITMODE_DTMF, nullptr, 0)), LINEERR_OPERATIONFAILED);
    EXPECT_THAT(Steps(), testing::EndsWith("DoGenerateDigits - Cancel FV wanted - FV! not present | "
                                           "send message to companion thread result negative: 80000048 - msg:a"));
    EXPECT_STREQ(Record(cref).DigitsToGenerate, "");
}

// --- transfer and forwarding -------------------------------------------------------------------------------------------

TEST_F(LineRequests, SetupTransferChoosesTheConsultationRecord) {
    Stop();
    Record(0).state = CONNECTED;
    Record(1).state = ONHOLD;
    Record(2).state = DIALTONE;
    EXPECT_EQ(Code(TSPI_lineSetupTransfer(7, Handle(1), TapiCall, &Written, nullptr)), LINEERR_INVALCALLSTATE);
    EXPECT_EQ(StepsInside(), "TSPI_lineSetupTransfer INVALCALLSTATE cref 1 state 400 ");
    EXPECT_EQ(TSPI_lineSetupTransfer(7, Handle(0), TapiCall, &Written, nullptr), 7);
    EXPECT_EQ(StepsInside(),
              "lineCallState[0]:100 | lineCallState[1]:400 |  consultref trouve 0002 | REPLY 7 80000042");
    EXPECT_EQ(Written, Handle(2));
    EXPECT_EQ(Record(2).htCall, TapiCall);
    EXPECT_EQ(ProviderState.RequestCref, 0);
    EXPECT_EQ(ProviderState.ConsultCref, 2);
    for (CallRecord& call : CallTable)
        call.state = CONNECTED;
    EXPECT_EQ(Code(TSPI_lineSetupTransfer(7, Handle(0), TapiCall, &Written, nullptr)), LINEERR_RESOURCEUNAVAIL);
    EXPECT_THAT(Steps(), testing::EndsWith(" |  impossible - LINEERR_RESOURCEUNAVAIL"));
}

TEST_F(LineRequests, PairsOfCallsThatCanBeJoined) {
    struct Row {
        DWORD First, Second;
        int EnquiryCallMode;
        int FirstKey, SecondKey;
        bool Transfer, Conference;
    };
    const Row rows[] = {
        {CONNECTED, ONHOLD, 1, 1, 2, true, true},        {ONHOLD, CONNECTED, 1, 1, 2, true, true},
        {CONFERENCED, CONFERENCED, 1, 1, 2, true, true}, {STATE_REOFFERING, CONNECTED, 1, 1, 2, true, true},
        {CONNECTED, CONNECTED, 0, 1, 2, false, false},   {CONFERENCED, 0, 0, 1, 2, false, false},
        {PROCEEDING, ONHOLD, 0, 1, 2, true, false},      {ONHOLD, PROCEEDING, 1, 1, 2, false, false},
        {ONHOLD, PROCEEDING, 1, 1, 1, true, false},      {ONHOLD, PROCEEDING, 1, 8, 2, true, false},  // a boss key
        {ONHOLD, PROCEEDING, 1, 1, 9, true, false},                                                   // a secretary key
        {ONHOLD, PROCEEDING, 1, 1, 10, false, false},    {STATE_REOFFERING, ONHOLD, 0, 1, 2, false, false},
    };
    Stop();
    for (const Row& row : rows) {
        SCOPED_TRACE(testing::Message() << std::hex << row.First << ' ' << row.Second << " mode " << row.EnquiryCallMode
                                        << " keys " << row.FirstKey << ' ' << row.SecondKey);
        Record(3).state = row.First;
        Record(3).touch = row.FirstKey;
        Record(6).state = row.Second;
        Record(6).touch = row.SecondKey;
        Settings.EnquiryCallMode = row.EnquiryCallMode;
        ProviderState.htConference = nullptr;
        Written = nullptr;
        const LONG refused = static_cast<LONG>(LINEERR_INVALCALLSTATE);
        Steps();
        EXPECT_EQ(Complete(3, 6, LINETRANSFERMODE_TRANSFER), row.Transfer ? 7 : refused);
        EXPECT_EQ(StepsInside(), row.Transfer ? "CompleteTransfer ref:0003  consultref:0006 Mode 1 | "
                                                " Transfer case between call ref:3 and call ref:6 | REPLY 7 80000042"
                                              : "CompleteTransfer ref:0003  consultref:0006 Mode 1 | "
                                                " Transfer case between call ref:6 and call ref:3 IMPOSSIBLE");
        EXPECT_EQ(Written, nullptr);
        EXPECT_EQ(Complete(3, 6, LINETRANSFERMODE_CONFERENCE), row.Conference ? 7 : refused);
        EXPECT_EQ(Written, row.Conference ? Handle(30) : nullptr);
        EXPECT_EQ(ProviderState.htConference, row.Conference ? TapiCall : nullptr);
    }
    EXPECT_EQ(Code(Complete(3, 6, 4)), LINEERR_OPERATIONUNAVAIL) << "whatever the pair";
}

TEST_F(LineRequests, ForwardUsesTheFirstEntryOfItsListAndNothingOutsideIt) {
    Stop();
    std::vector<DWORD> room(40);
    const auto list = [&](DWORD mode, std::string_view number, DWORD total, DWORD offset = 32) {
        std::fill(room.begin(), room.end(), 0x31003100);  // what follows the list is dialable
        const std::u16string wide = Wide(number);
        const DWORD size = static_cast<DWORD>(wide.size() * 2 + 2);
        const DWORD head[] = {total, 1, mode, 0, 0, 0, size, offset};
        std::memcpy(room.data(), head, sizeof head);
        std::memcpy(room.data() + 8, wide.c_str(), size);
        return reinterpret_cast<LINEFORWARDLIST*>(room.data());
    };
    const auto forward = [&](LINEFORWARDLIST* forwards) {
        Steps();
        return Code(TSPI_lineForward(7, Line, 1, 0, forwards, 3, nullptr, &Written, nullptr));
    };
    struct Row {
        DWORD Mode;
        int Code;
        const char* Name;
    };
    for (const Row& row :
         {Row{0x1, 12, "UNCOND"}, Row{0x10, 15, "BUSY"}, Row{0x100, 16, "NOANSW"}, Row{0x1000, 17, "BUSYNA"}}) {
        EXPECT_EQ(forward(list(row.Mode, "1234", 42)), 7u);
        EXPECT_EQ(Steps(), "Entering TSPI_lineForward | "
                           "TSPI_lineForward - RedirectCallAddress '1234' DestAddressSize 10 | "
                           "TSPI_lineForward - LINEFORWARDMODE_" +
                               std::string(row.Name) + " | appCall cref 0 msg " + std::to_string(row.Code) +
                               " reqId 7 | REPLY 7 80000042");
        EXPECT_STREQ(ProviderState.ForwardDestination, "1234");
    }
    EXPECT_EQ(Written, nullptr);
    EXPECT_EQ(forward(list(2, "5", 42)), LINEERR_INVALPARAM);
    EXPECT_EQ(forward(list(1, "5678", 41)), LINEERR_INVALPARAM) << "the text passes the list's end";
    EXPECT_EQ(forward(list(1, "5678", 42, 0xFFFFFFFE)), LINEERR_INVALPARAM);
    EXPECT_EQ(forward(list(1, "5678", 31)), LINEERR_STRUCTURETOOSMALL);
    EXPECT_STREQ(ProviderState.ForwardDestination, "1234");
    EXPECT_EQ(forward(list(1, std::string(38, '6'), 110)), 7u);
    EXPECT_EQ(forward(list(1, std::string(39, '7'), 112)), LINEERR_INVALPARAM) << "80 bytes";
    EXPECT_STREQ(ProviderState.ForwardDestination, std::string(39, '7').c_str())
        << "taken before its size is looked at";

    LINEFORWARDLIST* none = list(2, "1", 8);
    none->dwNumEntries = 0;
    for (LINEFORWARDLIST* forwards : {none, static_cast<LINEFORWARDLIST*>(nullptr)}) {
        EXPECT_EQ(forward(forwards), 7u);
        EXPECT_EQ(Steps(), "Entering TSPI_lineForward | appCall cref 0 msg 13 reqId 7 | REPLY 7 80000042");
    }
    Record(19).state = DISCONNECTED;
    EXPECT_EQ(forward(nullptr), LINEERR_OPERATIONUNAVAIL);
    EXPECT_EQ(Code(TSPI_lineForward(7, nullptr, 1, 0, nullptr, 3, nullptr, nullptr, nullptr)), LINEERR_INVALLINEHANDLE);
    EXPECT_EQ(Steps(), "Entering TSPI_lineForward") << "a wrong handle is not traced";
}

// --- without a serial thread ---------------------------------------------------------------------------------------------

class WithoutThread : public TrackedSet {
protected:
    RecordingPort Port;

    void SetUp() override {
        TrackedSet::SetUp();
        PlatformControl::MapPort("COM1", &Port);
        CopyText(ProviderState.PortName, "COM1");
        CopyText(ProviderState.SpeedText, "9600");
        ProviderState.DeviceState = DEVICE_IN_SERVICE;
        Steps();
    }
    void TearDown() override {
        TSPI_providerShutdown(0x20000, 4);
        PlatformControl::Settle();
        PlatformControl::MapPort("COM1", nullptr);
        TrackedSet::TearDown();
    }
};

TEST_F(WithoutThread, RequestStartsItIsLostAndTapiIsToldOnce) {
    const HDRVCALL call = reinterpret_cast<HDRVCALL>(static_cast<std::uintptr_t>(Call(1, 0, CONNECTED)));
    ProviderState.PendingRequestID = 99;  // of an earlier thread
    EXPECT_EQ(TSPI_lineHold(7, call), 7);
    const std::vector<std::string> lines = TraceLines();
    EXPECT_THAT(lines, testing::IsSupersetOf({"appCall cref 0 msg 8 reqId 7",
                                              "appCall - Companion app has not yet been registered - Start it",
                                              "Wait Thread serial Ready OK"}));
    EXPECT_THAT(LineEvents(), ElementsAre("REPLY 99 80000048", "REPLY 7 80000048"));
    EXPECT_EQ(ProviderState.PendingRequestID, 0u);
    EXPECT_TRUE(SerialThreadRuns());
    EXPECT_FALSE(ReleaseMutex(Process.LineMutex)) << "the start's hold and the entry point's are both given back";
}

TEST_F(WithoutThread, PortThatDoesNotOpenRefusesAMadeCallWithoutCompletingIt) {
    PlatformControl::Port("COM1").OpenError = 5;
    HDRVCALL call = nullptr;
    EXPECT_EQ(Code(TSPI_lineMakeCall(7, nullptr, nullptr, &call, "5"_wide, 0, nullptr)), LINEERR_OPERATIONFAILED);
    EXPECT_THAT(LineEvents(), IsEmpty());
    PlatformControl::Settle();
    EXPECT_EQ(TSPI_lineHold(8, reinterpret_cast<HDRVCALL>(static_cast<std::uintptr_t>(Call(1, 0, CONNECTED)))), 8);
    EXPECT_THAT(LineEvents(), ElementsAre("REPLY 8 80000048"));
}

TEST_F(WithoutThread, SynchronousRequestsJustReturn) {
    const HDRVCALL call = reinterpret_cast<HDRVCALL>(static_cast<std::uintptr_t>(Call(1, 0, CONNECTED)));
    EXPECT_EQ(TSPI_lineGenerateDigits(call, 0, LINEDIGITMODE_DTMF, "1"_wide, 0), 0);
    EXPECT_THAT(LineEvents(), IsEmpty());
}

}  // namespace
