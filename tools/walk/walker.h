// The walker: what every file of this folder shares. Its parts: walk.cpp (the line, the walk itself), world.cpp (the
// person at the set, far ends, the line's faults), application.cpp (requests and queries), checks.cpp (what must hold).
#pragma once

#include "equipment/equipment.h"
#include "support/service.h"
#include "tracking/model.h"
#include "tracking/steps.h"
#include "walk/book.h"
#include "walk/walk.h"

#include <climits>
#include <cstdio>
#include <deque>
#include <set>

namespace Walk {

namespace Eq = Equipment;
using Eq::SetCall;
using At = Eq::CallState;

constexpr DWORD LINE_ID = 3, PHONE_ID = 5, PROVIDER_ID = 9, VERSION = 0x20000;
constexpr std::size_t TRAIL = 80;  // lines kept for a report
constexpr std::uint32_t TICK = 100;

class Walker {
public:
    explicit Walker(const Options& options) : Chosen(options), State(options.Seed * 2654435761u + 12345) {}
    Outcome Go();

private:
    const Options Chosen;
    EquipmentPort Port;
    Eq::Machine& Machine = Port.Machine;
    std::uint64_t State;
    HDRVLINE Line = nullptr;
    HDRVPHONE Phone = nullptr;
    bool Open = false;
    bool Clean = true;    // nothing has gone wrong on the line since the set was last at rest and known to TAPI
    bool Faulty = false;  // the line misbehaves just now
    const char* Spoilt = nullptr;   // why the line must be opened anew
    const char* Suspect = nullptr;  // why tables may come to be spoilt
    int SuspectFor = 0;             // actions
    std::uint32_t ForwardedAt = 0;
    int ForwardedCall = INT_MAX;  // the set's last call when a service code was asked for
    std::set<int> Unseen;         // calls of the set that may have begun while it was keyed
    std::size_t Boxes = 0;
    Outcome Out;
    std::deque<std::string> Trail;

    // --- chance
    std::uint32_t Next() {
        State = State * 6364136223846793005u + 1442695040888963407u;
        return static_cast<std::uint32_t>(State >> 33);
    }
    int Below(int n) { return static_cast<int>(Next() % static_cast<std::uint32_t>(n)); }
    bool Once(int in) { return Below(in) == 0; }
    template <class T, std::size_t N> const T& Pick(const T (&list)[N]) {
        return list[static_cast<std::size_t>(Below(static_cast<int>(N)))];
    }
    std::string Number() {
        static const char* const Numbers[] = {"4720", "4721", "4722",   "4723", "4730", "0145678901", "00612345678",
                                              "12",   "4711", "614720", "60",   "66",   "664720",     "A1*#"};
        // In version 1 only digits show that a number is being dialled.
        return Numbers[Below(static_cast<int>(std::size(Numbers)) - (Chosen.Version == 1))];
    }
    int Digits() const { return Chosen.Version == 1 ? 10 : 12; }
    int SomeKey() { return Machine.config.keys[static_cast<std::size_t>(Below(KeyTotal()))].number; }
    int AnyKey() { return Once(8) ? 1 + Below(50) : SomeKey(); }
    int KeyTotal() const { return static_cast<int>(Machine.config.keys.size()); }
    int KeyInUse() {
        if (Machine.set.calls.empty() || Once(10))
            return AnyKey();
        return std::next(Machine.set.calls.begin(), Below(static_cast<int>(Machine.set.calls.size())))->key;
    }

    // --- telling
    void Say(std::string line) {
        if (Chosen.PrintsAll)
            std::printf("%8.1f %s\n", static_cast<double>(PlatformControl::Now() - 1'000'000) / 1000, line.c_str());
        Trail.push_back(std::move(line));
        if (Trail.size() > TRAIL)
            Trail.pop_front();
    }
    std::string SetText() const {
        std::string text = "        the set:";
        for (const SetCall& call : Machine.set.calls)
            text += " " + std::to_string(call.key) + " " + Eq::CallStateName(call.state) + ",";
        return text + " active key " + std::to_string(Tracking.ActivCallTouch) +
               (Tracking.DbCall != 0 ? " double" : "");
    }
    void Wrong(const std::string& what) { TheBook.Wrong(what); }
    bool Failed() const { return !TheBook.Fault.empty(); }
    // The tables now hold what only a new start mends, as it is wanted: everybody hangs up, and the line is opened anew.
    void Spoil(const char* reason) {
        TheBook.Odd(reason);
        Spoilt = reason;
        Say(std::string("spoilt: ") + reason);
    }
    // A fault, unless it comes from what is wanted as it is.
    void Found(const std::string& what) {
        if (Suspect == nullptr)
            return Wrong(what);
        Say(what);
        Spoil(Suspect);
    }
    void Watch();

    void Load();
    void Unload();
    void Configure();
    void OpenLine();
    void CloseLine();
    void Advance(std::uint32_t milliseconds);
    bool AtRest();
    bool Settle();

    bool ActOnSet();
    bool ActFar();
    bool ActLine();
    bool ActDevice();
    bool Do(const std::string& what, const std::string& answer);

    int SomeCref(DWORD states);
    bool Asked(DRV_REQUESTID request, LONG result);
    static void TakeOver(TapiCall* lost, TapiCall& call, LONG result);
    bool Request();
    bool RequestOnLine();
    bool RequestOnCall();
    bool TransferRequest();
    bool PhoneRequest();
    bool Query();

    void CheckAll();
    std::string TableFault();
    std::string RequestFault();
    std::string PictureFault();
    std::string RestFault();
    void Compare();
    void Quieten();
    void Resynchronise();
};

}  // namespace Walk
