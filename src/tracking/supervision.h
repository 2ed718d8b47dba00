// Supervision keys: a supervised colleague's ringing line is offered as a call of this line and can be intercepted.
#pragma once

// An icon change of a TOUCH_SUPERV key. icon: an IconCode; key: 1 to 88.
void SupervIcon(int icon, int key);

// The user pressed a programmable key; acts on supervision keys that ring.
void SupervKeyPressed(int key);
