#include "tsphost/words.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

namespace Tsphost {

namespace {

struct CallParam {
    const char* name;
    std::size_t offset;
    const Names* names;  // null: a number
};

constexpr CallParam CallParamTable[] = {
    {"bearer", offsetof(LINECALLPARAMS, dwBearerMode), &BearerModes},
    {"minrate", offsetof(LINECALLPARAMS, dwMinRate), nullptr},
    {"maxrate", offsetof(LINECALLPARAMS, dwMaxRate), nullptr},
    {"media", offsetof(LINECALLPARAMS, dwMediaMode), &MediaModes},
    {"flags", offsetof(LINECALLPARAMS, dwCallParamFlags), &CallParamFlags},
    {"addressmode", offsetof(LINECALLPARAMS, dwAddressMode), &AddressModes},
    {"addressid", offsetof(LINECALLPARAMS, dwAddressID), nullptr},
    {"pause", offsetof(LINECALLPARAMS, DialParams.dwDialPause), nullptr},
    {"speed", offsetof(LINECALLPARAMS, DialParams.dwDialSpeed), nullptr},
    {"duration", offsetof(LINECALLPARAMS, DialParams.dwDigitDuration), nullptr},
    {"dialtone", offsetof(LINECALLPARAMS, DialParams.dwWaitForDialtone), nullptr},
};

std::string Quoted(const std::string& text) {
    return '"' + text + '"';
}

std::string FirstNames(Names names) {
    std::string out;
    for (const NamedValue& named : names.first(std::min<std::size_t>(names.size(), 4)))
        out += (out.empty() ? "" : ", ") + std::string(named.name);
    return names.size() > 4 ? out + ", ..." : out;
}

DWORD FlagsFrom(const std::string& word, Names names) {
    DWORD value = 0;
    if (!FlagsValue(word, names, value))
        throw Unusable{Quoted(word) + " is neither a number nor one of " + FirstNames(names)};
    return value;
}

DWORD NumberFrom(const std::string& word) {
    DWORD value = 0;
    if (!ParseNumber(word, value))
        throw Unusable{Quoted(word) + " is not a number"};
    return value;
}

void SetParam(CallParams& params, const std::string& name, const std::string& value) {
    if (name == "country") {
        params.Country = NumberFrom(value);
        return;
    }
    const auto* const row = std::find_if(std::begin(CallParamTable), std::end(CallParamTable),
                                         [&](const CallParam& param) { return name == param.name; });
    if (row == std::end(CallParamTable))
        throw Unusable{Quoted(name) + " is no call parameter; there are " + CallParamNames()};
    const DWORD number = row->names != nullptr ? FlagsFrom(value, *row->names) : NumberFrom(value);
    std::memcpy(reinterpret_cast<char*>(&params.Values) + row->offset, &number, sizeof number);
    params.Given = true;
}

}  // namespace

Words SplitWords(const std::string& line) {
    Words words;
    bool inWord = false, quoted = false;
    for (const char c : line) {
        if (c == '"') {
            quoted = !quoted;
        } else if (!quoted && std::strchr(" \t\r", c) != nullptr) {
            inWord = false;
            continue;
        }
        if (!inWord)
            words.emplace_back();
        inWord = true;
        if (c != '"')
            words.back() += c;
    }
    if (quoted)
        throw Unusable{"a closing \" is missing"};
    return words;
}

ArgumentCount CountArguments(std::string_view description) {
    ArgumentCount count;
    int depth = 0;
    bool inWord = false;
    for (const char c : description) {
        depth += (c == '[') - (c == ']');
        const bool letter = std::strchr("[] ", c) == nullptr;
        if (letter && !inWord) {
            ++count.Most;
            count.Least += depth == 0;
        }
        inWord = letter;
    }
    if (description.find("...") != std::string_view::npos)
        count.Most = SIZE_MAX;
    return count;
}

DWORD NumberAt(const Words& words, std::size_t at, std::optional<DWORD> otherwise) {
    return at >= words.size() && otherwise ? *otherwise : NumberFrom(words.at(at));
}

DWORD FlagsAt(const Words& words, std::size_t at, Names names, std::optional<DWORD> otherwise) {
    return at >= words.size() && otherwise ? *otherwise : FlagsFrom(words.at(at), names);
}

LONG ResultAt(const Words& words, std::size_t at) {
    LONG result = 0;
    if (!ResultValue(words.at(at), result))
        throw Unusable{Quoted(words[at]) + " is no result: a number, or a name like LINEERR_OPERATIONFAILED"};
    return result;
}

std::uint32_t TakeTime(Words& words, std::uint32_t otherwise) {
    constexpr std::uint32_t LONGEST_S = 1'000'000;
    const std::string last = words.empty() ? std::string() : words.back();
    const bool inMs = last.ends_with("ms");
    DWORD time = 0;
    if (!last.ends_with("s") || !ParseNumber(last.substr(0, last.size() - (inMs ? 2 : 1)), time))
        return otherwise;
    words.pop_back();
    return inMs ? time : std::min<std::uint32_t>(time, LONGEST_S) * 1000;
}

WideArgument TextAt(const Words& words, std::size_t at) {
    if (at >= words.size() || words[at] == "null")
        return {};
    return {ToWide(words[at])};
}

CallParams CallParamsFrom(const Words& words, std::size_t at) {
    CallParams params;
    params.Values.dwTotalSize = sizeof(LINECALLPARAMS);
    params.Values.dwBearerMode = LINEBEARERMODE_VOICE;
    params.Values.dwMediaMode = LINEMEDIAMODE_INTERACTIVEVOICE;
    for (; at < words.size(); ++at) {
        const std::size_t sign = words[at].find('=');
        if (words[at] == "params")
            params.Given = true;
        else if (sign == std::string::npos)
            throw Unusable{Quoted(words[at]) + " is not NAME=VALUE"};
        else
            SetParam(params, words[at].substr(0, sign), words[at].substr(sign + 1));
    }
    return params;
}

std::string CallParamNames() {
    std::string names = "country";
    for (const CallParam& param : CallParamTable)
        names += std::string(", ") + param.name;
    return names;
}

std::vector<DWORD> ForwardList(DWORD mode, const WideString& destination) {
    const std::size_t bytes = destination.size() * 2 + 2;
    std::vector<DWORD> room((sizeof(LINEFORWARDLIST) + bytes + 3) / 4);
    auto& list = *reinterpret_cast<LINEFORWARDLIST*>(room.data());
    list.dwTotalSize = static_cast<DWORD>(room.size() * 4);
    list.dwNumEntries = 1;
    list.ForwardList[0].dwForwardMode = mode;
    list.ForwardList[0].dwDestAddressSize = static_cast<DWORD>(bytes);
    list.ForwardList[0].dwDestAddressOffset = sizeof(LINEFORWARDLIST);
    std::memcpy(reinterpret_cast<char*>(room.data()) + sizeof(LINEFORWARDLIST), destination.c_str(), bytes);
    return room;
}

}  // namespace Tsphost
