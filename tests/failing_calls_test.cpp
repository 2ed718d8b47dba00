// Every call of the system's that can fail, failing: a whole life of the provider, again and again, in which the n-th call
// of one function fails, once or from then on, until the life makes fewer calls. Whatever fails: nothing is left open,
// every request is completed, no setting changes, and the next start brings the line into service.
//
// What the provider does meanwhile is recorded, as a digest of its trace of all levels for each life
// (tests/recorded/failing): ZT_RECORD_SESSIONS writes them anew.
#include "config/settings.h"
#include "config/ui/resource.h"
#include "config/ui/tuispi.h"
#include "link/tick.h"
#include "provider/process.h"
#include "support/digest.h"
#include "support/scenario.h"
#include "trace/trace.h"

#include <cstdlib>
#include <utility>

namespace {

using PlatformControl::Failing;

// What a user has set, none of it the default: nothing of it may change by itself.
constexpr struct {
    const char *Section, *Name, *Text;
} UserSettings[] = {{"Provider", "Port", "COM1"},         {"Provider", "Speed", "19200"},
                    {"SetConfig", "MaxDigitLocal", "5"},  {"SetConfig", "EnquiryCallMode", "1"},
                    {"SetConfig", "SupervService", "0"},  {"Prefix", "ExtPrefix", "9"},
                    {"Prefix", "ExtPrefixDisp", "1"},     {"Prefix", "PublicOperator", "12"},
                    {"Debug_Mode", "DebugOutput", "255"}, {"ZT_Info", "After_L2_timeout", "20"}};

LONG CALLBACK Channel(DWORD_PTR object, DWORD type, LPVOID buffer, DWORD size) {
    return TSPI_providerGenericDialogData(object, type, buffer, size);
}

// A computer on which the provider has been installed and configured.
class Computer : public Scenario {
public:
    Computer() {
        PlatformControl::Reset();
        ResetProvider();
        Events();
        PlatformControl::MapPort("COM1", &Port);
        for (const auto& setting : UserSettings)
            SetSetting(setting.Section, setting.Name, setting.Text);
        MakeLocation();
        Machine.config.destinations["4750"] = {Equipment::FarEnd::Answers, 300, ""};
        PlatformControl::UseDialogs([](PlatformControl::Dialog& dialog) {
            if (dialog.Id == IDD_MAIN)
                dialog.Press(IDC_ADVANCED);
            dialog.Press(IDOK);
        });
    }
    ~Computer() override { PlatformControl::MapPort("COM1", nullptr); }

    Digest Traced;
    bool TicksRun = true;  // else only the close of the line completes what is left

    // From load to unload, with three sessions: of an old PBX, of a new one, of one that does not answer.
    void Life() {
        DllMain(nullptr, DLL_PROCESS_ATTACH, nullptr);
        Session(1, true);
        Session(3, true);
        Machine.faults.noAssociation = true;
        Session(3, true);
        Machine.faults.noAssociation = false;
        DllMain(nullptr, DLL_PROCESS_DETACH, nullptr);
        Advance(200);  // a thread that has been forgotten ends at its next tick
        TakeTrace();
    }
    // Whether a new start and open bring the line into service.
    bool Serves() {
        DllMain(nullptr, DLL_PROCESS_ATTACH, nullptr);
        const bool served = Session(3, false);
        DllMain(nullptr, DLL_PROCESS_DETACH, nullptr);
        return served;
    }
    static std::string ChangedSettings() {
        std::string changed;
        for (const auto& setting : UserSettings)
            if (const std::string text = Setting(setting.Section, setting.Name); text != setting.Text)
                changed += std::string(setting.Name) + ": " + text + "; ";
        return changed;
    }

private:
    void TestBody() override {}

