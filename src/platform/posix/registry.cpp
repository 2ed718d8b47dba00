// The registry, in memory or kept in a text file, and the private profile files.
//
// The file is written whole, to a temporary name and then renamed, at each change:
//
//     [HKEY_LOCAL_MACHINE\SOFTWARE\...\Provider]
//     Port="COM1"
//     Count=dword:00000003
//
// In a text, \\ \" \n \r stand for those characters; other bytes are as they are.
#include "platform/simulated/state.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <sstream>

#include <strings.h>

namespace Simulated {

namespace {

struct Value {
    std::string name;
    DWORD type = REG_SZ;
    std::string data;  // as stored, terminators included
};

struct Key {
    std::string name;
    std::vector<Value> values;
    std::vector<std::shared_ptr<Key>> keys;
    bool deleted = false;
};

struct OpenKey : Object {
    std::shared_ptr<Key> key;
    std::string path;
};

bool Same(const std::string& a, const std::string& b) {
    return strcasecmp(a.c_str(), b.c_str()) == 0;
}

// A machine's registry always has this key.
std::shared_ptr<Key> NewMachine() {
    auto machine = std::make_shared<Key>();
    machine->keys.push_back(std::make_shared<Key>());
    machine->keys.back()->name = "SOFTWARE";
    return machine;
}
std::shared_ptr<Key>& Machine = *new std::shared_ptr<Key>(NewMachine());
std::string& FilePath = *new std::string;
bool Chosen = false;  // whether FilePath has been decided
std::shared_ptr<Key> Child(const Key& parent, const std::string& name) {
    for (const auto& key : parent.keys)
        if (Same(key->name, name))
            return key;
    return nullptr;
}

std::shared_ptr<Key> MakeChild(Key& parent, const std::string& name) {
    if (auto there = Child(parent, name))
        return there;
    auto made = std::make_shared<Key>();
    made->name = name;
    parent.keys.push_back(made);
    return made;
}

// Walks a path of names; makes them when `make`.
std::shared_ptr<Key> Walk(std::shared_ptr<Key> key, const std::string& path, bool make) {
    std::istringstream parts(path);
    std::string part;
    while (key != nullptr && std::getline(parts, part, '\\'))
        if (!part.empty())
            key = make ? MakeChild(*key, part) : Child(*key, part);
    return key;
}

Value* ValueOf(Key& key, const std::string& name) {
    for (Value& value : key.values)
        if (Same(value.name, name))
            return &value;
    return nullptr;
}

std::string Escaped(const std::string& text) {
    std::string out;
    for (const char c : text)
        switch (c) {
        case '\\': out += "\\\\"; break;
        case '"': out += "\\\""; break;
        case '\n': out += "\\n"; break;
        case '\r': out += "\\r"; break;
        default: out += c;
        }
    return out;
}

std::string Unescaped(const std::string& text) {
    std::string out;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '\\' || i + 1 == text.size()) {
            out += text[i];
            continue;
        }
        const char c = text[++i];
        out += c == 'n' ? '\n' : c == 'r' ? '\r' : c;
    }
    return out;
}

constexpr const char* ROOT_NAME = "HKEY_LOCAL_MACHINE";

void WriteKey(std::ostream& out, const Key& key, const std::string& path) {
    if (!key.values.empty() || key.keys.empty()) {
        out << '[' << path << "]\n";
        for (const Value& value : key.values) {
            if (value.type == REG_DWORD && value.data.size() == 4) {
                std::uint32_t number = 0;
                std::memcpy(&number, value.data.data(), 4);
                char hex[16];
                std::snprintf(hex, sizeof hex, "%08x", number);
                out << value.name << "=dword:" << hex << '\n';
            } else {
                out << value.name << "=\"" << Escaped(value.data.substr(0, value.data.find('\0'))) << "\"\n";
            }
        }
        out << '\n';
    }
    for (const auto& child : key.keys)
        WriteKey(out, *child, path + '\\' + child->name);
}

void Save() {
    if (FilePath.empty())
        return;
    const std::string temporary = FilePath + ".new";
    {
        std::ofstream out(temporary, std::ios::binary | std::ios::trunc);
        for (const auto& child : Machine->keys)
            WriteKey(out, *child, std::string(ROOT_NAME) + '\\' + child->name);
        if (!out.flush())
            return;  // a full disk: the file stays as it was
    }
    std::rename(temporary.c_str(), FilePath.c_str());
}

