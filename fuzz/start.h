// What every fuzz target stands on: the provider's records at their start values, and for all but one line and phone "open"
// with callbacks that only take what they are given, a port that swallows what is written, and no thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

// Every record back to its start. Cheap enough for each input.
void FuzzStart();
// The same with nothing open, not even the port, and no settings stored: what the entry points open themselves.
void FuzzStartClosed();

// A set as a configuration would leave it: two line keys, one key of each other kind, labels, texts, two modules.
void FuzzConfigureSet();

// The next input finds the platform as the first one does.
void FuzzRestart();

// While corpora are replayed everything is traced, and what a target gave is noted: results, events, structures.
extern bool FuzzReplays;
extern std::string FuzzNotes;
// A line of it; nothing while the fuzzer runs.
template <class... Numbers> void FuzzNote(const char* what, Numbers... numbers) {
    if (FuzzReplays) {
        FuzzNotes += what;
        ((FuzzNotes += ' ' + std::to_string(numbers)), ...);
        FuzzNotes += '\n';
    }
}

// Reads an input piece by piece; an input that has run out gives zeros and empty pieces.
class FuzzInput {
public:
    FuzzInput(const std::uint8_t* data, std::size_t size) : left(data, size) {}

    bool Empty() const { return left.empty(); }
    std::uint8_t Byte() {
        const auto piece = Take(1);
        return piece.empty() ? std::uint8_t{0} : piece[0];
    }
    // At most `count` bytes.
    std::span<const std::uint8_t> Take(std::size_t count) {
        const auto piece = left.first(count < left.size() ? count : left.size());
        left = left.subspan(piece.size());
        return piece;
    }
    // A length byte and that many bytes.
    std::span<const std::uint8_t> Counted() { return Take(Byte()); }

private:
    std::span<const std::uint8_t> left;
};

// Notes every setting, key and list of the set's configuration.
void FuzzNoteConfiguration();

// What holds of the key lists, as used and as received, and of the calls that wait for their caller.
void FuzzCheckKeys();

// Nothing is stored any more of the provider's settings.
void FuzzEmptyRegistry();

// Ends the process with a message when a condition that must hold does not.
void FuzzRequire(bool condition, const char* what);

// The targets. A fuzzer takes one, tests/corpus_test.cpp all but the page's, which tests/web_test.cpp takes.
int FuzzReceive(const std::uint8_t* data, std::size_t size);
int FuzzOmna(const std::uint8_t* data, std::size_t size);
int FuzzStoredConfig(const std::uint8_t* data, std::size_t size);
int FuzzDialogData(const std::uint8_t* data, std::size_t size);
int FuzzWhole(const std::uint8_t* data, std::size_t size);
int FuzzPage(const std::uint8_t* data, std::size_t size);
