#include "config/set/set_config.h"

#include "config/set/key_kinds.h"
#include "config/settings.h"
#include "link/keys.h"
#include "link/link_layer.h"
#include "link/omna.h"
#include "link/payload.h"
#include "link/tick.h"
#include "platform/copy_text.h"
#include "platform/text.h"
#include "provider/event_log.h"
#include "trace/trace.h"
#include "tracking/events.h"
#include "tracking/steps.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <utility>

SetConfigState SetConfig;
bool LanguageChanged = false;

namespace {

using Bytes = std::span<const std::uint8_t>;
using Cursor = PayloadCursor;

constexpr std::size_t PAYLOAD_TEXT = 256;  // the longest counted text, terminated

std::uint8_t FirstByte(Bytes payload) {
    return payload.empty() ? std::uint8_t{0} : payload[0];
}

void Request(OmnaCode code) {
    SendOmnaRequest(code, {});
}

// Asks for the entries from the first one not received yet.
void RequestInfo(OmnaCode code) {
    const std::uint8_t from[] = {static_cast<std::uint8_t>(SetConfig.nb_of_info_rcvd)};
    SendOmnaRequest(code, from);
}

bool StoredBefore() {
    return DynamicConfig.LastActionState != 0;
}

// Whether an entry's key is one of the set's. Key 0 is none, though the tables have a place for it.
bool IsKeyNumber(int key) {
    return key != 0 && IsKey(key);
}

void TraceCutEntry(const char* what, int index) {
    Trace(TRACE_ALWAYS, "%s: entry %d runs past its message - dropped", what, index);
}

// How many texts there are. Where there are none the dialogue stops: the PBX has to say more.
void TakeAnnounced(Bytes payload, int& announced, const char* trace, OmnaCode info) {
    announced = FirstByte(payload);
    Trace(TRACE_CONFIG, trace, announced);
    if (announced > 0)
        RequestInfo(info);
}

// Counts the entries of an information message in; true when all announced ones are there, which ends this reading.
bool AllReceived(const char* trace, int included, int announced) {
    SetConfig.nb_of_info_rcvd += included;
    Trace(TRACE_CONFIG, trace, SetConfig.nb_of_info_rcvd, included);
    if (SetConfig.nb_of_info_rcvd != announced)
        return false;
    SetConfig.nb_of_info_rcvd = 0;
    return true;
}

// --- DEVICE_ASSOC_ACK ------------------------------------------------------------------------------------------------

// The directory number; true when it is a new one. One that runs past its message leaves the known one as it is.
bool TakeDirectoryNumber(Cursor& cursor) {
    const std::uint8_t length = cursor.Byte();
    char number[PAYLOAD_TEXT];
    cursor.Text(length, number);
    if (cursor.bad) {
        TraceCutEntry("DEVICE_ASSOC_ACK number", 0);
        return false;
    }
    number[sizeof Settings.SetMCDU - 1] = 0;  // as much as the field holds
    const bool changed = std::strcmp(number, Settings.SetMCDU) != 0;
    if (changed) {
        Trace(TRACE_CONFIG, "NEW MCDU '%s' old '%s' ", number, Settings.SetMCDU);
        CopyText(Settings.SetMCDU, number);
        RegWriteSetting(SECTION_SETCONFIG, "SetMCDU", Settings.SetMCDU);
        WritePrivateProfileStringA(SECTION_SETCONFIG, "SetMCDU", Settings.SetMCDU, INI_FILE);
    }
    Trace(TRACE_CONFIG, "Language: %d - mcdu:%s lg_mcdu %d", ProviderState.PbxLanguage, Settings.SetMCDU, length);
    return changed;
}

// The number behind its length and type. One that runs past its message leaves none: the status alone is known.
void TakeForwardDestination(Cursor& cursor) {
    const std::uint8_t length = cursor.Byte();
    const std::uint8_t type = cursor.Byte();
    char destination[PAYLOAD_TEXT];
    cursor.Text(length, destination);
    if (cursor.bad) {
        ProviderState.ForwardDestination[0] = 0;
        TraceCutEntry("DEVICE_ASSOC_ACK destination", 0);
        return;
    }
    CopyText(ProviderState.ForwardDestination, destination);
    Trace(TRACE_CONFIG, "Dest Fwd length %d typ %d Destaddr '%s'", length, type, ProviderState.ForwardDestination);
}

void TakeModules(Cursor& cursor) {
    AomTable = {};
    AomCount = 0;
    while (!cursor.left.empty()) {
        const std::uint8_t descriptor = cursor.Byte();
        if (descriptor == 0)
            break;
        const std::uint8_t offset = cursor.Byte();
        if (cursor.bad) {
            TraceCutEntry("DEVICE_ASSOC_ACK modules", AomCount);
            break;
        }
        if (AomCount == AOM_COUNT) {
            Trace(TRACE_ALWAYS, "aom adr %d offset %d - no room, skipped", descriptor & 7, offset);
            continue;
        }
        AomEntry& entry = AomTable[static_cast<std::size_t>(AomCount++)];
        entry.present = true;
        entry.adr = descriptor & 7;
        entry.aom20 = (descriptor & 0x10) != 0;
        entry.offset = offset;
        Trace(TRACE_CONFIG, "aom adr %d aom20 %d offset %d", entry.adr, entry.aom20, entry.offset);
    }
    SortAomModules();
}

// What versions 2 and more report beside the number.
void TakeSetState(Cursor& cursor) {
    const std::uint8_t type = cursor.Byte();
    const std::uint8_t mode = cursor.Byte();
    const std::uint8_t status = cursor.Byte();
    if (cursor.bad) {  // a message without all three reports none
        TraceCutEntry("DEVICE_ASSOC_ACK", 0);
        return;
    }
    const std::uint8_t before = std::exchange(ProviderState.FwdStatus, status);
    ProviderState.Dev_type = type;
    Settings.EnquiryCallMode = mode;
    if (Tracking.ForwardAckTicks != 0) {
        if (status != FWD_NOT_FORWARDED) {
            Trace(TRACE_CONFIG, "modif renv acquitee par Pbx: envoi RAC ");
            PressKeyCode(RELEASE_KEY);
        }
        Tracking.ForwardAckTicks = 0;
    }
    Trace(TRACE_CONFIG, "Dev_type 0x%02x multi mode %d Fwd status %d", ProviderState.Dev_type, Settings.EnquiryCallMode,
          status);
    if (status < FWD_NOT_FORWARDED) {
        TakeForwardDestination(cursor);
    } else if (status == FWD_NOT_FORWARDED) {
        ProviderState.ForwardDestination[0] = 0;
    }
    if (status != before)
        DoLineEvent(LINE_ADDRESSSTATE, 0, LINEADDRESSSTATE_FORWARD, -1);
    if (!cursor.bad)
        TakeModules(cursor);
}

// Version 1 tells none of this: the store does.
void ReadLocalSettings() {
    const bool found = ReadExtPrefix();
    Trace(TRACE_OMNA, found ? "ExtPrefix lu:-%s-" : "ExtPrefix non trouve default:-%s-", Settings.ExtPrefix);
    ReadExtPrefixDisp();
    Trace(TRACE_OMNA, "ExtPrefixDisp %d", Settings.ExtPrefixDisp);
    ReadEnquiryCallMode();
    Trace(TRACE_OMNA, "EnqCallMode %d", Settings.EnquiryCallMode);
    ReadMaxDigitLocal();
    Trace(TRACE_OMNA, "MaxDigitLocalCall %d", Settings.MaxDigitLocal);
}

// --- keys ------------------------------------------------------------------------------------------------------------

void TakeLabel(int key, const char* label) {
    CopyText(TouchOf(key).label, label);
}

void ClearKey(int key) {
    Touch& touch = TouchOf(key);
    touch.calls = {-1, -1};
    touch.icon = IDLE_ICON;
}

// The keys' kinds as received. A key that has lost its special kind leaves that kind's list: nothing would be pressed there.
void TakeKinds() {
    for (std::size_t key = 1; key < TouchTable.size(); ++key)
        TouchTable[key].kind = SetConfig.RcvKind[key];
    for (const KeyKind& kind : SpecialKinds) {
        KeyList& list = kind.ListOf(KeyLists);
        const auto known = std::exchange(list, KeyList(list.Room));
        for (const int key : known)
            if (TouchOf(key).kind == kind.Kind)
                list.Append(key);
    }
}

// Calls in progress survive a configuration that comes again.
bool ConfiguredBefore() {
    return StoredBefore() && KeyLists.Multi.Count > 0;
}

void UseMultiKeys() {
    const bool again = ConfiguredBefore();
    KeyLists.Multi = SetConfig.RcvKeyLists.Multi;
    if (!again) {
        std::size_t entry = 0;
        for (const int key : KeyLists.Multi) {
            ClearKey(key);
            WaitInfo[entry++] = -1;  // one for each key of the list, whose room is the same
        }
    }
    TakeKinds();
    SaveMultiKeys();
}

void UseSpecialKeys() {
    const bool again = ConfiguredBefore();
    for (const KeyKind& kind : SpecialKinds) {
        KeyList& list = kind.ListOf(KeyLists);
        list = kind.ListOf(SetConfig.RcvKeyLists);
        for (const int key : list)
            if (!again || TouchOf(key).kind != SetConfig.RcvKind[static_cast<std::size_t>(key)])
                ClearKey(key);
    }
    TakeKinds();
    SaveSpecialKeys();
}

void TakeMultiKey(int key, const char* label) {
    if (key >= KEY_COUNT) {
        Trace(TRACE_CONFIG, "TouchId:%d hors borne - non prise en compte", key);
        return;
    }
    if (!IsKeyNumber(key)) {
        Trace(TRACE_ALWAYS, "TouchId:%d - no key of the set, skipped", key);
        return;
    }
    if (!SetConfig.RcvKeyLists.Multi.Append(key)) {
        Trace(TRACE_ALWAYS, "TouchId:%d - no room in the list, skipped", key);
        return;
    }
    SetConfig.RcvKind[static_cast<std::size_t>(key)] = TOUCH_MULTI;
    TakeLabel(key, label);
    Trace(TRACE_CONFIG, "TouchId:%d - :%s", key, TouchOf(key).label);
}

void TakeSpecialKey(int key, int number, const char* label) {
    if (!IsKeyNumber(key)) {
        Trace(TRACE_ALWAYS, "tou spe %d - no key of the set, skipped", key);
        return;
    }
    const KeyKind* kind = SpecialKind(number);
    if (kind == nullptr) {
        Trace(TRACE_CONFIG, "tou spe %d genr_tou %d inconnu", key, number);
        return;
    }
    if (!kind->ListOf(SetConfig.RcvKeyLists).Append(key)) {
        Trace(TRACE_ALWAYS, "tou spe %d genr_tou %d - no room in the list, skipped", key, number);
        return;
    }
    SetConfig.RcvKind[static_cast<std::size_t>(key)] = number;
    TakeLabel(key, label);
    Trace(TRACE_CONFIG, kind->RcvTrace, key, TouchOf(key).label);
}

// One key into the registry and the INI file; false when a write fails.
bool SaveKey(int key, const char* code) {
    char name[8], data[LABEL_SIZE + 4];
    const TraceArgument number(key);
    FormatText(name, sizeof name, "T%02d", &number, 1);
    const TraceArgument parts[] = {code, TouchOf(key).label};
    FormatText(data, sizeof data, "%s%s", parts, 2);
    const bool stored = RegWriteSetting(SECTION_SET_DES, name, data) != 0;
    return WritePrivateProfileStringA(SECTION_SET_DES, name, data, INI_FILE) != 0 && stored;
}

// --- texts -----------------------------------------------------------------------------------------------------------

bool DiffersInFirst(const char* stored, const char* text, std::size_t count) {
    return std::strncmp(stored, text, count) != 0;
}

// Notes whether a table of texts is worth saving: always when nothing was stored, else from its first difference on. True
// at that difference.
bool NoteDifference(bool& changed, bool differs) {
    const bool first = !changed && differs && StoredBefore();
    changed = changed || differs || !StoredBefore();
    return first;
}

// Writes all values of a section anew; false when a write fails. A section that cannot be deleted has its own trace.
template <std::size_t N, std::size_t Size>
bool SaveSection(const char* section, const std::array<const char*, N>& names, const char (&texts)[N][Size]) {
    RegDeleteSection(section);
    bool saved = true;
    for (std::size_t i = 0; i < N; ++i)
        saved = RegWriteSetting(section, names[i], texts[i]) != 0 && saved;
    return saved;
}

// The entries of an information message of texts: identifier, length, text. `take` gets each whole one.
template <class Take> int TakeTexts(Bytes payload, const char* what, Take take) {
    Cursor cursor{payload};
    const int count = cursor.Byte();
    for (int i = 0; i < count; ++i) {
        const int identifier = cursor.Byte();
        const std::size_t length = cursor.Byte();
        char text[PAYLOAD_TEXT];
        cursor.Text(length, text);
        if (cursor.bad) {
            TraceCutEntry(what, i);
            break;
        }
        take(identifier, text, length);
    }
    return count;
}

// --- language --------------------------------------------------------------------------------------------------------

struct LanguageEntry {
    std::uint8_t code;  // the PBX's
    const char* text;
};
constexpr LanguageEntry Languages[] = {
    {1, "0: French"}, {2, "1: English"}, {4, "2: German"}, {5, "3: Spanish"}, {6, "4: Italian"}};

}  // namespace

