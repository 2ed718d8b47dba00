#include "ztsetup/report.h"

#include "ztsetup/facts.h"

#include <algorithm>
#include <ctime>
#include <iterator>

namespace Setup {

namespace {

constexpr std::string_view SETTINGS = "SOFTWARE\\Corvane\\TSpi_6200";
constexpr std::string_view TRACE_SECTION = "SOFTWARE\\Corvane\\TSpi_6200\\Debug_Mode";
constexpr std::string_view TRACE_LEVELS = "DebugOutput";
constexpr std::string_view ALL_LEVELS = "127", NO_LEVELS = "0";
constexpr std::string_view PORTS = "HARDWARE\\DEVICEMAP\\SERIALCOMM";

// In the Windows directory; in the archive under the name alone.
struct Source {
    std::string_view folder, name;
    bool trace;
};
constexpr Source Sources[] = {
    {"spitrace\\", "tsptrac0.old", true}, {"spitrace\\", "tsptrac1.old", true}, {"spitrace\\", "tsptrac0.tr", true},
    {"spitrace\\", "tsptrac1.tr", true},  {"", "zt62cfg.ini", false},
};

template <std::size_t Room> TextOf<Room>& AddError(TextOf<Room>& message, std::uint32_t error) {
    return message.Add(error == 5 ? "access is denied, " : "").Add("error ").AddNumber(error);
}

// --- the archive -----------------------------------------------------------------------------------------------------

constexpr std::size_t BLOCK = 512;
constexpr std::size_t ROOM = 16u << 20;  // the provider's four trace files take some 2 MB at most
constexpr std::string_view FOLDER = "zt_report/";

// A tar archive as it grows in memory. One entry at a time: its bytes are put behind a block that End makes its head.
struct Archive {
    std::size_t size = 0, start = 0;

