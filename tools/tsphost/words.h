// The words of a console line, and what they mean as arguments. What cannot be used is thrown as Unusable, so that a
// command never runs with half of its arguments.
#pragma once

#include "tsphost/names.h"
#include "tsphost/text.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Tsphost {

using Words = std::vector<std::string>;

struct Unusable {
    std::string Why;
};

// Words are parted by blanks; "..." keeps blanks together and makes an empty word possible.
Words SplitWords(const std::string& line);
// How many arguments a description like "CALL [MODE [TEXT]]" asks for at least and at most; "..." is any number.
struct ArgumentCount {
    std::size_t Least = 0, Most = 0;
};
ArgumentCount CountArguments(std::string_view description);

// The argument at a place; `otherwise` when there is none there.
DWORD NumberAt(const Words& words, std::size_t at, std::optional<DWORD> otherwise = {});
// A number or published names joined with '|'.
DWORD FlagsAt(const Words& words, std::size_t at, Names names, std::optional<DWORD> otherwise = {});
// The result of an entry point: a number or a published name.
LONG ResultAt(const Words& words, std::size_t at);
// "500ms" or "5s" at the end of the words is taken off; `otherwise` when there is none.
std::uint32_t TakeTime(Words& words, std::uint32_t otherwise);

// A wide text as an entry point wants it. No word, and the word null, are a null pointer.
struct WideArgument {
    std::optional<WideString> Text;
    const WCHAR* Pointer() const { return Text ? Text->c_str() : nullptr; }
    DWORD Bytes() const { return Text ? static_cast<DWORD>(Text->size() * 2 + 2) : 0; }
};
WideArgument TextAt(const Words& words, std::size_t at);

// NAME=VALUE words for the call parameters of a new call. "params" stands for the parameters as an application sets
// them first (voice, interactive voice, nothing else); without any word there are none.
struct CallParams {
    LINECALLPARAMS Values{};
    bool Given = false;
    DWORD Country = 0;
    LPLINECALLPARAMS Pointer() { return Given ? &Values : nullptr; }
};
CallParams CallParamsFrom(const Words& words, std::size_t at);
std::string CallParamNames();

// A forward list of one entry, its destination behind it.
std::vector<DWORD> ForwardList(DWORD mode, const WideString& destination);

}  // namespace Tsphost