void ResetSetConfig() {
    SetConfig = SetConfigState{};
    Tick.DeviceAssocAck = false;
}

void HandleDeviceAssocAck(std::uint8_t, Bytes payload) {
    Cursor cursor{payload};
    cursor.Byte();  // not used
    const std::uint8_t language = cursor.Byte();
    if (!cursor.bad)
        ProviderState.PbxLanguage = language;
    const bool numberChanged = TakeDirectoryNumber(cursor);
    if (ProviderState.TAPI_OMNA_Ver >= 2 && !cursor.bad)
        TakeSetState(cursor);
    if (Tick.DeviceAssocAck)
        return;
    Tick.DeviceAssocAck = true;
    if (ProviderState.TAPI_OMNA_Ver <= 1 || ProviderState.Dev_type == DEV_TYPE_KB2)
        Request(OMNA_KEY);
    else
        Trace(TRACE_ALWAYS, "Recup conf Dynamique - Poste non KB2 (ZT 7120)");
    LanguageChanged = ReadLanguage() != ProviderState.PbxLanguage;
    if (LanguageChanged)
        Trace(TRACE_CONFIG, "Langue PABX différente"_cp1252);
    if (ProviderState.TAPI_OMNA_Ver == 1 || ProviderState.ProtocolLevel == 1)
        ReadLocalSettings();
    if (StoredBefore() && !numberChanged)
        Tick.ConfigUsable = true;
    ProviderState.DeviceState = DEVICE_IN_SERVICE;
    DoLineEvent(LINE_LINEDEVSTATE, LINEDEVSTATE_CONNECTED | LINEDEVSTATE_INSERVICE, 0, -1);
    LogEvent(EVENT_LINE_IN_SERVICE, ProviderState.PortName);
}