    void Begin();
    Archive& Add(std::string_view text);
    Archive& AddNumber(std::uint32_t number) { return Add(TextOf<16>().AddNumber(number).View()); }
    std::span<char> Entry() { return std::span(bytes).subspan(start, size - start); }
    std::span<char> Left() { return std::span(bytes).subspan(size, size < LIMIT ? LIMIT - size : 0); }
    void End(std::string_view name);
    std::span<const char> Finish();

private:
    static constexpr std::size_t LIMIT = ROOM - 32 * BLOCK;  // heads and fillings have room behind it in any case
    static char bytes[ROOM];
};
char Archive::bytes[ROOM];

void Archive::Begin() {
    std::fill_n(bytes + size, BLOCK, '\0');
    start = size += BLOCK;
}

Archive& Archive::Add(std::string_view text) {
    text = text.substr(0, Left().size());
    std::copy(text.begin(), text.end(), bytes + size);
    size += text.size();
    return *this;
}

void PutOctal(char* field, std::size_t width, std::uint64_t number) {
    for (field[--width] = 0; width-- > 0; number /= 8)
        field[width] = static_cast<char>('0' + number % 8);
}

void Archive::End(std::string_view name) {
    char* const head = bytes + start - BLOCK;
    const Path path = Path(FOLDER).Add(name);
    std::copy_n(path.text, path.length, head);
    PutOctal(head + 100, 8, 0644);
    PutOctal(head + 108, 8, 0);
    PutOctal(head + 116, 8, 0);
    PutOctal(head + 124, 12, size - start);
    PutOctal(head + 136, 12, static_cast<std::uint64_t>(std::time(nullptr)));
    head[156] = '0';
    std::copy_n("ustar\0"
                "00",
                8, head + 257);
    std::fill_n(head + 148, 8, ' ');  // so the sum takes its own field
    std::uint32_t sum = 0;
    for (std::size_t i = 0; i < BLOCK; ++i)
        sum += static_cast<unsigned char>(head[i]);
    PutOctal(head + 148, 7, sum);
    const std::size_t rest = (BLOCK - size % BLOCK) % BLOCK;
    std::fill_n(bytes + size, rest, '\0');
    size += rest;
}

std::span<const char> Archive::Finish() {
    std::fill_n(bytes + size, 2 * BLOCK, '\0');
    size += 2 * BLOCK;
    return std::span(bytes).first(size);
}

// --- masking ---------------------------------------------------------------------------------------------------------

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

void MaskDigits(std::span<char> text) {
    std::replace_if(text.begin(), text.end(), IsDigit, 'x');
}

std::string_view ViewOf(std::span<const char> text) {
    return {text.data(), text.size()};
}

// Calls `take` with each line without its end.
template <class Take> void EachLine(std::span<char> text, Take take) {
    while (!text.empty()) {
        const auto end = std::find(text.begin(), text.end(), '\n');
        const auto length = static_cast<std::size_t>(end - text.begin());
        take(text.first(length > 0 && text[length - 1] == '\r' ? length - 1 : length));
        text = text.subspan(std::min(length + 1, text.size()));
    }
}

// What stands in front of a dump of bytes: "61.47.05.". A frame ends with a sum that makes all its bytes 0 together; that
// of a received one is shown without its first byte, which is how many follow less one.
struct DumpText {
    std::string_view before;
    bool frame, lengthShown;
};
constexpr DumpText DumpTexts[] = {
    {"ProcessInput(", true, false},   {"TxZTMsgFromFifo(", true, true},
    {"SendL2Msg(", true, true},       {"Resend_Last_Msg(", true, true},
    {"TAPI_OMNA MSG: ", false, true}, {"Unknown TAPI-OMNA msg received: ", false, true},
};
constexpr std::uint8_t LINK_CONTROL = 0x60, FROM_SET = 0x62, KEY_PRESS = 0x26, DIGIT_KEY = 0x03;
constexpr std::size_t DUMP_MOST = 64;  // bytes; the provider shows 49

int HexDigit(char c) {
    return IsDigit(c) ? c - '0' : c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
}

// Gives the number of bytes.
std::size_t ReadDump(std::span<const char> text, std::span<std::uint8_t, DUMP_MOST> bytes) {
    std::size_t count = 0;
    for (; count < DUMP_MOST && 3 * count + 3 <= text.size(); ++count) {
        const int high = HexDigit(text[3 * count]), low = HexDigit(text[3 * count + 1]);
        if (high < 0 || low < 0 || text[3 * count + 2] != '.')
            break;
        bytes[count] = static_cast<std::uint8_t>(16 * high + low);
    }
    return count;
}

std::uint8_t SumOf(std::span<const std::uint8_t> bytes) {
    unsigned sum = 0;
    for (const std::uint8_t byte : bytes)
        sum += byte;
    return static_cast<std::uint8_t>(sum);
}

// Every byte that may be a digit, one of a text or of a key pressed, becomes 0; a sum that was right is right again.
void MaskDump(std::span<char> text, const DumpText& kind) {
    std::uint8_t room[DUMP_MOST];
    const auto bytes = std::span(room).first(ReadDump(text, room));
    const std::size_t type = kind.frame && kind.lengthShown ? 1 : 0;
    if (bytes.size() < type + 3 || (kind.frame && bytes[type] == LINK_CONTROL))
        return;
    const std::size_t hidden = kind.lengthShown ? 0 : bytes.size() - 1;
    const std::uint8_t before = SumOf(bytes);
    const bool holds = kind.frame && (!kind.lengthShown || bytes[0] + std::size_t{2} == bytes.size()) &&
                       static_cast<std::uint8_t>(before + hidden) == 0;
    for (std::size_t i = type + 1; i + (holds ? 1 : 0) < bytes.size(); ++i) {
        std::uint8_t& byte = bytes[i];
        const bool pressed = i >= type + 2 && (bytes[i - 1] & 0x7F) == DIGIT_KEY &&
                             (bytes[i - 2] == FROM_SET || bytes[i - 2] == KEY_PRESS);
        if (byte >= '0' && byte <= '9')
            byte = '0';
        else if (pressed && (byte & 0x7F) <= 9)
            byte = static_cast<std::uint8_t>(byte & 0x80);
    }
    if (holds)
        bytes.back() = static_cast<std::uint8_t>(bytes.back() + before - SumOf(bytes));
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        text[3 * i] = "0123456789ABCDEF"[bytes[i] >> 4];
        text[3 * i + 1] = "0123456789ABCDEF"[bytes[i] & 15];
    }
}

// Texts that are not between quotes, by what stands in front of them.
constexpr std::string_view OpenTexts[] = {
    "GetCallInformation",
    "Address:",
    "Extract connected",
    "DigitKeyPushed",
    "DialedNumber",
    "mcdu",
    "Renvoi(",
    ":-",
    "- :",
    "CodeId:",
};

void MaskTraceLine(std::span<char> line) {
    std::size_t at = 0;  // behind the clock
    while (at < line.size() && IsDigit(line[at]))
        ++at;
    if (at < line.size() && line[at] == ' ')
        line = line.subspan(at + 1);
    const std::string_view text = ViewOf(line);
    for (const DumpText& kind : DumpTexts)
        if (text.starts_with(kind.before))
            return MaskDump(line.subspan(kind.before.size()), kind);
    // A name may have an apostrophe in it: from the first to the last.
    if (const std::size_t first = text.find('\''); first != std::string_view::npos)
        MaskDigits(line.subspan(first, text.rfind('\'') - first));
    for (const std::string_view before : OpenTexts)
        if (const std::size_t found = text.find(before); found != std::string_view::npos)
            MaskDigits(line.subspan(found));
}

// The values with numbers, and labels of keys: T01 to T88.
void MaskSetting(std::span<char> line) {
    const std::string_view text = ViewOf(line);
    const std::string_view name = text.substr(0, text.find('='));
    const bool key = name.size() == 3 && name[0] == 'T' && IsDigit(name[1]) && IsDigit(name[2]);
    if (key || name == "SetMCDU" || name == "PublicOperator")
        MaskDigits(line.subspan(name.size()));
}

// --- what goes into it -----------------------------------------------------------------------------------------------

void AddSettings(Archive& archive) {
    archive.Add("HKEY_LOCAL_MACHINE\\").Add(SETTINGS).Add("\n");
    TextOf<512> section;
    std::uint32_t error = 0, end = 0;
    for (std::uint32_t i = 0; (error = KeyAt(SETTINGS, i, section)) == 0; ++i) {
        archive.Add("\n[").Add(section.View()).Add("]\n");
        const Path key = Path(SETTINGS).Add("\\").Add(section.View());
        static RegistryValue value;
        for (std::uint32_t j = 0; (end = ValueAt(key.View(), j, value)) == 0; ++j) {
            archive.Add(value.name.View()).Add("=").Add(value.text.View());
            if (value.type != TYPE_TEXT)
                archive.Add(" (type ").AddNumber(value.type).Add(", no text: counts as missing)");
            archive.Add("\n");
        }
        if (end != NOTHING_MORE)
            archive.Add("cannot be read further: error ").AddNumber(end).Add("\n");
    }
    if (error != NOTHING_MORE)
        archive.Add(error == FILE_MISSING ? "is not there: error " : "cannot be read further: error ")
            .AddNumber(error)
            .Add("\n");
}

std::string_view OrUnknown(std::string_view text) {
    return text.empty() ? "unknown" : text;
}

void AddAbout(Archive& archive, bool mask) {
    archive.Add("ztsetup:            ");
    archive.Add(OrUnknown(VersionOf(Path(OwnDirectory()).Add("\\ztsetup.exe")).View()));
    archive.Add("\nzt_6232.tsp:        ");
    archive.Add(OrUnknown(VersionOf(Path(SystemDirectory()).Add("\\zt_6232.tsp")).View()));
    archive.Add("\nWindows version:    ").Add(OrUnknown(WindowsVersion().View()));
    archive.Add("\nDigits of numbers:  ").Add(mask ? "masked" : "as they are").Add("\nSerial ports:       ");
    RegistryValue port;
    std::uint32_t error = 0, count = 0;
    for (; (error = ValueAt(PORTS, count, port)) == 0; ++count)
        archive.Add(count == 0 ? "" : ", ").Add(port.text.View()).Add(" (").Add(port.name.View()).Add(")");
    if (error != NOTHING_MORE && error != FILE_MISSING)
        archive.Add(" error ").AddNumber(error);
    static constexpr std::string_view STATUS[] = {"status"};
    archive.Add(count == 0 ? "none\n\n" : "\n\n").Add(Run(STATUS).message.View());
}

// Gives whether it is in the archive; where not, the message says why, unless it is simply not there.
bool AddFile(Archive& archive, const Source& source, bool mask, Message& message) {
    const Path path = Path(WindowsDirectory()).Add("\\").Add(source.folder).Add(source.name);
    archive.Begin();
    std::size_t size = 0;
    const std::uint32_t error = ReadInto(path, archive.Left(), size);
    if (error != 0) {
        archive.size = archive.start - BLOCK;
        if (error != FILE_MISSING)
            AddError(message.Add(path.View()).Add(" is not in it ("), error).Add(").\n");
        return false;
    }
    archive.size += size;
    if (mask)
        source.trace ? MaskTrace(archive.Entry()) : MaskSettings(archive.Entry());
    archive.End(source.name);
    return true;
}

}  // namespace

