#include "demo/child.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

Child::~Child() {
    if (process > 0)
        kill(process, SIGKILL);
    Finish();
}

std::string Child::Start(const std::string& program, const std::vector<std::string>& arguments,
                         const std::vector<std::string>& environment) {
    int in[2], out[2];
    if (pipe(in) != 0 || pipe(out) != 0)
        return std::strerror(errno);
    std::signal(SIGPIPE, SIG_IGN);  // a child that has died is noticed by its output
    process = fork();
    if (process < 0)
        return std::strerror(errno);
    if (process == 0) {
        setpgid(0, 0);  // Ctrl-C at the terminal is for the demo, which then ends it in order
        dup2(in[0], STDIN_FILENO);
        dup2(out[1], STDOUT_FILENO);
        dup2(out[1], STDERR_FILENO);
        for (const int file : {in[0], in[1], out[0], out[1]})
            close(file);
        for (const std::string& setting : environment)
            putenv(strdup(setting.c_str()));
        std::vector<char*> argv;
        argv.push_back(strdup(program.c_str()));
        for (const std::string& argument : arguments)
            argv.push_back(strdup(argument.c_str()));
        argv.push_back(nullptr);
        execv(program.c_str(), argv.data());
        _exit(127);
    }
    close(in[0]);
    close(out[1]);
    input = in[1];
    output = out[0];
    fcntl(input, F_SETFD, FD_CLOEXEC);
    fcntl(output, F_SETFL, O_NONBLOCK);
    return {};
}

void Child::Send(const std::string& line) {
    const std::string text = line + "\n";
    if (write(input, text.data(), text.size()) < 0)
        ended = true;
}

std::vector<std::string> Child::Lines() {
    char buffer[4096];
    for (ssize_t count; output >= 0 && (count = read(output, buffer, sizeof buffer)) != -1;) {
        if (count == 0) {
            ended = true;
            break;
        }
        partial.append(buffer, static_cast<std::size_t>(count));
    }
    std::vector<std::string> lines;
    for (std::size_t end; (end = partial.find('\n')) != std::string::npos; partial.erase(0, end + 1))
        lines.push_back(partial.substr(0, end));
    return lines;
}

int Child::Finish() {
    if (input >= 0)
        close(input);
    input = -1;
    if (process < 0)
        return 255;
    int status = 0;
    waitpid(process, &status, 0);
    process = -1;
    if (output >= 0)
        close(output);
    output = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 255;
}