void HandleKeyAck(std::uint8_t, Bytes payload) {
    SetConfig.RcvKeyLists.Multi.Count = 0;
    SetConfig.MultiAnnounced = FirstByte(payload);
    if (SetConfig.MultiAnnounced > 0) {
        Trace(TRACE_CONFIG, "Nbre multi touch:%d", SetConfig.MultiAnnounced);
        RequestInfo(OMNA_KEY_INFO);
    } else {
        Trace(TRACE_ALWAYS, "Recup conf Dynamique - Poste non Multiligne");
        Request(OMNA_END_OF_CONFIG);
    }
}

void HandleKeyInfoAck(std::uint8_t, Bytes payload) {
    Cursor cursor{payload};
    const int count = cursor.Byte();
    for (int i = 0; i < count; ++i) {
        const int key = cursor.Byte();
        char label[PAYLOAD_TEXT];
        cursor.Text(cursor.Byte(), label);
        if (cursor.bad) {
            TraceCutEntry("KEY_INFO_ACK", i);
            break;
        }
        TakeMultiKey(key, label);
        if (!cursor.left.empty())
            cursor.Byte();  // not read
    }
    if (!AllReceived(" nb_of_info_rcvd:%d - nb_touch_include:%d ", count, SetConfig.MultiAnnounced)) {
        RequestInfo(OMNA_KEY_INFO);
        return;
    }
    Request(ProviderState.TAPI_OMNA_Ver >= 3 ? OMNA_KEY_SPE : OMNA_STRING);
    UseMultiKeys();
}

