// The configuration dialogue with the PBX: what the set's keys are, their labels, the texts and soft-key labels that the
// set shows, the service codes. One request, one answer at a time; each handler sends the next request. Handlers take
// the sequence number (not used) and the message's payload, and run inside a tick under the line mutex.
#pragma once

#include "tracking/model.h"

#include <cstdint>
#include <span>

struct SetConfigState {
    int nb_of_info_rcvd = 0;  // entries received for the running information request
    int MultiAnnounced = -1;  // -1 until KEY_ACK
    int SupervAnnounced = 0, PatronAnnounced = 0, SecretaireAnnounced = 0, SecrDebordAnnounced = 0;
    int StringsAnnounced = 0, SoftKeysAnnounced = 0, CodesAnnounced = 0;
    std::array<std::int32_t, KEY_COUNT> RcvKind{};
    KeyListSet RcvKeyLists;
    bool StringsChanged = false, SoftKeysChanged = false;
};
extern SetConfigState SetConfig;
extern bool LanguageChanged;  // set at the first DEVICE_ASSOC_ACK of a link

// Back to the start of the dialogue; DeviceAssocAck of the tick goes with it.
void ResetSetConfig();

void HandleDeviceAssocAck(std::uint8_t sequence, std::span<const std::uint8_t> payload);
void HandleKeyAck(std::uint8_t sequence, std::span<const std::uint8_t> payload);
void HandleKeyInfoAck(std::uint8_t sequence, std::span<const std::uint8_t> payload);
void HandleKeySpeAck(std::uint8_t sequence, std::span<const std::uint8_t> payload);
void HandleKeySpeInfoAck(std::uint8_t sequence, std::span<const std::uint8_t> payload);
void HandleStringAck(std::uint8_t sequence, std::span<const std::uint8_t> payload);
void HandleStringInfoAck(std::uint8_t sequence, std::span<const std::uint8_t> payload);
void HandleSkAck(std::uint8_t sequence, std::span<const std::uint8_t> payload);
void HandleSkInfoAck(std::uint8_t sequence, std::span<const std::uint8_t> payload);
void HandleCodeAck(std::uint8_t sequence, std::span<const std::uint8_t> payload);
void HandleCodeInfoAck(std::uint8_t sequence, std::span<const std::uint8_t> payload);

// Each writes its sections of the registry (and, for keys, the INI file); failures are traced at level 0.
void SaveMultiKeys();
void SaveSpecialKeys();
void SaveStrings();
void SaveSoftKeys();
void SaveCodes();
void SaveLanguage();
// The PBX's language code of SetConfig\Language, or -1 when none is stored.
int ReadLanguage();
// Writes Dynamic_Set_Conf\LastAction.
void RecordLastAction(const char* text);
// Reads Dynamic_Set_Conf\LastAction and sets DynamicConfig from it.
void ReadLastAction();
