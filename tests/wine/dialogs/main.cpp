// The shipped library's windows on a screen, seen and used as by a user. Run by the script beside it, which makes the
// screen, puts the equipment behind the ports and takes the pictures.
#include "check.h"
#include "service.h"
#include "subjects.h"

#include <cstdio>
#include <cstring>

int main(int count, char** words) {
    if (count != 3) {
        std::fputs("usage: dialogs configuration|boxes|service LIBRARY\n", stderr);
        return 2;
    }
    if (std::strcmp(words[1], "service") == 0)
        return RunService(words[2]);
    if (std::strcmp(words[1], "configuration") == 0)
        TryConfiguration(words[2]);
    else if (std::strcmp(words[1], "boxes") == 0)
        TryBoxes(words[2]);
    else
        return 2;
    std::printf("%d failures\n", Failures());
    return Failures() == 0 ? 0 : 1;
}
