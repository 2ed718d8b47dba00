// A set with known keys, labels and prompts, for the tests of call tracking.
#pragma once

#include "config/settings.h"
#include "control/requests.h"
#include "support/fixture.h"
#include "trace/trace.h"
#include "tracking/display.h"
#include "tracking/events.h"
#include "tracking/terminal.h"

#include <map>
#include <sstream>
#include <string_view>

constexpr DWORD IDLE = LINECALLSTATE_IDLE, OFFERING = LINECALLSTATE_OFFERING, DIALTONE = LINECALLSTATE_DIALTONE,
                PROCEEDING = LINECALLSTATE_PROCEEDING, CONNECTED = LINECALLSTATE_CONNECTED,
                ONHOLD = LINECALLSTATE_ONHOLD, CONFERENCED = LINECALLSTATE_CONFERENCED,
                DISCONNECTED = LINECALLSTATE_DISCONNECTED, BUSY = LINECALLSTATE_BUSY;

// Keys: 1 to 3 multi-line, 7 supervision, 8 boss, 9 secretary, 10 overflow, 12 untracked.
class TrackedSet : public OnTheLine {
protected:
    void SetUp() override {
        OnTheLine::SetUp();
        const char* labels[] = {"2eApp", "Fin2Ap", "VaVien", "Conf", "FreqV", "StopV", "Transf"};
        const char* texts[] = {"Raccrochez", "Annulez", "Numero:"};
        for (int i = 0; i < 7; ++i)
            CopyText(Settings.SoftKeyLabels[i], labels[i]);
        for (int i = 0; i < 3; ++i)
            CopyText(Settings.DisplayStrings[i], texts[i]);
        Fresh();
    }
    // No calls, no marks, nothing captured: for the next row of a table.
    void Fresh() {
        CallTable.fill(CallRecord{});
        ConferenceReset();
        Tracking = TrackingState{};
        RunningRequest = RunningRequestRecord{};
        ProviderState.PendingRequestID = 0;
        PickUpSupervCref = SwapKeyTransferingCref = -1;
        WaitInfo.fill(-1);
        TmpAddress[0] = 0;
        confstate = 0;
        KeyLists = KeyListSet{};
        for (const int key : {1, 2, 3})
            Key(key, TOUCH_MULTI);
        Key(7, TOUCH_SUPERV);
        Key(8, TOUCH_PATRON);
        Key(9, TOUCH_SECRETAIRE);
        Key(10, TOUCH_SECR_DEBORD);
        Key(12, TOUCH_NONE);
        TraceLines();
        LineEvents();
    }
    static CallRecord& Record(int cref) { return CallTable.at(static_cast<std::size_t>(cref)); }
    static Touch& At(int key) { return TouchTable.at(static_cast<std::size_t>(key)); }
    static void Active(int key) {
        Tracking.ActivCallTouch = key;
        At(key).icon = ACTIV_ICON;
    }
    // Two calls on the active key 1: cref 0 in one state, cref 1 in another.
    void Double(DWORD first, DWORD second) {
        Call(1, 0, first);
        Call(1, 1, second, false);
        Active(1);
        Tracking.DbCall = 1;
    }
    // A state by its letter, in all situations of calls that rows name.
    static DWORD Named(char letter) {
        static const std::map<char, DWORD> states{{'-', 0},
                                                  {'I', IDLE},
                                                  {'O', OFFERING},
                                                  {'T', DIALTONE},
                                                  {'G', LINECALLSTATE_DIALING},
                                                  {'P', PROCEEDING},
                                                  {'K', LINECALLSTATE_RINGBACK},
                                                  {'B', BUSY},
                                                  {'C', CONNECTED},
                                                  {'H', ONHOLD},
                                                  {'W', LINECALLSTATE_ONHOLDPENDTRANSFER},
                                                  {'R', STATE_REOFFERING},
                                                  {'F', CONFERENCED},
                                                  {'D', DISCONNECTED},
                                                  {'U', LINECALLSTATE_UNKNOWN}};
        return states.at(letter);
    }
    // Calls 0, 1, ... alone on keys 1, 2, ...
    void Calls(const std::string& letters) {
        for (std::size_t i = 0; i < letters.size(); ++i)
            Call(static_cast<int>(i) + 1, 0, Named(letters[i]));
    }
    static void Undirected(int cref) { Record(cref).Inbound = Record(cref).Outbound = Record(cref).byMakeCall = 0; }

    // Trace lines and events since the last call in the order in which they happened, " | " between them. An event
    // stands where its trace says that it was sent; the first line of every icon and every display update, and the one
    // that ends most soft-key lines, are left out.
    static std::string Steps() {
        static constexpr const char* Skipped[] = {"LinEv ", "Multi Icone", "Superv Icone", "ActivTou",
                                                  "Avant test VaVien "};
        const std::vector<std::string> events = LineEvents();
        ExpectKept(events);
        return Interleaved(events, TraceLines(), Skipped);
    }

private:
    // A call that is told of holds what TAPI was told last, and one that has ended stands on no multi-line key.
    static void ExpectKept(const std::vector<std::string>& events) {
        std::map<int, std::string> told;
        for (const std::string& event : events) {
            std::istringstream words(event);
            std::string kind, state;
            int cref = -1;
            words >> kind >> cref >> state;
            if (kind == "NEWCALL")
                told.erase(cref);
            if (kind == "STATE" && cref >= 0 && cref < CALL_COUNT)
                told[cref] = state == "RINGBACK" ? "PROCEEDING" : state;
        }
        for (const auto& [cref, state] : told) {
            const CallRecord& call = Record(cref);
            const std::string kept = StateName(call.state == STATE_REOFFERING ? OFFERING : call.state);
            EXPECT_TRUE(kept == state || (!call.HasDirection() && state != "IDLE")) << cref << kept << state;
            EXPECT_EQ(call.touch == 0, state == "IDLE") << cref;
            EXPECT_FALSE(state == "IDLE" && call.RedirectingName[0] != 0) << cref << " is inherited by the next call";
            for (const int key : {1, 2, 3})
                EXPECT_FALSE(state == "IDLE" && (At(key).calls[0] == cref || At(key).calls[1] == cref)) << cref;
        }
    }
};
