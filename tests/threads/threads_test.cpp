// The provider under threads as applications and the telephony service bring them, for the thread sanitizer: on the
// system's clock, made faster, so that the threads really run beside each other. Applications request, query and press
// while the service opens, closes and shuts down, boxes stay open, contact is lost and the adapter pulled out.
#include "config/settings.h"
#include "config/ui/dialog_data.h"
#include "equipment/script.h"
#include "link/tick.h"
#include "provider/process.h"
#include "provider/state.h"
#include "support/buffer.h"
#include "support/service.h"
#include "trace/trace.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <fstream>
#include <functional>
#include <map>
#include <mutex>
#include <random>
#include <thread>

namespace {

constexpr unsigned FASTER = 10;
constexpr DWORD LINE_BASE = 3, PHONE_BASE = 5, PROVIDER_ID = 9;
constexpr DWORD BUSY_MS = 30, SET_MS = 700;  // between two calls of an application, two events of the set

// What TAPI has asked and been told.
class Ledger {
    struct Request {
        LONG answer = 0;
        int completions = 0;
    };
    std::mutex lock;
    std::condition_variable changed;
    std::map<DRV_REQUESTID, Request> requests;
    std::map<std::string, int> counts;
    DRV_REQUESTID last = 0;

public:
    DRV_REQUESTID Ask() {
        const std::lock_guard guard(lock);
        return ++last;
    }
    void Answer(DRV_REQUESTID request, LONG result) {
        const std::lock_guard guard(lock);
        requests[request].answer = result;
        ++counts[result > 0 ? "accepted" : "refused"];
    }
    void Complete(DRV_REQUESTID request, LONG result) {
        const std::lock_guard guard(lock);
        ++requests[request].completions;
        ++counts[result == 0 ? "succeeded" : "failed"];
    }
    void Count(const std::string& what) {
        const std::lock_guard guard(lock);
        ++counts[what];
        changed.notify_all();
    }
    int Counted(const std::string& what) {
        const std::lock_guard guard(lock);
        return counts[what];
    }
    // Until that many more have been counted. False when a minute passes first.
    bool Await(const std::string& what, int more = 1) {
        std::unique_lock guard(lock);
        const int wanted = counts[what] + more;
        return changed.wait_for(guard, std::chrono::minutes(1), [&] { return counts[what] >= wanted; });
    }
    std::string Faults() {
        const std::lock_guard guard(lock);
        std::string faults;
        for (const auto& [id, request] : requests)
            if (request.completions != (request.answer > 0 ? 1 : 0))
                faults += "request " + std::to_string(id) + " was answered with " + std::to_string(request.answer) +
                          " and completed " + std::to_string(request.completions) + " times\n";
        return faults;
    }
} TheLedger;

void CALLBACK TakeLine(HTAPILINE, HTAPICALL, DWORD message, DWORD_PTR p1, DWORD_PTR p2, DWORD_PTR) {
    if (message == static_cast<DWORD>(LINE_NEWCALL))
        *reinterpret_cast<HTAPICALL*>(p2) = reinterpret_cast<HTAPICALL>(0x100 + p1);
    if (message == LINE_CLOSE)
        TheLedger.Count("CLOSE");
    if (message == LINE_LINEDEVSTATE && (p1 & LINEDEVSTATE_INSERVICE) != 0)
        TheLedger.Count("INSERVICE");
    if (message == LINE_CALLSTATE)
        TheLedger.Count("call state");
}

void CALLBACK TakePhone(HTAPIPHONE, DWORD, DWORD_PTR, DWORD_PTR, DWORD_PTR) {
    TheLedger.Count("phone state");
}

void CALLBACK TakeCompletion(DRV_REQUESTID request, LONG result) {
    TheLedger.Complete(request, result);
}

// --- what applications call

const HDRVLINE Line = reinterpret_cast<HDRVLINE>(&ProviderState);
const HDRVPHONE Phone = reinterpret_cast<HDRVPHONE>(&ProviderState);

struct Application {
    std::minstd_rand random;
    CallersBuffer buffer{};

