#include "equipment/script.h"

#include "equipment/characters.h"

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <map>
#include <optional>
#include <span>
#include <sstream>
#include <type_traits>

namespace Equipment {

namespace {

using Words = std::vector<std::string>;

// Words between blanks; "..." is one word and may hold blanks. None when a quotation mark is missing.
std::optional<Words> Split(const std::string& line) {
    Words words;
    std::string word;
    bool inWord = false, quoted = false;
    for (const char c : line) {
        if (c == '"') {
            quoted = !quoted;
            inWord = true;
        } else if (!quoted && (c == ' ' || c == '\t' || c == '\r')) {
            if (inWord)
                words.push_back(word);
            word.clear();
            inWord = false;
        } else {
            word += c;
            inWord = true;
        }
    }
    if (quoted)
        return {};
    if (inWord)
        words.push_back(word);
    return words;
}

std::optional<long> Number(const std::string& text, int base = 10) {
    try {
        std::size_t used = 0;
        const long value = std::stol(text, &used, base);
        if (used == text.size())
            return value;
    } catch (const std::exception&) {
    }
    return {};
}

// Reads the words of a line one after the other and remembers the first that is wrong.
struct Arguments {
    const Words& words;
    std::size_t next = 1;
    std::string error = {};

    bool More() const { return next < words.size(); }

    std::string Text(const char* what) {
        if (!More()) {
            Fail(std::string(what) + " is missing");
            return "";
        }
        return words[next++];
    }

    long Integer(const char* what, long low, long high, int base = 10) {
        const std::string text = Text(what);
        if (!error.empty())
            return low;
        const auto value = Number(text, base);
        if (!value || *value < low || *value > high) {
            Fail(std::string(what) + " '" + text + "' is not " + std::to_string(low) + " to " + std::to_string(high));
            return low;
        }
        return *value;
    }

    int Small(const char* what, int low, int high) { return static_cast<int>(Integer(what, low, high)); }

    bool OnOff() {
        const std::string text = Text("on or off");
        if (error.empty() && text != "on" && text != "off")
            Fail("'" + text + "' is neither on nor off");
        return text == "on";
    }

    // An optional word at the end.
    bool Flag(const char* word) {
        if (!More() || words[next] != word)
            return false;
        ++next;
        return true;
    }

    bool NumberNext() const { return More() && Number(words[next]).has_value(); }

    void Fail(const std::string& why) {
        if (error.empty())
            error = why;
    }