// A line "name = value" as people may write it; the value begins with a quotation mark or with "dword:". False when the
// line is none.
bool Split(const std::string& line, std::string& name, std::string& value) {
    for (std::size_t at = line.find('='); at != std::string::npos; at = line.find('=', at + 1)) {
        const std::size_t from = line.find_first_not_of(" \t", at + 1);
        if (from == std::string::npos || (line[from] != '"' && line.compare(from, 6, "dword:") != 0))
            continue;
        name = line.substr(0, at);
        name.erase(name.find_last_not_of(" \t") + 1);
        value = line.substr(from);
        value.erase(value.find_last_not_of(" \t\r") + 1);
        return true;
    }
    return false;
}

void Load() {
    Machine = NewMachine();
    std::ifstream in(FilePath, std::ios::binary);
    std::shared_ptr<Key> key;
    for (std::string line; std::getline(in, line);) {
        if (!line.empty() && line.back() == '\r')
            line.pop_back();
        Value value;
        std::string text;
        if (line.size() > 2 && line.front() == '[' && line.back() == ']') {
            const std::string path = line.substr(1, line.size() - 2);
            const std::size_t root = std::strlen(ROOT_NAME);
            key = Same(path.substr(0, root), ROOT_NAME) ? Walk(Machine, path.substr(root), true) : nullptr;
        } else if (key != nullptr && Split(line, value.name, text)) {
            if (text.starts_with("dword:")) {
                const auto number = static_cast<std::uint32_t>(std::strtoul(text.c_str() + 6, nullptr, 16));
                value.type = REG_DWORD;
                value.data.assign(reinterpret_cast<const char*>(&number), 4);
            } else if (text.size() >= 2 && text.front() == '"' && text.back() == '"') {
                value.data = Unescaped(text.substr(1, text.size() - 2)) + '\0';
            } else {
                continue;
            }
            if (Value* there = ValueOf(*key, value.name))
                *there = value;  // written twice: the later one counts
            else
                key->values.push_back(value);
        }
    }
}

void Choose() {
    if (Chosen)
        return;
    Chosen = true;
    if (const char* path = std::getenv("ZT_REGISTRY")) {
        FilePath = path;
        Load();
    }
}

// The open key behind a handle; a pseudo-handle names the machine's root.
std::shared_ptr<OpenKey> KeyOf(HKEY handle) {
    if (handle == HKEY_LOCAL_MACHINE) {
        Choose();
        auto root = std::make_shared<OpenKey>();
        root->key = Machine;
        root->path = ROOT_NAME;
        return root;
    }
    return std::dynamic_pointer_cast<OpenKey>(Find(reinterpret_cast<HANDLE>(handle)));
}

// The key behind a handle when calls on it, or on this value of it, may go on; null with the error to give.
std::shared_ptr<OpenKey> UsableKey(HKEY handle, const std::string& value, LONG& error) {
    auto open = KeyOf(handle);
    if (open == nullptr)
        error = static_cast<LONG>(ERROR_INVALID_HANDLE);
    else if (open->key->deleted)
        error = static_cast<LONG>(ERROR_KEY_DELETED);
    else
        error = Refusal(open->path, value);
    return error == ERROR_SUCCESS ? open : nullptr;
}

std::string NameOf(LPCSTR name) {
    return name == nullptr ? "" : name;  // a key's value without a name
}

LONG Open(HKEY handle, LPCSTR name, REGSAM rights, bool make, PHKEY result) {
    *result = nullptr;
    LONG error = ERROR_SUCCESS;
    const auto parent = UsableKey(handle, {}, error);
    if (parent == nullptr)
        return error;
    auto open = std::make_shared<OpenKey>();
    open->path = parent->path + '\\' + name;
    if ((error = Refusal(open->path, {}, rights)) != ERROR_SUCCESS)
        return error;
    open->key = Walk(parent->key, name, make);
    if (open->key == nullptr)
        return static_cast<LONG>(ERROR_FILE_NOT_FOUND);
    *result = reinterpret_cast<HKEY>(Register(open));
    return ERROR_SUCCESS;
}

