// What lives how long: the records that start anew, in one place. Each stands in one list only, so that a new marker is put
// into one of them and is reset wherever that is due.
//
//   with the library           Process, Settings, Display, TraceLog, LastHeldCref, dialled digits, conference texts
//   with ProviderState         the model: calls, keys, lists             ResetModel
//   with each serial thread    the link, the tick, the modules           ResetThreadState
//   with both                  what names calls and keys of either       (the markers)
//   with each link start       the configuration dialogue                ResetSetConfig
#pragma once

// The model starts anew with ProviderState, and with it all that names one of its calls or keys: a tick of a thread that
// runs for the other device must not report a call whose record is empty now.
void ResetModel();

// Start of a serial thread.
void ResetThreadState();