void MaskTrace(std::span<char> text) {
    EachLine(text, MaskTraceLine);
}

void MaskSettings(std::span<char> text) {
    EachLine(text, MaskSetting);
}

Outcome SetTrace(bool on) {
    Outcome outcome;
    Message& message = outcome.message;
    if (const std::uint32_t error = SetText(TRACE_SECTION, TRACE_LEVELS, on ? ALL_LEVELS : NO_LEVELS); error != 0) {
        outcome.code = EXIT_FAILED;
        message.Add("Windows did not set HKEY_LOCAL_MACHINE\\").Add(TRACE_SECTION).Add("\\").Add(TRACE_LEVELS);
        AddError(message.Add(" ("), error).Add(").\n");
        return outcome;
    }
    message.Add(on ? "The provider is to trace everything.\n" : "The provider is to trace only what it always does.\n");
    if (TelephonyService() == Service::Stopped)
        message.Add("The telephony service does not run: it will, once it starts.\n");
    else
        message.Add("It will after a restart of the telephony service: end all programs that use the telephone, then\n"
                    "  net stop tapisrv /y\n"
                    "Windows starts it when a program needs it. Start again what stopped with it.\n");
    return outcome;
}

Outcome WriteReport(std::string_view file, bool mask) {
    Outcome outcome;
    Message& message = outcome.message;
    Archive archive;
    archive.Begin();
    AddAbout(archive, mask);
    archive.End("about.txt");
    archive.Begin();
    AddSettings(archive);
    if (mask)
        MaskSettings(archive.Entry());
    archive.End("settings.txt");
    int traces = 0;
    for (const Source& source : Sources)
        traces += AddFile(archive, source, mask, message) && source.trace ? 1 : 0;
    if (traces == 0)
        message.Add("There is no trace in it. ztsetup trace on  has the provider write all of it.\n");
    const Path path = FullPath(file);
    const auto bytes = archive.Finish();
    if (const std::uint32_t error = WriteNew(path, bytes); error != 0) {
        outcome = {EXIT_FAILED, Message(path.View())};
        if (error == FILE_THERE)
            message.Add(" is there already and stays as it is. Name another file, or delete it first.\n");
        else
            AddError(message.Add(" cannot be written ("), error).Add(").\n");
        return outcome;
    }
    message.Add(path.View()).Add(" is written, ").AddNumber(static_cast<std::uint32_t>(bytes.size())).Add(" bytes.\n");
    message.Add(
        mask ? "The digits of telephone numbers in it are masked; names are not. Look at it before you send it.\n"
             : "It holds telephone numbers and names: look at it before you send it, or have the digits masked "
               "(--mask).\n");
    return outcome;
}

}  // namespace Setup
