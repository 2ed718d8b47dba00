#include "demo/screen.h"

#include "demo/editor.h"
#include "demo/text.h"
#include "equipment/script.h"

#include <algorithm>
#include <array>
#include <clocale>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <sstream>

#include <unistd.h>

#define NCURSES_WIDECHAR 1
#define NCURSES_NOMACROS 1
#include <curses.h>

namespace Demo {

namespace {

namespace Eq = Equipment;

constexpr int LEAST_COLUMNS = 80, LEAST_ROWS = 24;
constexpr int LEFT_WIDTH = 46;  // the set's side: the display with its frame
constexpr int RIGHT = LEFT_WIDTH + 1;
constexpr int BOX_LEFT = 2;              // where the display's first column stands
constexpr std::size_t FIELD = 8;         // columns of the display above each soft key
constexpr std::size_t LOG_LIMIT = 5000;  // lines kept of each side

enum Pair : short { Plain, ActiveKey, HeldKey, RingingKey, Wrong };

constexpr const char* SetHelp[] = {
    "F1-F5 soft keys    0-9 * # digits",           "Up/Down choose a key    Enter press it",
    "h handset  r release key  i a call comes in", "far end: g rings a answers b busy x leaves",
    ": any other command (help lists them)",
};
// No longer than the right side of the smallest screen.
constexpr const char* AppHelp[] = {"Up/Down lines typed before", "help lists the commands"};
constexpr const char* BothHelp[] = {"Tab other side   F10 end", "PgUp/PgDn scroll this side"};

enum class Style : std::uint8_t { Normal, Faint, Typed, Error };
struct Log {
    struct Line {
        std::string text;
        Style style;
    };
    std::vector<Line> lines;
    std::size_t back = 0;  // rows that it is scrolled back from its end