    static void MakeLocation() {
        HKEY key = nullptr;
        char noClass[] = "";
        const std::string path = "SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Telephony\\Locations";
        const DWORD id = 1;
        for (const auto& [name, below] : {std::pair{"CurrentID", ""}, {"ID", "\\Location1"}}) {
            RegCreateKeyExA(HKEY_LOCAL_MACHINE, (path + below).c_str(), 0, noClass, 0, KEY_ALL_ACCESS, nullptr, &key,
                            nullptr);
            RegSetValueExA(key, name, 0, REG_DWORD, reinterpret_cast<const BYTE*>(&id), sizeof id);
            RegCloseKey(key);
        }
    }
    // Before the files change.
    void TakeTrace() {
        for (const std::string& line : TraceLines())
            Traced.Add(line);
        TraceLog.Counter = std::min(TraceLog.Counter, 1);
    }
    // A request, and the time until it is completed: one that the set does not answer fails after a minute, and the drop of
    // a call that rings waits for its caller.
    void Ask(const std::string& request) {
        Happen("app " + request);
        for (int second = 0; second < 62 && !TheBooks.Uncompleted().empty(); ++second)
            Happen("wait 1000");
        for (const int cref : TheBooks.Alive())
            if (TheBooks.State(cref) == "OFFERING" && !TheBooks.Uncompleted().empty())
                Happen("caller-hangs-up 1");
        EXPECT_TRUE(!TicksRun || TheBooks.Uncompleted().empty()) << request;
        TakeTrace();
    }
    void AskOfTheCall(const char* request) {
        const std::vector<int> calls = TheBooks.Alive();
        if (!calls.empty())
            Ask(std::string(request) + " " + std::to_string(calls.front()));
    }
    void UseLine() {
        TUISPI_providerConfig(Channel, nullptr, ProviderState.PermanentProviderID);
        struct {
            LINEADDRESSCAPS Caps;
            WCHAR Room[80];
        } caps{};
        caps.Caps.dwTotalSize = sizeof caps;
        TSPI_lineGetAddressCaps(ProviderState.LineDeviceID, 0, 0x20000, 0, &caps.Caps);
        Happen("queue 61 36 05 01 02 03 04 05 06 07 08");  // the dots of a character
        Happen("incoming 1 4722");
        for (const char* request : {"answer", "hold", "unhold", "drop"})
            AskOfTheCall(request);
        Ask("make 4750");
        for (const char* request : {"hold", "drop"})
            AskOfTheCall(request);
    }
    // Start to shutdown. Gives whether the line came into service.
    bool Session(int version, bool use) {
        TheBooks = {};
        Machine.Restart();
        Machine.config.omna = version;
        const bool opened = OpenLine() == 0;
        for (int i = 0; opened && i < 120 && !Tick.ConfigReceived; ++i)
            Advance(100);
        const bool served = opened && Tick.ConfigReceived && ProviderState.DeviceState == DEVICE_IN_SERVICE;
        if (served && use)
            UseLine();
        if (opened)
            CloseLine();
        EXPECT_EQ(TSPI_providerShutdown(0x20000, 9), 0);
        TakeTrace();
        TheBooks.Take(Events());
        EXPECT_EQ(TheBooks.Faults(), "");
        EXPECT_THAT(TheBooks.Uncompleted(), IsEmpty());
        return served;
    }
};

// The next place to fail a call at. The first ten are those of start and open; behind them each lies half as far again as
// the last, or with ZT_EVERY_CALL they are all tried.
const bool EVERY = std::getenv("ZT_EVERY_CALL") != nullptr;
int Next(int n) {
    return n + (EVERY || n < 10 ? 1 : n / 2);
}

class FailingCalls : public testing::TestWithParam<std::string> {};

TEST_P(FailingCalls, LeaveNothingBehind) {
    const std::string& function = GetParam();
    const std::string record = ZT_RECORDED "/failing/" + function + ".txt";
    std::string lives;
    for (const Failing failing : {Failing::Once, Failing::FromThenOn})
        for (int n = 1, counted = 1; n <= counted; n = Next(n)) {
            const std::string which = std::to_string(n) + (failing == Failing::Once ? " once" : " from then on");
            SCOPED_TRACE(function + " " + which);
            Computer computer;
            // Only then are they called.
            PlatformControl::Port("COM1").ReadPends = function == "GetOverlappedResult" || function == "CancelIoEx";
            // Boxes of a service go to the user's session; one of the life's three sessions shows one.
            if (function == "MsgWaitForMultipleObjectsEx" || function == "LoadLibraryA" || function.starts_with("WTS"))
                PlatformControl::UseScreen(function == "WTSEnumerateSessionsW"
                                               ? PlatformControl::Screen::UserAtADistance
                                               : PlatformControl::Screen::UsersSession);
            // Without the line mutex a tick does nothing.
            computer.TicksRun = function != "WaitForSingleObject" || failing == Failing::Once;
            PlatformControl::FailCall(function, n, failing);
            computer.Life();
            counted = PlatformControl::CallsCounted();
            PlatformControl::CallsWork();
            lives += computer.Traced.Text() + " " + which + "\n";
            EXPECT_GT(counted, 0) << "the life does not call it";
            EXPECT_EQ(Computer::ChangedSettings(), "");
            ASSERT_EQ(PlatformControl::OpenHandles(), 0);
            EXPECT_TRUE(computer.Serves()) << "though the calls work again";
            EXPECT_EQ(Computer::ChangedSettings(), "");
            ASSERT_EQ(PlatformControl::OpenHandles(), 0);
        }
    // The layer for Linux calls that one for the INI file, too; Windows' does not.
    if (EVERY || function == "GetWindowsDirectoryA")
        return;
    EXPECT_EQ(lives, RecordIn(record, lives)) << "a life went another way";
}
INSTANTIATE_TEST_SUITE_P(Functions, FailingCalls, testing::ValuesIn(PlatformControl::FallibleCalls()),
                         [](const auto& param) {
                             return param.param.starts_with("_") ? param.param.substr(1) : param.param;
                         });

}  // namespace