// Gives a value's bytes with the registry's rules: a null buffer asks for the size alone.
LONG Give(const Value& value, DWORD* type, BYTE* data, DWORD* size) {
    if (type != nullptr)
        *type = value.type;
    if (size == nullptr)
        return ERROR_SUCCESS;
    const auto length = static_cast<DWORD>(value.data.size());
    const bool fits = data == nullptr || *size >= length;
    if (data != nullptr && fits)
        std::copy(value.data.begin(), value.data.end(), data);
    *size = length;
    return fits ? ERROR_SUCCESS : static_cast<LONG>(ERROR_MORE_DATA);
}

}  // namespace

void ResetRegistry() {
    Machine = NewMachine();
    FilePath.clear();
    Chosen = true;
}

}  // namespace Simulated

using namespace Simulated;

LONG WINAPI RegOpenKeyExA(HKEY parent, LPCSTR name, DWORD, REGSAM rights, PHKEY key) {
    if (const DWORD failure = Failure("RegOpenKeyExA"))
        return static_cast<LONG>(failure);
    const Guard guard(Lock);
    return Open(parent, name, rights, false, key);
}

LONG WINAPI RegCreateKeyExA(HKEY parent, LPCSTR name, DWORD, LPSTR, DWORD, REGSAM rights, SECURITY_ATTRIBUTES*,
                            PHKEY key, DWORD* disposition) {
    if (const DWORD failure = Failure("RegCreateKeyExA"))
        return static_cast<LONG>(failure);
    constexpr DWORD CREATED = 1, OPENED = 2;
    const Guard guard(Lock);
    LONG result = Open(parent, name, rights, false, key);
    const bool there = result != static_cast<LONG>(ERROR_FILE_NOT_FOUND);
    if (!there)
        result = Open(parent, name, rights, true, key);
    if (result == ERROR_SUCCESS && disposition != nullptr)
        *disposition = there ? OPENED : CREATED;
    if (result == ERROR_SUCCESS && !there)
        Save();
    return result;
}

LONG WINAPI RegQueryValueExA(HKEY handle, LPCSTR name, DWORD*, DWORD* type, BYTE* data, DWORD* size) {
    if (const DWORD failure = Failure("RegQueryValueExA"))
        return static_cast<LONG>(failure);
    const Guard guard(Lock);
    LONG error = ERROR_SUCCESS;
    const auto open = UsableKey(handle, NameOf(name), error);
    if (open == nullptr)
        return error;
    const Value* value = ValueOf(*open->key, NameOf(name));
    return value == nullptr ? static_cast<LONG>(ERROR_FILE_NOT_FOUND) : Give(*value, type, data, size);
}

LONG WINAPI RegSetValueExA(HKEY handle, LPCSTR name, DWORD, DWORD type, const BYTE* data, DWORD size) {
    if (const DWORD failure = Failure("RegSetValueExA"))
        return static_cast<LONG>(failure);
    const Guard guard(Lock);
    LONG error = ERROR_SUCCESS;
    const auto open = UsableKey(handle, NameOf(name), error);
    if (open == nullptr)
        return error;
    Value* value = ValueOf(*open->key, NameOf(name));
    if (value == nullptr) {
        open->key->values.push_back({NameOf(name), type, {}});
        value = &open->key->values.back();
    }
    value->type = type;
    value->data.assign(data, data + size);
    Save();
    return ERROR_SUCCESS;
}

LONG WINAPI RegDeleteKeyA(HKEY parent, LPCSTR name) {
    if (const DWORD failure = Failure("RegDeleteKeyA"))
        return static_cast<LONG>(failure);
    const Guard guard(Lock);
    LONG error = ERROR_SUCCESS;
    const auto above = UsableKey(parent, {}, error);
    if (above == nullptr)
        return error;
    if ((error = Refusal(above->path + '\\' + name)) != ERROR_SUCCESS)
        return error;
    const std::string path = name;
    const std::size_t last = path.rfind('\\');
    const auto holder = last == std::string::npos ? above->key : Walk(above->key, path.substr(0, last), false);
    const auto key =
        holder == nullptr ? nullptr : Child(*holder, path.substr(last == std::string::npos ? 0 : last + 1));
    if (key == nullptr)
        return static_cast<LONG>(ERROR_FILE_NOT_FOUND);
    if (!key->keys.empty())
        return static_cast<LONG>(ERROR_ACCESS_DENIED);
    key->deleted = true;
    std::erase(holder->keys, key);
    Save();
    return ERROR_SUCCESS;
}