    unsigned Any(unsigned count) { return static_cast<unsigned>(random() % count); }
    HDRVCALL Call() {
        static constexpr std::uintptr_t Calls[] = {0, 0, 0, 1, 1, 2, 30};
        return reinterpret_cast<HDRVCALL>(Calls[Any(std::size(Calls))]);
    }
};

// What the configuration dialog asks the provider.
template <class Data> void Exchange(ExchangeCode code) {
    std::vector<std::uint8_t> bytes(sizeof(ExchangeHeader) + sizeof(Data));
    const ExchangeHeader header{code, sizeof(Data), {}};
    std::memcpy(bytes.data(), &header, sizeof header);
    TSPI_providerGenericDialogData(PROVIDER_ID, TUISPIDLL_OBJECT_PROVIDERID, bytes.data(),
                                   static_cast<DWORD>(bytes.size()));
}

using Requests = std::vector<std::function<LONG(Application&, DRV_REQUESTID)>>;
using Calls = std::vector<std::function<void(Application&)>>;

// Where an answer is written that nobody reads.
template <class Answer> Answer* Somewhere(Application& a) {
    return a.buffer.Room<Answer>(0);
}

HTAPICALL TapiCall(std::uintptr_t handle) {
    return reinterpret_cast<HTAPICALL>(handle);
}

const Requests LineRequests = {
    [](Application& a, DRV_REQUESTID r) {
        return TSPI_lineMakeCall(r, Line, TapiCall(0x100), Somewhere<HDRVCALL>(a), a.Any(2) == 0 ? u"4750" : u"4759", 0,
                                 nullptr);
    },
    [](Application& a, DRV_REQUESTID r) { return TSPI_lineDrop(r, a.Call(), nullptr, 0); },
    [](Application& a, DRV_REQUESTID r) { return TSPI_lineDrop(r, a.Call(), nullptr, 0); },
    [](Application& a, DRV_REQUESTID r) { return TSPI_lineAnswer(r, a.Call(), nullptr, 0); },
    [](Application& a, DRV_REQUESTID r) { return TSPI_lineHold(r, a.Call()); },
    [](Application& a, DRV_REQUESTID r) { return TSPI_lineUnhold(r, a.Call()); },
    [](Application& a, DRV_REQUESTID r) { return TSPI_lineDial(r, a.Call(), u"4750", 0); },
    [](Application& a, DRV_REQUESTID r) { return TSPI_lineBlindTransfer(r, a.Call(), u"4751", 0); },
    [](Application& a, DRV_REQUESTID r) {
        return TSPI_lineSetupTransfer(r, a.Call(), TapiCall(0x101), Somewhere<HDRVCALL>(a), nullptr);
    },
    [](Application& a, DRV_REQUESTID r) {
        return TSPI_lineCompleteTransfer(r, a.Call(), a.Call(), nullptr, Somewhere<HDRVCALL>(a),
                                         LINETRANSFERMODE_TRANSFER);
    },
    [](Application& a, DRV_REQUESTID r) { return TSPI_lineRemoveFromConference(r, a.Call()); },
    [](Application& a, DRV_REQUESTID r) {
        return TSPI_linePickup(r, Line, 0, nullptr, nullptr, a.Any(2) == 0 ? u"4788" : u"4712", nullptr);
    },
};

const Calls LineQueries = {
    [](Application& a) { TSPI_lineGetDevCaps(LINE_BASE, 0x20000, 0, a.buffer.Room<LINEDEVCAPS>(600)); },
    [](Application& a) { TSPI_lineGetAddressCaps(LINE_BASE, 0, 0x20000, 0, a.buffer.Room<LINEADDRESSCAPS>(400)); },
    [](Application& a) { TSPI_lineGetAddressStatus(Line, 0, a.buffer.Room<LINEADDRESSSTATUS>(400)); },
    [](Application& a) { TSPI_lineGetLineDevStatus(Line, a.buffer.Room<LINEDEVSTATUS>(400)); },
    [](Application& a) { TSPI_lineGetCallInfo(a.Call(), a.buffer.Room<LINECALLINFO>(900)); },
    [](Application& a) { TSPI_lineGetCallStatus(a.Call(), a.buffer.Room<LINECALLSTATUS>(400)); },
    [](Application& a) { TSPI_lineNegotiateTSPIVersion(LINE_BASE, 0x10000, 0x20000, Somewhere<DWORD>(a)); },
    [](Application& a) { TSPI_lineNegotiateExtVersion(LINE_BASE, 0x20000, 0, 0, Somewhere<DWORD>(a)); },
    [](Application& a) { TSPI_lineGetAddressID(Line, Somewhere<DWORD>(a), 0, u"4711", 10); },
    [](Application& a) { TSPI_lineGenerateDigits(a.Call(), 0, LINEDIGITMODE_DTMF, u"1#", 0); },
    [](Application& a) { TSPI_lineSetAppSpecific(a.Call(), 7); },
    [](Application&) { TSPI_lineSetStatusMessages(Line, 1, 1); },
    [](Application& a) { TSPI_lineCloseCall(a.Call()); },
    [](Application&) { Exchange<ConfigData>(UI_SPI_EI_CFGDLG_GET); },
    [](Application&) { Exchange<AdvancedData>(UI_SPI_EI_CFGDLG_ADV_GET); },
};

const Calls PhoneCalls = {
    [](Application& a) { TSPI_phoneGetDisplay(Phone, a.buffer.Room<VARSTRING>(200)); },
    [](Application& a) { TSPI_phoneGetDevCaps(PHONE_BASE, 0x20000, 0, a.buffer.Room<PHONECAPS>(400)); },
    [](Application& a) {
        auto* info = a.buffer.Room<PHONEBUTTONINFO>(sizeof(PHONEBUTTONINFO));
        info->dwButtonMode = PHONEBUTTONMODE_KEYPAD;
        TSPI_phoneSetButtonInfo(0, Phone, a.Any(12), info);
    },
    [](Application& a) { TSPI_phoneGetLamp(Phone, 1, Somewhere<DWORD>(a)); },
    [](Application& a) { TSPI_phoneNegotiateTSPIVersion(PHONE_BASE, 0x10000, 0x20000, Somewhere<DWORD>(a)); },
    [](Application& a) {
        TSPI_phoneSetHookSwitch(0, Phone, PHONEHOOKSWITCHDEV_HANDSET,
                                a.Any(2) == 0 ? PHONEHOOKSWITCHMODE_ONHOOK : PHONEHOOKSWITCHMODE_MICSPEAKER);
    },
};

const std::vector<std::string> SetEvents = {
    // of the set's user
    "answer 1", "hangup 1", "release", "seize 1", "swap",
    // of others
    "incoming 1 4722 \"DUPONT\"", "incoming 2 4723", "incoming 7 4725", "caller-hangs-up 2", "far-answers", "far-busy",
    "waits-at 4788 4799 \"ROUX\"",
    // of PBX and line
    "lamp 3 1", "flip 1", "nack 84 1"};

// --- the service

class Threads : public testing::Test {
protected:
    EquipmentPort Port;
    HANDLE Over = nullptr;  // set when the applications shall end
    std::vector<std::thread> Running;