    void Add(const std::string& text, Style style) {
        lines.push_back({text, style});
        if (lines.size() > LOG_LIMIT)
            lines.erase(lines.begin());
        back = 0;
    }
};

struct Screen {
    Stage& stage;
    bool onSet = true;
    bool prompting = false;  // the set's prompt is open
    int chosen = 0;          // index of the key that Enter presses
    Editor setLine{}, appLine{};
    Log setLog{}, appLog{};
    std::size_t setRows = 1, appRows = 1;  // heights of the logs as last drawn
    bool done = false;
};

// --- what the set is like

const std::vector<Eq::KeyConfiguration>& Keys(const Screen& screen) {
    return screen.stage.Machine.config.keys;
}

int ChosenKey(const Screen& screen) {
    const auto& keys = Keys(screen);
    return keys.empty() ? 1 : keys[static_cast<std::size_t>(screen.chosen)].number;
}

const Eq::SetCall* CallAt(const Screen& screen, int key) {
    for (const Eq::SetCall& call : screen.stage.Machine.set.calls)
        if (call.key == key)
            return &call;
    return nullptr;
}

// The chosen key when it has a call, else the first one that has.
int KeyWithCall(const Screen& screen) {
    const auto& calls = screen.stage.Machine.set.calls;
    const int chosen = ChosenKey(screen);
    return CallAt(screen, chosen) != nullptr || calls.empty() ? chosen : calls.front().key;
}

int FreeKey(const Screen& screen) {
    if (CallAt(screen, ChosenKey(screen)) == nullptr)
        return ChosenKey(screen);
    for (const Eq::KeyConfiguration& key : Keys(screen))
        if (key.kind == Eq::KindMulti && CallAt(screen, key.number) == nullptr)
            return key.number;
    return ChosenKey(screen);
}

std::string LampMode(int mode) {
    static constexpr const char* names[] = {"off", "steady", "mode 2", "flash", "flutter", "mode 5", "wink"};
    return mode >= 0 && mode < static_cast<int>(std::size(names)) ? names[mode] : "mode " + std::to_string(mode);
}

std::string LampsText(const Eq::SetState& set) {
    std::string text;
    for (std::size_t lamp = 0; lamp < set.lamps.size(); ++lamp)
        if (set.lamps[lamp] != 0)
            text += (text.empty() ? "" : ", ") + std::to_string(lamp) + " " + LampMode(set.lamps[lamp]);
    return text.empty() ? "all off" : text;
}

struct Icon {
    const char* symbol;
    chtype look;
};

chtype Colour(Pair pair) {
    return static_cast<chtype>(COLOR_PAIR(pair));
}

Icon IconOf(std::uint16_t value) {
    switch (value) {
    case Eq::NoIcon: return {"[ ]", A_NORMAL};
    case Eq::ActiveIcon: return {"[*]", A_BOLD | Colour(ActiveKey)};
    case Eq::HeldIcon: return {"[=]", A_BOLD | Colour(HeldKey)};
    case Eq::RingingIcon: return {"[!]", A_BOLD | Colour(RingingKey)};
    case Eq::ReservedIcon: return {"[-]", A_NORMAL};
    default: return {"[?]", A_NORMAL};
    }
}

// --- drawing

void Put(int row, int column, const std::string& text, chtype look = A_NORMAL) {
    attrset(static_cast<int>(look));
    mvaddstr(row, column, text.c_str());
    attrset(A_NORMAL);
}

void PutTitle(int column, int width, const std::string& text, bool here) {
    Put(0, column, Padded(" " + text, static_cast<std::size_t>(width)), here ? A_REVERSE | A_BOLD : A_DIM);
}

chtype LookOf(Style style) {
    switch (style) {
    case Style::Faint: return A_DIM;
    case Style::Typed: return A_BOLD;
    case Style::Error: return Colour(Wrong) | A_BOLD;
    case Style::Normal: break;
    }
    return A_NORMAL;
}

// The last lines of a log that fit, or earlier ones when it is scrolled back.
void PutLog(Log& log, int top, int column, std::size_t rows, std::size_t width) {
    std::vector<std::pair<std::string, chtype>> all;
    for (const Log::Line& line : log.lines)
        for (std::string& part : Wrapped(line.text, width))
            all.emplace_back(std::move(part), LookOf(line.style));
    log.back = std::min(log.back, all.size() - std::min(all.size(), rows));
    const std::size_t end = all.size() - log.back;
    const std::size_t begin = end - std::min(end, rows);
    for (std::size_t i = begin; i < end; ++i)
        Put(top + static_cast<int>(i - begin), column, all[i].first, all[i].second);
    if (log.back > 0)
        Put(top + static_cast<int>(rows) - 1, column,
            Padded("-- " + std::to_string(log.back) + " more below: PgDn --", width), A_REVERSE);
}

int PutDisplay(const Eq::Machine& machine, int row) {
    const std::string edge = "+" + std::string(Eq::DisplayWidth + 2, '-') + "+";
    Put(row++, 0, edge);
    for (int line = 0; line < 2; ++line) {
        Put(row, 0, "|");
        Put(row, BOX_LEFT, Padded(Eq::DisplayText(machine, line), Eq::DisplayWidth), A_BOLD);
        Put(row++, LEFT_WIDTH - 3, "|");
    }
    Put(row++, 0, edge);
    for (std::size_t i = 0; i < machine.set.softKeys.size(); ++i) {
        const int column = BOX_LEFT + static_cast<int>(i * FIELD);
        Put(row, column, Padded(Start(machine.set.softKeys[i], FIELD - 1), FIELD - 1), A_REVERSE);
        Put(row + 1, column, "  F" + std::to_string(i + 1));
    }
    return row + 2;
}

struct KeyRow {
    std::size_t key;  // index
    bool call;        // a call on it, below its own row
    std::string text;
};

std::vector<KeyRow> KeyRows(const Screen& screen) {
    std::vector<KeyRow> rows;
    const auto& keys = Keys(screen);
    for (std::size_t i = 0; i < keys.size(); ++i) {
        rows.push_back({i, false, Eq::KindName(keys[i].kind) + " " + keys[i].label});
        for (const Eq::SetCall& call : screen.stage.Machine.set.calls)
            if (call.key == keys[i].number) {
                std::string text = Eq::CallStateName(call.state);
                for (const std::string& part : {call.name, call.number})
                    text += part.empty() ? "" : " " + part;
                for (const std::string& part : Wrapped(text, LEFT_WIDTH - 10))
                    rows.push_back({i, true, part});
            }
    }
    return rows;
}

// The programmable keys and their calls, those around the chosen one when there are too many.
int PutKeys(const Screen& screen, int row, std::size_t room) {
    const std::vector<KeyRow> rows = KeyRows(screen);
    std::size_t first = 0;
    for (std::size_t i = 0; i < rows.size(); ++i)
        if (static_cast<int>(rows[i].key) <= screen.chosen && i >= room)
            first = i - room + 1;
    for (std::size_t i = first; i < std::min(rows.size(), first + room); ++i, ++row) {
        if (rows[i].call) {
            Put(row, 9, rows[i].text);
            continue;
        }
        const int number = Keys(screen)[rows[i].key].number;
        const bool known = number < Eq::KeyCount;
        const std::uint16_t value = known ? screen.stage.Machine.set.icons[static_cast<std::size_t>(number)] : 0;
        const Icon icon = IconOf(value);
        const bool here = static_cast<int>(rows[i].key) == screen.chosen;
        char text[16];
        std::snprintf(text, sizeof text, "%c%3d ", here ? '>' : ' ', number);
        Put(row, 0, text, here && screen.onSet ? A_BOLD : A_NORMAL);
        Put(row, 5, icon.symbol + (" " + Padded(Eq::IconName(value), 9)), icon.look);
        Put(row, 19, Start(rows[i].text, LEFT_WIDTH - 20));
    }
    if (rows.empty())
        Put(row++, 0, " no programmable key");
    return row;
}

std::vector<std::string> StateRows(const Eq::Machine& machine) {
    const Eq::SetState& set = machine.set;
    std::vector<std::string> rows = {std::string(" handset ") + (set.handsetOff ? "lifted" : "down") + "   " +
                                     (set.ringing ? "the set RINGS" : "no ring")};
    if (machine.config.Forwarded())
        rows.push_back(" forwarded to " + machine.config.forwardDestination);
    for (const std::string& part : Wrapped(" lamps " + LampsText(set), LEFT_WIDTH - 1))
        rows.push_back(part);
    return rows;
}

void PutLine(int row, int column, std::size_t width, const std::string& prompt, const Editor& editor, bool here) {
    const Editor::View view = editor.Shown(width - prompt.size());
    Put(row, column, prompt, A_BOLD);
    addstr(view.text.c_str());
    if (here)
        move(row, column + static_cast<int>(prompt.size() + view.cursor));
}

void PutSet(Screen& screen) {
    const Eq::Machine& machine = screen.stage.Machine;
    PutTitle(0, LEFT_WIDTH, "THE SET " + machine.config.number, screen.onSet);
    const std::vector<std::string> state = StateRows(machine);
    constexpr int leastLog = 2, ruleAndPrompt = 2;
    int row = PutDisplay(machine, 1);
    const int others = static_cast<int>(std::size(SetHelp) + state.size()) + leastLog + ruleAndPrompt;
    row = PutKeys(screen, row, static_cast<std::size_t>(std::max(LINES - row - others, 1)));
    for (const std::string& line : state)
        Put(row++, 0, line);
    Put(row++, 0, std::string(LEFT_WIDTH - 1, '-'), A_DIM);
    for (const char* line : SetHelp)
        Put(row++, 1, line, screen.onSet ? A_NORMAL : A_DIM);
    screen.setRows = static_cast<std::size_t>(std::max(LINES - 1 - row, 1));
    PutLog(screen.setLog, row, 1, screen.setRows, LEFT_WIDTH - 2);
}

void PutApp(Screen& screen) {
    const std::size_t width = static_cast<std::size_t>(COLS - RIGHT - 1);
    PutTitle(RIGHT, COLS - RIGHT, "AN APPLICATION", !screen.onSet);
    int row = LINES - 2 - static_cast<int>(std::size(AppHelp) + std::size(BothHelp));
    screen.appRows = static_cast<std::size_t>(row - 1);
    PutLog(screen.appLog, 1, RIGHT + 1, screen.appRows, width);
    Put(row++, RIGHT + 1, std::string(width, '-'), A_DIM);
    for (const char* line : AppHelp)
        Put(row++, RIGHT + 1, line, screen.onSet ? A_DIM : A_NORMAL);
    for (const char* line : BothHelp)
        Put(row++, RIGHT + 1, line);
}

void Draw(Screen& screen) {
    erase();
    if (COLS < LEAST_COLUMNS || LINES < LEAST_ROWS) {
        const std::string is = std::to_string(COLS) + " x " + std::to_string(LINES);
        const std::string wanted = std::to_string(LEAST_COLUMNS) + " x " + std::to_string(LEAST_ROWS);
        Put(0, 0, "The terminal is too small:");
        Put(1, 0, is + ", " + wanted + " wanted.");
        Put(2, 0, "Make it larger, or end with F10.");
        refresh();
        return;
    }
    screen.chosen = std::clamp(screen.chosen, 0, std::max(static_cast<int>(Keys(screen).size()) - 1, 0));
    PutSet(screen);
    for (int row = 0; row < LINES; ++row)
        Put(row, LEFT_WIDTH, "|", A_DIM);
    PutApp(screen);
    // The side with the cursor is drawn last.
    const auto app = [&] {
        PutLine(LINES - 1, RIGHT + 1, static_cast<std::size_t>(COLS - RIGHT - 1), "tsphost> ", screen.appLine,
                !screen.onSet);
    };
    const auto set = [&] {
        if (screen.prompting)
            PutLine(LINES - 1, 1, LEFT_WIDTH - 2, ": ", screen.setLine, screen.onSet);
    };
    if (screen.onSet) {
        app();
        set();
    } else {
        set();
        app();
    }
    curs_set(screen.onSet && !screen.prompting ? 0 : 1);
    refresh();
}

// --- doing

// A row of a wide table, its columns two blanks apart.
std::string Squeezed(const std::string& row) {
    std::string text;
    for (const char c : row)
        if (c != ' ' || !text.ends_with("  "))
            text += c;
    return text;
}

void DoOnSet(Screen& screen, const std::string& line) {
    if (line.find_first_not_of(' ') == std::string::npos)
        return;
    screen.setLog.Add("> " + line, Style::Typed);
    const std::string answer = Eq::Execute(screen.stage.Machine, line, Eq::Loop::Now());
    const Style style = Eq::IsError(answer) ? Style::Error : Style::Normal;
    std::istringstream rows(answer);
    for (std::string row; std::getline(rows, row);)
        screen.setLog.Add(Columns(row) < LEFT_WIDTH - 2 ? row : Squeezed(row), style);
    if (line == "quit")
        screen.done = true;
}

void TurnHandset(Screen& screen) {
    Eq::Machine& machine = screen.stage.Machine;
    const bool lift = !machine.set.handsetOff;
    DoOnSet(screen, lift ? "handset 1" : "handset 0");
    const auto& calls = machine.set.calls;
    if (lift)
        DoOnSet(screen, "off-hook");
    else if (std::any_of(calls.begin(), calls.end(), Eq::IsActive))
        DoOnSet(screen, "release");
}

struct Shortcut {
    char key;
    void (*act)(Screen& screen);
};
constexpr Shortcut Shortcuts[] = {
    {'h', TurnHandset},
    {'r', [](Screen& s) { DoOnSet(s, "release"); }},
    {'g', [](Screen& s) { DoOnSet(s, "far-rings"); }},
    {'a', [](Screen& s) { DoOnSet(s, "far-answers"); }},
    {'b', [](Screen& s) { DoOnSet(s, "far-busy"); }},
    {'x', [](Screen& s) { DoOnSet(s, "caller-hangs-up " + std::to_string(KeyWithCall(s))); }},
    {'i',
     [](Screen& s) {
         s.prompting = true;
         s.setLine.Propose("incoming " + std::to_string(FreeKey(s)) + " 4722 \"ROUX\"");
     }},
    {':', [](Screen& s) { s.prompting = true; }},
};

void DoOnApp(Screen& screen, const std::string& line) {
    screen.appLog.Add("tsphost> " + line, Style::Typed);
    screen.stage.Host.Send(line);
}

constexpr int Control(char letter) {
    return letter & 0x1F;
}

constexpr int ESCAPE = 0x1B;

// A key in a line being typed; false when it is none of the editor's.
bool Edit(Editor& editor, bool special, wint_t key) {
    struct Action {
        bool special;
        int key;
        void (Editor::*act)();
    };
    static constexpr Action actions[] = {
        {true, KEY_LEFT, &Editor::Left},
        {true, KEY_RIGHT, &Editor::Right},
        {true, KEY_HOME, &Editor::Home},
        {true, KEY_END, &Editor::End},
        {true, KEY_UP, &Editor::Older},
        {true, KEY_DOWN, &Editor::Newer},
        {true, KEY_BACKSPACE, &Editor::Backspace},
        {true, KEY_DC, &Editor::Delete},
        {false, 0x7F, &Editor::Backspace},
        {false, 0x08, &Editor::Backspace},
        {false, Control('a'), &Editor::Home},
        {false, Control('e'), &Editor::End},
        {false, Control('u'), &Editor::EraseBefore},
        {false, Control('k'), &Editor::EraseBehind},
        {false, Control('w'), &Editor::EraseWord},
    };
    for (const Action& action : actions)
        if (action.special == special && static_cast<wint_t>(action.key) == key) {
            (editor.*action.act)();
            return true;
        }
    if (special || key < 0x20)
        return false;
    editor.Insert(static_cast<char32_t>(key));
    return true;
}

bool IsEnter(bool special, wint_t key) {
    return special ? key == KEY_ENTER : key == '\r' || key == '\n';
}

void KeyOnSet(Screen& screen, bool special, wint_t key) {
    if (screen.prompting) {
        if (IsEnter(special, key)) {
            screen.prompting = false;
            DoOnSet(screen, screen.setLine.Take());
        } else if (!special && key == ESCAPE) {
            screen.prompting = false;
            screen.setLine.Propose("");
        } else {
            Edit(screen.setLine, special, key);
        }
        return;
    }
    if (special && key >= static_cast<wint_t>(KEY_F(1)) && key <= static_cast<wint_t>(KEY_F(5)))
        DoOnSet(screen, "soft " + std::to_string(key - static_cast<wint_t>(KEY_F(0))));
    else if (special && (key == KEY_UP || key == KEY_DOWN))
        screen.chosen += key == KEY_UP ? -1 : 1;
    else if (IsEnter(special, key))
        DoOnSet(screen, "press " + std::to_string(ChosenKey(screen)));
    else if (!special && ((key >= '0' && key <= '9') || key == '*' || key == '#'))
        DoOnSet(screen, std::string("dial ") + static_cast<char>(key));
    else if (!special)
        for (const Shortcut& shortcut : Shortcuts)
            if (static_cast<wint_t>(shortcut.key) == key)
                shortcut.act(screen);
}

void KeyOnApp(Screen& screen, bool special, wint_t key) {
    if (IsEnter(special, key))
        DoOnApp(screen, screen.appLine.Take());
    else if (!special && key == static_cast<wint_t>(Control('d')) && screen.appLine.Empty())
        screen.done = true;
    else
        Edit(screen.appLine, special, key);
}

void Scroll(Screen& screen, bool up) {
    Log& log = screen.onSet ? screen.setLog : screen.appLog;
    const std::size_t rows = std::max<std::size_t>((screen.onSet ? screen.setRows : screen.appRows) - 1, 1);
    log.back = up ? log.back + rows : log.back - std::min(log.back, rows);
}

void TakeKey(Screen& screen, bool special, wint_t key) {
    if (special && key == static_cast<wint_t>(KEY_F(10)))
        screen.done = true;
    else if (COLS < LEAST_COLUMNS || LINES < LEAST_ROWS)
        return;  // nothing is to be seen
    else if (!special && key == '\t')
        screen.onSet = !screen.onSet;
    else if (special && (key == KEY_PPAGE || key == KEY_NPAGE))
        Scroll(screen, key == KEY_PPAGE);
    else if (screen.onSet)
        KeyOnSet(screen, special, key);
    else
        KeyOnApp(screen, special, key);
}

// --- the terminal

// Puts the terminal back when the program is about to die where it stands.
void OnCrash(int signal) {
    endwin();
    std::signal(signal, SIG_DFL);
    std::raise(signal);
}

struct Terminal {
    SCREEN* made = nullptr;

