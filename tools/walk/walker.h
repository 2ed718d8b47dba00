// The walker: what every file of this folder shares. What is done is a list of lines (walk.h): each is chosen by chance as
// the world stands, or comes from a text, and is then carried out by the same code. Its parts: walk.cpp (the line, the
// walk itself), world.cpp (the person at the set, far ends, the line's faults), application.cpp (requests and queries),
// checks.cpp (what must hold).
#pragma once

#include "equipment/equipment.h"
#include "support/service.h"
#include "tracking/model.h"
#include "tracking/steps.h"
#include "walk/book.h"
#include "walk/walk.h"

#include <algorithm>
#include <climits>
#include <cstdio>
#include <deque>
#include <set>
#include <sstream>
#include <type_traits>

namespace Walk {

namespace Eq = Equipment;
using Eq::SetCall;
using At = Eq::CallState;

constexpr DWORD LINE_ID = 3, PHONE_ID = 5, PROVIDER_ID = 9, VERSION = 0x20000;
constexpr std::size_t TRAIL = 80;  // lines kept for a report
constexpr std::uint32_t TICK = 100;
constexpr int NOBODY = INT_MIN;  // no cref

// What is unusual about a set and its provider.
enum Extra : int {
    MANY_KEYS = 1,       // more than there are records for calls
    NO_SUPERVISION = 2,  // SupervService 0
    PREFIX_SHOWN = 4,    // ExtPrefixDisp 1
    ODD_CODES = 8,       // service codes with characters that cannot be keyed
    NO_CODES = 16,       // some service codes are missing
    TRACED = 32,
};

// The words of a line behind its verb. A text is one word: '-' for an empty one, '_' for a blank.
class Words {
public:
    explicit Words(const std::string& line) : In(line) {}
    std::string Word() {
        std::string word;
        In >> word;
        return word;
    }
    int Int() { return std::atoi(Word().c_str()); }
    std::string Text() {
        std::string text = Word();
        std::replace(text.begin(), text.end(), '_', ' ');
        return text == "-" ? "" : text;
    }

private:
    std::istringstream In;
};

template <class T> void AddWord(std::string& line, const T& word) {
    if constexpr (std::is_integral_v<T>) {
        line += ' ' + std::to_string(word);
    } else {
        std::string text = word;
        std::replace(text.begin(), text.end(), ' ', '_');
        line += ' ' + (text.empty() ? "-" : text);
    }
}
template <class... T> std::string LineOf(const char* verb, const T&... words) {
    std::string line = verb;
    (AddWord(line, words), ...);
    return line;
}

class Walker {
public:
    explicit Walker(bool printsAll, Listener listener = nullptr) : PrintsAll(printsAll), Listens(std::move(listener)) {}
    Outcome Go(const Options& options);
    Outcome Go(const std::vector<std::string>& lines);

private:
    const bool PrintsAll;
    const Listener Listens;
    std::vector<std::string> Seen;  // what the listener has not been told yet
    int Version = 2, MultiMode = 0;
    bool Misbehaves = false;
    int Extras = 0;  // Extra
    EquipmentPort Port;
    Eq::Machine& Machine = Port.Machine;
    std::uint64_t State = 1;
    HDRVLINE Line = nullptr;
    HDRVPHONE Phone = nullptr;
    bool Open = false;
    bool Clean = true;    // nothing has gone wrong on the line since the set was last at rest and known to TAPI
    bool Faulty = false;  // the line misbehaves just now
    const char* Spoilt = nullptr;   // why the line must be opened anew
    const char* Suspect = nullptr;  // why tables may come to be spoilt
    int SuspectFor = 0;             // actions
    int CrowdedFor = 0;  // ticks, since the line was opened, that the set's configuration shared with other messages
    std::uint32_t ForwardedAt = 0;
    int ForwardedCall = INT_MAX;  // the set's last call when a service code was asked for
    std::set<int> Unseen;         // calls of the set that may have begun while it was keyed
    std::set<int> Unsupervised;   // calls of the set that rang on supervision keys, which are switched off
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
        static const char* const Numbers[] = {"4720",       "4721",        "4722",   "4723", "4730",
                                              "0145678901", "00612345678", "12",     "4711", "614720",
                                              "60",         "66",          "664720", "4731", "A1*#"};
        // In version 1 only digits show that a number is being dialled.
        return Numbers[Below(static_cast<int>(std::size(Numbers)) - (Version == 1))];
    }
    int Digits() const { return Version == 1 ? 10 : 12; }
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
        if (PrintsAll)
            std::printf("%8.1f %s\n", static_cast<double>(PlatformControl::Now() - 1'000'000) / 1000, line.c_str());
        if (Listens) {
            See();
            Seen.push_back(line);
        }
        Trail.push_back(std::move(line));
        if (Trail.size() > TRAIL)
            Trail.pop_front();
    }
    void See();
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

    void Start();
    void Finish();
    void Load();
    void Unload();
    bool Has(Extra extra) const { return (Extras & extra) != 0; }
    std::string ChooseSet(const Options& options);
    void Configure(Words& words);
    void ConfigureKeys(int modules);
    void OpenLine();
    void CloseLine();
    void OpenPhone();
    void ClosePhone();
    bool OnDevice(const std::string& verb);
    void Advance(std::uint32_t milliseconds);
    bool AtRest();
    bool Settle();

    // A line by chance, "" for none; several for what belongs together.
    std::vector<std::string> Choose();
    std::vector<std::string> CallsOnAllKeys();
    std::string ChooseOnSet();
    std::string ChooseFar();
    std::string ChooseLine();
    std::string ChooseRaw();
    std::vector<std::string> ChooseDevice();
    std::string ChooseRequest();
    std::string ChooseOnLine();
    std::string ChooseOnCall();
    std::string ChooseTransfer();
    std::string ChoosePhone();

    // Carries a line out and checks; false when it does not apply now, and nothing has been done.
    bool Take(const std::string& line);
    bool Perform(const std::string& line);
    bool OnSet(const std::string& verb, Words& words);
    bool Far(const std::string& verb, Words& words);
    bool SendRaw(const std::string& hex);
    bool Misbehave(Words& words);
    bool Request(const std::string& verb, Words& words);
    bool Query(Words& words);

    int SomeCref(DWORD states);
    bool Asked(DRV_REQUESTID request, LONG result);
    static void TakeOver(TapiCall* lost, TapiCall& call, LONG result);
    bool Sync(const std::string& name, LONG result);
    std::ptrdiff_t OnKey(int cref, bool (*test)(const SetCall&) = nullptr);
    bool MakeCall(Words& words);
    bool Forward(Words& words);
    bool SetUpTransfer(Words& words);
    bool CompleteTransfer(Words& words);
    bool PressButton(Words& words);

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