void HandleKeySpeAck(std::uint8_t, Bytes payload) {
    Cursor cursor{payload};
    SetConfig.SupervAnnounced = cursor.Byte();
    SetConfig.PatronAnnounced = cursor.Byte();
    SetConfig.SecretaireAnnounced = cursor.Byte();
    SetConfig.SecrDebordAnnounced = cursor.Byte();
    for (const KeyKind& kind : SpecialKinds)
        kind.ListOf(SetConfig.RcvKeyLists).Count = 0;
    if (SetConfig.SupervAnnounced + SetConfig.PatronAnnounced + SetConfig.SecretaireAnnounced +
            SetConfig.SecrDebordAnnounced ==
        0) {
        SetConfig.nb_of_info_rcvd = 0;
        Request(OMNA_STRING);
        return;
    }
    Trace(TRACE_CONFIG, "Nbre touch Superv     :%d", SetConfig.SupervAnnounced);
    Trace(TRACE_CONFIG, "Nbre touch Patron     :%d", SetConfig.PatronAnnounced);
    Trace(TRACE_CONFIG, "Nbre touch Secretaire :%d", SetConfig.SecretaireAnnounced);
    Trace(TRACE_CONFIG, "Nbre touch Sec Debord :%d", SetConfig.SecrDebordAnnounced);
    RequestInfo(OMNA_KEY_SPE_INFO);
}

