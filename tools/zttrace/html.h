// A trace as one page in one file that opens anywhere, offline: what went wrong, a sequence chart, the calls along a time
// line, and the set as it looked at any moment.
#pragma once

#include "zttrace/story.h"

#include <ostream>
#include <string>

namespace TraceReader {

// `title` names the trace. Nothing of the trace becomes markup, whatever bytes it holds.
void WriteHtml(std::ostream& out, const Story& story, const std::string& title);

}  // namespace TraceReader
