// What the provider told TAPI, in the names that TAPI has for it.
#pragma once

#include <string>

namespace TraceReader {

// "" when the text is no line event, or one whose numbers need no names.
std::string EventWords(const std::string& text);

}  // namespace TraceReader
