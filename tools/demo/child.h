// The host as a child process, its input and output piped.
#pragma once

#include <string>
#include <vector>

struct Child {
    ~Child();
    // Starts a program with these arguments and environment settings ("NAME=value"). Gives "", or what went wrong.
    std::string Start(const std::string& program, const std::vector<std::string>& arguments,
                      const std::vector<std::string>& environment);
    void Send(const std::string& line);
    // Whole lines that have come since the last call, without waiting.
    std::vector<std::string> Lines();
    int Output() const { return output; }
    bool Ended() const { return ended; }
    // Closes its input and waits for its end; gives its exit status, 255 when it died otherwise.
    int Finish();

private:
    int process = -1, input = -1, output = -1;
    bool ended = false;
    std::string partial;
};
