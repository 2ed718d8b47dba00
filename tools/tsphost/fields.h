// Published structures that the provider fills, in words: each structure is a table of its fields.
#pragma once

#include "tsphost/names.h"

#include <cstddef>
#include <span>
#include <string>
#include <vector>

namespace Tsphost {

enum class FieldKind {
    Number,
    Hexadecimal,
    Flags,
    Value,     // one of the names
    Mode,      // the mode of the call state in the field before it
    Dial,      // LINEDIALPARAMS
    Text,      // size and offset of a wide text
    Bytes,     // size and offset of anything else
    Forwards,  // number, size and offset of LINEFORWARD entries
};

struct Field {
    const char* name;
    std::size_t offset;
    FieldKind kind;
    const Names* names = nullptr;
    bool always = false;  // shown though it is 0
};

extern const std::span<const Field> DevCapsFields, AddressCapsFields, CallInfoFields, CallStatusFields,
    AddressStatusFields, LineDevStatusFields, PhoneCapsFields;

// Room for a structure that the provider sees as `size` bytes long, zeroed but for dwTotalSize as the service hands it
// over, with a guard behind it.
class Buffer {
public:
    explicit Buffer(DWORD size);
    template <class Structure> Structure* As() { return reinterpret_cast<Structure*>(room.data()); }
    std::span<const std::byte> Bytes() const { return std::as_bytes(std::span(room)).first(size); }
    // Whether something was written behind the end.
    bool Overrun() const;

private:
    std::size_t size;
    std::vector<DWORD> room;
};

// Two columns, a line for each field that is not 0 or always shown and lies inside the structure.
std::vector<std::string> FieldLines(std::span<const std::byte> structure, std::span<const Field> fields);
// The text of a VARSTRING, by its format: quoted, or bytes in hexadecimal.
std::string VarStringText(std::span<const std::byte> structure);
std::string Row(const std::string& name, const std::string& value);

}  // namespace Tsphost