void HandleKeySpeInfoAck(std::uint8_t, Bytes payload) {
    Cursor cursor{payload};
    const int count = cursor.Byte();
    for (int i = 0; i < count; ++i) {
        const int key = cursor.Byte();
        const int kind = cursor.Byte();
        char label[PAYLOAD_TEXT];
        cursor.Text(cursor.Byte(), label);
        if (cursor.bad) {
            TraceCutEntry("KEY_SPE_INFO_ACK", i);
            break;
        }
        TakeSpecialKey(key, kind, label);
    }
    const int announced = SetConfig.SupervAnnounced + SetConfig.PatronAnnounced + SetConfig.SecretaireAnnounced +
                          SetConfig.SecrDebordAnnounced;
    if (!AllReceived(" nb_of_info_rcvd:%d - nb_touch_include:%d ", count, announced)) {
        RequestInfo(OMNA_KEY_SPE_INFO);
        return;
    }
    Request(OMNA_STRING);
    UseSpecialKeys();
}

void HandleStringAck(std::uint8_t, Bytes payload) {
    TakeAnnounced(payload, SetConfig.StringsAnnounced, "nb_string: %d", OMNA_STRING_INFO);
}

void HandleStringInfoAck(std::uint8_t, Bytes payload) {
    const int count = TakeTexts(payload, "STRING_INFO_ACK", [](int identifier, char* text, std::size_t length) {
        if (identifier > MAX_TA_STRING) {
            Trace(TRACE_ALWAYS, "Reception d'une string d'ID > MAX_TA_STRING");
            return;
        }
        auto& entry = Settings.DisplayStrings[identifier];
        const char* label = CleanLabel(text);
        NoteDifference(SetConfig.StringsChanged, DiffersInFirst(entry, label, std::min(length, sizeof entry - 1)));
        CopyText(entry, label);
        Trace(TRACE_CONFIG, "StringId:%d - %s", identifier, entry);
    });
    if (!AllReceived(" nb_of_info_rcvd:%d - nb_string_include:%d ", count, SetConfig.StringsAnnounced)) {
        RequestInfo(OMNA_STRING_INFO);
        return;
    }
    Request(OMNA_SK);
}

