// "ztsetup trace" and "ztsetup report": what a report of a fault takes.
#pragma once

#include "ztsetup/setup.h"

namespace Setup {

// Has the registry tell the provider to trace everything, or its default, which is only what is always traced.
Outcome SetTrace(bool on);

// Writes an archive (tar) with the trace, the settings and what is known of this Windows. `mask`: the digits of telephone
// numbers are replaced, in texts by x, in dumps by 0. A file that is there already stays as it is.
Outcome WriteReport(std::string_view file, bool mask);

// Replaces them in the text of a trace file, or in lines "name=value" of settings. The text keeps its length.
void MaskTrace(std::span<char> text);
void MaskSettings(std::span<char> text);

}  // namespace Setup