    Terminal() {
        // Texts are UTF-8; a plain locale would have ncurses take them apart.
        if (std::setlocale(LC_CTYPE, "") == nullptr || MB_CUR_MAX == 1)
            std::setlocale(LC_CTYPE, "C.UTF-8");
        made = newterm(nullptr, stdout, stdin);
        if (made == nullptr)
            return;
        for (const int signal : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT})
            std::signal(signal, OnCrash);
        cbreak();
        noecho();
        nonl();
        keypad(stdscr, TRUE);
        nodelay(stdscr, TRUE);
        set_escdelay(50);
        if (has_colors()) {
            start_color();
            use_default_colors();
            init_pair(ActiveKey, COLOR_GREEN, -1);
            init_pair(HeldKey, COLOR_YELLOW, -1);
            init_pair(RingingKey, COLOR_RED, -1);
            init_pair(Wrong, COLOR_RED, -1);
        }
    }
    ~Terminal() {
        if (made == nullptr)
            return;
        endwin();
        delscreen(made);
    }
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;
};

void TakeKeys(Screen& screen) {
    wint_t key = 0;
    for (int got; (got = get_wch(&key)) != ERR && !screen.done;)
        TakeKey(screen, got == KEY_CODE_YES, key);
}

}  // namespace

std::optional<int> OnScreen(Stage& stage) {
    int status = 0;
    {
        const Terminal terminal;
        if (terminal.made == nullptr)
            return {};
        Screen screen{stage};
        screen.onSet = false;
        screen.appLine.Propose("start");
        screen.appLog.Add("The host's console: \"start\" opens the line.", Style::Faint);
        while (!screen.done && !StopAsked() && !stage.Host.Ended()) {
            Draw(screen);
            if (!stage.Loop.Step(50, {stage.Host.Output(), STDIN_FILENO}))
                break;
            for (const std::string& line : stage.Host.Lines())
                screen.appLog.Add(line, IsEvent(line) ? Style::Normal : Style::Faint);
            TakeKeys(screen);
        }
        status = stage.End();
    }
    std::printf("The host ended with status %d.\n", status);
    return status;
}

}  // namespace Demo
