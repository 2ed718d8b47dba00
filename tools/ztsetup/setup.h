// ztsetup's decisions and words: what is done for which command, and what the user is told. Makes no call to Windows but
// those of system.h.
#pragma once

#include "ztsetup/system.h"

namespace Setup {

enum ExitCode {
    EXIT_DONE = 0,
    EXIT_FAILED = 1,
    EXIT_USAGE = 2,
    EXIT_RIGHTS = 3,
    EXIT_LIBRARY = 4,
    EXIT_NOTHING = 5,
    EXIT_SERVICE = 6,
    EXIT_ACCOUNT = 8,  // 7 is the installer's
};

struct Outcome {
    ExitCode code = EXIT_DONE;
    Message message;  // lines, each ended
};

// A LINEERR_ code by name and in words, on a line of its own.
void AddTapiWords(Message& message, std::uint32_t code);
// `what` failed with this code.
Outcome TapiFailure(std::string_view what, std::uint32_t code);

Outcome Run(std::span<const std::string_view> words);  // the command line without the program's name

// The machine code in a program's header, 0 where the bytes are no dynamic library's.
std::uint16_t LibraryMachine(std::span<const std::uint8_t> head);

// Whether these entries of one account, in their order, give it `wanted`, with at least its inheritance.
bool Grants(const EntryList& list, const AccessEntry& wanted);

}  // namespace Setup
