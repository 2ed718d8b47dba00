#include "registry.h"

#include "check.h"

namespace {

constexpr const char* ROOT = "SOFTWARE\\Corvane\\TSpi_6200";

std::string Section(const char* name) {
    return std::string(ROOT) + "\\" + name;
}

}  // namespace

void ClearSettings() {
    HKEY root = nullptr;
    if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, ROOT, 0, KEY_ALL_ACCESS, &root) != ERROR_SUCCESS)
        return;
    for (char name[64]; RegEnumKeyA(root, 0, name, sizeof name) == ERROR_SUCCESS;)
        if (RegDeleteKeyA(root, name) != ERROR_SUCCESS)
            break;
    RegCloseKey(root);
}

void WriteSetting(const char* section, const char* name, const char* text) {
    HKEY key = nullptr;
    LONG error = RegCreateKeyExA(HKEY_LOCAL_MACHINE, Section(section).c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr,
                                 &key, nullptr);
    if (error == ERROR_SUCCESS) {
        error = RegSetValueExA(key, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(text),
                               static_cast<DWORD>(std::string(text).size() + 1));
        RegCloseKey(key);
    }
    Expect(std::string("writing ") + name + ", system error", 0, error);
}

std::string ReadSetting(const char* section, const char* name) {
    HKEY key = nullptr;
    if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, Section(section).c_str(), 0, KEY_READ, &key) != ERROR_SUCCESS)
        return "(none)";
    char text[256] = "";
    DWORD size = sizeof text - 1, type = 0;
    const LONG error = RegQueryValueExA(key, name, nullptr, &type, reinterpret_cast<BYTE*>(text), &size);
    RegCloseKey(key);
    return error == ERROR_SUCCESS && type == REG_SZ ? text : "(none)";
}
