// Prints the access list of each key ("MACHINE\...") or file that is named on the command line, "NS" for NETWORK SERVICE,
// or the error that it cannot be read with.
#define WIN32_LEAN_AND_MEAN
#include <windows.h>

#include <aclapi.h>
#include <sddl.h>

#include <cstdio>
#include <cstring>

int main(int count, char** names) {
    for (int i = 1; i < count; ++i) {
        const SE_OBJECT_TYPE type = std::strncmp(names[i], "MACHINE\\", 8) == 0 ? SE_REGISTRY_KEY : SE_FILE_OBJECT;
        PSECURITY_DESCRIPTOR list = nullptr;
        char* text = nullptr;
        const DWORD error =
            GetNamedSecurityInfoA(names[i], type, DACL_SECURITY_INFORMATION, nullptr, nullptr, nullptr, nullptr, &list);
        if (error == 0 && ConvertSecurityDescriptorToStringSecurityDescriptorA(
                              list, SDDL_REVISION_1, DACL_SECURITY_INFORMATION, &text, nullptr))
            std::printf("%s %s\n", names[i], text);
        else
            std::printf("%s error %lu\n", names[i], error);
    }
}