    void SetUp() override {
        PlatformControl::Reset();
        PlatformControl::UseSystemClock(FASTER);
        PlatformControl::KeepBoxesOpen(500);
        PlatformControl::MapPort("COM1", &Port);
        using Equipment::FarEnd;
        Port.Machine.config.destinations = {{"4750", {FarEnd::Answers, 300, ""}}, {"4759", {FarEnd::Busy, 300, ""}}};
        TraceMask = 0;
        DllMain(nullptr, DLL_PROCESS_ATTACH, nullptr);
        ASSERT_EQ(RegWriteSetting("Provider", "Port", "COM1"), 1);
        TraceMask = 0xFF;
    }
    void TearDown() override {
        DllMain(nullptr, DLL_PROCESS_DETACH, nullptr);
        PlatformControl::MapPort("COM1", nullptr);
    }
    void Run(unsigned seed, DWORD pause, std::function<void(Application&)> call) {
        Running.emplace_back([this, seed, pause, call] {
            Application application{std::minstd_rand(seed)};
            while (WaitForSingleObject(Over, pause) == WAIT_TIMEOUT) {
                call(application);
                TheLedger.Count("entry point");
            }
        });
    }
    void RunAll(const Calls& calls, unsigned seed) {
        Run(seed, BUSY_MS, [&calls](Application& a) { calls[a.Any(static_cast<unsigned>(calls.size()))](a); });
    }
    void StartApplications(unsigned seed) {
        Over = CreateEventA(nullptr, TRUE, FALSE, nullptr);
        for (const unsigned more : {0u, 1u})
            Run(seed + more, BUSY_MS, [](Application& a) {
                const DRV_REQUESTID request = TheLedger.Ask();
                TheLedger.Answer(request, LineRequests[a.Any(static_cast<unsigned>(LineRequests.size()))](a, request));
            });
        RunAll(LineQueries, seed + 2);
        RunAll(PhoneCalls, seed + 3);
        Run(seed + 4, SET_MS, [this](Application& a) {
            Equipment::Execute(Port.Machine, SetEvents[a.Any(static_cast<unsigned>(SetEvents.size()))],
                               PlatformControl::Now());
        });
    }
    void EndApplications() {
        SetEvent(Over);
        for (std::thread& thread : Running)
            thread.join();
        Running.clear();
        CloseHandle(Over);
    }
    void Set(const std::string& command) {
        EXPECT_EQ(Equipment::Execute(Port.Machine, command, PlatformControl::Now()), "");
    }
    static void Init() {
        DWORD lines = 0, phones = 0, options = 0;
        EXPECT_EQ(TSPI_providerEnumDevices(PROVIDER_ID, &lines, &phones, nullptr, nullptr, nullptr), 0);
        EXPECT_EQ(TSPI_providerInit(0x20000, PROVIDER_ID, LINE_BASE, PHONE_BASE, 1, 1, TakeCompletion, &options), 0);
        EXPECT_EQ(TSPI_lineNegotiateExtVersion(LINE_BASE, 0x20000, 0, 0, &options), 0);
    }
    static LONG OpenLine() {
        HDRVLINE line = nullptr;
        return TSPI_lineOpen(LINE_BASE, reinterpret_cast<HTAPILINE>(std::uintptr_t{0x11}), &line, 0x20000, TakeLine);
    }
    static LONG OpenPhone() {
        HDRVPHONE phone = nullptr;
        return TSPI_phoneOpen(PHONE_BASE, reinterpret_cast<HTAPIPHONE>(std::uintptr_t{0x22}), &phone, 0x20000,
                              TakePhone);
    }
    static void AwaitConfiguration() {
        bool known = false;
        for (int i = 0; i < 600 && !known; ++i) {
            WaitForSingleObject(Process.SerialThread, 100);
            WaitLineMutex();
            known = Tick.ConfigReceived;
            ReleaseLineMutex(0);
        }
        EXPECT_TRUE(known);
    }
    // Every box that was shown, and the end of the trace.
    static std::string Told() {
        std::string told;
        for (const PlatformControl::Box& box : PlatformControl::Boxes())
            told += box.Text + "\n";
        std::ifstream trace(PlatformControl::PosixPath("C:\\WINDOWS\\spitrace\\tsptrac0.tr"), std::ios::binary);
        const std::string whole{std::istreambuf_iterator<char>(trace), {}};
        return told + whole.substr(whole.size() - std::min<std::size_t>(whole.size(), 4000));
    }
    static void LetRun() { EXPECT_TRUE(TheLedger.Await("entry point", 100)); }
};

TEST_F(Threads, OfApplicationsServiceAndSetBreakNothingTogether) {
    for (const unsigned life : {1u, 2u}) {
        Init();
        ASSERT_EQ(OpenLine(), 0);
        ASSERT_TRUE(TheLedger.Await("INSERVICE"));
        AwaitConfiguration();  // a set that is lost before it is known stops the provider
        StartApplications(life * 10);
        LetRun();
        // Contact is lost, by the cable and by an adapter that is pulled out.
        if (life == 1)
            Set("silence on");
        else
            PlatformControl::PullOut("COM1", 22);
        EXPECT_TRUE(TheLedger.Await("CLOSE"));
        LetRun();
        if (life == 1)
            Set("silence off");
        else
            PlatformControl::PutBack("COM1");
        EXPECT_TRUE(TheLedger.Await("INSERVICE")) << Told();
        LetRun();
        // Line and phone are opened and closed under the applications' hands; their requests start the thread as well.
        for (int i = 0; i < 3; ++i) {
            EXPECT_EQ(TSPI_lineClose(Line), 0);
            LetRun();
            EXPECT_EQ(OpenLine(), 0);
            LetRun();
            EXPECT_EQ(OpenPhone(), 0);
            LetRun();
            EXPECT_EQ(TSPI_phoneClose(Phone), 0);
            EXPECT_EQ(OpenLine(), 0);
            LetRun();
        }
        EndApplications();
        TSPI_providerShutdown(0x20000, PROVIDER_ID);
        EXPECT_EQ(PlatformControl::Port("COM1").Opens, PlatformControl::Port("COM1").Closes);
        EXPECT_EQ(TheLedger.Faults(), "");
    }
    for (const char* what : {"accepted", "succeeded", "call state", "phone state"})
        EXPECT_GT(TheLedger.Counted(what), 10) << what;
    EXPECT_GE(PlatformControl::Boxes().size(), 2u);
}

}  // namespace