LONG WINAPI RegEnumKeyA(HKEY handle, DWORD index, LPSTR name, DWORD size) {
    if (const DWORD failure = Failure("RegEnumKeyA"))
        return static_cast<LONG>(failure);
    const Guard guard(Lock);
    LONG error = ERROR_SUCCESS;
    const auto open = UsableKey(handle, {}, error);
    if (open == nullptr)
        return error;
    if (index >= open->key->keys.size())
        return static_cast<LONG>(ERROR_NO_MORE_ITEMS);
    const std::string& found = open->key->keys[index]->name;
    if (found.size() >= size)
        return static_cast<LONG>(ERROR_MORE_DATA);
    std::memcpy(name, found.c_str(), found.size() + 1);
    return ERROR_SUCCESS;
}

LONG WINAPI RegEnumValueA(HKEY handle, DWORD index, LPSTR name, DWORD* nameSize, DWORD*, DWORD* type, BYTE* data,
                          DWORD* size) {
    if (const DWORD failure = Failure("RegEnumValueA"))
        return static_cast<LONG>(failure);
    const Guard guard(Lock);
    LONG error = ERROR_SUCCESS;
    const auto open = UsableKey(handle, {}, error);
    if (open == nullptr)
        return error;
    if (index >= open->key->values.size())
        return static_cast<LONG>(ERROR_NO_MORE_ITEMS);
    const Value& value = open->key->values[index];
    if ((error = Refusal(open->path, value.name)) != ERROR_SUCCESS)
        return error;
    if (value.name.size() >= *nameSize)
        return static_cast<LONG>(ERROR_MORE_DATA);
    std::memcpy(name, value.name.c_str(), value.name.size() + 1);
    *nameSize = static_cast<DWORD>(value.name.size());
    return Give(value, type, data, size);
}

LONG WINAPI RegCloseKey(HKEY handle) {
    if (handle == HKEY_LOCAL_MACHINE)
        return ERROR_SUCCESS;
    return CloseHandle(reinterpret_cast<HANDLE>(handle)) ? ERROR_SUCCESS : static_cast<LONG>(ERROR_INVALID_HANDLE);
}

// A file named without a path lies in the Windows directory. A null name removes the section, a null text the entry.
BOOL WINAPI WritePrivateProfileStringA(LPCSTR section, LPCSTR name, LPCSTR text, LPCSTR file) {
    if (Fails("WritePrivateProfileStringA"))
        return FALSE;
    std::string path = file;
    if (path.find('\\') == std::string::npos) {
        char directory[512] = "";  // the call can fail
        GetWindowsDirectoryA(directory, sizeof directory);
        path = std::string(directory) + '\\' + path;
    }
    const std::string posix = PlatformControl::PosixPath(path);
    std::vector<std::string> lines;
    {
        std::ifstream in(posix, std::ios::binary);
        for (std::string line; std::getline(in, line);) {
            if (!line.empty() && line.back() == '\r')
                line.pop_back();
            lines.push_back(line);
        }
    }
    const std::string head = std::string("[") + section + "]";
    auto from = std::find_if(lines.begin(), lines.end(), [&](const std::string& line) { return Same(line, head); });
    if (from == lines.end() && name != nullptr && text != nullptr) {
        lines.push_back(head);
        from = lines.end() - 1;
    }
    if (from != lines.end()) {
        const auto to =
            std::find_if(from + 1, lines.end(), [](const std::string& line) { return line.starts_with("["); });
        if (name == nullptr) {
            lines.erase(from, to);
        } else {
            const std::string start = std::string(name) + "=";
            const auto entry = std::find_if(
                from + 1, to, [&](const std::string& line) { return Same(line.substr(0, start.size()), start); });
            if (entry != to && text == nullptr)
                lines.erase(entry);
            else if (entry != to)
                *entry = start + text;
            else if (text != nullptr)
                lines.insert(to, start + text);
        }
    }
    std::ofstream out(posix, std::ios::binary | std::ios::trunc);
    for (const std::string& line : lines)
        out << line << "\r\n";
    return out.good();
}

void PlatformControl::RegistryInFile(const std::string& path) {
    const Guard guard(Lock);
    Chosen = true;
    FilePath = path;
    Load();
}
