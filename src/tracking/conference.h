// Soft keys that the user presses during a double call, and the conference: how it is built, broken and ended.
// Each step below is called at the named place of the icon machine or of the display interpretation.
#pragma once

// The user pressed soft key 1 (end the second call), 2 (swap) or 3 (conference).
void SoftKeyPressed(int number);

// A held or re-offered call turned active on a key while another key is active: both are joined.
void ConferenceByIcon(int cref, int key);
// The transfer label is shown while a conference request is under way on one line.
void ConferenceByDisplay();
// The conference label stands on line 0: keeps the two parties' texts.
void ConferenceCapture();
// The second-call label is shown while both calls of the active key are conferenced.
void ConferenceBroken();
// A complete update of line 0 after a broken conference. Gives true when it has handled the line.
bool ConferenceWhoLeft();
// A complete update of line 0 after the user asked for the end of the conference.
void ConferenceEndRequested();
// A key with a conferenced call in this slot (0 or 1) went out.
void ConferenceEndOnKey(int key, int slot);