void HandleSkAck(std::uint8_t, Bytes payload) {
    TakeAnnounced(payload, SetConfig.SoftKeysAnnounced, "nb_sk: %d", OMNA_SK_INFO);
}

void HandleSkInfoAck(std::uint8_t, Bytes payload) {
    const int count = TakeTexts(payload, "SK_INFO_ACK", [](int identifier, char* text, std::size_t length) {
        if (identifier > MAX_TA_SK) {
            Trace(TRACE_ALWAYS, "Reception d'une SK d'ID > MAX_TA_SK");
            return;
        }
        auto& entry = Settings.SoftKeyLabels[identifier];
        const char* label = CleanLabel(text);
        if (NoteDifference(SetConfig.SoftKeysChanged, DiffersInFirst(entry, label, std::min(length, sizeof entry - 1))))
            Trace(TRACE_CONFIG, "DIFF SkId:%d '%s'->'%s'", identifier, entry, label);
        CopyText(entry, label);
        Trace(TRACE_CONFIG, "SkId:%d - '%s'", identifier, entry);
    });
    if (!AllReceived(" nb_of_info_rcvd:%d - nb_sk_include:%d ", count, SetConfig.SoftKeysAnnounced)) {
        RequestInfo(OMNA_SK_INFO);
        return;
    }
    Request(OMNA_CODE);
    DynamicConfig.WaitDynamicConfig = 0;
    DynamicConfig.StaticConfig = 0;
    Tick.ConfigUsable = true;
    // Nothing is to be loaded over it. Where the stored one counts as none, after some failed starts, no tick would ever
    // clear this, and a call that was put off waits for it.
    Tick.InitDataPending = false;
    if (LanguageChanged)
        SaveLanguage();
    if (SetConfig.SoftKeysChanged) {
        Trace(TRACE_CONFIG, "Sk sauvegardé ini - diff"_cp1252);
        SaveSoftKeys();
    } else {
        Trace(TRACE_CONFIG, "Sk non sauvegardé ini - idem"_cp1252);
    }
    if (SetConfig.StringsChanged) {
        SaveStrings();
        Trace(TRACE_CONFIG, "String sauvegardé ini - diff"_cp1252);
    } else {
        Trace(TRACE_CONFIG, "String non sauvegardé ini - idem"_cp1252);
    }
}

void HandleCodeAck(std::uint8_t, Bytes payload) {
    TakeAnnounced(payload, SetConfig.CodesAnnounced, "nb_code: %d", OMNA_CODE_INFO);
}