    // All words are used up and none was wrong.
    bool Done() {
        if (More())
            Fail("'" + words[next] + "' is too much");
        return error.empty();
    }
};

// A command reads its arguments, and only when they are all good (Done) does anything. It gives what is to be shown;
// a refusal goes to Arguments::Fail.
using Carry = std::string (*)(Machine&, Arguments&);

std::string Do(Arguments& in, const std::string& refusal) {
    if (!refusal.empty())
        in.Fail(refusal);
    return "";
}

int Key(Arguments& in) {
    return in.Small("key", 0, KeyCount - 1);
}

// --- set WHAT VALUE: each reads a value, which its errors call `what`, into one field

template <auto Field, int Low, int High> void SetNumber(Machine& machine, Arguments& in, const char* what) {
    const int value = in.Small(what, Low, High);
    auto& field = machine.config.*Field;
    if (in.Done())
        field = static_cast<std::remove_reference_t<decltype(field)>>(value);
}

template <auto Record, auto Field, long Low, long High>
void SetLarge(Machine& machine, Arguments& in, const char* what) {
    const long value = in.Integer(what, Low, High);
    if (in.Done())
        machine.*Record.*Field = static_cast<std::uint32_t>(value);
}

template <bool SetConfiguration::*Field> void SetFlag(Machine& machine, Arguments& in, const char*) {
    const bool value = in.OnOff();
    if (in.Done())
        machine.config.*Field = value;
}

template <std::string SetConfiguration::*Field> void SetText(Machine& machine, Arguments& in, const char* what) {
    const std::string text = in.Text(what);
    if (in.Done())
        machine.config.*Field = text;
}

template <std::vector<std::string> SetConfiguration::*List>
void SetEntry(Machine& machine, Arguments& in, const char* what) {
    const int index = in.Small("number", 0, 31);
    const std::string text = in.Text(what);
    if (!in.Done())
        return;
    std::vector<std::string>& list = machine.config.*List;
    if (list.size() <= static_cast<std::size_t>(index))
        list.resize(static_cast<std::size_t>(index) + 1);
    list[static_cast<std::size_t>(index)] = text;
}

void SetCard(Machine& machine, Arguments& in, const char*) {
    const int major = in.Small("major", 0, 255);
    const int minor = in.Small("minor", 0, 255);
    if (!in.Done())
        return;
    machine.config.cardMajor = major;
    machine.config.cardMinor = minor;
}

void SetContainer(Machine& machine, Arguments& in, const char* what) {
    const long type = in.Integer(what, 0x0B, 0x6E, 16);
    if (type != 0x0B && type != 0x6E)
        in.Fail("the type is 0B or 6E");
    if (in.Done())
        machine.config.containerType = static_cast<std::uint8_t>(type);
}

void SetPrefix(Machine& machine, Arguments& in, const char* what) {
    const std::string text = in.Text(what);
    if (in.Done())
        machine.config.externalPrefix = text == "-" ? "" : text;
}

struct SettingEntry {
    const char* name;
    void (*set)(Machine&, Arguments&, const char* what);
    const char* what;
    const char* form;  // behind its name, then what it is
    const char* meaning;
};

using Config = SetConfiguration;
constexpr long Hour = 3'600'000;  // ms

constexpr SettingEntry Settings[] = {
    {"version", SetNumber<&Config::omna, 0, 255>, "version", "N", "TAPI_OMNA version (1, 2 or 3)"},
    {"card", SetCard, "", "MAJOR MINOR", "version of the card"},
    {"super", SetFlag<&Config::superFrames>, "", "on|off", "super frames"},
    {"piggyback", SetFlag<&Config::piggyback>, "", "on|off", "acknowledgement and data in one frame"},
    {"container", SetContainer, "type", "0B|6E", "type of super frames"},
    {"number", SetText<&Config::number>, "text", "TEXT", "directory number of the set"},
    {"type", SetNumber<&Config::deviceType, 0, 255>, "value", "N", "kind of set; 3 is the one served"},
    {"multi", SetNumber<&Config::multiMode, 0, 255>, "value", "N", "1: a second call on the same key; 0: on another"},
    {"language", SetNumber<&Config::language, 0, 255>, "value", "N",
     "1 French, 2 English, 4 German, 5 Spanish, 6 Italian"},
    {"softkey", SetEntry<&Config::softKeys>, "text", "N TEXT", "label 0 to 6"},
    {"string", SetEntry<&Config::strings>, "text", "N TEXT", "display string 0 to 2"},
    {"code", SetEntry<&Config::codes>, "text", "N TEXT", "service code 0 to 6"},
    {"entries", SetNumber<&Config::entriesPerMessage, 1, 255>, "entries", "N", "entries in one information message"},
    {"idle", SetText<&Config::idleText>, "text", "TEXT", "line 0 of the set at rest"},
    {"bps", SetLarge<&Machine::pacing, &Pacing::bitsPerSecond, 0, 10'000'000>, "bits per second", "N",
     "speed of the line; 0 = at once"},
    {"resend", SetLarge<&Machine::pacing, &Pacing::resendMs, 1, Hour>, "milliseconds", "MS",
     "until an unacknowledged frame goes again"},
    {"digit-pause", SetLarge<&Machine::config, &Config::digitPauseMs, 0, Hour>, "milliseconds", "MS",
     "after which a dialled number is complete"},
    {"choice-pause", SetLarge<&Machine::config, &Config::choicePauseMs, 0, Hour>, "milliseconds", "MS",
     "for the other call's key of a transfer or conference"},
    {"recall", SetLarge<&Machine::config, &Config::recallMs, 0, Hour>, "milliseconds", "MS",
     "a held call rings back; 0 = never"},
    {"internal", SetNumber<&Config::internalDigits, 0, 40>, "digits", "N",
     "longer numbers are outside, in call events"},
    {"prefix", SetPrefix, "digits", "DIGITS", "of outside numbers; - = none"},
    {"event-prefix", SetFlag<&Config::prefixInEvents>, "", "on|off", "outside numbers carry it in call events"},
    {"no-operator", SetFlag<&Config::noOperatorPrefix>, "", "on|off", "call events forbid the operator's prefix"},
    {"events-after", SetFlag<&Config::eventsAfterDisplay>, "", "on|off", "call events come after the display"},
};

std::string CarrySet(Machine& machine, Arguments& in) {
    const std::string what = in.Text("setting");
    const auto* entry = std::find_if(std::begin(Settings), std::end(Settings),
                                     [&](const SettingEntry& setting) { return what == setting.name; });
    if (entry == std::end(Settings))
        in.Fail("there is no setting '" + what + "'");
    else
        entry->set(machine, in, entry->what);
    return "";
}

std::string CarryKey(Machine& machine, Arguments& in) {
    const int number = in.Small("key", 0, 255);
    const std::string kind = in.Text("kind");
    static const std::map<std::string, int> kinds = {{"multi", KindMulti},
                                                     {"supervision", KindSupervision},
                                                     {"boss", KindBoss},
                                                     {"secretary", KindSecretary},
                                                     {"overflow", KindOverflow}};
    const bool none = kind == "none";
    const auto known = kinds.find(kind);
    const auto numbered = Number(kind);
    if (!none && known == kinds.end() && !(numbered && *numbered >= 0 && *numbered <= 255))
        in.Fail("'" + kind + "' is no kind of key");
    const std::string label = !none && in.More() ? in.Text("label") : "";
    if (!in.Done())
        return "";
    std::vector<KeyConfiguration>& keys = machine.config.keys;
    const auto at = std::find_if(keys.begin(), keys.end(), [&](const auto& key) { return key.number == number; });
    if (none) {
        if (at != keys.end())
            keys.erase(at);
        return "";
    }
    const KeyConfiguration key{number, static_cast<std::uint8_t>(known != kinds.end() ? known->second : *numbered),
                               label};
    if (at != keys.end())
        *at = key;
    else
        keys.push_back(key);
    return "";
}

std::string CarryKeys(Machine& machine, Arguments& in) {
    const std::string what = in.Text("none");
    if (what != "none")
        in.Fail("'" + what + "': only 'keys none' is known");
    if (in.Done())
        machine.config.keys.clear();
    return "";
}

std::string CarryModule(Machine& machine, Arguments& in) {
    const int address = in.Small("address", 0, 7);
    ModuleConfiguration module{address, false, 0};
    const bool none = in.Flag("none");
    if (!none) {
        if (const std::string word = in.Text("'offset'"); word != "offset")
            in.Fail("'offset' is missing");
        module.offset = in.Small("offset", 0, 255);
        module.aom20 = in.Flag("aom20");
    }
    if (!in.Done())
        return "";
    std::erase_if(machine.config.modules, [&](const auto& m) { return m.address == address; });
    if (!none)
        machine.config.modules.push_back(module);
    return "";
}

std::string CarryForward(Machine& machine, Arguments& in) {
    const int status = in.Small("status", 0, NotForwarded);
    const std::string destination = in.More() ? in.Text("destination") : "";
    if (status < NotForwarded && destination.empty())
        in.Fail("destination is missing");
    if (!in.Done())
        return "";
    machine.config.forwardStatus = static_cast<std::uint8_t>(status);
    machine.config.forwardDestination = destination;
    ReportAssociation(machine);
    return "";
}

// --- calls

std::string CarryIncoming(Machine& machine, Arguments& in) {
    const int key = Key(in);
    const std::string number = in.Text("number");
    CallerShown shown = CallerShown::AtOnce;
    IncomingDetails details;
    std::string name;
    long late = 1500;
    bool named = false;
    while (in.More() && in.error.empty()) {
        if (in.Flag("nocaller")) {
            shown = CallerShown::Never;
        } else if (in.Flag("late")) {
            shown = CallerShown::Late;
            if (in.NumberNext())
                late = in.Integer("milliseconds", 0, 600'000);
        } else if (in.Flag("reason")) {
            details.reason = in.Small("reason", 0, 255);
        } else if (in.Flag("for")) {
            details.called = in.Text("number");
            details.calledName = in.More() ? in.Text("name") : "";
        } else if (!named) {
            name = in.Text("name");
            named = true;
        } else {
            break;
        }
    }
    return in.Done() ? Do(in, Incoming(machine, key, number == "-" ? "" : number, name, shown,
                                       static_cast<std::uint32_t>(late), details))
                     : "";
}

template <std::string (*Action)(Machine&, int)> std::string CarryOnKey(Machine& machine, Arguments& in) {
    const int key = Key(in);
    return in.Done() ? Do(in, Action(machine, key)) : "";
}

template <std::string (*Action)(Machine&)> std::string CarryPlain(Machine& machine, Arguments& in) {
    return in.Done() ? Do(in, Action(machine)) : "";
}

template <std::string (*Action)(Machine&, const std::string&)> std::string CarryNamed(Machine& machine, Arguments& in) {
    const std::string name = in.More() ? in.Text("name") : "";
    return in.Done() ? Do(in, Action(machine, name)) : "";
}

template <std::string (*Action)(Machine&, int)> std::string CarryByte(Machine& machine, Arguments& in) {
    const int value = in.Small("value", 0, 255);
    return in.Done() ? Do(in, Action(machine, value)) : "";
}

std::string CarryFarHangsUp(Machine& machine, Arguments& in) {
    const int key = Key(in);
    HangUpShown shown = HangUpShown::Dark;
    if (in.Flag("prompt"))
        shown = HangUpShown::Prompt;
    else if (in.Flag("reserved"))
        shown = HangUpShown::Reserved;
    const int slot = in.Flag("slot") ? in.Small("slot", 0, 1) : -1;
    return in.Done() ? Do(in, FarHangsUp(machine, key, shown, slot)) : "";
}

std::string CarryDial(Machine& machine, Arguments& in) {
    const std::string digits = in.Text("digits");
    return in.Done() ? Do(in, DialDigits(machine, digits)) : "";
}

template <SoftKey Meaning> std::string CarryLabel(Machine& machine, Arguments& in) {
    return in.Done() ? Do(in, PressLabel(machine, Meaning)) : "";
}

std::string CarryTones(Machine& machine, Arguments& in) {
    if (!in.More())
        return machine.set.tones + "\n";
    const bool on = in.OnOff();
    return in.Done() ? Do(in, PressLabel(machine, on ? FreqVocale : CancelFreqVocale)) : "";
}

std::string CarryFarDiverts(Machine& machine, Arguments& in) {
    const std::string number = in.Text("number");
    const std::string name = in.More() ? in.Text("name") : "";
    return in.Done() ? Do(in, FarDiverts(machine, number, name)) : "";
}

std::string CarryFarTransfers(Machine& machine, Arguments& in) {
    const int key = Key(in);
    const std::string number = in.Text("number");
    const std::string name = in.More() ? in.Text("name") : "";
    return in.Done() ? Do(in, FarTransfers(machine, key, number, name)) : "";
}

std::string CarryMove(Machine& machine, Arguments& in) {
    const int from = Key(in);
    const int to = Key(in);
    return in.Done() ? Do(in, MoveCall(machine, from, to)) : "";
}

std::string CarryWaitsAt(Machine& machine, Arguments& in) {
    const std::string address = in.Text("address");
    const std::string number = in.Text("number");
    const std::string name = in.More() ? in.Text("name") : "";
    return in.Done() ? Do(in, CallWaitsAt(machine, address, number, name)) : "";
}

std::string CarryDestination(Machine& machine, Arguments& in) {
    static const std::map<std::string, FarEnd> kinds = {{"script", FarEnd::Script},
                                                        {"answers", FarEnd::Answers},
                                                        {"busy", FarEnd::Busy},
                                                        {"never-answers", FarEnd::NeverAnswers},
                                                        {"not-obtainable", FarEnd::NotObtainable}};
    const std::string number = in.Text("number");
    const std::string does = in.Text("what it does");
    const auto kind = kinds.find(does);
    if (kind == kinds.end())
        in.Fail("'" + does + "' is neither answers, busy, never-answers, not-obtainable nor script");
    Destination destination;
    if (in.NumberNext())
        destination.ms = static_cast<std::uint32_t>(in.Integer("milliseconds", 0, 600'000));
    destination.name = in.More() ? in.Text("name") : "";
    if (!in.Done())
        return "";
    destination.does = kind->second;
    (number == "any" ? machine.config.otherwise : machine.config.destinations[number]) = destination;
    return "";
}

std::string CarryCalls(Machine& machine, Arguments& in) {
    if (!in.Done())
        return "";
    std::ostringstream out;
    for (const SetCall& call : machine.set.calls)
        out << "call " << call.id << " key " << call.key << " slot " << call.slot << " "
            << (call.incoming ? "in" : "out") << " " << CallStateName(call.state) << " '" << call.number << "' '"
            << call.name << "'\n";
    return out.str();
}

std::string CarrySoft(Machine& machine, Arguments& in) {
    const int position = in.Small("position", 1, 5);
    return in.Done() ? Do(in, PressSoftKey(machine, position)) : "";
}

// --- single commands

std::string CarryDisplay(Machine& machine, Arguments& in) {
    const int line = in.Small("line", 0, 1);
    const std::string text = in.Text("text");
    int position = 0, mode = 0;
    if (in.Flag("at")) {
        position = in.Small("position", 0, 255);
        mode = 1;
    }
    if (in.Flag("goon"))
        mode = 2;
    const bool more = in.Flag("more");
    return in.Done() ? Do(in, WriteDisplay(machine, line, text, position, mode, more)) : "";
}

std::string CarrySoftKeys(Machine& machine, Arguments& in) {
    std::vector<std::string> labels;
    while (in.More())
        labels.push_back(in.Text("label"));
    std::replace(labels.begin(), labels.end(), std::string("-"), std::string());
    return in.Done() ? Do(in, ShowSoftKeys(machine, labels)) : "";
}

std::string CarryIcon(Machine& machine, Arguments& in) {
    const int key = Key(in);
    const std::string text = in.Text("value");
    static const std::map<std::string, int> names = {{"dark", NoIcon},
                                                     {"active", ActiveIcon},
                                                     {"held", HeldIcon},
                                                     {"ringing", RingingIcon},
                                                     {"reserved", ReservedIcon}};
    const auto named = names.find(text);
    const auto value = named != names.end() ? std::optional<long>(named->second) : Number(text, 16);
    if (!value || *value < 0 || *value > 0xFFFF)
        in.Fail("'" + text + "' is neither dark, active, held, ringing, reserved nor four hexadecimal digits");
    return in.Done() ? Do(in, SetIcon(machine, key, static_cast<std::uint16_t>(*value))) : "";
}

std::string CarryLamp(Machine& machine, Arguments& in) {
    const int lamp = in.Small("lamp", 0, 255);
    const int mode = in.Small("mode", 0, 255);
    return in.Done() ? Do(in, SetLamp(machine, lamp, mode)) : "";
}

// The rest of the line as bytes in hexadecimal; null, with an error, when it holds none or others.
std::optional<Bytes> HexBytes(Arguments& in, std::size_t most, const char* wanted) {
    std::string hex;
    while (in.More())
        hex += in.Text("bytes") + " ";
    const auto bytes = ParseHex(hex);
    if (!bytes || bytes->empty() || bytes->size() > most)
        in.Fail(wanted);
    return in.Done() ? bytes : std::nullopt;
}

std::optional<Bytes> FrameBytes(Arguments& in) {
    return HexBytes(in, 255, "1 to 255 bytes in hexadecimal are wanted: type and data of a frame");
}

std::string CarrySend(Machine& machine, Arguments& in) {
    if (const auto item = FrameBytes(in))
        machine.PutRaw(BuildFrame(*item));
    return "";
}

// A link-control frame of the card's own accord; what the provider answers is logged as an acknowledgement of nothing.
template <std::uint8_t Control> std::string CarryControl(Machine& machine, Arguments& in) {
    if (in.Done())
        machine.PutRaw(BuildFrame(Bytes{TypeControl, Control}));
    return "";
}

std::string CarryRaw(Machine& machine, Arguments& in) {
    if (const auto bytes = HexBytes(in, SIZE_MAX, "bytes in hexadecimal are wanted"))
        machine.PutRaw(*bytes);
    return "";
}

std::string CarryQueue(Machine& machine, Arguments& in) {
    if (const auto item = FrameBytes(in)) {
        machine.Queue(*item, false);
        machine.Pump();
    }
    return "";
}

// --- misbehaviour

template <int Faults::*Count> std::string CarryFault(Machine& machine, Arguments& in) {
    const int count = in.Small("number of frames", 0, 100'000);
    FaultTarget target = FaultTarget::Any;
    if (in.Flag("data"))
        target = FaultTarget::Data;
    else if (in.Flag("control"))
        target = FaultTarget::Control;
    if (in.Done()) {
        machine.faults.*Count = count;
        machine.faults.target = target;
    }
    return "";
}

std::string CarryIgnore(Machine& machine, Arguments& in) {
    const int count = in.Small("number of frames", 0, 100'000);
    if (in.Done())
        machine.faults.ignoreNext = count;
    return "";
}

std::string CarryNack(Machine& machine, Arguments& in) {
    const std::string text = in.Text("83, 84 or 85");
    const auto value = Number(text, 16);
    if (!value || *value < 0x83 || *value > 0x85)
        in.Fail("'" + text + "' is not 83, 84 or 85");
    const int count = in.More() ? in.Small("number of frames", 1, 100'000) : 1;
    if (in.Done()) {
        machine.faults.nackWith = static_cast<std::uint8_t>(*value);
        machine.faults.nackNext = count;
    }
    return "";
}

template <bool Faults::*Flag> std::string CarrySwitch(Machine& machine, Arguments& in) {
    const bool on = in.OnOff();
    if (in.Done())
        machine.faults.*Flag = on;
    machine.Pump();
    return "";
}

std::string CarryDelay(Machine& machine, Arguments& in) {
    const std::string what = in.Text("ack or answer");
    if (what != "ack" && what != "answer")
        in.Fail("'" + what + "' is neither ack nor answer");
    const long ms = in.Integer("milliseconds", 0, 600'000);
    if (in.Done())
        (what == "ack" ? machine.faults.ackDelayMs : machine.faults.answerDelayMs) = static_cast<std::uint32_t>(ms);
    return "";
}

std::string CarryShow(Machine& machine, Arguments& in) {
    return in.Done() ? Picture(machine) : "";
}

std::string CarryLink(Machine& machine, Arguments& in) {
    if (!in.Done())
        return "";
    const CardState& card = machine.card;
    std::ostringstream out;
    out << "provider " << (card.present ? "there" : "not there") << ", " << card.waiting.size() << " waiting, "
        << (card.flight.empty() ? "none" : "one") << " in flight; frames " << card.framesIn << " in, " << card.framesOut
        << " out, " << card.badFrames << " damaged, " << card.resends << " again, " << card.givenUp << " given up; "
        << card.nacksIn << " refused\n";
    return out.str();
}

std::string CarryPresses(Machine& machine, Arguments& in) {
    if (!in.Done())
        return "";
    std::string text;
    for (const KeyPress& press : machine.set.presses)
        text += Hex(press.item) + "\n";
    return text;
}

std::string CarryRestart(Machine& machine, Arguments& in) {
    if (in.Done())
        machine.Restart();
    return "";
}

std::string CarryNothing(Machine&, Arguments& in) {
    in.Done();
    return "";
}

std::string CarryWait(Machine&, Arguments& in) {
    if (!in.Flag("provider"))
        in.Integer("milliseconds", 0, 3'600'000);
    in.Done();
    return "";
}

std::string CarryHelp(Machine&, Arguments& in) {
    return in.Done() ? HelpText() : "";
}

struct CommandEntry {
    const char* name;
    Carry carry;
    const char* form;  // its words, then what it does
    const char* meaning;
};

constexpr CommandEntry Commands[] = {
    {"set", CarrySet, "", ""},  // the table of settings has them
    {"key", CarryKey, "key N KIND [LABEL]", "multi, supervision, boss, secretary, overflow, none"},
    {"keys", CarryKeys, "keys none", "no programmable key"},
    {"module", CarryModule, "module ADR offset N [aom20]", "an add-on module; module ADR none removes it"},
    {"forward", CarryForward, "forward STATUS [DEST]", "0 always, 1 busy, 2 no answer, 3 both, 4 off; reported"},
    {"destination", CarryDestination, "destination NUMBER|any DOES [MS] [\"NAME\"]",
     "answers, busy, never-answers, not-obtainable, script"},
    {"incoming", CarryIncoming,
     "incoming KEY NUMBER [\"NAME\"] [nocaller|late [MS]] [reason N] [for NUMBER [\"NAME\"]]",
     "a call rings; - = no number"},
    {"caller", CarryOnKey<ShowCaller>, "caller KEY", "the caller shows now"},
    {"caller-hangs-up", CarryFarHangsUp, "caller-hangs-up KEY [prompt|reserved] [slot N]",
     "prompt: the set asks to hang up; reserved: the icon stays"},
    {"answer", CarryOnKey<Answer>, "answer KEY", ""},
    {"seize", CarryOnKey<Seize>, "seize KEY", ""},
    {"dial", CarryDial, "dial DIGITS", "or letters; in a call: a second one, or tones"},
    {"far-rings", CarryNamed<FarRings>, "far-rings [\"NAME\"]", "line 0 shows the called party"},
    {"far-diverts", CarryFarDiverts, "far-diverts NUMBER [\"NAME\"]", "the call being made goes on to another party"},
    {"far-answers", CarryNamed<FarAnswers>, "far-answers [\"NAME\"]", ""},
    {"far-busy", CarryPlain<FarBusy>, "far-busy", ""},
    {"far-transfers", CarryFarTransfers, "far-transfers KEY NUMBER [\"NAME\"]", "the other end is somebody else now"},
    {"recall", CarryOnKey<Recall>, "recall KEY", "a held call rings back"},
    {"move", CarryMove, "move KEY TO", "a boss or secretary key's call goes over to key TO"},
    {"waits-at", CarryWaitsAt, "waits-at ADDRESS NUMBER [\"NAME\"]", "a call rings there, to be picked up"},
    {"hold", CarryOnKey<Hold>, "hold KEY", ""},
    {"retrieve", CarryOnKey<Retrieve>, "retrieve KEY", ""},
    {"second", CarryOnKey<SecondCallOn>, "second KEY", "the active call is held, KEY seized"},
    {"swap", CarryPlain<SwapCalls>, "swap", ""},
    {"second-call", CarryLabel<SecondCall>, "second-call", "soft keys, wherever they stand"},
    {"end-second", CarryLabel<EndSecondCall>, "end-second", ""},
    {"conference", CarryLabel<Conference>, "conference", "begins one, or ends it"},
    {"transfer", CarryLabel<Transfer>, "transfer", ""},
    {"tones", CarryTones, "tones [on|off]", "voice-frequency mode; alone: the tones sent so far"},
    {"release", CarryPlain<PressRelease>, "release", "the release key"},
    {"off-hook", CarryPlain<PressOffHook>, "off-hook", "the off-hook key"},
    {"hangup", CarryOnKey<HangUpKey>, "hangup KEY", ""},
    {"press", CarryOnKey<PressKey>, "press KEY", "what the key does now"},
    {"soft", CarrySoft, "soft N", "soft key 1 to 5"},
    {"display", CarryDisplay, "display LINE TEXT [at N|goon] [more]", ""},
    {"softkeys", CarrySoftKeys, "softkeys LABEL ...", "up to five; - = blank"},
    {"clear", CarryPlain<ClearDisplay>, "clear", "the display"},
    {"icon", CarryIcon, "icon KEY VALUE", "dark, active, held, ringing, reserved or hexadecimal"},
    {"icons-off", CarryPlain<ModuleIconsOff>, "icons-off", "of the add-on modules"},
    {"lamp", CarryLamp, "lamp N MODE", "0 off, 1 steady, 3 flash, 4 flutter, 6 wink, 7 all off"},
    {"ring", CarryByte<Ring>, "ring N", ""},
    {"speaker", CarryByte<Speaker>, "speaker N", ""},
    {"handset", CarryByte<Handset>, "handset N", ""},
    {"send", CarrySend, "send HEX", "a frame, length and checksum added; not repeated"},
    {"queue", CarryQueue, "queue HEX", "the same in its turn, repeated until acknowledged"},
    {"raw", CarryRaw, "raw HEX", "bytes as they are"},
    {"abort", CarryControl<ControlAbort>, "abort", "the card gives a frame up (60 86)"},
    {"contact", CarryControl<ControlContact>, "contact", "the card has lost contact (60 87)"},
    {"reset", CarryControl<ControlReset>, "reset", "the card starts its link anew (60 88)"},
    {"silence", CarrySwitch<&Faults::silent>, "silence on|off", "the cable is off"},
    {"cts-low", CarrySwitch<&Faults::ctsLow>, "cts-low on|off", "the provider may not send"},
    {"lose", CarryFault<&Faults::loseNext>, "lose N [data|control]", "the next N frames are lost"},
    {"lose-every", CarryFault<&Faults::loseEvery>, "lose-every N [data|control]", "every N-th frame; 0 = none"},
    {"flip", CarryFault<&Faults::flipNext>, "flip N [data|control]", "one bit of each is wrong"},
    {"flip-every", CarryFault<&Faults::flipEvery>, "flip-every N [data|control]", "in every N-th frame; 0 = none"},
    {"cut", CarryFault<&Faults::cutNext>, "cut N [data|control]", "only half of each comes"},
    {"join", CarryFault<&Faults::joinNext>, "join N [data|control]", "they come in one piece with the next"},
    {"repeat", CarryFault<&Faults::repeatNext>, "repeat N [data|control]", "each comes twice"},
    {"ignore", CarryIgnore, "ignore N", "the next N received frames are not answered"},
    {"nack", CarryNack, "nack 83|84|85 [N]", "the next N received frames are refused"},
    {"delay", CarryDelay, "delay ack|answer MS", "acknowledgements, or the PBX's answers, come late"},
    {"no-headers", CarrySwitch<&Faults::noTraceHeaders>, "no-headers on|off", "no trace headers"},
    {"no-association", CarrySwitch<&Faults::noAssociation>, "no-association on|off", "the PBX does not answer it"},
    {"no-answers", CarrySwitch<&Faults::noAnswers>, "no-answers on|off", "nor the configuration requests"},
    {"no-multi", CarrySwitch<&Faults::noMultiLineKey>, "no-multi on|off", "no multi-line key is announced"},
    {"no-poll", CarrySwitch<&Faults::noPollAnswer>, "no-poll on|off", "polls are not answered"},
    {"wrong-sequence", CarrySwitch<&Faults::wrongSequence>, "wrong-sequence on|off", "segments in the wrong order"},
    {"show", CarryShow, "show", "display, keys, lamps"},
    {"calls", CarryCalls, "calls", "the set's calls, a line each"},
    {"link", CarryLink, "link", "counters of the link"},
    {"presses", CarryPresses, "presses", "what the provider has pressed"},
    {"restart", CarryRestart, "restart", "the set and the link from the start; settings stay"},
    {"wait", CarryWait, "wait MS|provider", "in a script: the next line later; when it sends its next frame"},
    {"help", CarryHelp, "help", ""},
    {"quit", CarryNothing, "quit", ""},
};

}  // namespace

std::string HelpText() {
    std::string text;
    const auto add = [&](std::string form, const char* meaning) {
        if (*meaning != 0)
            form.resize(std::max<std::size_t>(form.size() + 2, 34), ' ');
        text += form + meaning + "\n";
    };
    for (const CommandEntry& entry : Commands)
        if (entry.carry == CarrySet)
            for (const SettingEntry& setting : Settings)
                add("set " + std::string(setting.name) + " " + setting.form, setting.meaning);
        else
            add(entry.form, entry.meaning);
    return text;
}

bool IsError(const std::string& answer) {
    return answer.rfind("error: ", 0) == 0;
}

std::string Execute(Machine& machine, const std::string& line, std::uint32_t nowMs) {
    const auto words = Split(line);
    if (!words)
        return "error: a quotation mark is missing";
    if (!words->empty() && words->front().starts_with('#'))
        return Execute(machine, Words{}, nowMs);
    return Execute(machine, *words, nowMs);
}

std::string Execute(Machine& machine, const std::vector<std::string>& words, std::uint32_t nowMs) {
    const std::lock_guard lock(machine.guard);
    machine.Tick(nowMs);
    if (words.empty())
        return "";
    for (const CommandEntry& entry : Commands) {
        if (words[0] != entry.name)
            continue;
        Arguments in{words};
        const std::string answer = entry.carry(machine, in);
        return in.error.empty() ? answer : "error: " + in.error;
    }
    return "error: there is no command '" + words[0] + "' (help lists them)";
}

bool Script::Load(const std::string& path) {
    std::ifstream file(path);
    if (!file)
        return false;
    for (std::string line; std::getline(file, line);)
        Add(line);
    return true;
}

void Script::Add(std::string line) {
    if (line.ends_with('\r'))
        line.pop_back();
    lines.push_back(std::move(line));
}

std::string Script::Step(Machine& machine, std::uint32_t nowMs) {
    std::string answers;
    while (!lines.empty() && !quit) {
        if (waiting && (heard >= 0 ? machine.card.framesIn == heard : nowMs - resumeMs >= 0x80000000u))
            break;
        waiting = false;
        const std::string line = lines.front();
        lines.pop_front();
        std::string answer = Execute(machine, line, nowMs);
        if (IsError(answer)) {
            answers += line + ": " + answer + "\n";
            continue;
        }
        if (!answer.empty())
            answers += answer + (answer.back() == '\n' ? "" : "\n");
        const auto words = Split(line);
        if (words->empty())
            continue;
        if ((*words)[0] == "quit")
            quit = true;
        if ((*words)[0] == "wait") {
            waiting = true;
            heard = (*words)[1] == "provider" ? machine.card.framesIn : -1;
            resumeMs = heard < 0 ? nowMs + static_cast<std::uint32_t>(*Number((*words)[1])) : nowMs;
        }
    }
    return answers;
}

std::uint32_t Script::NextDue(std::uint32_t nowMs) const {
    if (lines.empty() || quit || (waiting && heard >= 0))
        return UINT32_MAX;
    if (!waiting || nowMs - resumeMs < 0x80000000u)
        return 0;
    return resumeMs - nowMs;
}

}  // namespace Equipment