void HandleCodeInfoAck(std::uint8_t, Bytes payload) {
    bool changed = false;
    const int count = TakeTexts(payload, "CODE_INFO_ACK", [&](int identifier, const char* text, std::size_t length) {
        if (identifier > MAX_TA_CODE) {
            Trace(TRACE_ALWAYS, "Reception d'un code d'ID (%d) > MAX_TA_CODE (%d)", identifier, MAX_TA_CODE);
            return;
        }
        auto& entry = Settings.ServiceCodes[identifier];
        if (DiffersInFirst(entry, text, std::min(length, sizeof entry - 1))) {
            CopyText(entry, text);
            changed = true;
        }
        Trace(TRACE_CONFIG, "CodeId:%d - %s", identifier, text);
    });
    if (AllReceived(" nb_of_info_rcvd:%d - nb_code_include:%d ", count, SetConfig.CodesAnnounced)) {
        Tick.ConfigReceived = true;
        Trace(TRACE_CONFIG, " Set Configuration processed - OK ******************");
        if (changed) {
            Trace(TRACE_CONFIG, " Sauvegarde codes dans fic ini");
            SaveCodes();
        }
    } else {
        RequestInfo(OMNA_CODE_INFO);
    }
    RecordLastAction("success");
}

void SaveMultiKeys() {
    RegDeleteSection(SECTION_SET_DES);
    WritePrivateProfileStringA(SECTION_SET_DES, nullptr, nullptr, INI_FILE);  // only writes count below
    bool saved = true;
    for (const int key : KeyLists.Multi)
        saved = SaveKey(key, MultiKind.Code) && saved;
    if (!saved)
        Trace(TRACE_ALWAYS, "Pb de sauvegarde config touch multi dans fichier ini");
}

void SaveSpecialKeys() {
    bool saved = true;
    for (const KeyKind& kind : SpecialKinds)
        for (const int key : kind.ListOf(KeyLists))
            saved = SaveKey(key, kind.Code) && saved;
    if (!saved)
        Trace(TRACE_ALWAYS, "Pb de sauvegarde config touch spe dans fichier ini");
}

void SaveStrings() {
    if (!SaveSection(SECTION_STRING_DES, StringNames, Settings.DisplayStrings))
        Trace(TRACE_ALWAYS, "Pb de sauvegarde config string dans fichier ini");
}

void SaveSoftKeys() {
    if (!SaveSection(SECTION_SOFTKEY_DES, SoftKeyNames, Settings.SoftKeyLabels))
        Trace(TRACE_ALWAYS, "Pb de sauvegarde config sk dans fichier ini");
}

void SaveCodes() {
    if (!SaveSection(SECTION_SERVICE_CODE, CodeNames, Settings.ServiceCodes))
        Trace(TRACE_ALWAYS, "Pb de sauvegarde config code dans fichier ini");
}

void SaveLanguage() {
    const auto* found = std::find_if(std::begin(Languages), std::end(Languages), [](const LanguageEntry& entry) {
        return entry.code == ProviderState.PbxLanguage;
    });
    const char* text = found == std::end(Languages) ? "Not listed" : found->text;
    if (RegWriteSetting(SECTION_SETCONFIG, "Language", text) == 0)
        Trace(TRACE_ALWAYS, "Pb sauvegarde langue dans fichier ini");
}

int ReadLanguage() {
    char text[20];
    RegReadSetting(SECTION_SETCONFIG, "Language", "", text);
    return text[0] >= '0' && text[0] <= '4' ? Languages[text[0] - '0'].code : -1;
}

void RecordLastAction(const char* text) {
    RegWriteSetting(SECTION_DYNAMIC, "LastAction", text);
}

void ReadLastAction() {
    char text[SETTING_SIZE];
    RegReadSetting(SECTION_DYNAMIC, "LastAction", "never", text);
    if (std::strstr(text, "never") != nullptr) {
        DynamicConfig.LastActionState = 0;
        DynamicConfig.WaitDynamicConfig = 1;
        if (!Link.TraceModeSeen)
            DynamicConfig.WaitTraceMode = 1;
        return;
    }
    DynamicConfig.LastActionState = std::strstr(text, "success") != nullptr ? 1 : 2;
    DynamicConfig.StaticConfig = 1;
    DynamicConfig.WaitDynamicConfig = 0;
}
